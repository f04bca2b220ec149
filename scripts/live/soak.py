"""The soak of scripts/bench: soak.py [SECONDS [SEED]]

A module on each of 22 links. The first link is never quiet; on the others modules begin, end and begin
again at random times, with clocks that are off, drift and jump. At the end each message that was sent has
to be in a count, channel by channel."""

import contextlib
import random
import signal
import sys
import tempfile
import time
from collections import Counter, defaultdict
from pathlib import Path

import lab
import setups
import traffic

LINKS = 22
CHANNELS = 3  # of each module
NEVER_QUIET = 5000  # messages a second, in frames of one
TYPES = ["CAN combo", "LIN combo", "NeoviFire3"]
RATES = [1, 10, 50, 200]  # of the others
JUMPS = [0.05, 0.3, 0.9, 1.1, 5, 60]  # seconds, both ways
DISCARDED = ["tooOld", "tooNew", "notPlaced", "leftQueued", "noOutput"]
FATES = ["delivered", *DISCARDED, "beforeStart", "afterEnd"]
LAST_START = 2  # seconds before the end


class Module:
    """A module on a link of its own: now sending, now silent."""

    def __init__(self, number, seed, seconds):
        self.random = random.Random(f"{seed} {number}")
        self.type, self.config_id, self.seconds = TYPES[number % 3], number // 3 + 1, seconds
        self.interface, self.busy = f"sim{number}", number == 0
        self.name = f"Module {number}"
        self.process = None
        self.next = 0 if self.busy else self.random.uniform(0, min(10, seconds / 4))
        self.terminates = False  # it is ended by a signal
        self.sent = Counter()
        self.runs = self.jumps = 0

    def load(self):
        """Channels that send in the next run, and how many messages a second on each."""
        return (1, NEVER_QUIET) if self.busy else (CHANNELS, self.random.choice(RATES))

    def options(self, rest):
        """Of the next run, which may last `rest` seconds; and how long it is."""
        draw = self.random
        duration = rest if self.busy else min(rest, draw.uniform(1, 60))
        clock = f"drift={draw.uniform(-500, 500):.1f}"
        if draw.random() < 0.5:
            clock += f",offset={draw.choice([0.3, 5, 3600]) * draw.uniform(-1, 1):.3f}"
        if draw.random() < 0.3:
            clock += ",jitter=0.0002"
        if self.busy or draw.random() < 0.6:
            self.jumps += 1
            clock += f",jump={draw.choice(JUMPS) * draw.choice([1, -1])}@{draw.uniform(0, duration):.3f}"
        channels, rate = self.load()
        self.terminates = draw.random() < 0.3
        return duration, [f"{self.type}:{self.config_id},channels={channels},{clock}"], [
            "--rate", rate, "--seed", draw.randrange(10**6), "--duration", duration + 60 * self.terminates,
            "--bad", draw.choice([0, 0, 0.1])]

    def step(self, now):
        """Begins or ends a run when it is time; returns whether there is more to do."""
        if self.process is None:
            rest = self.seconds - now
            if rest < LAST_START:
                return False
            if now >= self.next:
                self.runs += 1
                duration, modules, options = self.options(rest)
                self.process = lab.start_simulator(modules, *options, interface=self.interface)
                self.next = now + duration
        elif self.process.poll() is not None:
            self.sent.update(traffic.sent_counts(lab.finish_simulator(self.process)))
            self.process = None
            self.next = now + self.random.uniform(0.1, 15)
        elif self.terminates and now >= self.next:
            self.process.send_signal(signal.SIGTERM)
            self.terminates = False
        return True


def run(folder, seconds, seed):
    """Modules, exit code of the station, what it says of the run, and its messages."""
    modules = [Module(number, seed, seconds) for number in range(LINKS)]
    setup = folder / "soak.xml"
    setups.make_measured(setup, [f"{m.type}:{m.config_id}:{m.name}" for m in modules])
    setups.make(setup, [["set", "FILE", m.name, "--sync", "pps"] for m in modules[3::4]])
    station = lab.Station((), "--quiet", setup=setup)
    start = time.monotonic()
    with contextlib.ExitStack() as stack:
        stack.callback(lab.end, station.process)
        while any([module.step(time.monotonic() - start) for module in modules]):
            if station.process.poll() is not None:
                raise lab.Failure(f"cmp-station ended early: {station.finish()}")
            time.sleep(0.02)
        station.settle()
        code, report, errors = station.stop_with_any_code()
    if not report:
        raise lab.Failure(f"cmp-station ended with {code}: {errors}")
    return modules, code, report, errors


def channel_counts(report):
    """The counts of each channel that has any, by CM ID and interface ID."""
    cm_ids = {module["name"]: module["cmId"] for module in report["modules"]}
    counts = defaultdict(Counter)
    for channel in report["channels"]:
        counts[cm_ids[channel["module"]], channel["interfaceId"]].update(
            {name: channel[name] for name in ("frames", "overwritten", "queued", "unusable", *FATES)})
    return counts


def check_channel(counts):
    """Why the counts of a channel don't add up; empty if they do. Frames that the system drops have no
    channel yet."""
    fates = sum(counts[fate] for fate in FATES)
    texts = []
    if counts["sent"] < counts["queued"]:
        texts.append(f"{counts['queued'] - counts['sent']} more queued than sent")
    if counts["queued"] != fates:
        texts.append(f"{counts['queued'] - fates} unaccounted for")
    if counts["delivered"] != counts["frames"] + counts["overwritten"]:
        texts.append(f"{counts['delivered']} delivered, {counts['frames']} recorded")
    return ", ".join(texts)


def check(modules, code, report):
    """Prints a line for each channel; returns what is wrong."""
    sent = sum((module.sent for module in modules), Counter())
    counts, total, wrong = channel_counts(report), Counter(), []
    heads = ("sent", *FATES, "overwritten", "unusable")
    print(f"  {'channel':<14}" + "".join(f"{head:>12}" for head in heads))
    for key in sorted(sent.keys() | {key for key, value in counts.items() if value.total() > 0}):
        row = counts[key] + Counter(sent=sent[key])
        total += row
        text = check_channel(row)
        wrong += [f"0x{key[0]:02X}/0x{key[1]:02X}: {text}"] if text else []
        print(f"  0x{key[0]:02X}/0x{key[1]:02X}     " + "".join(f"{row[head]:12}" for head in heads), text)
    print(f"  {'all':<14}" + "".join(f"{total[head]:12}" for head in heads))
    missing, dropped = total["sent"] - total["queued"], report["droppedFrames"]
    lost = sum(total[name] for name in ("overwritten", *DISCARDED))
    print(f"  not queued: {missing}; frames that the system dropped: {dropped}; messages lost, as the station says: "
          f"{report['lostMessages']}; behind later ones in the recordings: {report['outOfOrder']}; it ended with {code}")
    if missing > dropped:  # a frame holds one message, or is a status
        wrong.append(f"{missing} messages were not queued, and only {dropped} frames dropped")
    if total["delivered"] == 0:
        wrong.append("nothing was delivered")
    if lost != report["lostMessages"]:
        wrong.append(f"{lost} messages of the channels were lost, and {report['lostMessages']} of the station")
    unrecorded = any(recording["lost"] or recording.get("error") for recording in report["recordings"])
    if code != (1 if lost + dropped or unrecorded else 0):
        wrong.append("the exit code isn't that of the losses")
    return wrong


def finish(modules, more, wrong):
    """Prints what the run consisted of and the verdict, and ends the program by it."""
    print(f"  {sum(m.runs for m in modules)} runs of {len(modules)} modules, {sum(m.jumps for m in modules)} of them "
          "with a jump" + more)
    print("  Every message is accounted for." if not wrong else "  THE COUNTS DON'T ADD UP:", *wrong, sep="\n    ")
    sys.exit(1 if wrong else 0)


def main(seconds=600, seed=None):
    seed = seed or random.randrange(10**6)
    print(f"soak: {LINKS} links, {seconds} s, seed {seed}", flush=True)
    lab.prepare(links=LINKS)
    with tempfile.TemporaryDirectory() as folder:
        modules, code, report, errors = run(Path(folder), int(seconds), seed)
    sys.stdout.write(errors)
    finish(modules, "", check(modules, code, report))


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except lab.Failure as failure:
        sys.exit(f"soak: {failure}")
