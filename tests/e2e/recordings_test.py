"""Recordings of live and of stored frames, as tshark and python-can read them, against what was sent."""

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
        cls.live = [cls.scratch / "live.pcapng", cls.scratch / "live.log"]
        cls.converted = [cls.scratch / "converted.pcapng", cls.scratch / "converted.log"]
        wire = cls.scratch / "wire.pcapng"
        station = lab.Station(NAMES, record=cls.live)
        store = lab.spawn(["dumpcap", "-q", "-i", "veth0", "-B", "64", "-w", str(wire)], stderr=-3)
        lab.wait_until(lambda: wire.exists() and wire.stat().st_size, "frames are stored")
        time.sleep(1)
        cls.sent = lab.simulate(MODULES, "--rate", RATE, "--duration", 2, "--bad", 0.2, "--length", "0-64",
                                "--per-frame", 5)
        station.settle()
        cls.report, _ = station.stop()
        store.send_signal(signal.SIGINT)
        store.wait(lab.PATIENCE)
        code, _, errors = lab.call([lab.STATION, "convert", "--quiet", wire, *cls.converted,
                                    *lab.repeat("--module", NAMES)])
        assert code == 0, errors
        cls.names = traffic.names_of(cls.report)

    def test_tshark_reads_from_pcapng_what_was_sent_and_nothing_malformed(self):
        self.assertEqual(set(traffic.sent_counts(self.sent).values()), {2 * RATE})
        self.assertGreater(self.sent["badFrames"], self.sent["frames"] * 0.19)
        for path, tolerance in ((self.live[0], traffic.fitted(self.sent)), (self.converted[0], traffic.EXACT)):
            rows = self.expect_complete(self.sent, self.report, path)
            self.assertEqual(traffic.time_differences(self.sent, self.names, rows, RATE, tolerance), [])
            self.assertEqual({row.bus for row in rows}, {"CAN", "CANFD", "LIN"})

    def test_python_can_and_tshark_read_from_a_log_the_can_messages_that_were_sent(self):
        words = {key: traffic.word_of(name) for key, name in self.names.items()}
        for pcapng, path in (self.live, self.converted):
            rows = traffic.read_with_python_can(path)
            self.assertEqual(traffic.row_differences(self.sent, words, rows, log=True), [])
            self.assertEqual(traffic.read_with_tshark(path), [row._replace(name="") for row in rows])
            times = [row.time // 1000 * 1000 for row in traffic.read_with_tshark(pcapng) if row.bus != "LIN"]
            self.assertEqual([row.time for row in rows], times)

    def test_stored_frames_tell_their_modules(self):
        stored, recording = self.path("a.pcap"), self.path("a.pcapng")
        modules = ["CAN combo:5,channels=2", "LIN combo:0x3A,drift=50,offset=-3600,channels=3", "NeoviFire3:7"]
        code, output, errors = lab.call([lab.SIMULATOR, "--write", stored, "--json", "--messages", "5000",
                                         "--bad", "0.3", "--length", "4", *lab.repeat("--module", modules)])
        self.assertEqual(code, 0, errors)
        sent = lab.json.loads(output)
        report = lab.json.loads(self.expect(0, "convert", "--json", stored, recording)[0])
        self.assertEqual([(m["type"], m["configId"], m["serial"]) for m in report["modules"]],
                         [(m["type"], m["configId"], str(m["serial"])) for m in sent["modules"]])
        self.expect_complete(sent, report, recording)


if __name__ == "__main__":
    main()
