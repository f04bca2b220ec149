"""The live part of scripts/bench: as many frames of many messages as a veth pair carries; and how many of
them a station keeps up with that records them and shows its table."""

import sys
import tempfile
import threading
import time
from pathlib import Path

import lab

MESSAGES_PER_FRAME = 40
FRAMES_PER_SECOND = 103_000
CHANNELS = 4
SECONDS = 5
LESS = 0.7  # of the rate is tried next where messages were lost


def measure(frames_per_second, *options, seconds=SECONDS, per_frame=MESSAGES_PER_FRAME, **more):
    """What was sent, the station's exit code and what it says of the run."""
    station = lab.Station(["CAN combo:5"], *options, **more)
    try:
        sent = lab.simulate([f"CAN combo:5,channels={CHANNELS}"], "--rate",
                            frames_per_second * per_frame // CHANNELS, "--duration", seconds,
                            "--per-frame", per_frame)
        station.settle()
    finally:
        code, report, _ = station.stop_with_any_code()
    return sent, code, report


def show(sent, code, report):
    """Prints what became of the messages; returns whether all arrived."""
    delivered = sum(channel["frames"] for channel in report["channels"])
    counted = (report["droppedFrames"] * MESSAGES_PER_FRAME + report["lostMessages"])
    print(f"  {sent['frames'] / sent['seconds']:12,.0f} frames/s, latest {sent['maxLateSeconds'] * 1000:5.1f} ms late; "
          f"{sent['dataMessages']:12,} messages sent, {delivered:12,} delivered", end="")
    for recording in report["recordings"]:
        print(f", {recording['records']:12,} recorded, {recording['lost']:12,} counted as lost", end="")
        if recording["records"] + recording["lost"] != delivered:
            print(" THAT ISN'T ALL", end="")
    if report["droppedFrames"]:
        print(f", {report['droppedFrames']:,} frames dropped by the system", end="")
    if sent["dataMessages"] > delivered + counted:
        print(", OTHERS LOST WITHOUT A COUNT", end="")
    print(f"; exit code {code}")
    return code == 0


def main():
    lab.prepare()
    print(f"live over veth, {MESSAGES_PER_FRAME} messages a frame, {SECONDS} s, {FRAMES_PER_SECOND:,} frames/s wanted:")
    show(*measure(FRAMES_PER_SECOND, "--quiet"))
    print("with a .pcapng recording and the table on a terminal:")
    rate = FRAMES_PER_SECOND
    is_complete = False
    while not is_complete and rate > 1000:
        terminal, is_over = lab.Terminal(), threading.Event()

        def show_table(shown=terminal, over=is_over):
            while not over.is_set():
                shown.read()
                time.sleep(0.01)

        reader = threading.Thread(target=show_table)
        reader.start()
        with tempfile.TemporaryDirectory() as folder:
            try:
                is_complete = show(*measure(rate, record=[Path(folder) / "a.pcapng"], stderr=terminal.its))
            finally:
                is_over.set()
                reader.join()
        rate = int(rate * LESS)


if __name__ == "__main__":
    try:
        main()
    except lab.Failure as failure:
        sys.exit(f"bench: {failure}")
