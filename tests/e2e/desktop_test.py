"""The desktop program in a measurement, with a user: what it records doesn't depend on what is looked at."""

import os
import signal
import socket

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

    def read_until(self, reader, text):
        got = b""
        while text not in got:
            piece = reader.recv(4096)
            self.assertTrue(piece, got)
            got += piece
        return got

    def test_a_module_that_is_heard_before_the_start_is_added_by_a_click(self):
        simulator = lab.start_simulator(["CAN combo:5"], "--rate", 100)
        self.addCleanup(lab.end, simulator)
        recording = self.path("heard.log")
        desktop = Desktop([], "--add-heard", "--serve", "socketcand://127.0.0.1:29536", setup=self.path("desktop.xml"),
                          record=[recording])
        self.addCleanup(lab.end, desktop.process)
        lab.wait_until(lambda: recording.exists() and recording.stat().st_size > 0, "it is recorded")
        with socket.create_connection(("127.0.0.1", 29536), lab.PATIENCE) as reader:
            reader.sendall(b"< open _CAN_combo_0x10 >< rawmode >")
            self.read_until(reader, b"< frame ")
        told, _ = desktop.stop()
        self.assertEqual([module["cmId"] for module in told["report"]["modules"]], [0x45])
        self.assertEqual([channel["name"] for channel in told["report"]["channels"]], ["Technica CAN combo 0x10"])
        self.assertEqual(told["report"]["serve"]["connected"], 1)

    def test_a_request_to_stop_closes_the_recording_without_a_question(self):
        told = self.measure("--without-question")
        self.assertFalse(told["hasAsked"])

    def test_the_program_ends_by_a_signal_whether_its_display_answers_or_not(self):
        def start(**variables):
            return self.start([lab.STATION, "gui", "--setup", self.path("none.xml")],
                              env={**os.environ, "HOME": str(self.scratch), **variables})

        def end(process, code):
            process.send_signal(signal.SIGTERM)
            _, errors = process.communicate(timeout=lab.PATIENCE)
            self.assertEqual(process.returncode, code, errors)

        process = start(QT_QPA_PLATFORM="xcb", DISPLAY="", WAYLAND_DISPLAY="")
        self.assertIn("there is no screen", process.communicate(timeout=lab.PATIENCE)[1])
        self.assertEqual(process.returncode, 1)
        process = start(QT_QPA_PLATFORM="offscreen")
        lab.wait_until_loaded(process, "cmp_plugin.so")
        end(process, 0)
        with socket.create_server(("127.0.0.1", 6099)) as silent:
            process = start(QT_QPA_PLATFORM="xcb", DISPLAY="127.0.0.1:99")
            with silent.accept()[0]:
                end(process, 1)
        screen, name = lab.start_display()
        self.addCleanup(lab.end, screen)
        process = start(QT_QPA_PLATFORM="xcb", DISPLAY=name)
        lab.wait_until_loaded(process, "cmp_plugin.so")
        screen.send_signal(signal.SIGSTOP)
        end(process, 1)


if __name__ == "__main__":
    main()
