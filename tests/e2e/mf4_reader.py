"""Bus logging in MDF 4.11 as the format describes it, strictly: what a reader could stumble over is an
error here. Of one data group; finalised or not."""

import re
import struct
from collections import Counter

from traffic import EXTENDED, Row

LINKS = {"HD": 6, "FH": 2, "DG": 4, "CG": 6, "CN": 8, "SI": 3, "CC": 4, "TX": 0, "MD": 0, "DT": 0}
MEMBERS = {
    "CAN_DataFrame": {"BusChannel": 8, "ID": 29, "IDE": 1, "DLC": 4, "DataLength": 8, "Dir": 1, "EDL": 1, "BRS": 1,
                      "ESI": 1, "DataBytes": None},
    "LIN_Frame": {"BusChannel": 8, "ID": 6, "Dir": 1, "ReceivedDataByteCount": 8, "DataLength": 8, "Checksum": 8,
                  "DataBytes": None}}
LENGTHS = [*range(9), 12, 16, 20, 24, 32, 48, 64]  # by length code


def need(condition, *about):
    if not condition:
        raise AssertionError(about)


class Block:
    def __init__(self, file, at, name):
        tag, zero, self.length, links = struct.unpack_from("<4s I Q Q", file.bytes, at)
        need(at % 8 == 0 and tag == b"##" + name.encode() and zero == 0 and links == LINKS[name], at, tag, name)
        need(24 + 8 * links <= self.length <= len(file.bytes) - at, at, name, self.length)
        self.file, self.at, self.fields_at = file, at, at + 24 + 8 * links
        self.links = struct.unpack_from(f"<{links}Q", file.bytes, at + 24)

    def fields(self, layout):
        return struct.unpack_from("<" + layout, self.file.bytes, self.fields_at)

    def text(self, link, name="TX"):
        block = Block(self.file, self.links[link], name)
        content, _, rest = self.file.bytes[block.fields_at:block.at + block.length].partition(b"\0")
        need(len(rest) < 8 and not rest.strip(b"\0"), "text with an end")
        return content.decode()

    def list(self, link, name):
        """The blocks from a link on, each linked by the first link of the one before."""
        at = self.links[link]
        while at:
            block = Block(self.file, at, name)
            yield block
            at = block.links[0]


class Channel:
    def __init__(self, block):
        (self.type, self.sync, self.data_type, bit, byte, self.bits, self.flags, _, _, _, attached) = \
            block.fields("4B 4I 2B H")
        self.name, self.first_bit, self.block = block.text(2), 8 * byte + bit, block
        need(attached == 0 and block.links[5] == 0, "no data elsewhere")

    def value(self, record):
        need(self.first_bit + self.bits <= 8 * len(record), self.name, "outside of the record")
        if self.data_type in (7, 10):
            return record[self.first_bit // 8:][:self.bits // 8]
        need(self.data_type in (0, 2), self.name)
        value = int.from_bytes(record, "little") >> self.first_bit & (1 << self.bits) - 1
        return value - (1 << self.bits) if self.data_type == 2 and value >> self.bits - 1 else value


class Mf4:
    """`rows`, in the order of the file, with the names of our channels; `finalized`."""

    def __init__(self, path):
        self.bytes = path.read_bytes()
        kind, version, number, flags, custom = struct.unpack_from("<8s 8s 12x H 30x 2H", self.bytes)
        self.finalized = kind == b"MDF     "
        need(kind == (b"MDF     " if self.finalized else b"UnFinMF ") and version == b"4.11    " and number == 411, kind)
        need((flags, custom) == (0 if self.finalized else 5, 0), flags)
        header = Block(self, 64, "HD")
        self.start, *zones = header.fields("Q 2h 4B 2d")
        need(not any(zones), "a start in UTC")
        (history,) = header.list(1, "FH")
        need(history.fields("Q")[0] == self.start and "<tool_id>" in history.text(1, "MD"), "file history")
        (data_group,) = header.list(0, "DG")
        need(data_group.fields("B 7x") == (1,), "size of record identifiers")
        self.names, self.rows = {}, []
        groups = [self._group(block) for block in data_group.list(1, "CG")]
        counts = self._records(data_group, {group[0]: group for group in groups})
        need([group[1] for group in groups] == [counts.get(group[0], 0) if self.finalized else 0 for group in groups])
        if self.finalized:
            told = re.findall(r'<e name="BusChannel\.(\d+)">(.*?)</e>', header.text(5, "MD"))
            need({int(number): name for number, name in told} == self.names, told)
            told = re.findall(r'<e name="BusChannel\.(\d+)\.Recorded" type="integer">(\d+)</e>', header.text(5, "MD"))
            counts = Counter(row.name for row in self.rows)
            need({self.names[int(number)]: int(count) for number, count in told} ==
                 {name: counts[name] for name in self.names.values()}, told)

    def _group(self, block):
        identifier, cycles, flags, separator, _, size, invalid = block.fields("2Q 2H 3I")
        channels = [Channel(channel) for channel in block.list(1, "CN")]
        need(invalid == 0 and separator == ord("."))
        frame = channels[-1].name
        if frame not in MEMBERS:
            need(flags == 0 and block.text(2) == "BusChannels", flags)
            return identifier, cycles, size, "", {channel.name: channel for channel in channels}
        need(flags == 6 and block.text(2).startswith(frame), flags, frame)
        source = Block(self, block.links[3], "SI")
        need(source.fields("3B") == (2, 2 if frame[0] == "C" else 3, 0) and source.text(0) == frame[:3], "source")
        master, structure = channels
        need((master.type, master.sync, master.data_type, master.bits) == (2, 1, 2, 64), "time")
        conversion = Block(self, master.block.links[4], "CC")
        need(conversion.fields("4B 2H 4d") == (1, 0, 0, 0, 0, 2, 0, 0, 0, 1e-9) and conversion.text(1) == "s")
        members = [Channel(channel) for channel in structure.block.list(1, "CN")]
        widths = {name: 8 * size - members[-1].first_bit if bits is None else bits for name, bits in MEMBERS[frame].items()}
        need({m.name: m.bits for m in members} == {f"{frame}.{name}": bits for name, bits in widths.items()}, frame)
        need(all(m.flags == 0x400 and (m.type, m.sync) == (0, 0) for m in (structure, *members)), "bus events")
        need((structure.data_type, structure.first_bit, structure.bits) == (10, 64, 8 * size - 64), "structure")
        need({m.name for m in members if m.data_type} == {f"{frame}.DataBytes"}, "numbers without sign")
        return identifier, cycles, size, frame, {"time": master, **{m.name.split(".")[1]: m for m in members}}

    def _records(self, data_group, groups):
        data = Block(self, data_group.links[2], "DT")
        need(self.finalized or data.length == 24)
        at, end, counts = data.at + 24, data.at + data.length if self.finalized else len(self.bytes), {}
        while at < end and at + 1 + groups[self.bytes[at]][2] <= end:
            identifier, _, size, frame, channels = groups[self.bytes[at]]
            counts[identifier] = counts.get(identifier, 0) + 1
            record = self.bytes[at + 1:at + 1 + size]
            self._record(frame, {name: channel.value(record) for name, channel in channels.items()})
            at += 1 + size
        need(at == end or not self.finalized, "the end of the records")
        return counts

    def _record(self, frame, values):
        if not frame:
            self.names[values["BusChannels.BusChannel"]] = values["BusChannels.Name"].rstrip(b"\0").decode()
            return
        length, data = values["DataLength"], values["DataBytes"]
        need(values["Dir"] == 0 and not any(data[length:]) and length <= len(data), values)
        bus, identifier = "LIN", values["ID"]
        if frame == "CAN_DataFrame":
            bus, identifier = ("CAN", "CANFD")[values["EDL"]], identifier | EXTENDED * values["IDE"]
            need(LENGTHS[values["DLC"]] >= length > ([-1] + LENGTHS)[values["DLC"]], values)
            need(values["BRS"] == values["ESI"] == 0 and len(data) == (8, 64)[values["EDL"]], values)
        else:
            need(values["ReceivedDataByteCount"] == length, values)
            parity = [identifier >> bit & 1 for bit in range(6)]
            total = (identifier | (parity[0] ^ parity[1] ^ parity[2] ^ parity[4]) << 6 |
                     (1 ^ parity[1] ^ parity[3] ^ parity[4] ^ parity[5]) << 7) + sum(data)
            need((total - 1) % 255 + 1 == 255 - values["Checksum"], "the enhanced checksum", values)
        self.rows.append(Row(self.names[values["BusChannel"]], self.start + values["time"], bus, identifier, data[:length]))


class SignalMf4:
    """`groups` of measured values, each with `name`, `source`, `times` (UTC nanoseconds), `columns` (name, unit,
    values)."""

    class Group:
        def __init__(self, file, block):
            self.identifier, self.cycles, flags, _, _, self.size, invalid = block.fields("2Q 2H 3I")
            need(flags == 0 and invalid == 0, "plain records")
            self.name, self.source = block.text(2), Block(file, block.links[3], "SI").text(0)
            self.master, *self.channels = (Channel(channel) for channel in block.list(1, "CN"))
            need((self.master.type, self.master.sync, self.master.data_type, self.master.bits) == (2, 1, 2, 64), "time")
            conversion = Block(file, self.master.block.links[4], "CC")
            need(conversion.fields("4B 2H 4d") == (1, 0, 0, 0, 0, 2, 0, 0, 0, 1e-9), "nanoseconds")
            need(all((c.type, c.data_type, c.bits, c.block.links[4]) == (0, 4, 64, 0) for c in self.channels), "floats")
            self.times, self.values = [], [[] for _ in self.channels]

        def add(self, start, record):
            self.times.append(start + self.master.value(record))
            for channel, column in zip(self.channels, self.values):
                column += struct.unpack_from("<d", record, channel.first_bit // 8)

        @property
        def columns(self):
            return [(channel.name, channel.block.text(6) if channel.block.links[6] else "", values)
                    for channel, values in zip(self.channels, self.values)]

    def __init__(self, path):
        self.bytes = path.read_bytes()
        need(self.bytes.startswith(b"MDF     4.11    "), "finalised")
        header = Block(self, 64, "HD")
        (data_group,) = header.list(0, "DG")
        need(data_group.fields("B 7x") == (4,), "size of record identifiers")
        self.groups = [self.Group(self, block) for block in data_group.list(1, "CG")]
        by_identifier = {group.identifier: group for group in self.groups}
        data = Block(self, data_group.links[2], "DT")
        at, end = data.at + 24, data.at + data.length
        while at < end:
            group = by_identifier[int.from_bytes(self.bytes[at:at + 4], "little")]
            group.add(header.fields("Q")[0], self.bytes[at + 4:at + 4 + group.size])
            at += 4 + group.size
        need(at == end and all(group.cycles == len(group.times) for group in self.groups), "as many records as are told")
