"""A broker, what little of its protocol the tests need, and stations that are made up."""

import json
import socket
import struct
import time
import uuid

import lab

PORT = 4222
SERVER = "nats-server"
CAN_LINK, LIN_LINK = 227, 212


class Broker:
    """A nats-server with JetStream, on the loopback address of this namespace."""

    def __init__(self, folder, *options, port=PORT):
        self.folder, self.options, self.port = folder, [str(option) for option in options], port
        self.start()

    def start(self):
        command = [SERVER, "-a", "127.0.0.1", "-p", str(self.port), "-js", "-sd", str(self.folder), "-l",
                   f"{self.folder}.log", *self.options]
        self.process = lab.spawn(command)
        lab.wait_until(self.is_up, "the broker answers")

    def is_up(self):
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", self.port)) == 0

    def kill(self):
        lab.end(self.process)


class Client:
    """A connection: publishes, and asks."""

    def __init__(self, port=PORT, **login):
        self.socket = socket.create_connection(("127.0.0.1", port), timeout=lab.PATIENCE)
        self.file = self.socket.makefile("rb")
        self.file.readline()
        self.send("CONNECT " + json.dumps({"verbose": False, "headers": True, "no_responders": True, **login}))
        self.inbox = f"inbox.{uuid.uuid4().hex}"  # what others get would be kept for this one too
        self.send(f"SUB {self.inbox}.* 1")
        self.number = 0

    def close(self):
        self.file.close()
        self.socket.close()

    def send(self, line, payload=None):
        self.socket.sendall(line.encode() + b"\r\n" + (b"" if payload is None else payload + b"\r\n"))

    def ask(self, subject, payload=b"", headers=None):
        """The broker's answer, as JSON."""
        self.number += 1
        reply = f"{self.inbox}.{self.number}"
        block = "NATS/1.0\r\n" + "".join(f"{name}: {value}\r\n" for name, value in (headers or {}).items()) + "\r\n"
        self.send(f"HPUB {subject} {reply} {len(block)} {len(block) + len(payload)}", block.encode() + payload)
        while True:
            words = self.file.readline().decode().split()
            if not words or words[0] == "-ERR":
                raise lab.Failure(f"the broker says {words}")
            if words[0] == "PING":
                self.send("PONG")
            if words[0] in ("MSG", "HMSG"):
                body = self.file.read(int(words[-1]) + 2)[:-2]
                if words[1] == reply and words[0] == "MSG":
                    return json.loads(body)
                if words[1] == reply:
                    raise lab.Failure(f"nobody answers on {subject}")

    def api(self, call, **request):
        answer = self.ask("$JS.API." + call, json.dumps(request).encode() if request else b"")
        if "error" in answer:
            raise lab.Failure(f"{call}: {answer['error']}")
        return answer

    def take(self, consumer, count, acknowledges=False):
        """Has so many batches given to this client."""
        self.send(f"PUB $JS.API.CONSUMER.MSG.NEXT.CMP.{consumer} {self.inbox}.taken {len(str(count))}", str(count).encode())
        while count > 0:
            words = self.file.readline().decode().split()
            if words[0] == "HMSG":
                self.file.read(int(words[-1]) + 2)
                count -= 1
                if acknowledges:
                    self.send(f"PUB {words[3]} 4", b"+ACK")

    def make_stream(self, name="CMP", subjects=("cmp.>",), **settings):
        self.api(f"STREAM.CREATE.{name}", name=name, subjects=list(subjects), storage="file", retention="limits",
                 discard="old", **settings)

    def make_bucket(self):
        self.make_stream("KV_cmp-stations", ["$KV.cmp-stations.>"], max_msgs_per_subject=1, allow_rollup_hdrs=True,
                         deny_delete=True, allow_direct=True)

    def put_heartbeat(self, token, text):
        self.ask(f"$KV.cmp-stations.{token}", text.encode())


def token_of(name):
    plain = b"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_"
    return "".join(chr(byte) if byte in plain else f"={byte:02X}" for byte in name.encode()) or "="


def block(kind, body):
    body += bytes(-len(body) % 4)
    return struct.pack("<II", kind, len(body) + 12) + body + struct.pack("<I", len(body) + 12)


def option(code, value):
    return struct.pack("<HH", code, len(value)) + value + bytes(-len(value) % 4)


def section(channels=(), rows=()):
    """A pcapng section: channels are (name, link type), rows (place of the channel, time in ns, number)."""
    text = block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1))
    for name, link in channels:
        text += block(1, struct.pack("<HHI", link, 0, 0) + option(2, name.encode()) + option(9, b"\x09") + bytes(4))
    for channel, moment, number in rows:
        data = struct.pack("<I", number)
        packet = struct.pack(">IB3x", 0x100, 4) if channels[channel][1] == CAN_LINK else bytes([1, 0, 0, 0, 0x40, 5, 0, 0])
        packet += data
        text += block(6, struct.pack("<IIIII", channel, moment >> 32, moment & 0xFFFFFFFF, len(packet), len(packet))
                      + packet)
    return text


class Publisher:
    """A session of a station: messages are numbered by channel, 1 ms apart."""

    START = 1_700_000_000_000_000_000

    def __init__(self, client, station, session="20231114T221320Z", channels=(("Front", CAN_LINK),), split=False):
        self.client, self.token, self.session, self.channels, self.split = (
            client, token_of(station), session, list(channels), split)
        self.numbers, self.time, self.batches, self.made = [0] * len(self.channels), self.START, {}, []

    def make(self, messages=10, channels=None, last=False):
        """The next batch; it isn't published yet."""
        places = list(channels if channels is not None else range(len(self.channels)))
        rows = []
        for i in range(messages):
            channel = places[i % len(places)]
            rows.append((places.index(channel), self.time, self.numbers[channel]))
            self.numbers[channel] += 1
            self.time += 10**6
        # In another order each time, as a station that names channels when they come.
        subject = f"cmp.{self.token}" + (f".m.{places[0]}" if self.split else "")
        self.batches[subject] = number = self.batches.get(subject, 0) + 1
        headers = {"Nats-Msg-Id": f"{self.token}/{self.session}/{subject}/{number}", "Cmp-Station": self.token,
                   "Cmp-Session": self.session, "Cmp-Batch": number, "Cmp-Messages": messages,
                   "Cmp-First-Time": rows[0][1] if rows else 0, "Cmp-Last-Time": rows[-1][1] if rows else 0,
                   "Cmp-Sent-Time": time.time_ns(), **({"Cmp-End": 1} if last else {})}
        batch = subject, headers, section([self.channels[place] for place in places], rows)
        self.made.append(batch)
        return batch

    def publish(self, count=1, messages=10, **options):
        for _ in range(count):
            self.send(self.make(messages, **options))

    def send(self, batch, **headers):
        subject, known, payload = batch
        self.client.ask(subject, payload, {**known, **headers})

    def end(self):
        self.publish(messages=0, last=True)
