"""The live part of scripts/bench clock: how far the delivered times are from those at which the messages
were really sent, for each way in which a module's clock can follow the host's."""

import re
import statistics
import sys
import tempfile
import time
from pathlib import Path

import lab

RATE = 1000  # messages a second
SECONDS = 12
JUMP_AT = 6  # seconds after the simulator's start
LOCKED = 0.002  # seconds; a clock that errs less has locked
LINE = re.compile(r"\((\d+)\.(\d{6})\) \S+ \w+##?\d?([0-9A-F]{24})$")

SOFT = ("--sync", "soft", "--clock-source", "no")
SLAVE = ("--sync", "pps", "--clock-source", "no")
MASTER = ("--sync", "pps", "--clock-source", "yes")
MODES = [
    ("soft sync, 0 ppm", "", SOFT),
    ("soft sync, +50 ppm", ",drift=50", SOFT),
    ("soft sync, -50 ppm", ",drift=-50", SOFT),
    ("soft sync, +500 ppm", ",drift=500", SOFT),
    ("soft sync, -500 ppm", ",drift=-500", SOFT),
    ("soft sync, jitter 0.1 ms", ",jitter=0.0001", SOFT),
    ("soft sync, jitter 1 ms", ",jitter=0.001", SOFT),
    ("soft sync, jump of 0.9 s", f",jump=0.9@{JUMP_AT}", SOFT),
    ("soft sync, jump of 1.1 s", f",jump=1.1@{JUMP_AT}", SOFT),
    ("PPS slave", "", SLAVE),
    ("PPS master", "", MASTER),
]


def setup_command(*words):
    code, _, errors = lab.call([lab.STATION, "setup", *map(str, words)])
    if code != 0:
        raise lab.Failure(f"cmp-station setup {words[0]} ended with {code}: {errors}")


def record(folder, options, sync):
    """Runs one mode; returns (running number, true time, error) of each message delivered, in seconds
    since the start, and how many were sent."""
    setup, log = folder / "clock.xml", folder / "clock.log"
    setup.unlink(missing_ok=True)
    log.unlink(missing_ok=True)
    setup_command("new", setup)
    setup_command("add", setup, "--type", "CAN combo", "--config-id", 5, "--name", "Module")
    setup_command("channel", setup, "Module", "0x10", "--used", "yes")
    setup_command("set", setup, "Module", *sync)
    # The simulator first: a module is there before the measurement, and its clock can lead it.
    simulator = lab.start_simulator([f"CAN combo:5,channels=1{options}"], "--rate", RATE, "--duration", SECONDS,
                                    "--length", 12, "--stamp")
    try:
        station = lab.Station((), "--quiet", setup=setup, record=[log])
        sent = lab.finish_simulator(simulator)
        time.sleep(0.5)
        station.stop()
    finally:
        lab.end(simulator)
    utc = time.time_ns() - time.monotonic_ns()
    messages = []
    for line in log.read_text().splitlines():
        match = LINE.match(line)
        if match:
            data = bytes.fromhex(match[3])
            stamp = int.from_bytes(data[4:12], "little")
            delivered = int(match[1]) * 10**9 + int(match[2]) * 1000
            messages.append((int.from_bytes(data[:4], "little"), stamp / 1e9, (delivered - stamp - utc) / 1e9))
    if not messages:
        raise lab.Failure("no message was delivered")
    return messages, sent["dataMessages"]


def lock_time(messages):
    """Seconds from the first message to the first of 20 in turn that err by less than LOCKED."""
    run = 0
    for number, _, error in messages:
        run = run + 1 if abs(error) < LOCKED else 0
        if run == 20:
            return (number - 19 - messages[0][0]) / RATE
    return float("inf")


def milliseconds(value):
    return f"{value * 1000:8.3f}"


def percentile(errors, share):
    return sorted(errors)[min(int(len(errors) * share), len(errors) - 1)]


def report(name, messages, jumps):
    before = [m for m in messages if not jumps or m[0] < JUMP_AT * RATE]
    locked = lock_time(before)
    since = before[0][0] + (locked * RATE if locked < 1e9 else 0)
    errors = [abs(error) for number, _, error in before if number >= since]
    print(f"  {name:<26}{milliseconds(statistics.median(errors))}{milliseconds(percentile(errors, 0.99))}"
          f"{locked:8.2f}", end="")
    if jumps:
        numbers = {m[0] for m in messages}
        after = [m for m in messages if m[0] >= JUMP_AT * RATE]
        lost = sum(number not in numbers for number in range(JUMP_AT * RATE, messages[-1][0]))
        worst = max(abs(m[2]) for m in after)
        print(f"   the jump: {lost} messages lost, worst {worst * 1000:.0f} ms, "
              f"locked again after {lock_time(after):.2f} s", end="")
    print(flush=True)


def main():
    lab.prepare()
    print(f"live over veth, {RATE} messages a second for {SECONDS} s; error against the true time of sending:")
    print(f"  {'':<26}{'median':>8}{'99 %':>8}{'lock':>8}\n  {'':<26}{'ms':>8}{'ms':>8}{'s':>8}")
    with tempfile.TemporaryDirectory() as folder:
        for name, options, sync in MODES:
            messages, _ = record(Path(folder), options, sync)
            report(name, messages, "jump" in options)


if __name__ == "__main__":
    try:
        main()
    except lab.Failure as failure:
        sys.exit(f"bench: {failure}")
