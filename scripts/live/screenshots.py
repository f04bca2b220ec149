"""The live part of scripts/screenshots: pictures of the desktop in a measurement of simulated modules.
screenshots.py FOLDER"""

import os
import sys
import tempfile
from pathlib import Path

import lab
import setups
from desktop import Desktop

MODULES = ["CAN combo:5", "LIN combo:2", "NeoviFire3:7"]
NAMES = ["CAN combo:5:Front", "LIN combo:2:Doors", "NeoviFire3:7:Rear"]
PICTURES = ["main_window.png", "all_messages.png", "modules_and_clocks.png", "modules_window.png", "channels_window.png",
            "signals.png", "dark.png", "small.png"]
# Of what cmp-sim sends: a counter, and bytes that follow it.
DATABASE = """BU_: Engine
BO_ 320 EngineSpeed: 8 Engine
 SG_ Counter : 0|32@1+ (1,0) [0|0] "" Engine
 SG_ Speed : 0|8@1+ (25,0) [0|8000] "1/min" Engine
BO_ 321 Temperatures: 8 Engine
 SG_ Counter : 0|32@1+ (1,0) [0|0] "" Engine
 SG_ Coolant : 32|8@1+ (0.5,-40) [-40|90] "degC" Engine
BO_ 322 Gearbox: 8 Engine
 SG_ Gear : 0|2@1+ (1,0) [0|3] "" Engine
 SG_ Torque : 0|8@1- (2,0) [-256|254] "Nm" Engine
VAL_ 322 Gear 0 "Neutral" 1 "First" 2 "Second" 3 "Reverse" ;
"""


def main(folder):
    for name in PICTURES:
        (folder / name).unlink(missing_ok=True)
    lab.prepare()
    with tempfile.TemporaryDirectory() as scratch:
        os.chdir(scratch)  # so that the picture shows no more than the names of the files
        Path("engine.dbc").write_text(DATABASE)
        setups.make_measured(Path("bench.xml"), NAMES)
        setups.make(Path("bench.xml"), [["database", "FILE", "Front", "0x10", "--db", "engine.dbc"],
                                        ["bitrate", "FILE", "Front", "all", "--nominal", "500k", "--data", "2M"]])
        desktop = Desktop(None, "--pictures", folder, setup="bench.xml", record=[Path("drive.pcapng")], display=True)
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
