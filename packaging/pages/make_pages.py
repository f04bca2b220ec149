"""make_pages.py BIN VERSION TIME OUT

Writes what the packages contain beside programs and settings, into the folder OUT: manual pages and completion, made
from what the programs in the folder BIN say of themselves, the changelogs, and the copyright file.
TIME, in seconds since 1970, is the date in them."""

import gzip
import sys
import time
from email.utils import formatdate
from pathlib import Path

sys.dont_write_bytecode = True
import command_help  # noqa: E402
import completion  # noqa: E402
import manual  # noqa: E402

HERE = Path(__file__).parent
ROOT = HERE.parent.parent
PROGRAMS = {"cmp-station": "record CAN and LIN buses through Ethernet capture modules",
            "cmp-sim": "capture modules in software"}
# Debian packages whose header files become part of the programs, so that their terms go with these.
COMPILED_IN = ["libcli11-dev", "nlohmann-json3-dev", "libfmt-dev", "libutfcpp-dev"]


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


def write_compressed(path, text):
    path.write_bytes(gzip.compress(text.encode(), 9, mtime=0))


def main(programs, version, moment, out):
    moment = int(moment)
    out = Path(out)
    day = time.strftime("%Y-%m-%d", time.gmtime(moment))
    for name, purpose in PROGRAMS.items():
        root = command_help.read_command(str(Path(programs) / name))
        more = (HERE / f"{name}.more").read_text()
        write(out / "bash" / name, completion.bash(name, root))
        write(out / "zsh" / f"_{name}", completion.zsh(name, root))
        write_compressed(out / f"{name}.1.gz", manual.page(name, purpose, root, version.split("-")[0], day, more))
    write_compressed(out / "changelog.gz", (ROOT / "CHANGELOG.md").read_text())
    maintainer = (ROOT / "packaging/debian/maintainer").read_text().strip()
    write_compressed(out / "changelog.Debian.gz", f"cmp-capture ({version}) unstable; urgency=medium\n\n"
                     f"  * What is new stands in changelog.gz.\n\n -- {maintainer}  {formatdate(moment)}\n")
    terms = [(ROOT / "packaging/debian/copyright").read_text()]
    for package in COMPILED_IN:
        text = Path(f"/usr/share/doc/{package}/copyright").read_text()
        terms.append(f"{'-' * 78}\nOf {package}, parts of which are compiled in:\n\n{text}")
    write(out / "copyright", "\n".join(terms))


if len(sys.argv) != 5:
    sys.exit(__doc__)
main(*sys.argv[1:])
