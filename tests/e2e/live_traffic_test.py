"""Live frames from three modules at once, malformed ones among them."""

import unittest

import lab
import traffic
from case import MODULES, NAMES, RATE, Case


class LiveTraffic(Case):
    def test_every_message_arrives_once_in_order_and_nothing_malformed_does(self):
        recording = self.path("a.pcapng")
        station = lab.Station(NAMES, record=[recording])
        sent = lab.simulate(MODULES, "--rate", RATE, "--duration", 5, "--bad", 0.1)
        station.settle()
        report, _ = station.stop()
        self.assertEqual(set(traffic.sent_counts(sent).values()), {5 * RATE})
        self.assertGreater(sent["badFrames"], sent["frames"] * 0.09)
        self.assertEqual(traffic.count_differences(sent, report), [])
        rows, names = traffic.read_with_tshark(recording), traffic.names_of(report)
        self.assertEqual(traffic.row_differences(sent, names, rows), [])
        self.assertEqual(traffic.time_differences(sent, names, rows, RATE, traffic.FITTED), [])


if __name__ == "__main__":
    lab.prepare()
    unittest.main()
