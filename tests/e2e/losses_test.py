"""What is lost and counted before messages reach their channels, and when frames came in."""

import re
import signal
import sys
import time
from pathlib import Path

import lab
import setups
import traffic
from case import CAN, FRONT, RATE, Case, main

LIVE_PORT = sys.argv.pop(1)


class Losses(Case):
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

    @staticmethod
    def resident_megabytes(station):
        return int(re.search(r"VmRSS:\s*(\d+)", Path(f"/proc/{station.process.pid}/status").read_text())[1]) / 1024

    def test_leader_that_begins_late_starts_the_measurement_late(self):
        setup = self.path("leader.xml")
        setups.make_measured(setup, ["CAN combo:5:Leads", "CAN combo:6:Follows", "CAN combo:7:Jams"])
        self.expect(0, "setup", "set", setup, "Leads", "--sync", "pps", "--clock-source", "yes")
        station = lab.Station(setup=setup)
        began = time.monotonic()
        following = lab.start_simulator(["CAN combo:6"], "--rate", RATE, "--duration", 9)
        jam = lab.simulate(["CAN combo:7,channels=1"], "--rate", 300_000, "--per-frame", 40,
                           "--messages", 1_200_000)
        time.sleep(1)
        jammed = self.resident_megabytes(station)
        leading = lab.simulate(["CAN combo:5"], "--rate", 10, "--duration", 3)
        lab.wait_until(lambda: self.resident_megabytes(station) < jammed - 30, "it gives the memory back")
        sent = {(0x47, interface): 0 for interface in range(0x10, 0x80, 0x10)}
        for one in (lab.finish_simulator(following), leading, jam):
            sent |= traffic.sent_counts(one)
        time.sleep(1)
        report, errors = station.stop()
        self.assertIn('waiting for "Leads"', errors)
        self.assertLess(report["seconds"], time.monotonic() - began - 1)
        cm_ids = {"Leads": 0x45, "Follows": 0x46, "Jams": 0x47}
        for channel in report["channels"]:
            self.assertTrue(channel["frames"] or channel["module"] == "Jams")
            total = channel["frames"] + channel["beforeStart"] + channel["afterEnd"]
            self.assertEqual(total, sent[cm_ids[channel["module"]], channel["interfaceId"]])

        silent = lab.Station(setup=setup)
        lab.simulate(["CAN combo:6"], "--rate", 10, "--duration", 1)
        report, errors = silent.stop(code=1)
        self.assertIn('the measurement never began: "Leads"', errors)
        self.assertEqual(report["lostMessages"], sum(channel["notPlaced"] for channel in report["channels"]))

    def test_frames_are_stamped_on_receipt(self):
        self.assertEqual(lab.call([LIVE_PORT])[0], 0)


if __name__ == "__main__":
    main()
