"""`cmp-station run` on a terminal: the table, and what is left of it."""

import fcntl
import os
import pty
import re
import select
import signal
import struct
import termios
import time

import lab
import traffic
from case import CAN, FRONT, Case, main

ENTER, LEAVE, SHOW_CURSOR, HOME = b"\x1b[?1049h", b"\x1b[?1049l", b"\x1b[?25h", b"\x1b[H"


class Terminal(Case):
    def setUp(self):
        self.child, self.terminal = pty.fork()
        if self.child == 0:
            if "errors" in self._testMethodName:
                os.dup2(os.open(self.path("told"), os.O_WRONLY | os.O_CREAT), 2)
            fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", 30, 100, 0, 0))
            kind = "dumb" if "dumb" in self._testMethodName else "xterm"
            os.execve(lab.STATION, [lab.STATION, "run", *lab.repeat("--module", FRONT), "--record",
                                    str(self.path("a.pcapng"))], {**os.environ, "TERM": kind})
        self.addCleanup(lambda: self.child and os.kill(self.child, signal.SIGKILL))
        self.before = termios.tcgetattr(self.terminal)
        self.seen = b""

    def read_until(self, pattern):
        end = time.monotonic() + lab.PATIENCE
        while not re.search(pattern, self.seen):
            self.assertLess(time.monotonic(), end, f"no {pattern} in {self.seen[-2000:]}")
            if select.select([self.terminal], [], [], 1)[0]:
                try:
                    self.seen += os.read(self.terminal, 65536)
                except OSError:  # its other end is closed
                    break

    def test_table_shows_modules_and_counts_and_ctrl_c_leaves_all_in_order(self):
        self.read_until(re.escape(HOME))
        sent = lab.simulate(CAN, "--rate", 50, "--duration", 2)
        self.read_until(rb"Front  \[CAN combo\]  ConfigId 0x5  serial 100000  Connected")
        self.read_until(rb"Front 0x70 +CAN FD +100 +\d+/s  0x\w+(\(ext\))?: 63 00 00 00 ")
        for number in range(3):
            self.add_link(f"late{number}")
            self.read_until(b"late%d is captured from now on" % number)
            lab.ip(f"link del late{number}")
            self.read_until(b"late%d went away" % number)
        screens = self.seen.split(HOME)
        self.assertEqual((screens[-1].count(b"interface late"), screens[-1].count(b"last 5 of 6")), (5, 1))
        self.assertGreater(len(screens), 5)
        for line in screens[-2].split(b"\x1b[K"):
            self.assertLess(len(line.strip()), 100)  # a line that wraps moves all below it
        os.write(self.terminal, b"\x03")
        self.read_until(rb"1049l[^$]*records, ")
        _, status = os.waitpid(self.child, 0)
        self.child = 0
        self.assertEqual(status, 0)
        table, left = self.seen.split(LEAVE)
        self.assertEqual((self.seen.count(ENTER), table.endswith(SHOW_CURSOR)), (1, True))
        self.assertRegex(left, rb"Front 0x10 +CAN FD +100 .*\r\n")  # stays on the screen
        self.assertEqual(left.count(b"interface late"), 6)
        self.assertNotIn(b"\x1b", left)
        self.assertEqual(termios.tcgetattr(self.terminal), self.before)
        self.assertEqual(len(traffic.read_with_tshark(self.path("a.pcapng"))), sent["dataMessages"])

    def test_table_is_left_and_messages_are_kept_where_errors_go_elsewhere(self):
        self.read_until(re.escape(HOME))
        self.add_link("late3")
        self.read_until(b"late3 is captured from now on")
        os.kill(self.child, signal.SIGTERM)
        os.kill(self.child, signal.SIGINT)  # ends it at once
        self.read_until(re.escape(LEAVE))
        self.assertEqual(self.path("told").read_text(),
                         "interface late3 is captured from now on\nended at once\n")

    def test_dumb_terminal_gets_lines(self):
        self.read_until(rb"2 s: 0 of 1 modules connected")
        self.assertNotIn(b"\x1b", self.seen)


if __name__ == "__main__":
    main()
