"""Silent interfaces beside a busy one, interfaces that vanish, and many starts and stops."""

import signal
import subprocess
import sys
import time
import unittest

import lab
import traffic
from case import CAN, FRONT, RATE, Case

READER_ROUNDS = sys.argv.pop(1)
STOP_LIMIT = 5  # seconds; who waits for a packet on a silent link waits for ever
INTERFACES = 5  # the loopback, one busy pair, three silent ones; a sixth is taken away by a test


class Interfaces(Case):
    def time_to_stop(self, traffic_on=None):
        """Seconds from Ctrl-C to the end of the process."""
        station = lab.Station(FRONT, "--quiet")
        if traffic_on:
            simulator = lab.start_simulator(CAN, "--rate", RATE, "--duration", 20, interface=traffic_on)
        time.sleep(0.3)
        start = time.monotonic()
        station.process.send_signal(signal.SIGINT)
        station.process.wait(lab.PATIENCE)
        taken = time.monotonic() - start
        self.assertEqual(station.finish()[0], 0)
        if traffic_on:
            simulator.terminate()
            lab.finish_simulator(simulator)
        return taken

    def test_silent_interfaces_hold_up_neither_messages_nor_the_end(self):
        recording = self.path("a.pcapng")
        station = lab.Station(FRONT, record=[recording])
        sent = lab.simulate(CAN, "--rate", RATE, "--duration", 2)
        station.settle()
        report, _ = station.stop()
        self.assertEqual(traffic.count_differences(sent, report), [])
        self.assertEqual(traffic.row_differences(sent, traffic.names_of(report), traffic.read_with_tshark(recording)),
                         [])
        self.assertLess(self.time_to_stop(traffic_on="sim0"), STOP_LIMIT)

    def test_end_does_not_wait_for_a_packet(self):
        self.assertLess(self.time_to_stop(), STOP_LIMIT)

    def test_vanished_interface_stops_no_other_and_repeats_nothing(self):
        subprocess.run(["sh", "-ec", "ip link add veth9 type veth peer name sim9 netns modules; "
                                     "ip link set veth9 up; ip -n modules link set sim9 up"], check=True)
        recording = self.path("a.pcapng")
        station = lab.Station(["CAN combo:5:Stays", "CAN combo:6:Goes"], record=[recording])
        going = lab.start_simulator(["CAN combo:6"], "--rate", RATE, "--duration", 60, interface="sim9")
        staying = lab.start_simulator(["CAN combo:5"], "--rate", RATE, "--duration", 5)
        time.sleep(2)
        subprocess.run(["ip", "link", "del", "veth9"], check=True)
        gone = lab.finish_simulator(going, code=1)
        sent = lab.finish_simulator(staying)
        station.settle()
        report, _ = station.stop()
        names, rows = traffic.names_of(report), traffic.read_with_tshark(recording)
        stayed = [row for row in rows if row.name.startswith("Stays")]
        self.assertEqual(traffic.row_differences(sent, names, stayed), [])
        self.assertGreater(len(rows), len(stayed))
        self.assertEqual(traffic.beginning_differences(gone["modules"][0], names, rows), [])

    def test_frames_that_the_system_drops_are_told(self):
        station = lab.Station(FRONT)
        station.process.send_signal(signal.SIGSTOP)
        lab.simulate(CAN, "--rate", 0, "--per-frame", 40, "--messages", 2_000_000)  # 60 MB: too much to be kept
        station.process.send_signal(signal.SIGCONT)
        report, errors = station.stop(code=1)
        self.assertGreater(report["droppedFrames"], 0)
        self.assertIn(f"{report['droppedFrames']} Ethernet frames were lost", errors)

    def test_what_the_clocks_discard_is_counted_to_the_message(self):
        station = lab.Station(FRONT)
        # Modules of one CM ID, more than a clock can tell apart.
        rivals = [lab.start_simulator([f"CAN combo:5,offset={offset}"], "--rate", 100, "--duration", 3)
                  for offset in (-60, 900, 3600)]
        sent = [lab.simulate(["CAN combo:5,jump=5@1"], "--rate", RATE, "--duration", 2),
                *map(lab.finish_simulator, rivals)]
        time.sleep(1)
        report, errors = station.stop(code=1)
        counts = [traffic.sent_counts(one) for one in sent]
        for channel in report["channels"]:
            key = (0x45, channel["interfaceId"])
            lost = sum(channel[kind] for kind in ("tooOld", "tooNew", "notPlaced", "leftQueued", "noOutput"))
            self.assertGreater(lost, 0)
            self.assertIn(f'channel "{channel["name"]}" lost', errors)
            self.assertEqual(channel["frames"], channel["delivered"])
            self.assertEqual(channel["delivered"] + lost + channel["beforeStart"] + channel["afterEnd"],
                             sum(count[key] for count in counts))
        self.assertGreater(report["modules"][0]["clock"]["jumps"], 0)

    def test_leader_that_begins_late_starts_the_measurement_late(self):
        setup = self.path("leader.xml")
        self.expect(0, "setup", "new", setup)
        for config_id, name in ((5, "Leads"), (6, "Follows")):
            self.expect(0, "setup", "add", setup, "--type", "CAN combo", "--config-id", config_id, "--name", name)
            self.expect(0, "setup", "channel", setup, name, "all", "--used", "yes")
        self.expect(0, "setup", "set", setup, "Leads", "--sync", "pps", "--clock-source", "yes")
        station = lab.Station(setup=setup)
        following = lab.start_simulator(["CAN combo:6"], "--rate", RATE, "--duration", 6)
        time.sleep(2)
        leading = lab.simulate(["CAN combo:5"], "--rate", 10, "--duration", 3)
        sent = traffic.sent_counts(lab.finish_simulator(following)) | traffic.sent_counts(leading)
        time.sleep(1)
        report, errors = station.stop()
        self.assertIn('waiting for "Leads"', errors)
        self.assertLess(report["seconds"], 6)  # of the 7 that it ran
        for channel in report["channels"]:
            self.assertGreater(channel["frames"], 0)
            total = channel["frames"] + channel["beforeStart"] + channel["afterEnd"]
            self.assertEqual(total, sent[0x45 if channel["module"] == "Leads" else 0x46, channel["interfaceId"]])

        silent = lab.Station(setup=setup)
        lab.simulate(["CAN combo:6"], "--rate", 10, "--duration", 1)
        report, errors = silent.stop(code=1)
        self.assertIn('the measurement never began: "Leads"', errors)
        self.assertEqual(report["lostMessages"], sum(channel["notPlaced"] for channel in report["channels"]))

    def test_start_and_stop_leave_no_descriptor_and_frames_are_stamped_on_receipt(self):
        code, output, errors = lab.call([READER_ROUNDS, "50"])
        self.assertEqual(code, 0, errors)
        before, first, last, end, stamped, *names = output.split()
        self.assertEqual(sorted(names), ["lo", "veth0", "veth1", "veth2", "veth3"])
        self.assertGreaterEqual(int(first), int(before) + INTERFACES)
        self.assertEqual((last, end), (first, before))
        self.assertEqual(stamped, "1")


if __name__ == "__main__":
    lab.prepare(links=INTERFACES - 1)
    unittest.main()
