"""Many interfaces, which come, go, repeat each other and begin to carry frames, and stops of the station."""

import functools
import json
import resource
import signal
import time
from pathlib import Path

import lab
import traffic
from case import FRONT, RATE, Case, main

MODULE = ["CAN combo:5,channels=1"]
STOP = 0.3  # seconds; what a busy machine may do to a process
LINKS = 39
MEGABYTES = 225  # with these and the loopback, one of them busy; all but the heap, which sanitizers blow up
NARROW, WIDE = 3, 32  # MiB of ring on an interface without modules' frames and on one with them
BUSY = range(2, 10)
GOING = range(10, 15)  # taken away
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


class ChangingInterfaces(Case):
    def setUp(self):
        self.told = self.path("told")

    def capture(self, *options):
        with self.told.open("w") as told:
            self.station = lab.Station(FRONT, "--quiet", *options, stderr=told)

    def stop_process(self):
        self.station.process.send_signal(signal.SIGSTOP)

    def continue_process(self):
        self.station.process.send_signal(signal.SIGCONT)

    def wait_for(self, text):
        lab.wait_until(lambda: text in self.told.read_text(), f'"{text}" is told')

    def expect_all_of(self, *interfaces):
        """A module on each brings its messages once; returns what was told."""
        report = self.stop_having_all([self.send(name) for name in interfaces])
        told = [line for line in self.told.read_text().splitlines() if "sequence counter" not in line]
        self.assertEqual(report["interfaceMessages"], told)  # and that the module was made again
        return report["interfaceMessages"]

    def send(self, interface):
        return lab.simulate(MODULE, "--rate", 100, "--duration", 1, interface=interface)

    def stop_having_all(self, sent):
        report, _ = self.station.stop()
        self.assertEqual(traffic.account_differences(report), [])
        self.assertEqual(sum(channel["frames"] for channel in report["channels"]),
                         sum(count for one in sent for count in traffic.sent_counts(one).values()))
        return report

    def test_what_appears_comes_up_or_is_made_again_is_captured_from_then_on(self):
        self.add_link("late0", up=False)
        self.capture()
        self.wait_for("late0: That device is not up")
        lab.ip("link set late0 up")
        self.wait_for("interface late0 is captured from now on")
        for state, text in (("down", "late0 went down: nothing comes in"), ("up", "late0 is up again")):
            lab.ip(f"link set late0 {state}")
            self.wait_for(text)
        open_files = Path(f"/proc/{self.station.process.pid}/fd")
        before = len(list(open_files.iterdir()))
        for times in (1, 2):
            self.add_link("late1")
            lab.wait_until(lambda: self.told.read_text().count("late1 is captured from now on") == times, "it is told")
            if times == 1:
                lab.ip("link del late1")
                self.wait_for("interface late1 went away")
                lab.wait_until(lambda: len(list(open_files.iterdir())) <= before, "it is closed")
        self.expect_all_of("far0", "far1", "sim0")

    def test_a_run_that_waits_begins_with_the_first_module_on_its_interface(self):
        recording = self.path("a.pcapng")
        self.capture("--wait", "--interface", "late5", "--record", recording, "--duration", 2)
        self.wait_for('waiting until "Front" is heard on late5\n')
        self.send("sim0")
        self.station.process.send_signal(signal.SIGHUP)
        self.assertFalse(recording.exists())
        self.add_link("late5")
        simulator = lab.start_simulator(MODULE, "--rate", 100, "--duration", 60, interface="far5")
        self.addCleanup(lab.end, simulator)
        code, output, _ = self.station.finish()
        lab.end(simulator)
        frames = sum(channel["frames"] for channel in json.loads(output)["channels"])
        self.assertEqual((code, len(traffic.read_with_tshark(recording))), (0, frames))
        self.assertGreater(frames, 50)
        self.expect(1, "run", "--module", *FRONT, "--wait", "--record", recording)
        for number in (signal.SIGINT, signal.SIGTERM):
            recording.unlink(missing_ok=True)
            self.capture("--wait", "--record", recording)
            simulator = lab.start_simulator(["CAN combo:6,channels=1"], "--rate", 10, "--duration", 60)
            self.addCleanup(lab.end, simulator)
            self.wait_for("CM ID 0x46 is heard (CAN combo with ConfigId 6), which no module")
            self.assertEqual(self.told.read_text().count("0x46"), 1)
            lab.end(simulator)
            self.assertEqual(self.station.stop_with_any_code(number)[:2], (0, {"heard": False}))
            self.assertFalse(recording.exists())

    def test_what_waits_when_an_interface_goes_away_is_read(self):
        for is_late in (False, True):
            if is_late:
                self.capture()
            self.add_link("late3")
            if is_late:
                self.wait_for("interface late3 is captured from now on")
            else:
                self.capture()
            sent = [self.send("far3")]
            self.stop_process()
            sent += [self.send("far3")]
            lab.ip("link del late3")
            self.continue_process()
            self.wait_for("interface late3 went away")
            time.sleep(0.5)
            self.stop_having_all(sent)

    def test_dump_tells_what_was_dropped_and_ends_when_its_interface_goes_away(self):
        self.add_link("late4")
        with self.path("out").open("w") as out, self.told.open("w") as told:
            dump = lab.spawn([lab.STATION, "dump", "--interface", "late4"], stdout=out, stderr=told)
        self.addCleanup(lab.end, dump)

        def printed():
            return self.path("out").read_text().count("HEADER\n")
        lab.wait_until(lambda: self.send("far4") and printed(), "it captures")
        before = 0
        while before != (before := printed()):
            time.sleep(0.8)
        dump.send_signal(signal.SIGSTOP)
        sent = lab.simulate(MODULE, "--rate", 200, "--duration", 4, interface="far4")
        lab.ip("link del late4")
        dump.send_signal(signal.SIGCONT)
        self.assertEqual(dump.wait(lab.PATIENCE), 1)
        dropped, gone = self.told.read_text().splitlines()
        self.assertEqual(gone, "cmp-station: interface late4 went away")
        self.assertRegex(dropped, r"^cmp-station: \d+ Ethernet frames were lost before they could be read")
        self.assertEqual(printed() - before + int(dropped.split()[1]), sent["frames"])

    def test_what_cannot_be_opened_is_tried_again(self):
        self.capture()
        process = self.station.process.pid
        highest = max(int(path.name) for path in Path(f"/proc/{process}/fd").iterdir())
        before = resource.prlimit(process, resource.RLIMIT_NOFILE)
        resource.prlimit(process, resource.RLIMIT_NOFILE, (highest + 2, before[1]))  # one more file
        self.add_link("late2")
        self.wait_for("late2: ")
        resource.prlimit(process, resource.RLIMIT_NOFILE, before)
        self.wait_for("interface late2 is captured from now on")
        self.expect_all_of("far2")

    def test_what_only_repeats_others_is_left_out(self):
        lab.ip("link add bridge0 type bridge")
        self.addCleanup(lab.ip, "link del bridge0")
        lab.ip("link set bridge0 up")
        for port in ("veth0", "veth2"):  # it sends out by one what comes in by the other
            lab.ip(f"link set {port} master bridge0")
        lab.ip("link add link veth1 name upper1 type macvlan mode bridge")
        self.addCleanup(lab.ip, "link del upper1")
        lab.ip("link set upper1 up")
        self.capture()
        told = self.expect_all_of("sim0", "sim1")
        self.assertIn("interface bridge0 is left out, as it only repeats veth0, veth2", told)
        self.assertIn("interface upper1 is left out, as it only repeats veth1", told)

        self.capture("--interface", "bridge0")  # what is named is captured on, and nothing else
        self.send("sim1")
        self.assertEqual(self.expect_all_of("sim0"), [])

        self.capture("--interface", "veth0", "--interface", "late5")  # is waited for
        self.wait_for("there is no Ethernet interface late5; it is captured when it appears")
        lab.ip("tuntap add late5 mode tun")
        self.wait_for("interface late5 carries no Ethernet frames: nothing is captured on it")
        for command in ["run", "--module", "CAN combo:5:F"], ["dump"]:
            code, _, errors = lab.call([lab.STATION, *command, "--interface", "late5"])
            self.assertEqual((code, "late5 carries no Ethernet" in errors), (2, True), errors)
        lab.ip("link del late5")
        self.add_link("late5")
        self.wait_for("interface late5 is captured from now on")
        self.send("sim1")
        self.expect_all_of("far5", "sim0")

        lab.ip("link set veth0 nomaster")
        self.capture()
        lab.ip("link set veth0 master bridge0")
        self.wait_for("interface bridge0 is left out")
        self.expect_all_of("sim0")

    def test_a_stop_of_the_process_loses_nothing_and_many_interfaces_take_little_memory(self):
        for rate in (RATE, 30 * RATE):
            self.capture()
            simulator = lab.start_simulator(MODULE, "--rate", rate, "--length", 64, "--duration", 4)
            time.sleep(1.5)
            for _ in range(3):
                self.stop_process()
                time.sleep(STOP)
                self.continue_process()
                time.sleep(STOP)
            status = Path(f"/proc/{self.station.process.pid}/status").read_text()
            sent = lab.finish_simulator(simulator)
            time.sleep(0.5)
            report, _ = self.station.stop()
            self.assertEqual(report["droppedFrames"], 0)
            self.assertEqual(traffic.count_differences(sent, report), [])
            self.assertLess(int(status.split("RssFile:")[1].split()[0]) * 1024, MEGABYTES * 1_000_000)

    def test_links_that_begin_at_once_lose_nothing_and_silent_ones_stay_small(self):
        recording = self.path("a.pcapng")
        station = lab.Station([f"CAN combo:{link + 1}:Module {link}" for link in (*BUSY, *GOING)], record=[recording])
        self.assertEqual(ring_memory(station), WIDE + LINKS * NARROW)  # the first is the loopback's
        going, busy = ([lab.start_simulator([f"CAN combo:{link + 1},channels=2"], "--rate", RATE, "--duration", seconds,
                                            interface=f"sim{link}") for link in links]
                       for links, seconds in ((GOING, 60), (BUSY, 3)))
        for link, age in zip(GOING, AGES):
            lab.wait_until(functools.partial(is_receiving, link), "there are frames")
            time.sleep(age)
            lab.ip(f"link del veth{link}")
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
        self.expect_rows_of(sent, report, rows[True])
        self.assertGreater(len(rows[False]), 0)
        self.expect_no_gap(rows[False])


if __name__ == "__main__":
    main(links=LINKS)
