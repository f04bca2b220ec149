"""The live part of scripts/bench clock: how far the recorded times are from those at which the messages
were really sent, for each way in which a module's clock can follow the host's.

A step of the machine's real clock isn't among them: it would be one of the whole machine."""

import contextlib
import datetime
import statistics
import sys
import tempfile
import time
from pathlib import Path
from typing import NamedTuple

import lab
import traffic

JUMP_AT = 6  # seconds after the simulator's start
LOCKED = 0.002  # seconds; a clock that errs less has locked
IN_TURN = 20  # messages that show it

SOFT = ("--sync", "soft", "--clock-source", "no")
SLAVE = ("--sync", "pps", "--clock-source", "no")
MASTER = ("--sync", "pps", "--clock-source", "yes")


class Mode(NamedTuple):
    name: str
    options: str = ""  # of the simulated module
    sync: tuple = SOFT
    rate: int = 1000  # messages a second
    seconds: int = 12
    loops: int = 0  # other programs that want the processor


PPM = {"0 ppm": "", "+500 ppm": ",drift=500", "-500 ppm": ",drift=-500"}
MODES = [
    *[Mode(f"soft, {name}", options) for name, options in PPM.items()],
    *[Mode(f"soft, {name}, two busy loops", options, loops=2) for name, options in PPM.items()],
    *[Mode(f"soft, {name}, 10 a second", PPM[name], rate=10, seconds=30) for name in ("+500 ppm", "-500 ppm")],
    Mode("soft, jitter 0.1 ms", ",jitter=0.0001"),
    Mode("soft, jitter 1 ms", ",jitter=0.001"),
    *[Mode(f"soft, jump of {seconds} s", f",jump={seconds}@{JUMP_AT}") for seconds in (0.9, 1.1, -1.1, 5, -5)],
    Mode("PPS slave", sync=SLAVE),
    Mode("PPS master", sync=MASTER),
]


class Message(NamedTuple):
    number: int
    sent: float  # seconds after the simulator's start
    error: float  # seconds


def setup_command(*words):
    code, _, errors = lab.call([lab.STATION, "setup", *map(str, words)])
    if code != 0:
        raise lab.Failure(f"cmp-station setup {words[0]} ended with {code}: {errors}")


def utc_offset():
    """CLOCK_REALTIME less CLOCK_MONOTONIC in nanoseconds: of many readings the one that took least."""
    readings = []
    for _ in range(1000):
        before, real, after = time.monotonic_ns(), time.time_ns(), time.monotonic_ns()
        readings.append((after - before, real - (before + after) // 2))
    return min(readings)[1]


def utc_nanoseconds(text):
    """Of a time such as 2026-01-31T12:00:00.123456789Z."""
    seconds = datetime.datetime.strptime(text[:19] + "+0000", "%Y-%m-%dT%H:%M:%S%z").timestamp()
    return int(seconds) * 10**9 + int(text[20:29])


def measure(folder, mode):
    """Runs one mode; returns its messages in the order of sending, and how many are missing of those that
    were due since the start of the measurement."""
    setup, recording = folder / "clock.xml", folder / "clock.pcapng"
    for path in (setup, recording):
        path.unlink(missing_ok=True)
    setup_command("new", setup)
    setup_command("add", setup, "--type", "CAN combo", "--config-id", 5, "--name", "Module")
    setup_command("channel", setup, "Module", "0x10", "--used", "yes")
    setup_command("set", setup, "Module", *mode.sync)
    utc = utc_offset()
    with contextlib.ExitStack() as stack:
        for _ in range(mode.loops):
            stack.callback(lab.end, lab.spawn(["sh", "-c", "while :; do :; done"]))
        # The simulator first: a module is there before the measurement, and its clock can lead it.
        simulator = lab.start_simulator([f"CAN combo:5,channels=1{mode.options}"], "--rate", mode.rate,
                                        "--duration", mode.seconds, "--length", 12, "--stamp")
        stack.callback(lab.end, simulator)
        station = lab.Station((), "--quiet", setup=setup, record=[recording])
        stack.callback(lab.end, station.process)
        sent = lab.finish_simulator(simulator)
        time.sleep(0.5)
        code, report, errors = station.stop_with_any_code()
    sys.stdout.write(errors)
    if code not in (0, 1):  # 1: some were lost
        raise lab.Failure(f"cmp-station ended with {code}")
    if abs(utc_offset() - utc) > 1000:
        raise lab.Failure("the machine's clock was set meanwhile")
    messages = []
    for row in traffic.read_with_tshark(recording):
        stamp = int.from_bytes(row.data[4:12], "little")
        messages.append(Message(int.from_bytes(row.data[:4], "little"), (stamp - sent["startStampNs"]) / 1e9,
                                (row.time - utc - stamp) / 1e9))
    if not messages:
        raise lab.Failure("no message was delivered")
    messages.sort()
    start = utc_nanoseconds(report["startTime"]) - utc - sent["startStampNs"]
    due = range(-(-start * mode.rate // 10**9), sent["dataMessages"])
    return messages, len(set(due) - {m.number for m in messages})


def locked_from(messages):
    """The first of those in turn that err little, or none."""
    run = 0
    for position, message in enumerate(messages):
        run = run + 1 if abs(message.error) < LOCKED else 0
        if run == IN_TURN:
            return position - IN_TURN + 1
    return None


def seconds_to_lock(messages):
    position = locked_from(messages)
    return f"{messages[position].sent - messages[0].sent:.2f}" if position is not None else "never"


def report(mode, messages, lost):
    jumps = "jump" in mode.options
    before = [m for m in messages if not jumps or m.sent < JUMP_AT]
    errors = sorted(abs(m.error) * 1e6 for m in before[locked_from(before) or 0:])
    figures = (statistics.median(errors), errors[min(int(len(errors) * 0.99), len(errors) - 1)], errors[-1])
    print(f"  {mode.name:<32}" + "".join(f"{figure:10.1f}" for figure in figures)
          + f"{seconds_to_lock(before):>8}{lost:>6}", end="")
    if jumps:
        after = [m for m in messages if m.sent >= JUMP_AT]
        worst = max(abs(m.error) for m in after)
        print(f"   after it: worst {worst * 1000:.0f} ms, locked in {seconds_to_lock(after)} s", end="")
    print(flush=True)


def main():
    lab.prepare()
    print("live over veth, 1000 messages a second for 12 s, or 10 for 30 s; error against the moment of sending,\n"
          "from where the clock has locked:")
    for heads in (("median", "99 %", "worst", "lock", "lost"), ("us", "us", "us", "s", "")):
        print(f"  {'':<32}{heads[0]:>10}{heads[1]:>10}{heads[2]:>10}{heads[3]:>8}{heads[4]:>6}")
    with tempfile.TemporaryDirectory() as folder:
        for mode in MODES:
            report(mode, *measure(Path(folder), mode))


if __name__ == "__main__":
    try:
        main()
    except lab.Failure as failure:
        sys.exit(f"bench: {failure}")
