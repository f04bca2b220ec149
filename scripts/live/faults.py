"""The run of scripts/faults: faults.py [SECONDS [SEED]]

Modules begin, end, restart and jump as in soak.py, two of them with one CM ID, and malformed frames come
between theirs. Meanwhile interfaces are taken away and made again, one is put into a bridge, the process is
stopped for 300 ms, its terminal isn't read, one recording's disk is frozen now and then, and another's gets
full, has room again, and is full in the end. Then each message that was sent has to be in a count, once,
channel by channel and recording by recording."""

import concurrent.futures
import contextlib
import json
import os
import random
import signal
import socket
import subprocess
import sys
import tempfile
import time
from collections import Counter
from itertools import pairwise
from pathlib import Path

import lab
import setups
import soak

LINKS = 8
SMALL = "19M"  # of the disk that gets full
FILLER = 18 << 20  # bytes of it that are given back a while after it has got full
FROZEN = "64M"  # of the disk that is frozen


class Module(soak.Module):
    """One whose link can be taken away while it is silent."""

    held = False

    def step(self, now):
        return super().step(now) if self.process or not self.held else self.seconds - now >= soak.LAST_START


class Trouble:
    """Something that is done to the station again and again, and undone `length` seconds later."""

    def __init__(self, draw, pause, length, begin, end):
        self.draw, self.pause, self.length, self.begin, self.end = draw, pause, length, begin, end
        self.next = draw.uniform(1, pause)
        self.is_on = False
        self.count = 0

    def step(self, now):
        if now < self.next:
            return
        if not self.is_on and self.begin() is not False:
            self.is_on, self.next = True, now + self.draw.uniform(*self.length)
            self.count += 1
        else:
            self.undo()
            self.next = now + self.draw.uniform(self.pause / 2, self.pause)

    def undo(self):
        if self.is_on:
            self.is_on = False
            self.end()


def is_captured(interface):
    index = socket.if_nametoindex(interface)
    return any(line.split()[4] == str(index) for line in Path("/proc/net/packet").read_text().splitlines()[1:])


class Link:
    """Takes the link of a silent module away and makes it again."""

    def __init__(self, draw, modules):
        self.draw, self.modules, self.module = draw, modules, None
        self.is_there = True

    def take_away(self):
        silent = [module for module in self.modules if not module.process]
        if not silent or (self.module and self.module.held):
            return False
        self.is_there = False
        self.module = self.draw.choice(silent)
        self.module.held = True
        self.end()
        return True

    def make_again(self):
        self.begin()
        lab.ip(f"link set {self.name()} up")
        self.is_there = True

    def end(self):
        lab.ip(f"link del {self.name()}")

    def begin(self):
        lab.add_link(self.name(), self.module.interface)

    def is_captured(self):
        return is_captured(self.name())

    def release(self):
        """Lets the module send again when the station listens."""
        if self.is_there and self.module and self.module.held and self.is_captured():
            self.module.held = False

    def name(self):
        return self.module.interface.replace("sim", "veth")


def writes_below(process, folder):
    """Whether the process has a file open below the folder: a recording whose disk is full closes its own."""
    files = Path(f"/proc/{process.pid}/fd")
    with contextlib.suppress(FileNotFoundError):  # one that it has closed meanwhile
        return any(str(folder) in os.readlink(file) for file in files.iterdir())
    return True


def begin_bridge():
    """Over a link that is never taken away: each of its frames passes both."""
    lab.ip("link add bridge0 type bridge")
    lab.ip("link set veth0 master bridge0")
    lab.ip("link set bridge0 up")


def run(folder, seconds, seed):
    draw = random.Random(seed)
    modules = [Module(number, seed, seconds) for number in range(LINKS)]
    modules[-1].type, modules[-1].config_id = modules[-4].type, modules[-4].config_id  # one CM ID twice
    setup = folder / "faults.xml"
    setups.make_measured(setup, [f"{m.type}:{m.config_id}:{m.name}" for m in modules[:-1]])
    frozen, small = lab.mount(folder / "frozen", FROZEN, "ext4"), lab.mount(folder / "small", SMALL)
    filler = small / "filler"
    filler.write_bytes(bytes(FILLER))
    terminal, link = lab.Terminal(), Link(draw, modules[1:])
    with contextlib.ExitStack() as stack:
        for disk in (frozen, small):
            stack.callback(lab.run, "umount", "--lazy", disk)
        station = lab.Station(setup=setup, record=[frozen / "a.pcapng", small / "b.log"], stderr=terminal.its)
        stack.callback(lab.end, station.process)
        process = station.process
        troubles = {
            "stops of the process": Trouble(draw, 8, (0.3, 0.3), lambda: process.send_signal(signal.SIGSTOP),
                                            lambda: process.send_signal(signal.SIGCONT)),
            "frozen disks": Trouble(draw, 20, (1, 10), lambda: lab.freeze(frozen), lambda: lab.thaw(frozen)),
            "stops of the terminal": Trouble(draw, 20, (1, 10), terminal.stop, terminal.read),
            "bridges": Trouble(draw, 15, (1, 10), begin_bridge, lambda: lab.ip("link del bridge0")),
            "links made again": Trouble(draw, 10, (0.1, 3), link.take_away, link.make_again),
        }
        for trouble in troubles.values():
            stack.callback(trouble.undo)
        start = room = time.monotonic()
        while any([module.step(time.monotonic() - start) for module in modules]):
            for trouble in troubles.values():
                trouble.step(time.monotonic() - start)
            link.release()
            now = time.monotonic()
            if filler.exists() and writes_below(process, small):
                room = now
            elif filler.exists() and now - room > 3:
                filler.unlink()
            if terminal.is_read:
                terminal.read()
            if process.poll() is not None:
                raise lab.Failure(f"cmp-station ended early: {terminal.text.decode(errors='replace')}")
            time.sleep(0.02)
        for trouble in troubles.values():
            trouble.undo()
        station.settle()
        with concurrent.futures.ThreadPoolExecutor(1) as reader:
            ended = reader.submit(station.finish)  # a long report is read as it comes
            if draw.random() < 0.5:  # the end comes when the disk doesn't answer
                with lab.frozen(frozen):
                    process.send_signal(signal.SIGTERM)
                    time.sleep(3)
            else:
                process.send_signal(signal.SIGINT)
            code, output, _ = ended.result()
        report = json.loads(output) if output else {}
        terminal.read()
        files = {recording["path"]: look_at(recording["path"]) for recording in report.get("recordings", [])}
    if not report:
        raise lab.Failure(f"cmp-station ended with {code}: {terminal.text.decode(errors='replace')}")
    return modules, troubles, code, report, files


def look_at(path):
    """Messages in a recording, by other programs than the station, and whether they are in the order of time."""
    if path.endswith(".log"):
        parts = sorted(Path(path).parent.glob("b*.log"), key=lambda part: (len(part.name), part.name))
        lines = [line for part in parts for line in part.read_text().splitlines()]
        return len(lines), all(a.split(")")[0] <= b.split(")")[0] for a, b in pairwise(lines))
    info = subprocess.run(["capinfos", "-M", "-c", "-o", path], check=False, capture_output=True, text=True)
    *_, count, _, _, _, is_ordered = info.stdout.split()
    return int(count), is_ordered == "True"


def check_recordings(report, files):
    """What is wrong with the recordings: each has every message of the channels that it can hold, or counts
    it as lost."""
    frames = Counter()
    for channel in report["channels"]:
        frames["LIN" if channel["busType"] == "LIN" else "CAN"] += channel["frames"]
    wrong = []
    for recording in report["recordings"]:
        held = frames["CAN"] + (0 if recording["path"].endswith(".log") else frames["LIN"])
        there, is_ordered = files[recording["path"]]
        print(f"  {Path(recording['path']).name}: {there} of {held} in it, {recording['lost']} counted as lost"
              f"{recording.get('error') and '; ' + recording['error'] or ''}")
        # A disk that is given up may still take some when it comes back.
        is_counted = there == recording["records"] or (there > recording["records"] and recording["lost"])
        if not is_counted or recording["records"] + recording["lost"] != held:
            wrong.append(f"{recording['path']} has {there} messages: the station says {recording['records']}, and "
                         f"{recording['lost']} lost of {held}")
        if recording["path"].endswith(".log") and recording.get("parts", 1) == 1:
            wrong.append(f"{recording['path']} didn't go on when its disk had room again")
        if not is_ordered and not report["outOfOrder"]:
            wrong.append(f"{recording['path']} isn't in the order of time")
    return wrong


def check_troubles(troubles, seconds, least=1):
    """What didn't happen as often, though there was time for it."""
    return [f"only {trouble.count} {name}" for name, trouble in troubles.items()
            if trouble.count < least and seconds >= 60]


def main(seconds=600, seed=None):
    seed = int(seed) if seed else random.randrange(10**6)
    print(f"faults: {LINKS} links, {seconds} s, seed {seed}", flush=True)
    lab.prepare(links=LINKS)
    with tempfile.TemporaryDirectory() as folder:
        modules, troubles, code, report, files = run(Path(folder), int(seconds), seed)
    wrong = soak.check(modules, code, report) + check_recordings(report, files)
    soak.finish(modules, "; " + ", ".join(f"{trouble.count} {name}" for name, trouble in troubles.items()),
                wrong + check_troubles(troubles, int(seconds)))


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except lab.Failure as failure:
        sys.exit(f"faults: {failure}")
