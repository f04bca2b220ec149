"""What the tests of `cmp-station run --stream` share: a broker, a station, and what is in the stream."""

import base64
import contextlib
import os
import sys
from collections import defaultdict

import lab
import nats_client
import traffic
from case import FRONT, Case
from nats_client import Broker, Client

WRONG_CLOCK = sys.argv.pop(1)
URL = f"nats://127.0.0.1:{nats_client.PORT}"


def late_by(seconds):
    """Variables of a program that has the clock so late."""
    return {**os.environ, "LD_PRELOAD": WRONG_CLOCK, "WRONG_CLOCK": str(seconds)}


class StreamCase(Case):
    def setUp(self):
        self.broker = Broker(self.path("broker"))
        self.addCleanup(lambda: self.broker.kill())
        self.spool = self.path("spool")

    def forget_identifiers(self):
        """The broker knows the identifiers of batches for a moment only, as after hours."""
        client = Client()
        client.make_stream(duplicate_window=10**8)
        client.close()

    def station(self, modules=FRONT, *options, url=URL, name="bench 1", **more):
        station = lab.Station(modules, "--stream", url, "--station", name, "--spool", self.spool, *options, **more)
        self.addCleanup(lab.end, station.process)
        return station

    def batches(self, subject="cmp."):
        """Those of the stream: headers and payload, in order."""
        found = []
        with contextlib.closing(Client()) as client:
            state = client.api("STREAM.INFO.CMP")["state"]
            for number in range(max(state["first_seq"], 1), state["last_seq"] + 1):
                message = client.api("STREAM.MSG.GET.CMP", seq=number)["message"]
                lines = base64.b64decode(message["hdrs"]).decode().split("\r\n")[1:]
                headers = dict(line.split(": ", 1) for line in lines if line)
                if message["subject"].startswith(subject):
                    found.append((message["subject"], headers, base64.b64decode(message.get("data", ""))))
        return found

    def write(self, payloads):
        path = self.path("payloads.pcapng")
        path.write_bytes(b"".join(payloads))
        return path

    def rows(self, batches):
        """What tshark reads in their payloads, session by session; the headers say the same of each."""
        sessions = defaultdict(list)
        for subject, headers, payload in batches:
            sessions[subject, headers["Cmp-Session"]].append((headers, payload))
        by_time = sorted(sessions.values(), key=lambda batches: int(batches[0][0]["Cmp-First-Time"]))
        return [row for session in by_time for row in self.rows_of_session(session)]

    def rows_of_session(self, batches):
        rows = traffic.read_with_tshark(self.write([payload for _, payload in batches]))
        rest = list(rows)
        for number, (headers, _) in enumerate(batches):
            count = int(headers["Cmp-Messages"])
            own, rest = rest[:count], rest[count:]
            self.assertEqual(int(headers["Cmp-Batch"]), number + 1)
            self.assertRegex(headers["Nats-Msg-Id"], f"{headers['Cmp-Session']}/cmp\\.[^/]*/{number + 1}")
            self.assertEqual([row.time for row in own], sorted(row.time for row in own))
            if own:
                self.assertEqual((int(headers["Cmp-First-Time"]), int(headers["Cmp-Last-Time"])),
                                 (own[0].time, own[-1].time))
        self.assertEqual(rest, [])
        return rows

    def expect_stream(self, sent, report, rows):
        """All that was measured is in it, once and in order on each channel, and the report says so."""
        stream = report["stream"]
        self.expect_rows_of(sent, report, sorted(rows, key=lambda row: row.time))
        self.assertEqual((stream["acknowledged"], stream["backlogMessages"], stream["lost"]), (len(rows), 0, 0))
        self.assertEqual([path.name for path in self.spool.glob("*.pcapng")], [])
