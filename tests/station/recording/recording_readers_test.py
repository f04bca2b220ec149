"""What tshark and python-can read from recordings, against what was written into them."""

import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import can

WRITER = sys.argv.pop(1)
START = 1_700_000_000_123_456_789
NAMES = ["Front axle 1", "Heck übrig", "LIN door: 3"]
WORDS = ["Front_axle_1", "Heck__brig"]  # the same in a .log; a character of two bytes is one character
CHANNELS = [f"can:{NAMES[0]}", f"can:{NAMES[1]}", f"lin:{NAMES[2]}"]

# (channel, time, identifier, extended, data): all lengths but the ones between, identifiers at their limits
CAN_FRAMES = [
    (n % 2, START + n * 1_000_000_001, id, extended, bytes((n + i) % 256 for i in range(length)))
    for n, (id, extended, length) in enumerate(
        (id, extended, length)
        for length in (0, 1, 8, 12, 16, 20, 24, 32, 48, 64)
        for id, extended in ((0, 0), (0x7FF, 0), (0x123, 1), (0x1FFFFFFF, 1))
    )
]
# (channel, time, identifier, parity, data, checksum, its type: 0 neither, 1 classic, 2 enhanced), by hand
LIN_FRAMES = [
    (2, START, 0x00, 2, bytes.fromhex("0FA1"), 0x4F, 1),
    (2, START + 1, 0x21, 1, bytes.fromhex("0FA1"), 0xED, 2),
    (2, START + 2, 0x3F, 2, bytes.fromhex("0FA1"), 0x00, 0),
    (2, START + 3, 0x3D, 1, bytes(range(1, 9)), 0xDB, 1),
    (2, START + 4, 0x02, 1, b"", 0xFF, 1),
]


def entry(channel, time, record):
    return struct.pack("=IIq", channel, len(record), time) + record


CAN_ENTRIES = b"".join(
    entry(channel, time, struct.pack("=IBxxB64s", id, extended, len(data), data))
    for channel, time, id, extended, data in CAN_FRAMES
)
LIN_ENTRIES = b"".join(
    entry(channel, time, struct.pack("=BBxx8sB", id, len(data), data, checksum))
    for channel, time, id, _, data, checksum, _ in LIN_FRAMES
)


def rows(path, *fields, torn=False):
    """The fields of each packet that tshark shows."""
    command = ["tshark", "-n", "-r", path, "-T", "fields", "-E", "separator=|"]
    # Left on, these take the data bytes of some frames for messages of their own.
    command += ["--disable-protocol", "autosar-nm", "--disable-protocol", "iso15765"]
    command += [option for field in fields for option in ("-e", field)]
    result = subprocess.run(command, check=not torn, capture_output=True, text=True)
    return [line.split("|") for line in result.stdout.splitlines()]


def nanoseconds(text):
    seconds, fraction = text.split(".")
    return int(seconds) * 10**9 + int(fraction)


def can_rows(path):
    fields = ("frame.time_epoch", "can.id", "can.flags.xtd", "data.data", "can.len", "_ws.col.Protocol")
    return [
        (nanoseconds(time), int(id), int(extended), bytes.fromhex(data), int(length), protocol)
        for time, id, extended, data, length, protocol in rows(path, *fields)
        if id
    ]


class Readers(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.scratch = Path(scratch.name)
        self.pcapng = str(self.scratch / "a.pcapng")
        self.log = str(self.scratch / "a.log")
        subprocess.run([WRITER, self.pcapng, *CHANNELS], input=CAN_ENTRIES + LIN_ENTRIES, check=True)
        subprocess.run([WRITER, self.log, *CHANNELS[:2]], input=CAN_ENTRIES, check=True)

    def test_tshark_shows_every_can_frame_with_fd_marked(self):
        for path, unit in ((self.pcapng, 1), (self.log, 1000)):
            expected = [
                (time // unit * unit, id, extended, data, len(data), "CANFD" if len(data) > 8 else "CAN")
                for _, time, id, extended, data in CAN_FRAMES
            ]
            self.assertEqual(can_rows(path), expected)

    def test_tshark_shows_every_lin_frame(self):
        fields = ("frame_id", "frame_parity", "length", "checksum", "checksum_type", "errors", "message_format")
        read = rows(self.pcapng, "data.data", "frame.time_epoch", *(f"lin.{field}" for field in fields))
        read = [(row[0], nanoseconds(row[1]), *(int(field, 0) for field in row[2:])) for row in read if row[2]]
        expected = [
            (data.hex(), time, id, parity, len(data), checksum, kind, 0, 1)
            for _, time, id, parity, data, checksum, kind in LIN_FRAMES
        ]
        self.assertEqual(read, expected)

    def test_interfaces_carry_names_and_link_types_of_the_channels(self):
        encapsulations = ["125", "125", "107"]  # the reader's own numbers of link types 227 and 212
        expected = [[NAMES[frame[0]], encapsulations[frame[0]]] for frame in CAN_FRAMES + LIN_FRAMES]
        self.assertEqual(rows(self.pcapng, "frame.interface_name", "frame.encap_type"), expected)

    def test_python_can_reads_the_log(self):
        read = [
            (round(m.timestamp * 1e6), m.channel, m.arbitration_id, m.is_extended_id, m.is_fd, bytes(m.data))
            for m in can.CanutilsLogReader(self.log)
        ]
        expected = [
            (time // 1000, WORDS[channel], id, bool(extended), len(data) > 8, data)
            for channel, time, id, extended, data in CAN_FRAMES
        ]
        self.assertEqual(read, expected)

    def test_recording_of_a_killed_process_opens_with_all_that_was_flushed(self):
        path = str(self.scratch / "killed.pcapng")
        with subprocess.Popen([WRITER, path, *CHANNELS], stdin=subprocess.PIPE, stdout=subprocess.PIPE) as writer:
            writer.stdin.write(CAN_ENTRIES + entry(0, 0, b"") + LIN_ENTRIES)
            writer.stdin.flush()
            self.assertEqual(writer.stdout.readline(), b"flushed\n")
            writer.kill()
        self.assertEqual(len(rows(path, "frame.number")), len(CAN_FRAMES))

    def test_torn_last_record_hides_none_before_it(self):
        for path, count in ((self.pcapng, len(CAN_FRAMES + LIN_FRAMES)), (self.log, len(CAN_FRAMES))):
            Path(path).write_bytes(Path(path).read_bytes()[:-6])
            self.assertEqual(len(rows(path, "frame.number", torn=True)), count - 1)


if __name__ == "__main__":
    unittest.main()
