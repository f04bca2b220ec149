#!/usr/bin/python3
"""What the simulator reports is what arrives at the other end of a veth pair.

Sender and receiver each run in a network namespace that this test makes. Usage: live_test.py CMP_SIM
"""

import contextlib
import json
import os
import select
import signal
import socket
import subprocess
import sys
import time

PATIENCE = 60
SIMULATED = b"\x02\0\0\0"  # how source addresses begin
MODULES = ["--module", "CAN combo:5", "--module", "LIN combo:2", "--module", "NeoviFire3:7"]


def receive(interface):
    """Runs in a namespace of its own; prints how many frames came once its standard input ends."""
    while subprocess.run(["ip", "link", "set", interface, "up"], capture_output=True).returncode:
        time.sleep(0.01)
    packets = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
    packets.bind((interface, 0))
    for option in (socket.SO_RCVBUF, 33):  # as much as is allowed; SO_RCVBUFFORCE
        with contextlib.suppress(PermissionError):
            packets.setsockopt(socket.SOL_SOCKET, option, 1 << 26)
    print("ready", flush=True)
    frames = 0
    while packets in select.select([packets, sys.stdin], [], [])[0]:
        try:
            frames += packets.recv(65536)[6:10] == SIMULATED
        except OSError:  # the link is gone
            break
    print(frames, flush=True)


class Link:
    """A veth pair with a receiver at its other end."""

    def __init__(self):
        self.receiver = subprocess.Popen(["unshare", "--net", sys.executable, __file__, "receive"],
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        own = os.stat("/proc/self/ns/net").st_ino
        while os.stat(f"/proc/{self.receiver.pid}/ns/net").st_ino == own:
            time.sleep(0.01)
        subprocess.run(["ip", "link", "add", "s0", "type", "veth", "peer", "name", "r0", "netns",
                        str(self.receiver.pid)], check=True)
        subprocess.run(["ip", "link", "set", "s0", "up"], check=True)
        assert self.receiver.stdout.readline() == "ready\n"
        show = ["ip", "link", "show", "s0"]
        while b"LOWER_UP" not in subprocess.run(show, capture_output=True, check=True).stdout:
            time.sleep(0.01)

    def received(self):
        output, _ = self.receiver.communicate(timeout=PATIENCE)
        subprocess.run(["ip", "link", "del", "s0"], capture_output=True, check=False)
        return int(output)


def start(simulator, *arguments):
    return subprocess.Popen([simulator, "--interface", "s0", "--json", *MODULES, *arguments],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def finish(process, code):
    output, errors = process.communicate(timeout=PATIENCE)
    assert process.returncode == code, (process.returncode, errors)
    return json.loads(output), errors


def expect_same(report, received):
    assert received == report["frames"] > 0, (received, report["frames"])
    told = [channel["messages"] for module in report["modules"] for channel in module["channels"]]
    assert sum(told) == report["dataMessages"] > 0
    return told


def every_frame_arrives(simulator):
    link = Link()
    report, errors = finish(start(simulator, "--rate", "50", "--duration", "2", "--per-frame", "5",
                                  "--bad", "0.1", "--length", "4-8"), 0)
    assert errors == "" and report["badFrames"] > 0
    assert set(expect_same(report, link.received())) == {100}


def interrupt_ends_with_the_right_counts(simulator):
    for number in (signal.SIGINT, signal.SIGTERM):
        link = Link()
        process = start(simulator, "--rate", "50", "--verbose")
        process.stderr.readline()  # the first progress line: it is running
        process.send_signal(number)
        report, _ = finish(process, 0)
        expect_same(report, link.received())


def vanished_link_is_a_failure(simulator):
    link = Link()
    process = start(simulator, "--verbose")
    process.stderr.readline()
    subprocess.run(["ip", "link", "del", "s0"], check=True)
    report, errors = finish(process, 1)
    assert "s0 went down or away" in errors and report["dataMessages"] > 0
    link.received()


def without_the_capability_it_says_how_to_allow_it(simulator):
    refused = subprocess.run(["setpriv", "--bounding-set=-net_raw", "--inh-caps=-net_raw", simulator,
                              "--interface", "lo", *MODULES, "--messages", "1"],
                             capture_output=True, text=True, check=False)
    assert refused.returncode == 4 and "setcap" in refused.stderr, refused


def main():
    if sys.argv[1] == "receive":
        receive("r0")
    elif len(sys.argv) == 2:
        as_root = [] if os.geteuid() == 0 else ["--map-root-user"]
        os.execvp("unshare", ["unshare", *as_root, "--net", sys.executable, __file__, sys.argv[1],
                              "inside"])
    else:
        simulator = sys.argv[1]
        every_frame_arrives(simulator)
        interrupt_ends_with_the_right_counts(simulator)
        vanished_link_is_a_failure(simulator)
        without_the_capability_it_says_how_to_allow_it(simulator)


main()
