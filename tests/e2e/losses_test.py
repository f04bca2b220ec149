"""What is lost and counted before messages reach their channels, and when frames came in."""

import contextlib
import http.client
import re
import resource
import signal
import socket
import sys
import time
import zlib
from pathlib import Path

import lab
import setups
import traffic
from case import CAN, FRONT, RATE, Case, main

LIVE_PORT = sys.argv.pop(1)
PAGE = ("127.0.0.1", 9464)
COUNTS = ("queued", "delivered", "beforeStart", "afterEnd", "tooOld", "tooNew", "notPlaced", "leftQueued", "noOutput",
          "overwritten", "raised", "unusable")  # as the end of a recording has them


def words(name, between=" "):
    """Those of a name such as "tooOld"."""
    return re.sub("[A-Z]", lambda letter: between + letter[0].lower(), name)


def read_end(recording):
    """The last part of it, as far as it is text."""
    end = recording.read_bytes()[-20_000:]
    return zlib.decompress(end[end.rindex(b"LOBJ") + 32:]) if recording.suffix == ".blf" else end


def received_by_link(name):
    """Frames, by the system's own count of the interface."""
    lines = Path("/proc/self/net/dev").read_text().splitlines()
    return next(int(line.split()[2]) for line in lines if line.split()[0] == f"{name}:")


def read_page():
    """The samples of the metrics page, by name and by what is between the braces."""
    connection = http.client.HTTPConnection(*PAGE, timeout=lab.PATIENCE)
    with contextlib.closing(connection):
        connection.request("GET", "/metrics")
        lines = connection.getresponse().read().decode().splitlines()
    return {(match[1], match[2]): float(match[3])
            for line in lines if (match := re.fullmatch(r"cmp_(\w+?)(?:_total)?(?:\{(.*)\})? (\S+)", line))}


def expected_samples(report):
    """What it must have of a measurement into which nothing comes any more."""
    messages = report["messages"]
    samples = {("messages", f'kind="{words(kind, "_")}"'): messages[kind]
               for kind in ("data", "moduleStatus", "busStatus", "other")}
    samples |= {("messages_left_out", f'reason="{words(reason, "_")}"'): messages[reason]
                for reason in ("empty", "unknownModule", "unknownChannel", "unusedChannel")}
    samples |= {("interface_frames", f'interface="{interface["name"]}",fate="{fate}"'): interface[fate]
                for interface in report["interfaces"] if interface["name"] for fate in ("kept", "foreign", "dropped")}
    samples |= {("interface_received_frames", f'interface="{interface["name"]}"'): interface["received"]
                for interface in report["interfaces"] if interface["name"] and interface["received"] is not None}
    for channel in report["channels"]:
        name, module = (text.replace("\\", "\\\\").replace('"', '\\"') for text in (channel["name"], channel["module"]))
        labels = f'channel="{name}",module="{module}",bus="{channel["busType"]}"'
        samples |= {(f"channel_messages_{count}", labels): channel[key]
                    for count, key in (("queued", "queued"), ("delivered", "delivered"), ("read", "frames"))}
        samples["channel_messages_discarded", labels + ',reason="too_old"'] = channel["tooOld"]
    for recording in report["recordings"]:
        samples["recording_records_written", f'recording="{recording["path"]}",format="pcapng",contents="messages"'] = recording["records"]
    return samples


class Losses(Case):
    def test_frames_that_the_system_drops_are_told(self):
        before = received_by_link("veth0")
        station = lab.Station(FRONT)
        station.process.send_signal(signal.SIGSTOP)
        lab.simulate(CAN, "--rate", 0, "--per-frame", 40, "--messages", 2_000_000)  # 60 MB: too much to be kept
        station.process.send_signal(signal.SIGCONT)
        report, errors = station.stop(code=1)
        self.assertGreater(report["droppedFrames"], 0)
        self.assertIn(f"{report['droppedFrames']} Ethernet frames were lost", errors)
        received = [interface["received"] for interface in report["interfaces"] if interface["name"] == "veth0"]
        self.assertEqual(received, [received_by_link("veth0") - before])
        self.assertEqual(traffic.account_differences(report), [])

    def test_what_the_clocks_discard_is_counted_to_the_message(self):
        recordings = [self.path(f"a.{ending}") for ending in ("pcapng", "asc", "mf4", "blf")]
        station = lab.Station(FRONT, record=recordings)
        # Modules of one CM ID, more than a clock can tell apart.
        rivals = [lab.start_simulator([f"CAN combo:5,offset={offset},serial={offset + 100}"], "--rate", 100, "--duration", 3)
                  for offset in (-60, 900, 3600)]
        sent = [lab.simulate(["CAN combo:5,jump=5@1"], "--rate", RATE, "--duration", 2),
                *map(lab.finish_simulator, rivals)]
        time.sleep(1)
        report, errors = station.stop(code=1)
        counts = [traffic.sent_counts(one) for one in sent]
        for end in map(read_end, recordings):
            wanted = [f"unknown module {report['messages']['unknownModule']}, unknown channel "]
            wanted += [", ".join(f"{words(count)} {channel[count]}" for count in COUNTS) for channel in report["channels"]]
            self.assertEqual([text for text in wanted if text.encode() not in end], [])
        frames = sum(channel["frames"] for channel in report["channels"])
        self.assertEqual([len(traffic.read_with_python_can(path)) for path in recordings if path.suffix in (".asc", ".blf")]
                         + [len(traffic.read_with_tshark(recordings[-1]))], 3 * [frames])
        for channel in report["channels"]:
            key = (0x45, channel["interfaceId"])
            lost = sum(channel[kind] for kind in ("tooOld", "tooNew", "notPlaced", "leftQueued", "noOutput"))
            self.assertGreater(lost, 0)
            self.assertIn(f'channel "{channel["name"]}" lost', errors)
            self.assertEqual(channel["frames"], channel["delivered"])
            self.assertEqual(channel["delivered"] + lost + channel["beforeStart"] + channel["afterEnd"],
                             sum(count[key] for count in counts))
        module = report["modules"][0]
        self.assertGreater(module["clock"]["jumps"], 0)
        self.assertIsNotNone(module["clock"]["age"])
        self.assertEqual(len({*module["rivalSerials"]} & {40, 1000, 3700, 100000}), 2)
        self.assertIn('several modules send with the CM ID of "Front" (0x45)', errors)

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

    def test_metrics_page_has_the_account_and_none_of_its_readers_holds_up_anything(self):
        self.assertNotIn("prometheus", lab.call(["ldd", lab.STATION])[1])
        station = lab.Station(['CAN combo:5:Fr"ont\\'], "--interface", "veth0", "--metrics", PAGE[1],
                              record=[self.path("a.pcapng")])
        descriptors = Path(f"/proc/{station.process.pid}/fd")
        before = len(list(descriptors.iterdir()))
        resource.setrlimit(resource.RLIMIT_NOFILE, (4096, 4096))
        readers = [socket.socket() for _ in range(2000)]
        for number, reader in enumerate(readers):
            self.addCleanup(reader.close)
            reader.setblocking(False)
            reader.connect_ex(PAGE)
            if number % 2:
                with contextlib.suppress(OSError):  # there is no room for it
                    reader.send(b"GET /metrics HTTP/1.1\r\n\r\n")
        simulator = lab.start_simulator([*CAN, "CAN combo:6"], "--rate", RATE, "--bad", 0.1)
        time.sleep(2)
        self.assertLess(len(list(descriptors.iterdir())), before + 64)
        for reader in readers[8:]:
            reader.close()

        def count(name):
            return sum(value for key, value in read_page().items() if key[0] == name)

        for least in (0, count("channel_messages_delivered")):
            lab.wait_until(lambda: count("channel_messages_delivered") > least, "messages are on the page")
        simulator.send_signal(signal.SIGINT)
        sent = traffic.sent_counts(lab.finish_simulator(simulator))
        wanted = sum(number for (module, _), number in sent.items() if module == 0x45)
        lab.wait_until(lambda: count("recording_records_written") == count("channel_messages_queued") == wanted,
                       "all messages are on the page")
        other = self.path("b.pcapng")
        _, errors = self.expect(1, "run", "--module", *CAN, "--record", other, "--metrics", "127.0.0.1:9464")
        self.assertIn("127.0.0.1:9464: Address already in use", errors)
        self.assertFalse(other.exists())
        time.sleep(1)
        page = read_page()
        report, _ = station.stop()
        self.assertEqual([(key, value, page.get(key)) for key, value in expected_samples(report).items()
                          if page.get(key) != value], [])
        self.assertEqual(traffic.account_differences(report), [])
        self.assertLess(report["longestPause"], 1.5)

    def test_frames_are_stamped_on_receipt(self):
        self.assertEqual(lab.call([LIVE_PORT])[0], 0)


if __name__ == "__main__":
    main()
