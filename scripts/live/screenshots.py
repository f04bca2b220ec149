"""The live part of scripts/screenshots: pictures of the desktop in a measurement of simulated modules.
screenshots.py FOLDER"""

import os
import sys
import tempfile
from pathlib import Path

import lab
from desktop import Desktop

MODULES = ["CAN combo:5", "LIN combo:2", "NeoviFire3:7"]
NAMES = ["CAN combo:5:Front", "LIN combo:2:Doors", "NeoviFire3:7:Rear"]
PICTURES = ["main_window.png", "all_messages.png", "modules_and_clocks.png", "modules_window.png", "channels_window.png"]


def main(folder):
    for name in PICTURES:
        (folder / name).unlink(missing_ok=True)
    lab.prepare()
    with tempfile.TemporaryDirectory() as scratch:
        os.chdir(scratch)  # so that the picture shows no more than the names of the files
        desktop = Desktop(NAMES, "--pictures", folder, setup="bench.xml", record=[Path("drive.pcapng")], display=True)
        simulator = lab.start_simulator(MODULES, "--rate", 200, "--length", "4-12")
        try:
            lab.wait_until(lambda: desktop.process.poll() is not None
                           or all((folder / name).exists() for name in PICTURES), "the pictures are there")
            desktop.stop()
        finally:
            lab.end(simulator)
            lab.end(desktop.process)


if __name__ == "__main__":
    try:
        main(Path(sys.argv[1]).resolve())
    except lab.Failure as failure:
        sys.exit(f"screenshots: {failure}")
