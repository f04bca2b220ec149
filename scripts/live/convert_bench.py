"""The part "convert" of scripts/bench: writers beside a plain write, `convert` beside tshark, and what a station that
records keeps up with. All files are in a file system in memory: what is compared is the programs, and no disk. It has
large pages, as else clearing small ones is up to a third of what a writer costs."""

import math
import os
import subprocess
import sys
import time
from pathlib import Path

import bench
import lab

# Messages a frame, and how many messages.
FILES = {1: 1_000_000, 40: 3_000_000}
# By ending, how much faster than tshark it is wanted.
WANTED = {".log": 80, ".pcapng": 80, ".mf4": 40, ".blf": 40, ".asc": None, ".csv": None}
FIELDS = ("frame.time_epoch", "tecmp.payload.interface_id", "tecmp.payload.timestamp_ns",
          "tecmp.payload.data.can_id_11", "tecmp.payload.data")
ROUNDS = 6
TSHARK_ROUNDS = 2  # one takes as long as a few of the others together
RECORDINGS = {"no recording": (), "one": (".pcapng",), "three": (".pcapng", ".mf4", ".blf")}
SECONDS = 3
LEAST_RATE = 10_000  # frames a second


def measure(command):
    """CPU time and wall time in seconds; output goes nowhere."""
    start = time.perf_counter()
    process = subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.perf_counter() - start
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise lab.Failure(f"{command[0]} ended with {process.returncode}")
    return usage.ru_utime + usage.ru_stime, wall


def compare_convert(folder, per_frame, messages):
    source = folder / f"{per_frame}.pcap"
    subprocess.run([lab.SIMULATOR, "--write", source, "--module", "CAN combo:5", "--rate", "100000", "--per-frame",
                    str(per_frame), "--messages", str(messages)], check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    commands = {"tshark": ["tshark", "-n", "-r", source, "-T", "fields", *lab.repeat("-e", FIELDS)]}
    commands |= {ending: [lab.STATION, "convert", "--quiet", "--overwrite", source, folder / f"converted{ending}"]
                 for ending in WANTED}
    took = {name: (math.inf, math.inf) for name in commands}
    # In turn, and the best counts: what else runs on the machine can only make one slower. Between two of ours there is
    # little time, as a virtual machine may give unused memory back to its host.
    for name in [*(["tshark"] * TSHARK_ROUNDS), *(list(WANTED) * ROUNDS)]:
        took[name] = tuple(map(min, took[name], measure(commands[name])))
        (folder / f"converted{name}").unlink(missing_ok=True)
    print(f"{messages:,} messages, {per_frame} a frame:")
    for name, (cpu, wall) in took.items():
        ratios = [there / here for there, here in zip(took["tshark"], (cpu, wall))]
        wanted = WANTED.get(name)
        print(f"  {name:8} {cpu:7.3f} s of CPU, {wall:7.3f} s: tshark takes {ratios[0]:6.1f} times the CPU, "
              f"{ratios[1]:6.1f} times the time" + (f"; {wanted} wanted" if wanted else "")
              + (" MISSED" if wanted and ratios[1] < wanted else ""))
    source.unlink()


def compare_recordings(folder):
    """The highest rate at which nothing is lost, of those that are tried: each 0.7 of the one before."""
    print(f"live, {bench.MESSAGES_PER_FRAME} messages a frame, {SECONDS} s:")
    rate = bench.FRAMES_PER_SECOND
    for name, endings in RECORDINGS.items():
        print(f" {name} {' '.join(endings)}")
        while rate > LEAST_RATE:
            paths = [folder / f"live{ending}" for ending in endings]
            is_complete = bench.show(*bench.measure(rate, "--quiet", record=paths, seconds=SECONDS))
            for path in paths:
                path.unlink()
            if is_complete:
                break
            rate = int(rate * bench.LESS)


def main():
    lab.prepare()
    folder = lab.mount(Path("/run/bench"), "8G", pages="always")
    subprocess.run([lab.BIN / "recording-benchmark", folder], check=True)
    for per_frame, messages in FILES.items():
        compare_convert(folder, per_frame, messages)
    compare_recordings(folder)


if __name__ == "__main__":
    try:
        main()
    except lab.Failure as failure:
        sys.exit(f"bench: {failure}")
