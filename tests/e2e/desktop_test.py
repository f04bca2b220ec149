"""The desktop program in a measurement, with a user: what it records doesn't depend on what is looked at."""

import os
import signal
import socket
import subprocess
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

    def start(self, **variables):
        process = lab.spawn([lab.STATION, "gui", "--setup", str(self.path("none.xml"))], stderr=subprocess.PIPE,
                            env={**os.environ, "HOME": str(self.scratch), **variables})
        self.addCleanup(lab.end, process)
        return process

    def end(self, process, code):
        process.send_signal(signal.SIGTERM)
        _, errors = process.communicate(timeout=lab.PATIENCE)
        self.assertEqual(process.returncode, code, errors)

    def wait_for_window(self, process):
        maps = Path(f"/proc/{process.pid}/maps")
        lab.wait_until(lambda: "cmp_plugin.so" in maps.read_text(), "the desktop runs")

    def test_the_program_ends_by_a_signal_whether_its_display_answers_or_not(self):
        process = self.start(QT_QPA_PLATFORM="offscreen")
        self.wait_for_window(process)
        self.end(process, 0)
        with socket.create_server(("127.0.0.1", 6099)) as silent:
            process = self.start(QT_QPA_PLATFORM="xcb", DISPLAY="127.0.0.1:99")
            with silent.accept()[0]:
                self.end(process, 1)
        screen = lab.spawn(["Xvfb", "-displayfd", "1"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.addCleanup(lab.end, screen)
        process = self.start(QT_QPA_PLATFORM="xcb", DISPLAY=f":{screen.stdout.readline().strip()}")
        self.wait_for_window(process)
        screen.send_signal(signal.SIGSTOP)
        self.end(process, 1)


if __name__ == "__main__":
    main()
