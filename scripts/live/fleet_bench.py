"""The fleet's part of scripts/bench: fleet_bench.py FOLDER [SECONDS]

Stations that are the station's own spool and publisher, with a broker on the loopback address: 200 messages a second
each, and what a full spool brings; beside that plain clients that publish payloads of the same size."""

import re
import shutil
import sys
from pathlib import Path

import lab

URL = "nats://127.0.0.1:4222"
COUNTS = [1, 10, 100]
RATE = 200
MEGABYTES = 1000


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
    lab.prepare(links=0)
    print(f"stations that send {RATE} messages a second, {seconds} s:")
    for count in COUNTS:
        measure(folder, "live", URL, count, RATE, seconds, folder / "spool")
    print(f"stations with spools full of {MEGABYTES} MB in all, and plain clients with payloads of that size:")
    for count in COUNTS:
        line = measure(folder, "drain", URL, count, MEGABYTES, folder / "spool")
        size = re.search(r"of +(\d+) bytes", line)[1]
        plain = measure(folder, "plain", URL, count, MEGABYTES, size)
        rates = [float(re.search(r"([\d.]+) MB/s", text)[1]) for text in (line, plain)]
        print(f"    that is {rates[0] / rates[1]:.2f} of the plain clients", flush=True)


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except lab.Failure as failure:
        sys.exit(f"bench: {failure}")
