"""`--serve` and `extcap`: what python-can, tshark and others read while it is measured is what is recorded."""

import contextlib
import os
import re
import socket
import sys
import threading
from pathlib import Path
from subprocess import PIPE

import lab
import setups
import traffic
from case import FRONT, MODULES, NAMES, RATE, Case, main

PORT = 29536
SERVE = ("--serve", f"socketcand://127.0.0.1:{PORT}")
RATE_OF_READERS = int(os.environ.get("CMP_READERS_RATE", 10 * RATE))
MESSAGES = int(os.environ.get("CMP_READERS_MESSAGES", 60000))  # of which a reader that doesn't read can't be kept
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
        """Nothing, if it was refused."""
        with contextlib.suppress(ConnectionError):
            self.socket.sendall(command.encode())
            return self.answer()
        return ""

    def answer(self):
        return self.socket.recv(4096).decode()

    def close(self):
        self.socket.close()
        return self.answers[1:]

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
    def setUp(self):
        self.path("it's").mkdir()
        self.setup = self.path("it's") / "my bench {1}.xml"
        setups.make_measured(self.setup, NAMES)
        self.home = {**os.environ, "HOME": str(self.path("home"))}

    def station(self, *options, record=()):
        station = lab.Station(FRONT, *SERVE, *options, record=record)
        self.addCleanup(lab.end, station.process)
        return station

    def captures(self):
        """The stations that capture for Wireshark: whether each has begun."""
        found = []
        for process in Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                if f"{self.setup}\0" in (process / "cmdline").read_text() and "--fifo" in (process / "cmdline").read_text():
                    found.append(any(comm.read_text() == "cmp-capture\n" for comm in process.glob("task/*/comm")))
        return found

    def start_tshark(self, interface, messages, *options):
        """It captures, until it has so many, when this returns."""
        tshark = self.start(["tshark", "-q", "-i", interface, "-c", messages, *options], env=self.home)
        lab.wait_until(lambda: tshark.poll() is not None or self.captures() == [True], "tshark captures")
        return tshark

    def install(self):
        """The modules of the setup become interfaces of Wireshark; their names there."""
        output, _ = self.expect(0, "extcap", "--install", self.setup, env=self.home)
        return re.findall(r"^  (\S+)  ", output, re.M)

    def start_python_can(self, bus):
        reader = self.start([sys.executable, READER, PORT, bus, self.path("read.txt")], stdin=PIPE)
        self.assertEqual(reader.stdout.readline(), "ready\n", bus)
        return reader

    def read_by_python_can(self, reader, name):
        """Its end: what it has read. It tells extended identifiers by their size, as those here allow."""
        reader.communicate(timeout=lab.PATIENCE)
        lines = [line.split(" ") for line in self.path("read.txt").read_text().splitlines()]
        numbers = [(int(time) * 1000, int(identifier, 16), bytes.fromhex(data)) for time, identifier, data in lines]
        return [traffic.Row(name, time, "CAN", identifier | (traffic.EXTENDED if identifier > 0x7FF else 0), data)
                for time, identifier, data in numbers]

    def simulate(self, messages, *options, rate=RATE):
        return lab.simulate(["CAN combo:5,channels=1"], "--rate", rate, "--messages", messages, *options)

    def recorded(self, path):
        return [row._replace(time=row.time // 1000 * 1000) for row in traffic.read_with_tshark(path)]

    def test_readers_get_what_is_recorded_and_one_that_does_not_read_is_told_and_cut_off(self):
        file = self.path("run.pcapng")
        station = self.station(record=[file])
        sleeper, reader = raw("Front_0x10", size=4096), raw("Front_0x10")
        silent = raw("Front_0x20")
        self.assertEqual(sleeper.answers, ["< hi >", "< ok >", "< ok >"])
        python_can = self.start_python_can("Front_0x10")
        interface = self.install()[0]
        tshark = self.start_tshark(interface, MESSAGES, "-w", self.path("tshark.pcapng"))
        threads = [threading.Thread(target=client.read) for client in (reader, silent)]
        for thread in threads:
            thread.start()
        sent = self.simulate(MESSAGES, "--length", "4-64", rate=RATE_OF_READERS)
        tshark.communicate(timeout=lab.PATIENCE)
        lab.wait_until(lambda: not self.captures(), "the capture of tshark has ended")
        report, errors = station.stop()
        for thread in threads:
            thread.join()
        rows = self.recorded(file)
        self.assertEqual(traffic.count_differences(sent, report), [])
        self.assertEqual(report["lostMessages"], 0)
        self.assertEqual(traffic.first_difference("reader", rows, reader.rows("Front 0x10")), [])
        self.assertEqual(traffic.first_difference("python-can", [row for row in rows if row.bus == "CAN"],
                                                  self.read_by_python_can(python_can, "Front 0x10")), [])
        self.assertEqual(silent.text, b"")
        # Of a measurement of its own, whose clock is fitted by itself.
        captured = traffic.read_with_tshark(self.path("tshark.pcapng"))
        self.assertEqual(traffic.first_difference("tshark", [row[2:] for row in rows], [row[2:] for row in captured]), [])
        self.assertLess(max(abs(a.time - b.time) for a, b in zip(rows, captured)), traffic.fitted(sent) * 10**9)
        # What the system still had for it, and in the end what it lost.
        sleeper.read()
        read = sleeper.rows("Front 0x10")
        self.assertEqual(read, rows[:len(read)])
        lost = int(re.search(rb">\n< error slow reader, (\d+) frames lost >$", sleeper.text)[1])
        self.assertLessEqual(len(read) + lost, MESSAGES)
        serve = report["serve"]
        self.assertEqual((serve["connected"], serve["cutOff"], serve["lost"]), (4, 1, lost))
        self.assertEqual(serve["sent"], 2 * len(rows) + len(read))
        self.assertRegex(errors, f"reader at 127.0.0.1:.* of bus Front_0x10 was too slow .* {lost} messages")

    def test_what_clients_do_changes_nothing(self):
        file = self.path("run.pcapng")
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as network:
            network.bind(("", 42000))
            network.settimeout(lab.PATIENCE)
            station = self.station("--serve-beacon", record=[file])
            beacon = network.recv(65536).decode()
        self.assertRegex(beacon, f"^<CANBeacon .*<URL>can://127.0.0.1:{PORT}</URL>.*<Bus name=\"Front_0x70\"/>")
        reader = raw("Front_0x10")
        self.assertEqual([reader.ask(command) for command in ("< send 123 1 00 >", "<echo>", "< bcmmode >")],
                         ["< error nothing can be sent here, buses are only read > ", "< echo > ",
                          "< error unknown command, only raw mode is there > "])
        threads = [threading.Thread(target=reader.read), threading.Thread(target=self.flood)]
        for thread in threads:
            thread.start()
        sent = self.simulate(3 * RATE)
        threads[1].join()
        for client in self.crowd:
            client.close()
        lab.wait_until(lambda: "no such bus, there are Front_0x10 Front_0x20" in Client("< open vcan0 >").close()[0],
                       "there is room again for a reader that names a wrong bus")
        self.assertEqual(Client("< rawmode >", "<  open Front_0x20\n>< rawmode >").close(),
                         ["< error open a bus first >", "< ok >< ok >"])
        report, _ = station.stop()
        for thread in threads:
            thread.join()
        rows = self.recorded(file)
        self.assertEqual(traffic.count_differences(sent, report), [])
        self.assertEqual(traffic.first_difference("reader", rows, reader.rows("Front 0x10")), [])
        self.assertGreater(report["serve"]["refused"], 100)
        self.assertEqual([report["serve"][count] for count in ("readers", "sent", "cutOff", "lost")],
                         [0, len(rows), 1, 0])

    def flood(self):
        """Garbage without end, commands without end whose answers nobody reads, and more connections than there is
        room for, which keep silent."""
        for piece in (b"\0" * 65536, b"< open " + b"x" * 65536, b"< echo >" * 8192):
            with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", PORT)) as client:
                client.settimeout(lab.PATIENCE)
                for _ in range(1000):
                    client.sendall(piece)
        self.crowd = []
        for _ in range(200):
            self.crowd.append(socket.create_connection(("127.0.0.1", PORT)))

    def test_an_address_that_cannot_be_served_is_said_before_the_measurement(self):
        station = self.station()
        file = self.path("run.pcapng")
        run = ["run", "--module", "CAN combo:5", "--record", file, "--serve"]
        for code, address, words in [(1, f"socketcand://127.0.0.1:{PORT}", "another program is there"),
                                     (1, "socketcand://192.0.2.1:29536", "Cannot assign requested address"),
                                     (2, "127.0.0.1:29536", "no socketcand://"),
                                     (2, "socketcand://bench:1", "no IPv4 address"),
                                     (2, "socketcand://::1", "IPv6 addresses aren't served"),
                                     (2, "socketcand://127.0.0.1:0", "no port")]:
            self.assertIn(words, self.expect(code, *run, address)[1])
        self.assertFalse(file.exists())
        station.stop()

    def test_tshark_captures_a_module_of_a_setup_and_nothing_else(self):
        interfaces = self.install()
        self.assertEqual(interfaces, [f"cmp-my_bench__1_-0x{number}" for number in (5, 2, 7)])
        listed = lab.call(["tshark", "-D"], env=self.home)[1]
        for interface, name in zip(interfaces, ("Front (CAN combo", "Doors (LIN combo", "Rear (NeoviFire3")):
            self.assertIn(f"{interface} ({name}, my bench (1).xml)", listed)
        for interface, module, channels in zip(interfaces, MODULES, (7, 10, 19)):
            file = self.path(interface)
            tshark = self.start_tshark(interface, RATE * channels, "-w", file)
            sent = lab.simulate(MODULES, "--rate", RATE, "--duration", 1, "--length", "1-64")
            tshark.communicate(timeout=lab.PATIENCE)
            lab.wait_until(lambda: not self.captures(), "the capture has ended")
            sent["modules"] = [each for each in sent["modules"] if module.startswith(each["type"])]
            names = {(each["cmId"], channel["interfaceId"]): f"{name} 0x{channel['interfaceId']:X}"
                     for name in (next(text.split(":")[2] for text in NAMES if text.startswith(module)),)
                     for each in sent["modules"] for channel in each["channels"]}
            self.assertEqual(traffic.row_differences(sent, names, traffic.read_with_tshark(file)), [])
        # Now and then tshark doesn't show what the other program says before it ends.
        filtered = ["tshark", "-i", interfaces[0], "-f", "can", "-c", "1"]
        lab.wait_until(lambda: "capture filters aren't there" in lab.call(filtered, env=self.home)[2], "it is refused")
        pipe = self.path("pipe")
        os.mkfifo(pipe)
        capture = self.start([lab.STATION, "extcap", "--setup", self.setup, "--capture", "--fifo", pipe,
                              "--extcap-interface", interfaces[0]])
        with open(pipe, "rb"):
            lab.wait_until(lambda: self.captures() == [True], "it captures")
        self.assertEqual(capture.wait(lab.PATIENCE), 0, "nobody reads any more, though no message came")
        self.setup.write_text("<")
        self.assertNotIn("cmp-", lab.call(["tshark", "-D"], env=self.home)[1])


if __name__ == "__main__":
    main()
