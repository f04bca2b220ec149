"""What users meet on the command line: exit codes and messages, files and disks that fail, ways to end."""

import contextlib
import json
import os
import random
import re
import resource
import select
import shutil
import signal
import socket
import struct
import time
from pathlib import Path
from subprocess import PIPE

import lab
import traffic
from case import CAN, FRONT, RATE, Case, main

FORMATS = [".pcapng", ".log", ".asc", ".csv", ".blf", ".mf4"]
NOT_ALLOWED = ["setpriv", "--bounding-set", "-all", "--inh-caps", "-all"]

# One TECMP frame with a CAN and a LIN-shaped message, written down by hand, and what is printed of it.
TWO_MESSAGES = bytes.fromhex(
    "FFFFFFFFFFFF 020000000001 99FE 0045 0007 03 03 0002 0000 000F"
    "00000010 000000003B9ACA05 000A 0000 98DA01F1 03 AABB0C C5C5"
    "00000020 0000000000000000 0009 0000 00000123 02 0102 C5C5")
TEXT = """\
HEADER
CM ID:        69
Counter:      7
Data type:    2
Data length:  {}
Message type: 3
Version:      3
Chn. ID:      {}
Time: {}
{} \n{} \n
"""
TWO_TEXTS = [TEXT.format(10, 16, "1.        5", "98 DA 01 F1 03 AA BB 0C C5 C5", "0x18DA01F1(ext): AA BB 0C"),
             TEXT.format(9, 32, "0.        0", "00 00 01 23 02 01 02 C5 C5", "0x123: 01 02")]
# Sends that frame for five seconds, its times always the same, two others missing after each.
STANDS_STILL = f"""
import socket, time
link = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
link.bind(("sim0", 0))
for number in range(50):
    link.send({TWO_MESSAGES[:16]} + bytes([0, 3 * number]) + {TWO_MESSAGES[18:]})
    time.sleep(0.1)
"""


def pcap(*seconds, link_type=1, kept=len(TWO_MESSAGES)):
    """A capture file that holds the frame, or so much of it, at each of these seconds."""
    length = len(TWO_MESSAGES)
    head = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, link_type)
    return head + b"".join(struct.pack("<IIII", second, 0, kept, length) + TWO_MESSAGES[:kept] for second in seconds)


class CommandLine(Case):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.stored = cls.scratch / "stored.pcap"
        lab.call([lab.SIMULATOR, "--write", cls.stored, "--module", "CAN combo:5,channels=1", "--messages", "1000",
                  "--status", "0"])

    def record(self, *recordings, seconds=1):
        """A station that has recorded what a simulator has sent, and the latter's report."""
        station = lab.Station(FRONT, record=recordings)
        self.addCleanup(lab.end, station.process)
        sent = lab.simulate(CAN, "--rate", RATE, "--duration", seconds)
        station.settle()
        return station, sent

    def test_help_and_version_are_good(self):
        for arguments in (["--help"], ["run", "--help"], ["convert", "--help"], ["dump", "--help"]):
            self.assertIn("Examples:", self.expect(0, *arguments)[0])
        self.assertRegex(self.expect(0, "--version")[0], r"^cmp-station \d+\.\d+\.\d+\n$")

    def test_wrong_use_is_told_with_what_is_right_and_leaves_no_recording(self):
        recording = self.path("a.pcapng")
        for arguments, told in (
            ([], "subcommand"),
            (["play"], "subcommand"),
            (["run", "--record", recording, "--module", "CAN box:5"], "LIN combo, CAN combo, NeoviFire3"),
            (["run", "--module", "CAN combo:65536"], "0 to 65535"),
            (["run", "--module", "CAN combo"], "CAN combo:5:Front"),
            (["run", "--module", "CAN combo:5", "--module", "can COMBO:5:B"], "different ConfigIds"),
            (["run", "--duration", "1"], "name modules with --module"),
            (["run", "--setup", self.empty_setup()], "has no modules"),
            (["run", "--module", "CAN combo:5:\udcff"], "not UTF-8"),
            (["run", "--duration", "0"], "--duration"),
            (["run", "--duration", "nan"], "nan is no number from 0.001 to"),
            (["run", "--setup", ""], "it is empty"),
            *((["run", "--module", *CAN, "--record", recording, "--metrics", where], "--metrics")
              for where in ("0", "65536", "localhost:80", "127.1:80", "[::1]:80", ":80", "80s", "")),
            *((["run", "--module", *CAN, "--interface", name], "can't be the name of an interface")
              for name in ("", "0123456789abcdef", "net/eth0", "eth0 ")),
            (["run", "--module", *CAN, "--record", self.path("a.txt")], ".pcapng"),
            (["dump"], "FILE"),
            (["dump", self.stored, "--count", "0"], "--count"),
            (["dump", self.stored, "--count", "-1"], "--count"),
            (["convert", self.stored], "OUT"),
            (["convert", self.stored, recording, self.path("b.txt")], ".pcapng"),
            (["convert", self.stored, self.stored], "is the input"),
            *((["convert", pipe, recording], "no file that can be read twice") for pipe in ("/dev/stdin", "-")),
        ):
            self.assertIn(told, "".join(self.expect(2, *arguments)), arguments)
            self.assertFalse(recording.exists())

    def test_no_argument_and_no_name_moves_the_cursor_or_looks_like_a_line_of_its_own(self):
        hostile = "a\x1b[2J\ncmp-station: b"
        frames = self.path(hostile)
        simulate = [lab.SIMULATOR, "--messages", "9", "--module"]
        for code, lines, words in (
            (2, (0, 1), [lab.STATION, hostile]), (2, (0, 1), [lab.STATION, "run", "--" + hostile]),
            (3, (0, 1), [lab.STATION, "setup", "show", hostile]), (2, (0, 1), [lab.BIN / "cmp-station-gui", hostile]),
            (2, (0, 1), [*simulate, hostile]), (2, (0, 1), [*simulate, *CAN, "--" + hostile]),
            (0, (2, 0), [*simulate, *CAN, "--write", frames]), (2, (0, 1), [*simulate, *CAN, "--write", frames]),
        ):
            returned, *texts = lab.call(words)
            self.assertEqual((returned, tuple(text.count("\n") for text in texts)), (code, lines), (words, texts))
            self.assertTrue(all(c.isprintable() for c in "".join(texts).replace("\n", "")), texts)
        store = self.path("registry")
        variables = lab.with_store(store)
        self.expect(0, "plugins", "--register", lab.PLUGIN, env=variables)
        before = self.expect(0, "plugins", env=variables)[0]
        for file in store.rglob("values"):
            file.write_text(re.sub(r"^((Name|Vendor)\ttext\t.*)$", r"\1\\na", file.read_text(), flags=re.M))
        after = self.expect(0, "plugins", env=variables)[0]
        self.assertEqual((after.count("\n"), after.count("?a")), (before.count("\n"), 2), after)

    def empty_setup(self):
        path = self.path("empty.xml")
        self.expect(0, "setup", "new", path)
        return path

    def test_what_is_there_is_overwritten_on_request_alone(self):
        recording, frames, empty = self.path("a.pcapng"), self.path("a.pcap"), self.path("a.log")
        empty.touch()
        for path in (recording, frames):
            path.write_text("kept")
        simulate = [lab.SIMULATOR, "--write", frames, "--module", *CAN, "--messages", "9", "--duration"]
        self.assertIn("--overwrite", self.expect(1, "convert", self.stored, recording)[1])
        self.expect(2, "convert", self.stored, recording, "--overwrite", "--module", "CAN box:5")
        self.expect(2, "run", "--record", recording, "--record", empty, "--overwrite", "--module", "CAN box:5")
        self.assertEqual(empty.read_text(), "")
        for words, told in (([*simulate, "1"], "--overwrite"), ([*simulate, "nan", "--overwrite"], "nan")):
            code, _, errors = lab.call(words)
            self.assertEqual((code, told in errors), (2, True), errors)
        self.assertEqual((recording.read_text(), frames.read_text()), ("kept", "kept"))
        convert = f"'{lab.STATION}' convert - '{recording}' --overwrite --module '{CAN[0]}'"
        self.assertEqual(lab.call(["sh", "-c", f"cat '{self.stored}' | {convert}"])[0], 0)
        self.assertEqual(len(traffic.read_with_tshark(recording)), 1000)
        self.assertEqual(lab.call([*simulate, "1", "--overwrite"])[0], 0)

    def test_device_time_that_stands_still_or_jumps_and_missing_frames_are_told(self):
        stored, text = self.path("a.pcap"), 'the device time of "Front" stands still'
        stored.write_bytes(pcap(*range(6)))
        _, errors = self.expect(0, "convert", stored, self.path("a.pcapng"), "--module", *FRONT)
        self.assertEqual(errors.count(text), 1, errors)
        station = lab.Station(FRONT)
        lab.call(["nsenter", "--net=/run/netns/modules", "python3", "-c", STANDS_STILL])
        _, report, errors = station.stop_with_any_code()
        self.assertEqual((errors.count(text), errors.count("isn't continuous")), (1, 1), errors)
        self.assertTrue(report["modules"][0]["timeStandsStill"])
        self.assertEqual(report["modules"][0]["missingFrames"], 98)
        station = lab.Station(FRONT)
        lab.simulate(["CAN combo:5,jump=60@0.5"], "--rate", 50, "--duration", 2)
        self.assertIn('the device time of "Front" jumped, or had a wrong value (1 so far)', station.stop()[1])

    def test_unreadable_input_is_told(self):
        text, linux_cooked, empty = self.path("a.txt"), self.path("b.pcap"), self.path("c.pcap")
        text.write_text("no capture file, but a long text that might be one")
        linux_cooked.write_bytes(pcap(link_type=113))
        empty.touch()
        for path in (text, linux_cooked, empty, self.path("missing")):
            for command in (["dump", path], ["convert", path, self.path("out.pcapng"), "--module", *CAN]):
                self.assertIn(str(path), self.expect(3, *command)[1])

    def test_torn_input_is_converted_up_to_the_tear(self):
        torn, recording = self.path("a.pcap"), self.path("a.pcapng")
        torn.write_bytes(self.stored.read_bytes()[:self.stored.stat().st_size // 2])
        _, errors = self.expect(3, "convert", torn, recording, "--module", *FRONT)
        self.assertIn("what came before is in the recordings", errors)
        rows = traffic.read_with_tshark(recording)
        self.assertIn(len(rows), range(450, 550))
        self.expect_no_gap(rows)

    def test_frames_that_were_stored_in_part_are_told(self):
        stored = self.path("a.pcap")
        stored.write_bytes(pcap(0, 1, kept=60))
        for words in (["dump", stored], ["convert", stored, self.path("a.pcapng"), "--module", *FRONT]):
            self.assertIn("2 Ethernet frames were cut", self.expect(1, *words)[1])

    def test_a_service_manager_is_told_of_start_life_and_end_and_not_waited_for(self):
        for name, watchdog in ((str(self.path("socket")), {}), ("@station", {"WATCHDOG_PID": "1"}), ("@none", {})):
            variables = {**os.environ, "NOTIFY_SOCKET": name, "WATCHDOG_USEC": "100", **watchdog}
            with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
                if name == "@none":
                    self.assertIn(name, self.expect(0, "run", "--module", *CAN, "--duration", 0.1, env=variables)[1])
                    continue
                manager.bind(name.replace("@", "\0"))
                # It reads nothing before the end, and has no room for all.
                self.expect(0, "run", "--module", *CAN, "--duration", 1, env=variables)
                manager.settimeout(0)
                self.assertIn(b"READY=1\n", manager.recv(100))
                if watchdog:
                    self.assertIn(b"STOPPING=1\n", manager.recv(100))
                else:
                    self.assertEqual({manager.recv(100) for _ in range(5)}, {b"WATCHDOG=1"})
                    self.start([lab.STATION, "run", "--module", *CAN, "--wait"], env=variables)
                    manager.settimeout(lab.PATIENCE)
                    lab.wait_until(lambda: b"READY=1\nSTATUS=waiting" in manager.recv(100), "it waits")

    def test_without_the_right_to_capture_it_says_how_to_get_it(self):
        for arguments in (["run", "--module", *CAN], ["dump", "--interface", "lo"]):
            code, _, errors = lab.call([*NOT_ALLOWED, lab.STATION, *arguments])
            self.assertEqual(code, 4, errors)
            for remedy in ("sudo", "setcap", "group"):
                self.assertIn(remedy, errors)

    def test_processor_time_grows_with_the_input_and_not_with_its_square(self):
        demo = (Path(__file__).parents[2] / "examples" / "demo.xml").read_text()
        path = self.path("many")
        show, convert = ["setup", "show", path], ["convert", "--overwrite", path, self.path("out.pcapng")]

        def make(text, count):
            names = [text.format(number) for number in range(count)]
            if text.startswith("<"):
                path.write_text(demo.replace("</OutputList>", "".join(names) + "</OutputList>"))
            else:
                lab.call([lab.SIMULATOR, "--write", path, "--overwrite", "--messages", "9",
                          *lab.repeat("--module", names)])

        for text, count, words in (('<Output><value key="Id">9{}</value></Output>', 2000, show),
                                   ('<value key="{}" />', 40000, show),
                                   ("NeoviFire3:{},channels=1", 250, convert)):
            spent = []
            for factor in (1, 4):
                make(text, factor * count)
                before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime
                self.expect(0, *words)
                spent.append(resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime - before)
            self.assertLess(spent[1], 8 * spent[0] + 0.5, words)

    def mount(self, *options):
        disk = lab.mount(self.path("disk"), *options)
        self.addCleanup(lab.run, "umount", disk)
        return disk

    def test_full_disk_ends_one_recording_and_no_other(self):
        full, whole = self.mount("64k") / "a.pcapng", self.path("a.pcapng")
        station, sent = self.record(full, whole, seconds=5)
        report, errors = station.stop(code=1, number=signal.SIGTERM)
        self.assertIn(f'Recording to "{full}" ended: No space left on device', errors)
        self.expect_complete(sent, report, whole)
        self.assertEqual(len(traffic.read_with_tshark(full)), report["recordings"][0]["records"])

    def test_recording_goes_on_when_its_disk_has_room_again(self):
        disk = self.mount("12m")  # less than the room that a large disk has to have again
        filler = disk / "filler"
        filler.write_bytes(bytes(shutil.disk_usage(disk).free - 100_000))
        station = lab.Station(FRONT, record=[disk / "a.pcapng"])
        simulator = lab.start_simulator(CAN, "--rate", 200, "--duration", 7)
        lab.wait_until(lambda: shutil.disk_usage(disk).free == 0, "the disk is full")
        time.sleep(1)
        filler.unlink()
        sent = lab.finish_simulator(simulator)
        report, errors = station.stop(code=1)
        self.assertIn("goes on in another file as soon as 1.6 MB are free", errors)
        self.assertIn("Recording goes on, in", errors)
        self.assertEqual(traffic.account_differences(report), [])
        rows = [traffic.read_with_tshark(part) for part in sorted(disk.glob("a*.pcapng"), key=lambda part: len(part.name))]
        recording = report["recordings"][0]
        self.assertEqual(list(map(len, rows)), [recording["records"] - len(rows[-1]), len(rows[-1])])
        self.assertEqual(recording["records"] + recording["lost"], sent["dataMessages"])
        self.assertTrue(rows[0] and rows[-1])

    def test_standard_output_takes_a_recording_until_its_reader_goes(self):
        recording, piped = self.path("a.pcapng"), self.path("piped.pcapng")
        reading, writing = os.pipe()
        station = lab.spawn([lab.STATION, "run", "--module", *FRONT, "--record", "-", "--record", str(recording)],
                            stdout=writing, stderr=PIPE)
        os.close(writing)
        lab.wait_until(lambda: lab.is_capturing(station), "it captures")
        sent = lab.simulate(CAN, "--rate", 50, "--duration", 2)
        while len(rows := traffic.read_with_tshark(piped, torn=True) if piped.exists() else []) < sent["dataMessages"]:
            self.assertTrue(select.select([reading], [], [], lab.PATIENCE)[0], rows)
            with piped.open("ab") as file:
                file.write(os.read(reading, 1 << 20))
        self.assertEqual(len(rows), sent["dataMessages"])
        os.close(reading)
        lab.simulate(CAN, "--rate", 50, "--duration", 1)
        time.sleep(1)
        station.send_signal(signal.SIGTERM)
        _, errors = station.communicate(timeout=lab.PATIENCE)
        self.assertEqual(station.returncode, 1, errors)
        self.assertIn("its reader has gone away, after 700 records", errors)
        whole = traffic.read_with_tshark(recording)
        self.assertEqual((whole[:len(rows)], len(whole)), (rows, 1050))

    def test_hangup_begins_another_part_and_no_message_is_between_them(self):
        station = lab.Station(FRONT, "--rotate", "time=1h", "--record", self.path("a.pcapng"))
        simulator = lab.start_simulator(CAN, "--rate", 100, "--duration", 4)
        time.sleep(2)
        station.process.send_signal(signal.SIGHUP)
        sent = lab.finish_simulator(simulator)
        report, _ = station.stop()
        parts = sorted(self.scratch.glob(f"{self._testMethodName}-a-*-000?.pcapng"))
        rows = [traffic.read_with_tshark(part) for part in parts]
        self.assertTrue(len(rows) == report["recordings"][0]["parts"] == 2 and all(rows))
        for number, part in enumerate(parts, 1):
            self.assertIn(f"session {part.name.split('-')[-2]}, part {number}", lab.call(["capinfos", part])[1])
            self.assertIn(b"s after its start:", part.read_bytes()[-3000:])
        self.assertEqual(traffic.row_differences(sent, traffic.names_of(report), sum(rows, [])), [])

    def test_reader_of_the_progress_may_go_and_one_of_the_result_may_not(self):
        recording = self.path("a.pcapng")
        station = lab.Station(FRONT, record=[recording])
        station.process.stderr.close()
        sent = lab.simulate(CAN, "--rate", 50, "--duration", 2)
        station.process.send_signal(signal.SIGTERM)
        self.assertEqual(station.process.wait(lab.PATIENCE), 0)
        self.expect_complete(sent, json.loads(station.process.stdout.read()), recording)
        for output, text in ((">/dev/full", "No space left"), (">&-", "Bad file descriptor")):
            for arguments in (["dump", self.stored], ["convert", self.stored, self.path(f"{output[-1]}.pcapng")],
                              ["run", "--module", *CAN, "--json", "--duration", "0.1"]):
                quoted = " ".join(f"'{word}'" for word in [lab.STATION, *arguments])
                self.expect_unprinted(text, quoted + output)
        for words in ("cmp-station --help", "cmp-sim --version", "cmp-station-gui --help"):
            self.expect_unprinted("No space left", f"'{lab.BIN}'/{words} >/dev/full")
        reading, writing = os.pipe()
        os.set_blocking(writing, False)  # as another program may have left it
        dump = lab.spawn([lab.STATION, "dump", self.stored], stdout=writing)
        os.close(writing)
        time.sleep(1)
        with open(reading, encoding="utf-8") as slow:
            self.assertEqual((slow.read(), dump.wait(lab.PATIENCE)), (self.expect(0, "dump", self.stored)[0], 0))
        dump = self.start([lab.STATION, "dump", self.stored])
        self.assertEqual(dump.stdout.readline(), "HEADER\n")
        dump.stdout.close()
        self.assertEqual(dump.wait(lab.PATIENCE), -signal.SIGPIPE)

    def test_one_signal_ends_the_simulator_where_nobody_reads_its_output(self):
        reading, writing = os.pipe()
        os.set_blocking(writing, False)
        with contextlib.suppress(BlockingIOError):
            while os.write(writing, bytes(4096)):
                pass
        os.set_blocking(writing, True)
        simulator = lab.spawn(["nsenter", "--net=/run/netns/modules", lab.SIMULATOR, "--interface", "sim0",
                               "--module", *CAN, "--duration", "60"], stdout=writing)
        self.addCleanup(lab.end, simulator)
        caught = re.compile(r"SigCgt:\t(\w+)")
        lab.wait_until(lambda: int(caught.search(Path(f"/proc/{simulator.pid}/status").read_text())[1], 16)
                       >> (signal.SIGTERM - 1) & 1, "it minds signals")
        simulator.send_signal(signal.SIGTERM)
        self.assertEqual(simulator.wait(lab.PATIENCE), 1)
        os.close(reading)
        os.close(writing)

    def expect_unprinted(self, text, command):
        code, _, errors = lab.call(["sh", "-c", command])
        self.assertEqual((code, f"can't print the result: {text}" in errors), (1, True), errors)

    def test_program_whose_error_nobody_reads_ends_by_a_signal(self):
        _, writing = os.pipe()
        os.set_blocking(writing, False)
        os.write(writing, bytes(1 << 20))
        os.set_blocking(writing, True)
        for words in (["setup", "show", "/none.xml"], ["run", "--module", "CAN combo:99"],
                      ["gui", "--sample-rate", "junk"]):
            station = lab.spawn([lab.STATION, *words], stderr=writing)
            self.addCleanup(lab.end, station)
            lab.wait_until(lambda: "pipe_write" in Path(f"/proc/{station.pid}/wchan").read_text(), "it waits")
            station.terminate()
            self.assertEqual(station.wait(lab.PATIENCE), -signal.SIGTERM)

    def test_closed_standard_descriptors_do_not_become_a_recording(self):
        recording = self.path("a.pcapng")
        station = self.start(["sh", "-c", f"exec '{lab.STATION}' run --module '{FRONT[0]}'"
                              f" --record '{recording}' <&- >&- 2>&-"])
        lab.wait_until(lambda: station.poll() is not None or lab.is_capturing(station), "it captures")
        sent = lab.simulate(CAN, "--rate", 50, "--duration", 1)
        station.send_signal(signal.SIGTERM)
        self.assertEqual(station.wait(lab.PATIENCE), 1)  # for the table at its end
        self.assertEqual(len(traffic.read_with_tshark(recording)), sent["dataMessages"])
        simulate, frames = f"'{lab.SIMULATOR}' --module '{CAN[0]}' --messages 99 --write", self.path("b.pcap")
        for limit, closed, told in (("", "", ""), ("", "<&- >&- 2>&-", ""), ("", ">&-", "can't print the report"),
                                    ("ulimit -f 1;", "", "File too large")):
            code, _, errors = lab.call(["sh", "-c", f"{limit} exec {simulate} {frames} --overwrite {closed}"])
            self.assertEqual((code, told in errors), (1 if limit + closed else 0, True), errors)
            expected = expected if limit + closed else frames.read_bytes()
            self.assertEqual(limit or frames.read_bytes(), limit or expected)

    def test_frozen_disk_holds_up_neither_the_messages_nor_the_end(self):
        disk = self.mount("16M", "ext4")
        recording = disk / "a.pcapng"
        station = lab.Station(FRONT, record=[recording])
        with lab.frozen(disk):
            sent = lab.simulate(CAN, "--rate", 200, "--duration", 3)
        report, _ = station.stop()
        self.expect_complete(sent, report, recording)
        self.assertLess(report["longestPause"], 1.5, "the host's thread waited for the disk")

        self.addCleanup(lab.end, lab.start_simulator(CAN, "--rate", 200, "--duration", 120))
        for recording, *limit in ((disk / "b.pcapng",), (disk / "c.pcapng", "--duration", 15)):
            station = lab.Station(FRONT, *limit, record=[recording])
            process = station.process
            lab.wait_until(lambda: traffic.read_with_tshark(recording, torn=True), "something is on the disk")
            with lab.frozen(disk):
                time.sleep(1)
                process.send_signal(0 if limit else signal.SIGTERM)
                # The system lets the process go only when the disk is back, but it has said all by then.
                self.assertTrue(select.select([process.stdout], [], [], lab.PATIENCE)[0])
                output = "".join(iter(process.stdout.readline, "}\n")) + "}"
                time.sleep(1)  # it is on its way out and writes nothing more
            self.assertEqual(process.wait(lab.PATIENCE), 1)
            self.assertIn("the disk doesn't answer", process.stderr.read())
            report = json.loads(output)
            self.assertEqual(traffic.account_differences(report, most_unread=200), [])
            there = len(traffic.read_with_tshark(recording, torn=True))
            self.assertLessEqual(report["recordings"][0]["records"], there)

    def test_killed_run_leaves_recordings_that_lack_a_second_at_most(self):
        # CMP_KILLS more by hand
        for turn in range(int(os.environ.get("CMP_KILLS", 2))):
            recordings = [self.path(f"{turn}{ending}") for ending in FORMATS]
            station = lab.Station(FRONT, record=recordings)
            # So little that no full buffer writes it out.
            simulator = lab.start_simulator(CAN, "--rate", 50, "--duration", 60)
            time.sleep(2 + random.random())
            killed = time.time_ns()
            lab.end(station.process)
            lab.end(simulator)
            for torn in recordings:
                whole = f"{torn}.pcapng"
                code, _, errors = lab.call([lab.STATION, "convert", "--quiet", torn, whole])
                self.assertIn(code, (0, 3), errors)
                rows = traffic.read_with_tshark(whole)
                # One second, and one for a busy machine.
                self.assertLess(killed - rows[-1].time, 2 * 10**9, torn)
                self.expect_no_gap(rows)

    def test_dump_prints_each_message(self):
        stored = self.path("a.pcap")
        stored.write_bytes(pcap(0))
        self.assertEqual(self.expect(0, "dump", stored)[0], "".join(TWO_TEXTS))
        self.assertEqual(self.expect(0, "dump", stored, "--count", "1")[0], TWO_TEXTS[0])
        dump = self.start([lab.STATION, "dump", "--interface", "veth0", "--count", "3"])
        simulator = lab.start_simulator(CAN, "--rate", 10, "--duration", 60)
        output, _ = dump.communicate(timeout=lab.PATIENCE)
        lab.end(simulator)
        self.assertEqual((dump.returncode, output.count("HEADER\n")), (0, 3))


if __name__ == "__main__":
    os.environ["LC_ALL"] = "C.UTF-8"
    main()
