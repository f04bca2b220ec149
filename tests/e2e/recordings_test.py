"""Recordings of live and of stored frames, as tshark, python-can and a reader here read them, against what was
sent."""

import json
import signal
import time

import lab
import traffic
from case import MODULES, NAMES, RATE, Case, main
from mf4_reader import Mf4


class Recordings(Case):
    """One run with all lengths of data, whose frames are stored beside it and converted then."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        live, converted = ([cls.scratch / f"{name}.{ending}" for ending in ("pcapng", "log", "mf4")]
                           for name in ("live", "converted"))
        cls.killed = cls.scratch / "killed.mf4"
        wire = cls.scratch / "wire.pcapng"
        station = lab.Station(NAMES, record=live)
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

    def test_mf4_has_the_messages_of_pcapng_also_without_its_end(self):
        for report, pcapng, _, mf4, _ in self.runs:
            read = Mf4(mf4)
            self.assertTrue(read.finalized)
            self.assertEqual(read.rows, traffic.read_with_tshark(pcapng))
            self.assertEqual(sorted(read.names.values()), sorted(channel["name"] for channel in report["channels"]))
        live = Mf4(self.runs[0][3]).rows
        self.assertEqual({len(row.data) for row in live} & {0, 8, 12, 20, 48, 64}, {0, 8, 12, 20, 48, 64})
        self.assertFalse(Mf4(self.killed).finalized)
        self.assertEqual(Mf4(self.killed).rows, live)


if __name__ == "__main__":
    main()
