"""The desktop program in a measurement, with a user: what it records doesn't depend on what is looked at."""

import os
import re
import signal
from pathlib import Path

import lab
from case import MODULES, NAMES, RATE, Case, main
from desktop import Desktop


class DesktopMeasures(Case):
    def measure(self, *options, display=False):
        recording = self.path("desktop.pcapng")
        desktop = Desktop(NAMES, *options, setup=self.path("desktop.xml"), record=[recording], display=display)
        self.addCleanup(lab.end, desktop.process)
        sent = lab.simulate(MODULES, "--rate", RATE, "--duration", 3, "--length", "0-24")
        desktop.settle()
        told, _ = desktop.stop()
        self.assertFalse(told["hasLost"])
        self.expect_complete(sent, told["report"], recording)
        return told

    def test_nothing_that_a_user_does_silences_a_recording_and_a_closed_window_asks_and_closes_it_whole(self):
        told = self.measure("--disturb", display=True)
        self.assertTrue(told["hasAsked"])

    def test_a_wish_to_end_closes_the_recording_without_a_question(self):
        told = self.measure("--without-question")
        self.assertFalse(told["hasAsked"])

    def test_the_program_ends_by_a_signal(self):
        process = lab.spawn([lab.STATION, "gui", "--setup", str(self.path("none.xml"))], stdout=-1, stderr=-1,
                            env={**os.environ, "QT_QPA_PLATFORM": "offscreen", "HOME": str(self.scratch)})
        self.addCleanup(lab.end, process)
        proc = Path(f"/proc/{process.pid}")
        lab.wait_until(lambda: (proc / "exe").readlink().name == "cmp-station-gui", "the desktop runs")
        signals = re.compile(r"SigBlk:\s*(\w+)")  # blocked, and read from a descriptor
        lab.wait_until(lambda: int(signals.search((proc / "status").read_text())[1], 16) >> signal.SIGTERM - 1 & 1,
                       "it listens to signals")
        process.send_signal(signal.SIGTERM)
        _, errors = process.communicate(timeout=lab.PATIENCE)
        self.assertEqual(process.returncode, 0, errors)


if __name__ == "__main__":
    main()
