"""Many links, of which some begin to carry modules' frames: their rings grow, and nothing is lost."""

import functools
import subprocess
import time
from pathlib import Path

import lab
import traffic
from case import RATE, Case, main

NARROW, WIDE = 3, 32  # MiB of ring on an interface without modules' frames and on one with them
LINKS = 20
BUSY = range(8)
GOING = range(8, 13)  # taken away
# Seconds after they began. Growing takes some 50 ms: before, meanwhile and after, and one that has carried much.
AGES = [0, 0.02, 0.04, 0.06, 1]


def ring_memory(station):
    """MiB of receive rings in the process."""
    maps = Path(f"/proc/{station.process.pid}/maps").read_text().splitlines()
    areas = [line.split()[0].split("-") for line in maps if "socket:" in line]
    return sum(int(end, 16) - int(start, 16) for start, end in areas) >> 20


def is_receiving(link):
    devices = Path("/proc/self/net/dev").read_text().splitlines()
    return any(int(line.split()[1]) > 0 for line in devices if f"veth{link}:" in line)


class ManyLinks(Case):
    def start_module(self, link, *options):
        simulator = lab.start_simulator([f"CAN combo:{link + 1},channels=2"], *options, interface=f"sim{link}")
        self.addCleanup(lab.end, simulator)
        return simulator

    def test_links_that_begin_at_once_lose_nothing_and_silent_ones_stay_small(self):
        recording = self.path("a.pcapng")
        station = lab.Station([f"CAN combo:{link + 1}:Module {link}" for link in (*BUSY, *GOING)], record=[recording])
        self.assertEqual(ring_memory(station), WIDE + LINKS * NARROW)  # the first is the loopback's
        going = [self.start_module(link, "--rate", RATE, "--duration", 60) for link in GOING]
        busy = [self.start_module(link, "--rate", RATE, "--duration", 3) for link in BUSY]
        for link, age in zip(GOING, AGES):
            lab.wait_until(functools.partial(is_receiving, link), "there are frames")
            time.sleep(age)
            subprocess.run(["ip", "link", "del", f"veth{link}"], check=True)
        for simulator in going:
            lab.finish_simulator(simulator, code=1)
        sent = {"modules": [module for simulator in busy for module in lab.finish_simulator(simulator)["modules"]]}
        station.settle()
        # On a busy machine some end before it is their turn to get a wide ring.
        least = 2 * WIDE + (LINKS - 1) * NARROW
        whole = [least + more * (WIDE - NARROW) for more in range(len(BUSY) + len(GOING))]
        lab.wait_until(lambda: ring_memory(station) in whole, "those with modules have wide rings, and no others")
        report, _ = station.stop()
        rows = {False: [], True: []}
        for row in traffic.read_with_tshark(recording):
            rows[int(row.name.split()[1]) in BUSY].append(row)
        self.assertEqual(traffic.row_differences(sent, traffic.names_of(report), rows[True]), [])
        self.assertGreater(len(rows[False]), 0)
        self.expect_no_gap(rows[False])


if __name__ == "__main__":
    main(links=LINKS)
