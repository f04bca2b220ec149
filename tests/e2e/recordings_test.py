"""Recordings of live and of stored frames, as tshark and python-can read them, against what was sent."""

import json
import signal
import time

import lab
import traffic
from case import MODULES, NAMES, RATE, Case, main


class Recordings(Case):
    """One run with all lengths of data, whose frames are stored beside it and converted then."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        live, converted = ([cls.scratch / (name + ending) for ending in (".pcapng", ".log", ".blf")]
                           for name in ("live", "converted"))
        wire = cls.scratch / "wire.pcapng"
        station = lab.Station(NAMES, record=live)
        store = lab.spawn(["dumpcap", "-q", "-i", "veth0", "-B", "64", "-w", str(wire)], stderr=-3)
        lab.wait_until(lambda: wire.exists() and wire.stat().st_size, "frames are stored")
        time.sleep(1)
        cls.sent = lab.simulate(MODULES, "--rate", RATE, "--duration", 2, "--bad", 0.2, "--length", "0-64",
                                "--per-frame", 5)
        station.settle()
        report, _ = station.stop()
        store.send_signal(signal.SIGINT)
        store.wait(lab.PATIENCE)
        # Without names of the modules: their messages tell which they are.
        code, output, errors = lab.call([lab.STATION, "convert", "--quiet", "--json", wire, *converted])
        assert code == 0, errors
        cls.runs = ((report, *live, traffic.fitted(cls.sent)),
                    (json.loads(output), *converted, traffic.EXACT))

    def test_tshark_reads_from_pcapng_what_was_sent_and_nothing_malformed(self):
        self.assertEqual(set(traffic.sent_counts(self.sent).values()), {2 * RATE})
        self.assertGreater(self.sent["badFrames"], self.sent["frames"] * 0.19)
        for report, pcapng, _, _, tolerance in self.runs:
            rows = self.expect_complete(self.sent, report, pcapng)
            self.assertEqual(traffic.time_differences(self.sent, traffic.names_of(report), rows, RATE, tolerance), [])
            self.assertEqual({row.bus for row in rows}, {"CAN", "CANFD", "LIN"})
        # In the converted one; a live module that has said nothing for two seconds has no serial number.
        self.assertEqual([(m["type"], m["configId"], m["serial"]) for m in report["modules"]],
                         [(m["type"], m["configId"], str(m["serial"])) for m in self.sent["modules"]])

    def test_python_can_and_tshark_read_from_a_log_the_can_messages_that_were_sent(self):
        for report, pcapng, log, _, _ in self.runs:
            words = {key: traffic.word_of(name) for key, name in traffic.names_of(report).items()}
            rows = traffic.read_with_python_can(log)
            self.assertEqual(traffic.row_differences(self.sent, words, rows, log=True), [])
            self.assertEqual(traffic.read_with_tshark(log), [row._replace(name="") for row in rows])
            times = [row.time // 1000 * 1000 for row in traffic.read_with_tshark(pcapng) if row.bus != "LIN"]
            self.assertEqual([row.time for row in rows], times)

    def test_tshark_and_python_can_read_from_a_blf_what_is_in_the_pcapng(self):
        for report, pcapng, _, blf, _ in self.runs:
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


if __name__ == "__main__":
    main()
