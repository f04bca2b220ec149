#!/usr/bin/env python3
"""Every include is one that docs/layers.md allows, and all that it allows is made use of; no file is too long."""

import re
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
OURS = {folder.name for folder in ROOT.iterdir() if folder.is_dir()}
ROW = re.compile(r"\| `([^`]+)` \| (.*)\|")
GAP = r"(?:[ \t]|\\\n|/\*(?:[^*]|\*(?!/))*\*/)*"
INCLUDE = re.compile(rf'(?:^|\*/){GAP}(?:#|%:){GAP}(?:include|include_next|import)\b{GAP}(?:"([^"]+)"|<([^>]+)>|(\w+))',
                     re.MULTILINE)
CODE = (".h", ".hpp", ".inl", ".cpp", ".cc", ".c")


def read_rules(root):
    """What each row of the table allows, longest row first."""
    rows = [match for line in (root / "docs/layers.md").read_text().splitlines() if (match := ROW.match(line))]
    rules = {row[1]: [row[1], *re.findall(r"`([^`]+)`", row[2])] for row in rows}
    return dict(sorted(rules.items(), key=lambda rule: -len(rule[0])))


def find_faults(root):
    """A text for each include that isn't allowed, and one for each entry of the table that no file needs."""
    rules = read_rules(root)
    texts = []
    unused = {(row, entry) for row, allowed in rules.items() for entry in allowed}
    for folder in sorted({row.split("/")[0] for row in rules}):
        for file in sorted((root / folder).rglob("*")):
            if file.suffix not in CODE:
                continue
            name = file.relative_to(root).as_posix()
            row = next((row for row in rules if name.startswith(row)), None)
            unused.discard((row, row))
            for quoted, bracketed, macro in INCLUDE.findall(file.read_text()):
                if bracketed and bracketed.lstrip("./").split("/")[0] not in OURS and ".." not in bracketed:
                    continue  # of the system
                included = quoted or bracketed or macro
                entry = find_entry(included, rules.get(row, []), rules)
                unused.discard((row, entry))
                if entry is None:
                    texts.append(f"{name} may not include {included}")
    return texts, [f"nothing in {row} needs {entry}" for row, entry in sorted(unused)]


def find_entry(included, allowed, rules):
    """The entry that allows it, or None; a folder with a row of its own within an entry isn't part of that."""
    own = next((row for row in rules if row.endswith("/") and included.startswith(row)), "")
    return next((entry for entry in allowed if ".." not in included and
                 (included == entry or (included.startswith(entry) and len(entry) >= len(own)))), None)


class Layers(unittest.TestCase):
    def test_no_file_is_longer_than_500_lines(self):
        files = [file for folder in OURS - {"build", ".git"} for file in (ROOT / folder).rglob("*")]
        self.assertEqual([file.relative_to(ROOT).as_posix() for file in files if file.suffix in (*CODE, ".py") and
                          len(file.read_text().splitlines()) > 500], [])

    def test_no_include_is_against_the_rules_and_none_of_them_is_needless(self):
        self.assertEqual(find_faults(ROOT), ([], []))

    def test_wrong_includes_are_found(self):
        wrong = [
            ("core/a.h", '#include "host/host_app.h"'),
            ("core/b.hpp", '#import "host/host_app.h"'),
            ("capture/a.inl", '/* the plug-in\n */ #include/**/"host/plugin.h"'),
            ("capture/frame_decoder.cpp", '%: include "core/mutex.h"'),
            ("capture/cmp_device.cpp", '#include \\\n "host/host_app.h"'),
            ("bridge/output/a.cpp", "#include <bridge/input/input_channel.h>"),
            ("station/host/a.h", '#include "station/host/../session/session.h"'),
            ("station/gui/a.cpp", "#include <../station/cli/commands.h>"),
            ("station/view/a.cpp", "#include <tests/support/test.h>"),
            ("station/fleet/a.cpp", "#include HEADER"),
            ("simulator/a.cpp", "#include <capture/cmp_message.h>"),
        ]
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            (root / "docs").mkdir()
            (root / "docs/layers.md").write_text((ROOT / "docs/layers.md").read_text())
            for name, line in wrong:
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(f"#pragma once\n#include <string>\n{line}\n")
            found, needless = find_faults(root)
            self.assertEqual([text.split()[0] for text in found], sorted(name for name, _ in wrong))
            self.assertIn("nothing in capture/bus_frame needs host/bus_record.h", needless)


if __name__ == "__main__":
    unittest.main()
