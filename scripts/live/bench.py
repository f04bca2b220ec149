"""The live part of scripts/bench: as many frames of many messages as a veth pair carries."""

import sys

import lab
import traffic

MESSAGES_PER_FRAME = 40
FRAMES_PER_SECOND = 103_000
CHANNELS = 4
SECONDS = 5


def main():
    lab.prepare()
    station = lab.Station(["CAN combo:5"], "--quiet")
    rate = FRAMES_PER_SECOND * MESSAGES_PER_FRAME // CHANNELS
    try:
        sent = lab.simulate([f"CAN combo:5,channels={CHANNELS}"], "--rate", rate, "--duration", SECONDS,
                            "--per-frame", MESSAGES_PER_FRAME)
        station.settle()
    finally:
        report, _ = station.stop()
    delivered = sum(channel["frames"] for channel in report["channels"])
    complete = not traffic.count_differences(sent, report)
    reached = sent["frames"] / sent["seconds"]
    print(f"live over veth, {MESSAGES_PER_FRAME} messages a frame, {SECONDS} s:")
    print(f"  frames/s   {reached:12,.0f} of {FRAMES_PER_SECOND:,} wanted ({reached / FRAMES_PER_SECOND:.2f}); "
          f"latest frame {sent['maxLateSeconds'] * 1000:.1f} ms late")
    print(f"  sent       {sent['dataMessages']:12,} messages")
    print(f"  delivered  {delivered:12,} messages ({delivered / sent['dataMessages']:.6f})")
    print(f"  all delivered: {'yes' if complete else 'no'}")


if __name__ == "__main__":
    try:
        main()
    except lab.Failure as failure:
        sys.exit(f"bench: {failure}")
