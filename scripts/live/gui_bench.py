"""The desktop program under load, for scripts/bench: 64 channels with 1000 messages a second each in some
500 identifiers, both of the plug-in's windows, the live view, and a plot of ten signals on the screen; then the
same with a million messages a second in all, 40 in a frame."""

import sys
import tempfile
from pathlib import Path

import lab
import setups
import traffic
from desktop import Desktop

NAMES = [f"CAN combo:{number}:Bus {number}" for number in range(1, 9)] + ["LIN combo:1:Doors"]
SENDING = [f"CAN combo:{number}" for number in range(1, 9)] + ["LIN combo:1,channels=8"]
LOADS = ((1000, 1), (15625, 40))  # messages a second and channel, messages a frame
PLOTS = 10
# Identifiers that cmp-sim sends on the first four buses of each module, with its counter as a signal.
DATABASE = "BU_: A\n" + "".join(
    f'BO_ {number} Message{number:X}: 8 A\n SG_ Counter : 0|16@1+ (1,0) [0|0] "" A\n'
    for first in (0x140, 0x180, 0x1C0, 0x200) for number in range(first, first + 3))
SECONDS = 10


def measure(rate, per_frame):
    with tempfile.TemporaryDirectory() as folder:
        recording = Path(folder) / "load.pcapng"
        setup, database = Path(folder) / "load.xml", Path(folder) / "load.dbc"
        database.write_text(DATABASE)
        setups.make_measured(setup, NAMES)
        setups.make(setup, [["database", "FILE", "Bus 1", interface, "--db", str(database)]
                            for interface in ("0x10", "0x20", "0x30", "0x40")])
        desktop = Desktop(None, "--plots", PLOTS, setup=setup, record=[recording], display=True)
        try:
            sent = lab.simulate(SENDING, "--rate", rate, "--per-frame", per_frame, "--duration", SECONDS)
            desktop.settle()
            status = Path(f"/proc/{desktop.process.pid}/status").read_text()
            outcome, _ = desktop.stop()
        finally:
            lab.end(desktop.process)
        report = outcome["report"]
    channels = sum(count > 0 for count in traffic.sent_counts(sent).values())
    latency = outcome["latencyMs"]
    differences = traffic.count_differences(sent, report)
    complete = not differences and not outcome["hasLost"]
    print(f"desktop, {channels} channels with {rate} messages a second each, {PLOTS} plots, {SECONDS} s:")
    print(f"  sent       {sent['dataMessages']:12,} messages; latest frame {sent['maxLateSeconds'] * 1000:.1f} ms late")
    print(f"  recorded   {report['recordings'][0]['records']:12,} messages; all there: {'yes' if complete else 'no'}")
    if not complete:
        print(f"  lost       {report['lostMessages']:12,} messages counted as lost, {report['recordings'][0]['lost']:,} "
              f"by the recording, {report['droppedFrames']:,} frames by the system")
    memory = int(status.split("VmHWM:")[1].split()[0]) / 1024
    print(f"  memory     {memory:12.0f} MiB at most; messages may take 256 of it")
    print(f"  event loop {latency['p50']:12.2f} ms in the middle, {latency['p99']:.2f} ms 99th percentile, "
          f"{latency['max']:.2f} ms at worst, of {latency['count']} events")
    for form, text in outcome.get("shown", {}).items():
        print(f"  {form}: {text}")


def main():
    lab.prepare()
    for rate, per_frame in LOADS:
        measure(rate, per_frame)


if __name__ == "__main__":
    try:
        main()
    except lab.Failure as failure:
        sys.exit(f"gui_bench: {failure}")
