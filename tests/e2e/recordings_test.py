"""Recordings of live and of stored frames, as tshark, python-can and a reader here read them, against what was
sent."""

import json
import os
import re
import signal
import subprocess
import sys
import time

import lab
import traffic
from case import MODULES, NAMES, RATE, Case, main
from mf4_reader import Mf4

ANY_CAN_SOCKET = sys.argv.pop(1)


class Recordings(Case):
    """One run with all lengths of data, whose frames are stored beside it and converted then."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        os.environ["TZ"] = "XYZ-5:30"  # .asc has local times
        time.tzset()
        live, converted = ([cls.scratch / (name + ending) for ending in (".pcapng", ".log", ".blf", ".mf4")]
                           for name in ("live", "converted"))
        cls.asc, cls.csv = cls.scratch / "converted.asc", cls.scratch / "converted.csv"
        cls.killed = cls.scratch / "killed.mf4"
        wire, cls.raw = cls.scratch / "wire.pcapng", cls.scratch / "raw.pcapng"
        cls.wire = wire
        station = lab.Station(NAMES, "--record-raw", cls.raw, record=live)
        store = lab.spawn(["dumpcap", "-q", "-i", "veth0", "-B", "64", "-w", str(wire)], stderr=-3)
        lab.wait_until(lambda: wire.exists() and wire.stat().st_size, "frames are stored")
        time.sleep(1)
        cls.sent = lab.simulate(MODULES, "--rate", RATE, "--duration", 2, "--bad", 0.2, "--length", "0-64",
                                "--per-frame", 5)
        station.settle()
        cls.killed.write_bytes(live[-1].read_bytes())  # what would be there without its end
        report, _ = station.stop()
        store.send_signal(signal.SIGINT)
        store.wait(lab.PATIENCE)
        # Without names of the modules: their messages tell which they are.
        code, output, errors = lab.call([lab.STATION, "convert", "--quiet", "--json", wire, *converted,
                                        cls.asc, cls.csv])
        assert code == 0, errors
        cls.runs = ((report, *live, traffic.fitted(cls.sent)),
                    (json.loads(output), *converted, traffic.EXACT))

    def test_tshark_reads_from_pcapng_what_was_sent_and_nothing_malformed(self):
        self.assertEqual(set(traffic.sent_counts(self.sent).values()), {2 * RATE})
        self.assertGreater(self.sent["badFrames"], self.sent["frames"] * 0.19)
        for report, pcapng, _, _, _, tolerance in self.runs:
            rows = self.expect_complete(self.sent, report, pcapng)
            self.assertEqual(traffic.time_differences(self.sent, traffic.names_of(report), rows, RATE, tolerance), [])
            self.assertEqual({row.bus for row in rows}, {"CAN", "CANFD", "LIN"})
        # In the converted one; a live module that has said nothing for two seconds has no serial number.
        self.assertEqual([(m["type"], m["configId"], m["serial"]) for m in report["modules"]],
                         [(m["type"], m["configId"], str(m["serial"])) for m in self.sent["modules"]])

    def test_python_can_and_tshark_read_from_a_log_the_can_messages_that_were_sent(self):
        for report, pcapng, log, *_ in self.runs:
            words = {key: traffic.word_of(name) for key, name in traffic.names_of(report).items()}
            rows = traffic.read_with_python_can(log)
            self.expect_rows_of(self.sent, report, rows, words, log=True)
            self.assertEqual(traffic.read_with_tshark(log), [row._replace(name="") for row in rows])
            times = [row.time // 1000 * 1000 for row in traffic.read_with_tshark(pcapng) if row.bus != "LIN"]
            self.assertEqual([row.time for row in rows], times)

    def test_recorded_frames_are_those_of_the_wire_and_make_the_recording_of_the_run(self):
        live_report, live, *_, tolerance = self.runs[0]
        wire, raw = (lab.call(["tshark", "-r", path, "-Y", "eth.type==0x99fe", "-o", "frame.generate_md5_hash:TRUE",
                               "-T", "fields", "-e", "frame.time_epoch", "-e", "frame.md5_hash"])[1].splitlines()
                     for path in (self.wire, self.raw))
        micro = re.compile(r"(\.\d{6})\d+")
        self.assertEqual([micro.sub(r"\1", line) for line in raw], [micro.sub(r"\1", line) for line in wire])
        described = next(entry for entry in live_report["recordings"] if entry["path"] == str(self.raw))
        self.assertEqual((described["records"], described["lost"], described["contents"]), (len(wire), 0, "frames"))
        soft = self.path("soft.pcapng")  # with the same texts of times that go back as the run, if there were any
        report = json.loads(self.expect(0, "convert", "--json", self.raw, soft, "--clock", "soft")[0])
        rows = self.expect_complete(self.sent, report, soft)
        self.assertEqual(traffic.time_differences(self.sent, traffic.names_of(report), rows, RATE, tolerance), [])

    def expect_rows(self, rows, names, log=False, resolution=1):
        """Those of the converted .pcapng, as far as another format keeps them."""
        there = [row._replace(name=names.get(row.name, row.name), time=row.time // resolution * resolution)
                 for row in traffic.read_with_tshark(self.runs[1][1]) if row.bus != "LIN" or not log]
        if resolution != 1:
            there = [row._replace(data=traffic.filled(row.data)) if row.bus != "LIN" else row for row in there]
            # Those that are of one time now are in the order of the channels.
            self.assertEqual([row.time for row in rows], sorted(row.time for row in rows))
            there, rows = sorted(there), sorted(rows)
        self.assertEqual(traffic.first_difference("recording", there, rows), [])

    def convert(self, source, ending=".pcapng", *options):
        """The recording that comes of it, and the report."""
        recording = self.path(source.name + ending)
        output, errors = self.expect(0, "convert", "--json", source, recording, *options)
        self.assertEqual(errors, "")
        return recording, json.loads(output)

    def test_every_format_is_read_by_a_program_that_is_not_ours(self):
        can = [channel["name"] for channel in self.runs[1][0]["channels"] if channel["busType"] != "LIN"]
        self.expect_rows(traffic.read_csv(self.csv), {})
        self.expect_rows(traffic.read_with_python_can(self.asc, can), {}, log=True, resolution=1000)
        # It takes 24 hours for German.
        lab.call(["localedef", "-i", "de_DE", "-f", "ISO-8859-1", self.scratch / "de_DE"])
        log = self.path("asc2log.log")
        subprocess.run(["asc2log", "-I", self.asc, "-O", log], check=True, env={**os.environ, "LOCPATH": self.scratch})
        numbers = {name: f"can{number}" for number, name in enumerate(can)}
        rows = traffic.read_with_python_can(log)
        # It doesn't initialise whether it is summer: its times may be an hour off.
        hour = 3600 * 10**9
        early = hour if rows[0].time <= traffic.read_with_python_can(self.asc)[0].time - hour else 0
        self.expect_rows([row._replace(time=row.time + early) for row in rows], numbers, log=True, resolution=1000)

    def test_canplayer_replays_a_log_message_by_message_in_its_order(self):
        for _, _, log, *_ in self.runs:
            rows = [line.split() for line in log.read_text().splitlines()]
            channels = list(dict.fromkeys(row[1] for row in rows))[:20]  # it takes no more
            lines = [" ".join(row) for row in rows if row[1] in channels]
            played = subprocess.run(["canplayer", "-t", "-g", "0", *(f"stdout={name}" for name in channels)],
                                    input="".join(line + "\n" for line in lines), capture_output=True, text=True,
                                    check=True, env={**os.environ, "LD_PRELOAD": ANY_CAN_SOCKET})
            self.assertEqual(traffic.first_difference("canplayer", lines, played.stdout.splitlines()), [])

    def test_convert_reads_every_format_and_those_of_other_programs(self):
        _, pcapng, log, *_ = self.runs[1]
        names = traffic.names_of(self.runs[1][0]).values()
        words = {name: traffic.word_of(name) for name in names}
        for source, words, is_log, resolution in ((pcapng, {}, False, 1), (self.csv, {}, False, 1),
                                                  (self.asc, {}, False, 1000), (log, words, True, 1000)):
            recording, report = self.convert(source)
            self.expect_rows(traffic.read_with_tshark(recording), words, is_log, resolution)
            self.assertEqual([channel for channel in report["channels"] if channel["frames"] != sum(
                there["records"] for there in channel["recordings"])], [])
        ordered, other = self.path("ordered.log"), self.path("log2asc.asc")
        ordered.write_text("".join(sorted(log.read_text().splitlines(keepends=True))))
        there = traffic.read_with_python_can(ordered)
        channels = list(dict.fromkeys(row.name for row in there))
        subprocess.run(["log2asc", "-I", ordered, "-O", other, *channels], check=True)
        rows = traffic.read_with_tshark(self.convert(other)[0])
        # Its date has no fraction of a second, and messages of one time are in another order.
        shift = there[0].time - rows[0].time
        self.assertLess(shift, 10**9)
        numbers = {name: f"CAN {number}" for number, name in enumerate(channels, 1)}
        there = [row._replace(name=numbers[row.name], time=row.time - shift) for row in there]
        self.assertEqual(traffic.first_difference("log2asc", sorted(there), sorted(rows)), [])

    def test_convert_takes_what_is_asked_for_alone(self):
        _, pcapng, log, *_ = self.runs[1]
        wire = self.scratch / "wire.pcapng"
        rows = traffic.read_with_tshark(pcapng)
        name = next(row.name for row in rows if row.bus != "LIN")
        moment = rows[len(rows) // 2].time
        text = time.strftime("%Y-%m-%dT%H:%M:%S", time.gmtime(moment // 10**9)) + f".{moment % 10**9:09}Z"
        wanted = [row for row in rows if row.name == name and row.time < moment
                  and 0x100 <= row.identifier & ~traffic.EXTENDED <= 0x7FF]
        self.assertTrue(wanted)
        for source in (pcapng, wire):
            recording, report = self.convert(source, ".part.pcapng", "--to", text, "--channel", name, "--id",
                                             "0x100-0x7FF")
            self.assertEqual(traffic.first_difference("part", wanted, traffic.read_with_tshark(recording)), [])
            self.assertEqual([channel for channel in report["channels"] if channel["frames"] != sum(
                there["records"] + there.get("leftOut", 0) for there in channel["recordings"])], [])
        _, errors = self.expect(2, "convert", pcapng, self.path("b.csv"), "--quiet", "--channel", "none such")
        self.assertIn("none such", errors)
        torn = self.path("torn.log")
        torn.write_bytes(log.read_bytes()[:-5])
        _, errors = self.expect(3, "convert", "--quiet", torn, self.path("c.csv"))
        self.assertRegex(errors, r"ends within a line; \d+ bytes of it were left")
        self.assertEqual(len(traffic.read_csv(self.path("c.csv"))), len(log.read_text().splitlines()) - 1)

    def test_tshark_and_python_can_read_from_a_blf_what_is_in_the_pcapng(self):
        for report, pcapng, _, blf, *_ in self.runs:
            rows = traffic.read_with_tshark(pcapng)
            self.assertEqual(traffic.read_with_tshark(blf),
                             [row._replace(bus=row.bus.replace("FD", "")) for row in rows])
            names = [channel["name"] for channel in report["channels"]]
            with_can = [row for row in rows if row.bus != "LIN"]
            there = traffic.read_with_python_can(blf)
            # Its times are floating-point numbers.
            self.assertLessEqual(max(abs(a.time - b.time) for a, b in zip(there, with_can)), 1000)
            self.assertEqual([row._replace(name=names[row.name], time=0) for row in there],
                             [row._replace(time=0) for row in with_can])

    def test_mf4_has_the_messages_of_pcapng_also_without_its_end(self):
        for report, pcapng, _, _, mf4, _ in self.runs:
            read = Mf4(mf4)
            self.assertTrue(read.finalized)
            self.assertEqual(read.rows, traffic.read_with_tshark(pcapng))
            self.assertEqual(sorted(read.names.values()), sorted(channel["name"] for channel in report["channels"]))
        sessions = [re.search(rb"session (\w+), part 1\W", path.read_bytes())[1] for path in self.runs[0][1:5:3]]
        self.assertEqual(*sessions)
        live = Mf4(self.runs[0][4]).rows
        self.assertEqual({len(row.data) for row in live} & {0, 8, 12, 20, 48, 64}, {0, 8, 12, 20, 48, 64})
        self.assertFalse(Mf4(self.killed).finalized)
        self.assertEqual(Mf4(self.killed).rows, live)


if __name__ == "__main__":
    main()
