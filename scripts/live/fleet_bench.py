"""The fleet's part of scripts/bench: fleet_bench.py FOLDER [SECONDS]

Stations that are the station's own spool and publisher, with a broker on the loopback address: 200 messages a second
each, and what a full spool brings; beside that plain clients that publish payloads of the same size. Then as many
frames as the live part has, with no stream, with no broker where it should be, and with one that is stopped."""

import re
import shutil
import signal
import statistics
import sys
from pathlib import Path

import bench
import lab

URL = "nats://127.0.0.1:4222"
COUNTS = [1, 10, 100]
RATE = 200
MEGABYTES = 1000
BACKLOG, BACKLOG_SECONDS = 200, 2  # megabytes
SMALLER = [(2, 100), (16, 400), (64, 1000)]  # KiB of a batch, MB in all
ROUNDS = 5  # one run of either may take twice as long as another, by what the broker's memory does
WANTED = 0.8  # of what plain clients bring
DEAD_SECONDS = 10


def start_broker(folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    broker = lab.spawn(["nats-server", "-a", "127.0.0.1", "-p", "4222", "-js", "-sd", str(folder), "-l",
                        str(folder / "log")])
    lab.wait_until(lambda: "Server is ready" in (folder / "log").read_text() if (folder / "log").exists() else False,
                   "the broker answers")
    return broker


def measure(folder, *words):
    """The line that the benchmark prints, with a broker of its own."""
    broker = start_broker(folder / "broker")
    try:
        code, output, errors = lab.call([str(lab.BIN / "fleet-benchmark"), *map(str, words)])
    finally:
        lab.end(broker)
        shutil.rmtree(folder / "spool", ignore_errors=True)
    if code != 0:
        raise lab.Failure(errors)
    print("  " + output.strip(), flush=True)
    return output


def main(folder, seconds=10):
    folder = Path(folder)
    lab.prepare()
    print(f"stations that send {RATE} messages a second, {seconds} s:")
    for count in COUNTS:
        measure(folder, "live", URL, count, RATE, seconds, folder / "spool", 0)
    print(f"one station, without and with {BACKLOG} MB of an earlier measurement in its spool, while that is sent:")
    for backlog in (0, BACKLOG):
        measure(folder, "live", URL, 1, RATE, BACKLOG_SECONDS, folder / "spool", backlog)
    print(f"stations with full spools, and plain clients with payloads of that size, {ROUNDS} times in turn:")
    for count, kibibytes, megabytes in [*((count, 256, MEGABYTES) for count in COUNTS),
                                        *((COUNTS[-1], *smaller) for smaller in SMALLER)]:
        ours, plain = [], []
        for _ in range(ROUNDS):
            line = measure(folder, "drain", URL, count, megabytes, folder / "spool", kibibytes * 1024)
            size = re.search(r"of +(\d+) bytes", line)[1]
            ours.append(find_rate(line))
            plain.append(find_rate(measure(folder, "plain", URL, count, megabytes, size)))
        rates = [statistics.median(rates) for rates in (ours, plain)]
        print(f"    {count} stations, batches of {size} bytes: {rates[0]:.1f} MB/s, the plain clients {rates[1]:.1f}: "
              f"{rates[0] / rates[1]:.2f} of that (medians); {WANTED} is asked", flush=True)
    for per_frame in (1, bench.MESSAGES_PER_FRAME):
        print(f"live over veth, {per_frame} messages a frame, {DEAD_SECONDS} s, {bench.FRAMES_PER_SECOND:,} frames/s wanted:")
        for what in ("no stream", "no broker", "a broker that is stopped"):
            measure_dead(folder, what, per_frame)


def find_rate(line):
    return float(re.search(r"([\d.]+) MB/s", line)[1])


def measure_dead(folder, what, per_frame):
    """What was dropped on the way to the station, and what to the stream."""
    broker = start_broker(folder / "broker") if "stopped" in what else None
    options = []
    if what != "no stream":
        options = ["--stream", URL, "--station", "load", "--spool", folder / "spool", "--stream-wait", 0]
    try:
        if broker:
            broker.send_signal(signal.SIGSTOP)
        sent, code, report = bench.measure(bench.FRAMES_PER_SECOND, "--quiet", *options, seconds=DEAD_SECONDS,
                                           per_frame=per_frame)
    finally:
        if broker:
            lab.end(broker)
        shutil.rmtree(folder / "spool", ignore_errors=True)
    stream = report.get("stream", {"lost": 0, "backlogMessages": 0})
    delivered = sum(channel["frames"] for channel in report["channels"])
    print(f"  {what:24}: {sent['frames'] / sent['seconds']:8,.0f} frames/s, {sent['frames']:10,} frames, "
          f"{report['droppedFrames']:8,} dropped; {sent['dataMessages']:12,} messages, {delivered:12,} delivered; "
          f"{stream['backlogMessages']:12,} in the spool, {stream['lost']:,} lost to it; exit code {code}", flush=True)


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except lab.Failure as failure:
        sys.exit(f"bench: {failure}")
