"""What a simulator sent, message by message, against what stands in recordings: as tshark and python-can
read them, which know nothing of the programs here."""

import csv
import re
import subprocess
from collections import defaultdict
from datetime import datetime
from itertools import pairwise
from typing import NamedTuple

EXTENDED = 0x80000000
RING = bytes(range(256)) * 2
LONG_LENGTHS = [12, 16, 20, 24, 32, 48, 64]  # of CAN FD, by their codes from 9 on


class Row(NamedTuple):
    """One message of a recording."""

    name: str  # of the channel
    time: int  # nanoseconds since 1970
    bus: str  # CAN, CANFD or LIN
    identifier: int  # with EXTENDED
    data: bytes


def read_with_tshark(path, torn=False):
    """The rows of a .pcapng, .blf or .log; those of a .log have no names there, and in a .blf CAN FD is CAN."""
    fields = ("frame.interface_name", "frame.time_epoch", "_ws.col.Protocol", "can.flags.xtd", "can.id",
              "lin.frame_id", "data.data")
    command = ["tshark", "-n", "-r", str(path), "-T", "fields", "-E", "separator=|"]
    # Left on, these take the data bytes of some frames for messages of their own.
    for protocol in ("autosar-nm", "iso15765", "uds", "obd-ii"):
        command += ["--disable-protocol", protocol]
    command += [word for field in fields for word in ("-e", field)]
    read = subprocess.run(command, check=not torn, capture_output=True, text=True)
    return [_row(*line.split("|")) for line in read.stdout.splitlines()]


def _row(name, time, bus, extended, can_identifier, lin_identifier, data):
    seconds, fraction = time.split(".")
    identifier = int(can_identifier or lin_identifier, 0) | (EXTENDED if extended in ("1", "True") else 0)
    return Row(name, int(seconds) * 10**9 + int(fraction), bus, identifier, bytes.fromhex(data))


def read_with_python_can(path, channels=None):
    """The rows of a .log, .asc or .blf. The last two have numbers for names, from 1 and 0 on; `channels` are names by
    those of an .asc."""
    import can

    asc = str(path).endswith(".asc")
    reader = can.ASCReader(str(path), relative_timestamp=False) if asc else can.LogReader(str(path))
    return [
        Row(channels[m.channel] if channels else m.channel, round(m.timestamp * 1e6) * 1000,
            "CANFD" if m.is_fd else "CAN", m.arbitration_id | (EXTENDED if m.is_extended_id else 0), bytes(m.data))
        for m in reader
    ]


def read_csv(path):
    rows = []
    with open(path, newline="") as file:
        for line in csv.DictReader(file):
            seconds, fraction = line["time"].rstrip("Z").split(".")
            time = int(datetime.fromisoformat(seconds + "+00:00").timestamp()) * 10**9 + int(fraction)
            data = bytes.fromhex(line["data"])
            assert len(data) == int(line["length"]) and (line["checksum"] != "") == (line["bus"] == "LIN"), line
            rows.append(Row(line["channel"], time, line["bus"].replace(" ", ""),
                            int(line["id"], 0) | (EXTENDED if line["extended"] == "1" else 0), data))
    return rows


def word_of(name):
    """A channel's name in a .log: its end, as one word."""
    return re.sub(r"[^A-Za-z0-9_.-]", "_", name)[-15:]


def sent_counts(sent):
    return {(module["cmId"], channel["interfaceId"]): channel["messages"]
            for module in sent["modules"] for channel in module["channels"]}


def names_of(report):
    """Channel names of a station's report by CM ID and interface ID. The second channel of an interface
    gets no messages."""
    modules = {module["name"]: module["cmId"] for module in report["modules"]}
    names = {}
    for channel in report["channels"]:
        names.setdefault((modules[channel["module"]], channel["interfaceId"]), channel["name"])
    return names


def sent_on(module, position):
    """The messages that one channel of a module has sent: bus, identifier, data. Of ASAM CMP only the bytes
    that are kept, for the plug-in takes a message's length code for its length."""
    channel = module["channels"][position]
    interface, lengths = channel["interfaceId"], module["lengths"]
    for number in range(channel["messages"]):
        length = lengths[(number + position) % len(lengths)]
        start = (number + interface + 4) % 256
        data = (number.to_bytes(4, "little") + RING[start:start + 60])[:length]
        if channel["bus"] == "LIN":
            yield "LIN", (interface + number) % 60, data
        else:
            turn = number % 4
            identifier = 0x100 + 4 * interface + turn if turn < 3 else EXTENDED | 0x18DA00F1 + 0x100 * interface
            kept = 9 + LONG_LENGTHS.index(length) if module["framing"] == "asam" and length > 8 else length
            yield "CANFD" if length > 8 else "CAN", identifier, data[:kept]


def count_differences(sent, report):
    """Sent and delivered counts, channel by channel; a text for each difference."""
    modules = {module["name"]: module["cmId"] for module in report["modules"]}
    delivered = defaultdict(int)
    for channel in report["channels"]:
        delivered[modules[channel["module"]], channel["interfaceId"]] += channel["frames"]
    counts = sent_counts(sent)
    return [f"CM ID 0x{key[0]:X}, interface 0x{key[1]:X}: {counts.get(key, 0)} sent, {delivered[key]} delivered"
            for key in sorted(counts.keys() | delivered.keys()) if counts.get(key, 0) != delivered[key]]


def account_differences(report, most_unread=0):
    """Each frame that the system received and each data message that was read is in one count; each message of each
    channel is in one count, and each that is there in each recording or in its loss. What doesn't add up. Where frames
    come until the end, so many may wait in the ring of an interface."""
    for interface in report["interfaces"]:
        read = interface["kept"] + interface["foreign"] + interface["dropped"]
        if interface["received"] is not None and not 0 <= interface["received"] - read <= most_unread:
            return [interface]
    messages = report["messages"]
    unused = sum(messages[kind] for kind in ("empty", "unknownModule", "unknownChannel", "unusedChannel"))
    if messages["data"] != unused + sum(channel["queued"] + channel["unusable"] for channel in report["channels"]):
        return [messages]
    ends = ("delivered", "beforeStart", "afterEnd", "tooOld", "tooNew", "notPlaced", "leftQueued", "noOutput")
    return [channel for channel in report["channels"]
            if channel["queued"] != sum(channel[end] for end in ends)
            or channel["delivered"] != channel["frames"] + channel["overwritten"]
            or any(channel["frames"] != there["records"] + there["lost"] for there in channel["recordings"])]


def row_differences(sent, names, rows, log=False, late=0):
    """Each message in `rows` once, unchanged, and in order on its channel, and all in the order of time but for
    so many as came in late; of a .log those on CAN, their data filled up to a length that CAN FD has. `names`: by
    CM ID and interface ID. A text for the first difference on each channel."""
    found = defaultdict(list)
    for row in rows:
        found[row.name].append(row[2:])
    behind = [f"{row.name}: {before.time - row.time} ns behind the time of {before.name} in front of it"
              for before, row in pairwise(rows) if row.time < before.time]
    texts = behind[:1] if len(behind) > late else []
    for module in sent["modules"]:
        for position, channel in enumerate(module["channels"]):
            if channel["bus"] == "LIN" and log:
                continue
            name = names[module["cmId"], channel["interfaceId"]]
            there = [(*row, filled(data) if log else data) for *row, data in sent_on(module, position)]
            texts += first_difference(name, there, found.pop(name, []))
    return texts + [f"{name}: {len(there)} messages that nobody sent" for name, there in found.items()]


def filled(data):
    return data.ljust(next(length for length in [*range(9), *LONG_LENGTHS] if length >= len(data)), b"\0")


def first_difference(name, sent, there):
    if sent == there:
        return []
    at = next((i for i, (a, b) in enumerate(zip(sent, there)) if a != b), min(len(sent), len(there)))
    return [f"{name}: {len(sent)} messages sent, {len(there)} there; number {at} is "
            f"{there[at:at + 1]} and not {sent[at:at + 1]}"]


EXACT = 1e-6  # seconds; what times may be off that are the modules' own


def fitted(sent):
    """What those of a clock that is fitted may be off while the machine is busy: more where frames were
    sent later than their times say."""
    return 0.02 + sent["maxLateSeconds"]


def time_differences(sent, names, rows, rate, tolerance):
    """Each module's messages are as far apart as they were due at `rate` a second and channel, to
    `tolerance` seconds, and within ten seconds of the simulator's start."""
    times = defaultdict(list)
    for row in rows:
        times[row.name].append(row.time)
    texts = []
    for module in sent["modules"]:
        channels = module["channels"]
        offsets = [time - (number * len(channels) + position) * 10**9 // (rate * len(channels))
                   for position, channel in enumerate(channels)
                   for number, time in enumerate(times[names[module["cmId"], channel["interfaceId"]]])]
        if offsets and max(offsets) - min(offsets) > tolerance * 1e9:
            texts.append(f"{module['type']}: times err by {max(offsets) - min(offsets)} ns")
        if any(abs(offset - sent["startUtcNs"]) > 10**10 for offset in offsets):
            texts.append(f"{module['type']}: times are far from the clock's")
    return texts
