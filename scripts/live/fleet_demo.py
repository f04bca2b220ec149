"""The run of scripts/demo-fleet: fleet_demo.py FOLDER SECONDS STATIONS BROKERS-THAT-FAIL

Brokers, stations and their modules each have a network of their own. While all send, brokers are killed and come
back one after the other, stations are killed and started again, links are cut, and the collector is killed too. In
the end what the stations recorded themselves is compared with what was collected, message by message, as tshark reads
both."""

import json
import random
import signal
import sys
import time
from collections import defaultdict
from pathlib import Path

import brokers
import lab
import traffic

BROKERS = 3
RATE = 100  # messages a second and channel, on two of them
CUT = 10  # seconds
AWAY = 5  # that a broker is, beside the time that it needs to start
FLUSHED = 2 * 10**9  # nanoseconds: what a station that is killed may have written on one way and not on the other


class FleetStation:
    """A station, in a namespace with its modules behind a link there."""

    def __init__(self, number, folder, url):
        self.name, self.far, self.url = f"station{number}", f"modules{number}", url
        self.folder = folder / self.name
        self.folder.mkdir()
        brokers.add_host(self.name, 100 + number)
        lab.ip(f"netns add {self.far}")
        lab.ip(f"link add can0 netns {self.name} type veth peer name sim0 netns {self.far}")
        for place, interface in ((self.name, "can0"), (self.far, "sim0")):
            lab.ip(f"-n {place} link set {interface} up")
        self.recordings, self.reports, self.killed = [], [], set()

    def start(self):
        self.recordings.append(self.folder / f"own{len(self.recordings)}.pcapng")
        self.station = lab.Station(
            ["CAN combo:5:Front"], "--interface", "can0", "--quiet", "--stream", self.url, "--stream-replicas", BROKERS,
            "--station", self.name, "--spool", self.folder / "spool", "--stream-wait", 60,
            record=[self.recordings[-1]], prefix=brokers.within(self.name))

    def kill(self):
        self.killed.add(self.recordings[-1])
        lab.end(self.station.process)

    def send(self, seconds):
        self.simulator = lab.spawn(
            [*brokers.within(self.far), lab.SIMULATOR, "--interface", "sim0", "--json", "--module",
             "CAN combo:5,channels=2", "--rate", str(RATE), "--duration", str(seconds)], stdout=-1, stderr=-1)

    def end(self):
        self.sent = lab.finish_simulator(self.simulator)
        self.station.settle()
        code, report, errors = self.station.stop_with_any_code(signal.SIGTERM)
        self.reports.append((code, report, errors))


class CollectorProcess:
    def __init__(self, url, out):
        self.command = [lab.STATION, "collect", url, "--out", str(out), "--json", "--quiet"]
        self.log_path = out.with_suffix(".log")
        self.log = open(self.log_path, "a")
        self.start()

    def start(self):
        self.process = lab.spawn([*self.command, "--follow"], stdout=self.log, stderr=self.log)

    def kill(self):
        if self.process.poll() is not None:
            self.fail()
        lab.end(self.process)
        self.start()

    def fail(self):
        raise lab.Failure(f"the collector ended with {self.process.returncode}: {self.log_path.read_text()}")

    def finish(self):
        """Ends it, and has what is left collected: exit code, report and messages of that."""
        self.process.send_signal(signal.SIGINT)
        if self.process.wait(lab.PATIENCE) != 0:
            self.fail()
        code, output, errors = lab.call(self.command)
        return code, json.loads(output or "{}"), errors


def say(text):
    print(f"  {text}", flush=True)


def fail_brokers(cluster, names):
    for name in names:
        say(f"{name} is killed")
        cluster.kill(name)
        time.sleep(AWAY)
        cluster.start(name)
        lab.wait_until(cluster.is_ready, "the broker is well again")
        say(f"{name} is back")


def disturb(cluster, stations, collector, failing, draw):
    fail_brokers(cluster, cluster.names[:failing])
    victims = draw.sample(stations, 2)
    for station in victims:
        say(f"{station.name} is killed and started again")
        station.kill()
        station.start()
    say("the collector is killed and started again")
    collector.kill()
    others = [station.name for station in stations if station not in victims]
    links = [*draw.sample(others, min(2, len(others))), draw.choice(cluster.names)]
    say(f"the links of {', '.join(links)} are cut for {CUT} s")
    for name in links:
        brokers.cut(name)
    time.sleep(CUT)
    for name in links:
        brokers.mend(name)


def run(folder, seconds, count, failing, draw):
    """Stations, and what the last collecting says."""
    brokers.prepare()
    cluster = brokers.Cluster(folder, BROKERS)
    lab.wait_until(cluster.is_ready, "the brokers are a cluster")
    stations = [FleetStation(i, folder, cluster.url()) for i in range(count)]
    for station in stations:
        station.start()
    say(f"{count} stations stream to {BROKERS} brokers")
    start = time.monotonic()
    for station in stations:
        station.send(seconds)
    time.sleep(2)
    collector = CollectorProcess(cluster.url(), folder / "collected")
    disturb(cluster, stations, collector, failing, draw)
    while any(station.simulator.poll() is None for station in stations):
        time.sleep(0.1)
    say(f"all modules have sent, after {time.monotonic() - start:.0f} s")
    print(lab.call([lab.STATION, "fleet", "status", cluster.url()])[1], end="", flush=True)
    for station in stations:
        station.end()
    return stations, collector.finish()


def read_collected(folder, station):
    """Rows of each session, in the order in which the sessions began."""
    sessions = [traffic.read_with_tshark(path) for path in sorted((folder / "collected" / station.name).glob("*.pcapng"))
                if not path.name.endswith(".collecting.pcapng")]
    return sorted(filter(None, sessions), key=lambda rows: rows[0].time)


def compare(own, collected, was_killed):
    """Why the two recordings of a session differ; empty if they don't. Of one that was killed each may end some
    messages before the other."""
    if was_killed:
        end = min(own[-1].time, collected[-1].time) if own and collected else 0
        if own and own[-1].time - end > FLUSHED:
            return f"{(own[-1].time - end) / 1e9:.1f} s of messages at its end weren't collected"
        own, collected = ([row for row in rows if row.time <= end] for rows in (own, collected))
    lines = [defaultdict(list), defaultdict(list)]
    for rows, by_name in zip((own, collected), lines):
        for row in rows:
            by_name[row.name].append(row)
    for name in lines[0].keys() | lines[1].keys():
        text = traffic.first_difference(name, lines[0][name], lines[1][name])
        if text:
            return text[0].replace("sent", "recorded by the station", 1)
    times = [row.time for row in collected]
    return "" if times == sorted(times) else "its messages aren't in the order of time"


def check(folder, stations, code, report):
    """Prints a line for each station; returns whether all is well."""
    wrong, total = [], 0
    for station in stations:
        own = [traffic.read_with_tshark(path, torn=path in station.killed) for path in station.recordings]
        collected = read_collected(folder, station)
        texts = [f"{len(own)} sessions, and {len(collected)} collected"] * (len(own) != len(collected))
        texts += filter(None, (compare(mine, theirs, path in station.killed)
                               for path, mine, theirs in zip(station.recordings, own, collected)))
        own_code, own_report, errors = station.reports[0]
        if own_code != 0:
            texts.append(f"the station ended with {own_code}: {errors.strip()}")
        if not station.killed:
            texts += traffic.row_differences(station.sent, traffic.names_of(own_report),
                                             collected[0] if collected else [], late=own_report["outOfOrder"])
        there = sum(map(len, collected))
        total += there
        print(f"  {station.name}: {station.sent['dataMessages']:6} sent, {sum(map(len, own)):6} recorded, {there:6} "
              f"collected in {len(collected)} sessions  {'; '.join(texts) or 'ok'}", flush=True)
        wrong += texts
    if code != 0 or report.get("missingBatches") or total == 0:
        wrong.append("the collector is not content")
        print(f"  the collector ended with {code}: {json.dumps(report, indent=1)}")
    return not wrong


def main(folder, seconds, count, failing):
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))
    folder = Path(folder)
    seed = random.randrange(10**6)
    print(f"fleet: {count} stations, {BROKERS} brokers, {seconds} s, seed {seed}", flush=True)
    stations, (code, report, errors) = run(folder, int(seconds), int(count), int(failing), random.Random(seed))
    sys.stdout.write(errors)
    is_well = check(folder, stations, code, report)
    print("  Each message that the stations recorded was collected once, in order, but for the last fraction of a\n"
          f"  second of those that were killed (up to {FLUSHED / 1e9:.0f} s)." if is_well
          else "  WHAT WAS COLLECTED ISN'T WHAT WAS RECORDED.")
    return 0 if is_well else 1


if __name__ == "__main__":
    try:
        sys.exit(main(*sys.argv[1:]))
    except lab.Failure as failure:
        sys.exit(f"fleet: {failure}")
