"""The run of scripts/soak: long_run.py [SECONDS [SEED]]

What happens to a station in weeks, in little time: recordings in parts of ten seconds, compressed, of which few are kept, a
hangup for another part now and then, modules that begin, end, restart and jump as in soak.py, interfaces that go
down and come up, and a setup that is saved while the run has it open. A link is made to each part, so that it can
be read in the end although the station has removed it."""

import contextlib
import os
import random
import signal
import sys
import tempfile
import time
from collections import Counter
from pathlib import Path

import faults
import lab
import setups
import soak
import traffic

MODULES = 8
CHANNELS = 7  # of each module
BUSY = 100  # messages a second on each channel of the module that is never quiet
ENDINGS = {".pcapng": ["tshark", "convert"], ".mf4": ["convert"], ".blf": ["tshark", "convert"]}  # and who reads them
PART = 10  # seconds
KEEP = 3  # parts
MIB = 1024  # of the kilobytes of /proc
# How much higher a level may be in the second half than in the first: by a share of it, and by so much more.
LEVELS = {"resident memory, MiB": (0.25, 16), "of that its own, MiB": (0.25, 16), "descriptors": (0, 4),
          "threads": (0, 4)}


class Module(faults.Module):
    def load(self):
        return CHANNELS, BUSY if self.busy else self.random.choice(soak.RATES)


class Link(faults.Link):
    """Takes the link of a silent module down, and up again."""

    def end(self):
        lab.ip(f"link set {self.name()} down")

    def begin(self):
        pass

    def is_captured(self):
        """Its other end notices a little later that it can send."""
        _, state, _ = lab.call(["ip", "-n", "modules", "-brief", "link", "show", "dev", self.module.interface])
        return " UP " in state and super().is_captured()


class Parts:
    """All parts of all recordings that there were."""

    def __init__(self, folder):
        self.recorded, self.kept = folder / "recorded", folder / "kept"
        self.recorded.mkdir()
        self.kept.mkdir()

    def look(self):
        for path in self.recorded.iterdir():
            if path.suffix != ".tmp" and not (link := self.kept / path.name).exists():
                with contextlib.suppress(FileNotFoundError):
                    os.link(path, link)

    def of(self, recording):
        """Those of the recording to that path, compressed if they were; and of them those that the station has left."""
        name = f"{recording.stem}-*{recording.suffix}"
        # One that was soon compressed may have been seen in that form alone.
        names = {path.name.removesuffix(".zst") for path in self.kept.glob(name + "*")}
        compressed = [self.kept / (part + ".zst") for part in sorted(names)]
        return ([path if path.exists() else path.with_suffix("") for path in compressed],
                sorted(self.kept / path.name for path in self.recorded.glob(name + "*")))


class Levels:
    """What a process holds, sampled."""

    def __init__(self, pid):
        self.pid, self.samples = pid, []

    def look(self):
        status = dict(line.split(":\t") for line in Path(f"/proc/{self.pid}/status").read_text().splitlines())
        memory = [int(status[name].split()[0]) / MIB for name in ("VmRSS", "RssAnon")]
        self.samples.append((*memory, len(os.listdir(f"/proc/{self.pid}/fd")), int(status["Threads"])))

    def check(self):
        """Prints the highest of each half; returns what has grown."""
        half, wrong = len(self.samples) // 2, []
        for at, (what, (share, more)) in enumerate(LEVELS.items()):
            first, second = (max(sample[at] for sample in samples)
                             for samples in (self.samples[:half], self.samples[half:]))
            print(f"  {what}: at most {first:.0f} in the first half, {second:.0f} in the second")
            if second > first * (1 + share) + more:
                wrong.append(f"{what}: grew from {first:.0f} to {second:.0f}")
        return wrong


def make_setup(path, modules):
    """One in which as many channels of each module are used as send."""
    setups.make(path, [["new", "FILE"]])
    for module in modules:
        step = 1 if module.type == "NeoviFire3" else 0x10
        setups.make(path, [["add", "FILE", "--type", module.type, "--config-id", str(module.config_id), "--name",
                            module.name]]
                    + [["channel", "FILE", module.name, hex(step * number), "--used", "yes"]
                       for number in range(1, CHANNELS + 1)])


def save_setup(path, draw):
    """As somebody does who prepares the next run."""
    row = str(draw.randrange(MODULES) + 1)
    setups.make(path, [["set", "FILE", row, "--name", f"Saved {row} {draw.randrange(1000)}"]])


def run(folder, seconds, seed):
    draw = random.Random(seed)
    modules = [Module(number, seed, seconds) for number in range(MODULES)]
    setup, errors, parts = folder / "soak.xml", folder / "errors", Parts(folder)
    make_setup(setup, modules)
    with contextlib.ExitStack() as stack:
        options = ["--quiet", "--rotate", f"time={PART}s", "--keep", KEEP, "--compress", "zstd"]
        station = lab.Station((), *options, setup=setup, stderr=stack.enter_context(errors.open("w")),
                              record=[parts.recorded / f"bench{ending}" for ending in ENDINGS])
        process = station.process
        stack.callback(lab.end, process)
        link, levels = Link(draw, modules[1:]), Levels(process.pid)
        at_once = (0, 0)
        troubles = {
            "interfaces down and up": faults.Trouble(draw, 3, (0.1, 3), link.take_away, link.make_again),
            "setups saved": faults.Trouble(draw, 15, at_once, lambda: save_setup(setup, draw), lambda: None),
            "hangups": faults.Trouble(draw, 25, at_once, lambda: process.send_signal(signal.SIGHUP), lambda: None),
        }
        start = time.monotonic()
        while any([module.step(time.monotonic() - start) for module in modules]):
            for trouble in troubles.values():
                trouble.step(time.monotonic() - start)
            link.release()
            parts.look()
            if process.poll() is not None:
                raise lab.Failure(f"cmp-station ended early: {errors.read_text()}")
            if len(levels.samples) <= time.monotonic() - start:
                levels.look()
            time.sleep(0.05)
        for trouble in troubles.values():
            trouble.undo()
        station.recordings = list(parts.kept.iterdir())
        station.settle()
        code, report, _ = station.stop_with_any_code()
        parts.look()
    if not report:
        raise lab.Failure(f"cmp-station ended with {code}: {errors.read_text()}")
    return modules, troubles, code, report, parts, levels


def read_with_convert(path):
    table = path.with_name("part.csv")
    code, _, errors = lab.call([lab.STATION, "convert", "--quiet", "--overwrite", path, table])
    if code != 0:
        raise lab.Failure(f"{path.name} can't be converted: {errors}")
    return traffic.read_csv(table)


READERS = {"tshark": traffic.read_with_tshark, "convert": read_with_convert}


def check_recording(recording, report, parts):
    """What is wrong with the parts of a recording, which are read by other programs."""
    path = Path(recording["path"])
    all_parts, left = parts.of(path)
    wrong = []
    if len(all_parts) != recording.get("parts", 1):
        wrong.append(f"{path.name}: {len(all_parts)} parts instead of {recording.get('parts', 1)}")
    if left != all_parts[-KEEP:]:
        wrong.append(f"{path.name}: of its parts {[part.name for part in left]} are there instead of the last {KEEP}")
    unlike = [part.name for part in all_parts if part.suffix != ".zst"]
    if len(unlike) > len(all_parts) // 2 or set(unlike) & {part.name for part in left}:
        wrong.append(f"{path.name}: these parts were not compressed: {unlike}")
    written = Counter({channel["name"]: there["records"] for channel in report["channels"]
                       for there in channel["recordings"] if there["path"] == recording["path"]})
    if written.total() != recording["records"]:
        wrong.append(f"{path.name}: {recording['records']} recorded, and {written.total()} of all channels")
    for name in ENDINGS[path.suffix]:
        found, early, last = Counter(), 0, 0
        for part in all_parts:
            for row in READERS[name](part):
                found[row.name] += 1
                early += row.time < last
                last = row.time
        print(f"  {path.name}: {len(all_parts)} parts, {recording['records']} messages recorded and "
              f"{recording['lost']} lost, {found.total()} read by {name}, {early} of them earlier than the one before")
        wrong += [f"{path.name}, channel {channel}: {written[channel]} recorded, {found[channel]} read by {name}"
                  for channel in sorted(written | found) if written[channel] != found[channel]]
        if early > report["outOfOrder"]:
            wrong.append(f"{path.name}: {early} messages are earlier than the one before, and only "
                         f"{report['outOfOrder']} counted")
    return wrong


def check(modules, report, parts):
    wrong = [f"the account of {entry} doesn't add up" for entry in traffic.account_differences(report)]
    names = [module["name"] for module in report["modules"]]
    if names != [module.name for module in modules]:
        wrong.append(f"the setup that was saved has come into the run: {names}")
    for recording in report["recordings"]:
        wrong += check_recording(recording, report, parts)
    return wrong


def main(seconds=3600, seed=None):
    seconds, seed = int(seconds), int(seed) if seed else random.randrange(10**6)
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, signal.default_int_handler)
    print(f"soak: {MODULES} modules, {MODULES * CHANNELS} channels, {seconds} s, seed {seed}", flush=True)
    lab.prepare(links=MODULES)
    with tempfile.TemporaryDirectory() as folder:
        modules, troubles, code, report, parts, levels = run(Path(folder), seconds, seed)
        wrong = soak.check(modules, code, report) + check(modules, report, parts)
    soak.finish(modules, "; " + ", ".join(f"{trouble.count} {name}" for name, trouble in troubles.items()),
                wrong + levels.check() + faults.check_troubles(troubles, seconds, least=2))


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except lab.Failure as failure:
        sys.exit(f"soak: {failure}")
    except KeyboardInterrupt:
        sys.exit("soak: ended by a signal")
