"""The live part of scripts/demo: records simulated modules and compares what was recorded with what was
sent. demo.py FOLDER SECONDS"""

import json
import signal
import sys
from pathlib import Path

import lab
import setups
import traffic

MODULES = ["CAN combo:5", "LIN combo:2", "NeoviFire3:7"]
RATE = 1000
BAD_SHARE = 0.1


def run(folder, seconds):
    """Sends and records; returns what simulator and station say of it."""
    recordings = [folder / "demo.pcapng", folder / "demo.log"]
    setup = folder / "demo.xml"
    for path in (*recordings, setup):
        path.unlink(missing_ok=True)
    lab.prepare()
    lab.register(folder / "registry")
    setups.make_demo(setup, show=True)
    station = lab.Station(setup=setup, record=recordings, stderr=None)
    try:
        sent = lab.simulate(MODULES, "--rate", RATE, "--duration", seconds, "--bad", BAD_SHARE,
                            "--length", "4-24")
        station.settle()
        report, _ = station.stop()
    finally:
        if station.process.poll() is None:  # so that it can close its recordings and leave its table
            station.process.terminate()
            station.process.wait(timeout=lab.PATIENCE)
    for name, content in (("sent", sent), ("delivered", report)):
        (folder / f"{name}.json").write_text(json.dumps(content, indent=2))
    return sent, report, recordings


def verdict(what, differences):
    print(f"  {what:<72} {'differs' if differences else 'ok'}", flush=True)
    for text in differences[:10]:
        print(f"    {text}")
    return not differences


def check(sent, report, pcapng, log):
    names = traffic.names_of(report)
    words = {key: traffic.word_of(name) for key, name in names.items()}
    channels = sum(count > 0 for count in traffic.sent_counts(sent).values())
    delivered = sum(channel["frames"] for channel in report["channels"])
    print(f"\n{sent['dataMessages']} messages were sent on {channels} channels in {sent['frames']} frames, "
          f"and {sent['badFrames']} malformed frames among them.")
    rows = traffic.read_with_tshark(pcapng)
    log_rows = traffic.read_with_python_can(log)
    nameless = [row._replace(name="") for row in log_rows]
    results = [
        verdict(f"delivered, by module and channel: {delivered}", traffic.count_differences(sent, report)),
        verdict(f"{pcapng.name}, read by tshark: {len(rows)}, each once, in order",
                traffic.row_differences(sent, names, rows)
                + traffic.time_differences(sent, names, rows, RATE, traffic.fitted(sent))),
        verdict(f"{log.name} (CAN only), read by python-can: {len(log_rows)}, each once, in order",
                traffic.row_differences(sent, words, log_rows, log=True)),
        verdict(f"{log.name}, read by tshark: the same",
                [] if traffic.read_with_tshark(log) == nameless else ["the two readers disagree"]),
    ]
    print(f"All of it is in {pcapng.parent}.")
    print("Everything that was sent has arrived; of long ASAM CMP messages, what their length code counts."
          if all(results) else "NOT EVERYTHING ARRIVED AS IT WAS SENT.")
    return 0 if all(results) else 1


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))
    folder = Path(sys.argv[1])
    try:
        sent, report, recordings = run(folder, sys.argv[2])
        return check(sent, report, *recordings)
    except KeyboardInterrupt:
        print("demo: interrupted", file=sys.stderr)
        return 128 + signal.SIGINT
    except lab.Failure as failure:
        print(f"demo: {failure}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
