#!/usr/bin/python3
"""tshark's dissector reads the simulator's TECMP frames, and each field is what was meant.

What was meant is computed here and in traffic.py: from the command line, the counts in the report, and the payload
convention. Usage: tshark_agrees.py CMP_SIM
"""

import itertools
import json
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

import traffic

CAN = {"id": 0x45, "type": 4, "serial": 100000, "interfaces": range(0x10, 0x71, 0x10)}
LIN = {"id": 0x32, "type": 2, "serial": 77, "interfaces": range(0x10, 0xA1, 0x10)}
START = 1704067200 * 10**9


def can_fields(identifier, data, fd):
    extended = identifier >= traffic.EXTENDED
    return {"data_type": 3 if fd else 2, "length": len(data) + 7, "data_flags.ext_can_id": int(extended),
            f"data.can_id_{29 if extended else 11}": identifier % traffic.EXTENDED}


def lin_fields(identifier, data):
    bits = [identifier >> i & 1 for i in range(6)]
    parity = (bits[0] + bits[1] + bits[2] + bits[4]) % 2
    parity += 2 * ((1 + bits[1] + bits[3] + bits[4] + bits[5]) % 2)
    total = (parity << 6 | identifier) + sum(data)  # never 0, and 255 counts as 0
    return {"data_type": 4, "length": len(data) + 3, "data.lin_id": identifier, "data.lin_parity_bits": parity,
            "data.checksum": 254 - (total - 1) % 255}


def expected_messages(module, told, case):
    """The messages that a module sends, in their order."""
    interfaces = module["interfaces"][:len(told["channels"])]
    assert [channel["interfaceId"] for channel in told["channels"]] == list(interfaces)
    assert told["lengths"] == module["lengths"]
    streams = [traffic.sent_on(told, position) for position in range(len(interfaces))]
    for index in itertools.count():
        bus, identifier, data = next(streams[index % len(interfaces)])
        due = index * 10**9 // (case["rate"] * len(interfaces))
        if case["stamp"] and len(data) >= 12:
            data = data[:4] + (START + due).to_bytes(8, "little") + data[12:]
        fields = {"interface_id": interfaces[index % len(interfaces)], "data": data,
                  "timestamp_ns": START + due + module.get("clock", lambda ns: 0)(due)}
        yield fields | (lin_fields(identifier, data) if bus == "LIN" else
                        can_fields(identifier, data, max(module["lengths"]) > 8))


def dissect(path):
    """Of each frame: fields of its header, and of each message."""
    xml = subprocess.run(["tshark", "-r", path, "-T", "pdml"], check=True, capture_output=True).stdout
    for packet in ElementTree.fromstring(xml).iter("packet"):
        header, messages = {}, []
        for field in packet.iter("field"):
            name, value = field.get("name"), field.get("value")
            if not value:
                assert not name.startswith("_ws"), f"tshark complains: {field.attrib}"
            elif name == "data.data":
                messages[-1]["data"] = bytes.fromhex(value)
            elif name.startswith("tecmp.payload."):
                if name == "tecmp.payload.interface_id":
                    messages.append({"data": b""})
                messages[-1].setdefault(name.removeprefix("tecmp.payload."), []).append(value)
            elif name.startswith("tecmp."):
                header[name.removeprefix("tecmp.")] = int(value, 16)
        yield header, messages


def check_status(header, message, module, sent):
    number = lambda name: [int(value, 16) for value in message[name]]
    for name, value in (("device_id", "id"), ("device_type", "type"), ("sn", "serial")):
        assert number(f"status.{name}") == [module[value]], (name, message)
    if header["message_type"] == 1:
        assert number("length")[0] >= 85
    else:
        assert number("status.bus.interface_id") == list(module["interfaces"][:module.get("channels", 99)])
        assert sum(number("status.bus.total")) == sent, (message, sent)


def check(simulator, case):
    with tempfile.NamedTemporaryFile(suffix=".pcap") as file:
        arguments = ["--write", file.name, "--json", *case["arguments"]]
        report = json.loads(subprocess.run([simulator, *arguments], check=True, capture_output=True).stdout)
        frames = list(dissect(file.name))
    assert len(frames) == report["frames"]
    modules = {module["id"]: module for module in case["modules"]}
    state = {told["cmId"]: {"sent": 0, "counter": 0, "status": 0,
                            "expected": expected_messages(modules[told["cmId"]], told, case)}
             for told in report["modules"]}
    for header, messages in frames:
        module, progress = modules[header["device_id"]], state[header["device_id"]]
        assert (header["version"], header["counter"]) == (3, progress["counter"])
        assert header["dev_flags.multi_frame"] == int(len(messages) > 1)
        progress["counter"] += 1
        if header["message_type"] != 3:
            check_status(header, messages[0], module, progress["sent"])
            progress["status"] += 1
            continue
        assert 1 <= len(messages) <= case["per frame"]
        for message in messages:
            expected = next(progress["expected"])
            progress["sent"] += 1
            assert header["data_type"] == expected.pop("data_type")
            assert message["data"] == expected.pop("data"), (message, expected)
            for name, value in expected.items():
                read = int(message[name][0], 16)
                slack = 1 if name == "timestamp_ns" and "clock" in module else 0
                assert abs(read - value) <= slack, (name, read, value)
    for told in report["modules"]:
        assert told["messages"] == state[told["cmId"]]["sent"] > 0, told
        assert told["messages"] == sum(channel["messages"] for channel in told["channels"])
    assert report["dataMessages"] == case["messages"]
    assert report["statusFrames"] == sum(s["status"] for s in state.values()) >= 4 * len(modules)


def check_asam(simulator):
    """Of messages in ASAM CMP, which tshark doesn't know: the code of the length, and behind it the length."""
    with tempfile.NamedTemporaryFile(suffix=".pcap") as file:
        arguments = ["--write", file.name, "--module", "NeoviFire3:7", "--length", "0-64", "--messages", "400"]
        subprocess.run([simulator, *arguments], check=True, stdout=subprocess.DEVNULL)
        command = ["tshark", "-r", file.name, "--disable-protocol", "tecmp", "-T", "fields", "-e", "data.data"]
        lines = subprocess.run(command, check=True, capture_output=True, text=True).stdout.split()
    seen = {(frame[38], frame[39]) for frame in map(bytes.fromhex, lines) if frame[4] == 1}
    assert seen == set(enumerate([*range(9), *traffic.LONG_LENGTHS])) - {(0, 0)}, seen


def main():
    simulator = sys.argv[1]
    check_asam(simulator)
    check(simulator, {
        "arguments": ["--module", "CAN combo:5", "--module", "LIN combo:2,serial=77",
                      "--messages", "3000", "--per-frame", "7", "--status", "0.05"],
        "modules": [{**CAN, "lengths": [8]}, {**LIN, "lengths": [8]}], "rate": 1000,
        "stamp": False, "per frame": 7, "messages": 3000})
    drifting = {**CAN, "channels": 3, "lengths": [*range(9), *traffic.LONG_LENGTHS],
                "clock": lambda ns: round(ns * 250 / 10**6) + (900 * 10**6 if ns >= 10**9 else 0)}
    behind = {**LIN, "lengths": [*range(1, 9)], "clock": lambda ns: -3600 * 10**9}
    check(simulator, {
        "arguments": ["--module", "CAN combo:5,channels=3,drift=250,jump=0.9@1", "--module",
                      "LIN combo:2,serial=77,offset=-3600", "--duration", "2", "--rate", "99",
                      "--length", "0-64", "--per-frame", "5", "--stamp"],
        "modules": [drifting, behind], "rate": 99,
        "stamp": True, "per frame": 5, "messages": 2 * 99 * 13})


main()
