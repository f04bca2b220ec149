#!/usr/bin/env python3
"""Every include is one that docs/layers.md allows."""

import re
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
ROW = re.compile(r"\| `([^`]+)` \| (.*)\|")
INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)
CODE = (".h", ".hpp", ".inl", ".cpp", ".cc", ".c")


def read_rules(root):
    """What each row of the table allows, longest row first."""
    rows = [match for line in (root / "docs/layers.md").read_text().splitlines() if (match := ROW.match(line))]
    rules = {row[1]: [row[1], *re.findall(r"`([^`]+)`", row[2])] for row in rows}
    return dict(sorted(rules.items(), key=lambda rule: -len(rule[0])))


def find_violations(root):
    """A text for each include that isn't allowed, and for each file that no row is for."""
    rules = read_rules(root)
    texts = []
    folders = sorted({row.split("/")[0] for row in rules})
    for folder in folders:
        for file in sorted((root / folder).rglob("*")):
            if file.suffix not in CODE:
                continue
            name = file.relative_to(root).as_posix()
            row = next((row for row in rules if name.startswith(row)), None)
            for quoted, bracketed in INCLUDE.findall(file.read_text()):
                if bracketed and bracketed.split("/")[0] not in folders:
                    continue  # of the system
                included = quoted or bracketed
                if row is None or not is_allowed(included, rules[row], rules):
                    texts.append(f"{name} may not include {included}")
    return texts


def is_allowed(included, allowed, rules):
    """`included` lies in one of `allowed`; a folder with a row of its own within it isn't part of it."""
    own = next((row for row in rules if row.endswith("/") and included.startswith(row)), "")
    return any(included == entry or (included.startswith(entry) and len(entry) >= len(own)) for entry in allowed)


class Layers(unittest.TestCase):
    def test_no_include_is_against_the_rules(self):
        self.assertEqual(find_violations(ROOT), [])

    def test_wrong_includes_are_found(self):
        wrong = [
            ("core/a.h", "host/host_app.h"),
            ("core/b.hpp", "host/host_app.h"),
            ("capture/a.inl", "host/plugin.h"),
            ("capture/frame_decoder.cpp", "core/mutex.h"),
            ("capture/cmp_device.cpp", "host/host_app.h"),
            ("bridge/output/a.cpp", "bridge/input/input_channel.h"),
            ("station/host/a.h", "station/session/session.h"),
            ("station/gui/a.cpp", "station/cli/commands.h"),
            ("simulator/a.cpp", "capture/cmp_message.h"),
        ]
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            (root / "docs").mkdir()
            (root / "docs/layers.md").write_text((ROOT / "docs/layers.md").read_text())
            for name, included in wrong:
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                line = f"#include <{included}>" if "a.cpp" in name else f'#include "{included}"'
                (root / name).write_text(f"#pragma once\n#include <string>\n{line}\n")
            self.assertEqual(find_violations(root),
                             [f"{name} may not include {included}" for name, included in sorted(wrong)])


if __name__ == "__main__":
    unittest.main()
