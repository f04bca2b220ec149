"""`--serve` and `extcap`: what python-can, tshark and others read while it is measured is what is recorded."""

import contextlib
import re
import signal
import socket
import sys
import threading
from pathlib import Path
from subprocess import PIPE

import lab
import setups
import traffic
from case import FRONT, RATE, Case, main

PORT = 29536
SERVE = ("--serve", f"socketcand://127.0.0.1:{PORT}")
MESSAGES = 60000  # of which a reader that doesn't read can't be kept
FRAME = re.compile(rb"< (fd)?frame (\w+) (?:00 )?(\d+)\.(\d{6}) (\w*) >\n")
READER = str(Path(__file__).with_name("bus_reader.py"))


class Client:
    """A program that speaks the protocol itself."""

    def __init__(self, *commands, size=1 << 20):
        self.socket = socket.socket()
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, size)
        self.socket.settimeout(lab.PATIENCE)
        self.socket.connect(("127.0.0.1", PORT))
        self.text = b""
        self.answers = [self.answer(), *(self.ask(command) for command in commands)]

    def ask(self, command):
        self.socket.sendall(command.encode())
        return self.answer()

    def answer(self):
        return self.socket.recv(4096).decode()

    def read(self):
        """All there is until the server closes the connection."""
        with contextlib.suppress(ConnectionResetError):
            while piece := self.socket.recv(1 << 16):
                self.text += piece
        self.socket.close()

    def rows(self, name):
        return [traffic.Row(name, int(seconds + fraction) * 1000, "CANFD" if fd else "CAN",
                            int(identifier, 16) | (traffic.EXTENDED if len(identifier) == 8 else 0),
                            bytes.fromhex(data.decode()))
                for fd, identifier, seconds, fraction, data in FRAME.findall(self.text)]


def raw(bus, **options):
    return Client(f"< open {bus} >", "< rawmode >", **options)


class Readers(Case):
    def station(self, *options, record=()):
        station = lab.Station(FRONT, *SERVE, *options, record=record)
        self.addCleanup(lab.end, station.process)
        return station

    def start_python_can(self, bus):
        reader = self.start([sys.executable, READER, PORT, bus, self.path("read.txt")], stdin=PIPE)
        self.assertEqual(reader.stdout.readline(), "ready\n")
        return reader

    def python_can_rows(self, reader, name):
        reader.communicate(timeout=lab.PATIENCE)
        lines = [line.rstrip("\n").split(" ") for line in open(self.path("read.txt"))]
        return [(int(time) * 1000, int(identifier, 16), bytes.fromhex(data)) for time, identifier, data in lines]

    def test_readers_get_what_is_recorded_and_one_that_does_not_read_is_told_and_cut_off(self):
        log = self.path("run.log")
        station = self.station(record=[log])
        sleeper, other = raw("mbo_Front_CAN_1", size=4096), None
        buses = sleeper.answers
        print(buses)


if __name__ == "__main__":
    main()
