"""`cmp-station run --stream` with a real broker: all that was measured is in the stream once and in order."""

import base64
import contextlib
import json
import random
import re
import signal
import struct
import time
from collections import defaultdict
from pathlib import Path

import lab
import traffic
from case import CAN, FRONT, MODULES, NAMES, RATE, main
from nats_client import Broker, Client
from stream_case import URL, StreamCase, late_by


class Stream(StreamCase):
    def test_each_message_is_in_the_stream_once(self):
        for split, names, modules in [("station", NAMES, MODULES), ("channel", FRONT, CAN)]:
            with self.subTest(split):
                station = self.station(names, "--stream-split", split, "--stream-batch", "20KiB", name=f"é/{split}")
                self.assertIn("libnats", Path(f"/proc/{station.process.pid}/maps").read_text())
                sent = lab.simulate(modules, "--rate", RATE, "--duration", 2)
                report, _ = station.stop()
                batches = self.batches(f"cmp.=C3=A9=2F{split}")
                self.expect_stream(sent, report, self.rows(batches))
                by_subject = defaultdict(list)
                for subject, headers, _ in batches:
                    by_subject[subject].append(headers.get("Cmp-End"))
                    self.assertEqual(headers["Cmp-Station"], f"=C3=A9=2F{split}")
                    self.assertEqual(headers["Cmp-Session"], report["stream"]["session"])
                for ends in by_subject.values():
                    self.assertEqual(ends, [None] * (len(ends) - 1) + ["1"])
                subjects = {f"cmp.=C3=A9=2F{split}" + (f".{channel['module']}.{channel['interfaceId']}"
                                                      if split == "channel" else "")
                            for channel in report["channels"] if channel["frames"]}
                self.assertEqual(set(by_subject), subjects)
        station = lab.Station(FRONT)
        self.assertNotIn("libnats", Path(f"/proc/{station.process.pid}/maps").read_text())
        station.stop()

    def test_broker_that_goes_away_or_keeps_silent_loses_and_doubles_nothing(self):
        self.forget_identifiers()
        self.broker.kill()
        station = self.station(FRONT, "--stream-wait", lab.PATIENCE, "--stream-batch", "20KiB")
        simulator = lab.start_simulator(CAN, "--rate", RATE, "--duration", 15)
        time.sleep(1)
        for _ in range(4):
            self.broker.start()
            time.sleep(1.3)
            self.broker.kill()
            time.sleep(0.4)
        self.broker.start()
        self.broker.process.send_signal(signal.SIGSTOP)
        sent = lab.finish_simulator(simulator)
        time.sleep(6)  # until it tries to connect again
        self.broker.process.send_signal(signal.SIGCONT)
        report, errors = station.stop(number=signal.SIGTERM)
        self.expect_stream(sent, report, self.rows(self.batches()))
        self.assertIn("nobody answers there", errors)
        self.assertRegex(errors, "doesn't say that it keeps them|didn't answer in time")
        self.assertIn("the stream goes on", errors)

    def read_spool(self):
        """The batches in its parts, by session and number; the last one may be torn."""
        found = []
        for part in sorted(self.spool.glob("*.pcapng")):
            try:
                data = part.read_bytes()
            except FileNotFoundError:  # all of it was acknowledged meanwhile
                continue
            at = 0
            while at + 28 < len(data):
                size = struct.unpack_from("<I", data, at + 4)[0] + struct.unpack_from("<Q", data, at + 16)[0]
                text = data[at:at + 300].decode("ascii", "replace")
                words = dict(re.findall(r"(batch|session)=(\S+)", text))
                if at + size <= len(data):
                    found.append((words["session"], int(words["batch"])))
                at += size
        return found

    def test_killed_station_sends_the_rest_with_its_next_run(self):
        self.forget_identifiers()
        draw = random.Random(2)
        simulator = lab.start_simulator(CAN, "--rate", RATE, "--duration", 20)
        left, told = set(), ""
        for turn in range(5):
            if turn in (1, 3):
                self.broker.kill()
            station = self.station(FRONT, "--stream-batch", "20KiB", "--stream-age", "100ms")
            time.sleep(1 + draw.random())
            if turn in (2, 4):
                lab.wait_until(lambda: len(self.batches()) > len(left), "it goes on after a kill")
            station.process.send_signal(signal.SIGKILL)
            told += station.finish()[2]
            left |= set(self.read_spool())
            part = max(self.spool.glob("*.pcapng"))
            if turn == 4:  # as a kill within the write leaves it; the run that reads it isn't killed
                data = part.read_bytes()
                torn = data[:data.find(b"\x0a\x0d\x0d\x0a", 1) // 2]
                part.write_bytes(data + torn)
            if turn in (1, 3):
                self.broker.start()
        station = self.station(FRONT, "--stream-wait", lab.PATIENCE)
        lab.wait_until(lambda: set(self.read_spool()) <= {(one, number) for one, number in self.read_spool()
                                                          if one not in {session for session, _ in left}},
                       "what was left is sent")
        lab.finish_simulator(simulator)
        report, errors = station.stop()
        self.assertIn(f"{len(torn)} bytes of ", told + errors)
        batches = self.batches()
        there = [(headers["Cmp-Session"], int(headers["Cmp-Batch"])) for _, headers, _ in batches]
        self.assertEqual(len(there), len(set(there)))
        self.assertEqual(left - set(there), set())
        order = [session for session, _ in there]
        sessions = sorted(set(order))
        for waiting in (1, 3):  # all of it, as the broker was away
            self.assertIn(sessions[waiting], order[order.index(sessions[waiting + 1]):], "a live batch goes before it")
        rows = self.rows(batches)
        self.assertEqual(len({session for session, _ in there}), 6)
        numbers = defaultdict(list)
        for row in rows:
            numbers[row.name].append(int.from_bytes(row.data[:4], "little"))
        for name, there in numbers.items():  # gaps are where no station ran
            self.assertEqual(there, sorted(set(there)), name)
        self.assertEqual(list(self.spool.glob("*.pcapng")), [])

    def test_spool_that_is_full_loses_the_oldest_and_counts_it(self):
        self.broker.kill()
        station = self.station(FRONT, "--spool-limit", "1MiB", "--stream-batch", "16KiB", "--stream-wait", 0)
        sent = lab.simulate(CAN, "--rate", RATE, "--duration", 5)
        report, errors = station.stop(code=1)
        stream = report["stream"]
        self.assertGreater(stream["lost"], 0)
        self.assertEqual(stream["lost"] + stream["backlogMessages"], sum(traffic.sent_counts(sent).values()))
        self.assertLess(sum(path.stat().st_size for path in self.spool.glob("*.pcapng")), 1.2 * 2**20)
        self.assertIn("the oldest had to go as the spool is full", errors)
        self.assertIn(f"{stream['backlogMessages']} messages are in the spool", errors)
        station = self.station(FRONT, "--stream-wait", 10 * lab.PATIENCE, "--duration", 0.3)
        time.sleep(1)
        report, _ = station.stop()
        self.assertEqual(report["stream"]["backlogMessages"], stream["backlogMessages"])
        self.broker.start()
        output, _ = self.expect(0, "stream", URL, "--station", "bench 1", "--spool", self.spool)
        self.assertIn(f"{stream['backlogMessages']} messages sent, 0 left", output)
        rows = traffic.read_with_tshark(self.write([payload for _, _, payload in self.batches()]))
        self.assertEqual(len(rows), stream["backlogMessages"])
        ends = defaultdict(int)
        for row in rows:
            ends[row.name] = max(ends[row.name], int.from_bytes(row.data[:4], "little"))
        self.assertEqual({end for end in ends.values()}, {5 * RATE - 1})

    def test_spool_that_can_t_be_written_is_told_and_nothing_is_doubled(self):
        self.forget_identifiers()
        disk = lab.mount(self.path("disk"), "2M")
        self.addCleanup(lab.run, "umount", disk)
        self.spool, note = disk / "spool", disk / "spool" / "acknowledged.new"
        note.mkdir(parents=True)  # in the place of the note
        told, drive = self.path("told"), self.path("drive.pcapng")
        with told.open("w") as file:
            station = self.station(FRONT, "--stream-batch", "16KiB", stderr=file)
        lab.simulate(CAN, "--rate", RATE, "--duration", 1)
        lab.wait_until(lambda: "can't be written: after the next start more is sent again" in told.read_text(), "it is told")
        lab.wait_until(lambda: set(self.read_spool()) <= {(headers["Cmp-Session"], int(headers["Cmp-Batch"]))
                                                          for _, headers, _ in self.batches()}, "all is stored")
        station.process.send_signal(signal.SIGKILL)
        station.finish()
        self.broker.kill()
        station = self.station(FRONT, "--stream-batch", "16KiB", "--stream-wait", lab.PATIENCE, record=[drive])
        sent = lab.simulate(CAN, "--rate", 4 * RATE, "--duration", 3)  # more than there is room for
        self.broker.start()
        note.rmdir()
        lab.wait_until(lambda: not self.read_spool(), "there is room again")
        more = lab.simulate(CAN, "--rate", RATE, "--duration", 0.5)
        report, errors = station.stop(code=1)
        self.assertRegex(errors, "No space left on device")
        count = sum(traffic.sent_counts(sent).values()) + sum(traffic.sent_counts(more).values())
        self.assertEqual((sum(channel["frames"] for channel in report["channels"]), report["recordings"][0]["records"],
                          report["droppedFrames"]), (count, count, 0))
        batches = self.batches()
        own = [(int(headers["Cmp-Batch"]), int(headers["Cmp-Messages"])) for _, headers, _ in batches
               if headers["Cmp-Session"] == report["stream"]["session"]]
        self.assertEqual([number for number, _ in own], sorted({number for number, _ in own}))
        spooled = report["recordings"][1]
        self.assertEqual((spooled["records"], spooled["records"] + spooled["lost"]), (sum(size for _, size in own), count))
        self.assertEqual((report["stream"]["backlogMessages"], report["stream"]["lost"]), (0, 0))
        self.assertEqual(len({headers["Nats-Msg-Id"] for _, headers, _ in batches}), len(batches))

    def test_damage_in_a_spool_costs_what_is_damaged_alone(self):
        self.broker.kill()
        station = self.station(FRONT, "--stream-batch", "16KiB", "--stream-wait", 0)
        sent = lab.simulate(CAN, "--rate", RATE, "--duration", 1)
        station.stop()
        part, foreign = max(self.spool.glob("*.pcapng")), self.spool / "20261123-drive-0001.pcapng"
        data = bytearray(part.read_bytes())
        size = struct.unpack_from("<I", data, 4)[0] + struct.unpack_from("<Q", data, 16)[0]
        data[size] = 0  # the second batch's
        part.write_bytes(data)
        foreign.write_bytes(b"somebody's recording")
        self.broker.start()
        _, errors = self.expect(1, "stream", URL, "--station", "bench 1", "--spool", self.spool)
        self.assertRegex(errors, "bytes of .* are no whole batch and were left out")
        self.assertIn(f"{foreign} is no part of a spool", errors)
        self.assertEqual(list(self.spool.glob("*.pcapng")), [foreign])
        self.assertEqual(foreign.read_bytes(), b"somebody's recording")
        batches = self.batches()
        numbers = [int(headers["Cmp-Batch"]) for _, headers, _ in batches]
        self.assertEqual(numbers, [1, *range(3, numbers[-1] + 1)])
        there = sum(int(headers["Cmp-Messages"]) for _, headers, _ in batches)
        self.assertLess(sum(traffic.sent_counts(sent).values()) - there, 16 * 1024 / 40)

    def test_faults_of_the_broker_are_told_and_mend(self):
        """A disk without room, a stream that is deleted, a name that is taken, a clock that is wrong."""
        self.broker.kill()
        limits = self.path("limits.conf")
        limits.write_text("jetstream { max_file_store: 300K }")
        broker = Broker(self.path("small"), "-c", limits)
        self.addCleanup(broker.kill)
        station = self.station(FRONT, "--stream-batch", "16KiB", "--stream-wait", lab.PATIENCE)
        simulator = lab.start_simulator(CAN, "--rate", RATE, "--duration", 6)
        time.sleep(3)
        limits.write_text("jetstream { max_file_store: 1G }")
        broker.kill()
        broker.start()
        sent = lab.finish_simulator(simulator)
        report, errors = station.stop()
        self.assertIn("its disk is full, or the space it may use", errors)
        self.expect_stream(sent, report, self.rows(self.batches()))

        # Large batches are refused for a time; no small one overtakes them. Then the stream is deleted.
        client = Client()
        self.addCleanup(client.close)
        client.api("STREAM.UPDATE.CMP", name="CMP", subjects=["cmp.>"], max_msg_size=6000)
        station = self.station(FRONT, "--stream-batch", "16KiB", "--stream-wait", lab.PATIENCE)
        lab.simulate(CAN, "--rate", RATE, "--duration", 1)
        lab.simulate(CAN, "--rate", 10, "--duration", 2)
        client.api("STREAM.UPDATE.CMP", name="CMP", subjects=["cmp.>"], max_msg_size=-1)
        lab.wait_until(lambda: self.batches()[-1][1]["Cmp-Session"] != report["stream"]["session"], "it goes on")
        self.rows(self.batches())
        client.api("STREAM.DELETE.CMP")
        lab.simulate(CAN, "--rate", RATE, "--duration", 1)
        report, errors = station.stop()
        waits = [line for line in errors.splitlines() if line.startswith("the stream waits")]
        self.assertEqual(sum("message size exceeds maximum allowed" in line for line in waits), 1, errors)
        station = self.station(FRONT, "--stream-wait", lab.PATIENCE)
        lab.wait_until(self.batches, "the stream is made again")
        client.api("STREAM.UPDATE.CMP", name="CMP", subjects=["cmp.>"], no_ack=True)
        lab.simulate(CAN, "--rate", 10, "--duration", 1)
        last, told = station.stop()
        self.assertIn("takes batches and doesn't say that it keeps them", told)
        rows = self.rows([batch for batch in self.batches() if batch[1]["Cmp-Session"] == last["stream"]["session"]])
        self.assertEqual(len(rows), last["stream"]["acknowledged"])
        self.assertIn('stream "CMP" was deleted at the broker, and is made again', errors)
        self.assertEqual(report["stream"]["backlogMessages"], 0)
        self.assertGreater(len(self.batches()), 0)

        with_shim = late_by(3600)
        station = self.station(FRONT, "--stream-wait", lab.PATIENCE, env=with_shim)
        sent = lab.simulate(CAN, "--rate", 10, "--duration", 1)
        report, errors = station.stop()
        self.assertEqual(report["stream"]["acknowledged"], sum(traffic.sent_counts(sent).values()))
        self.assertRegex(errors, r"clock is 3[56]\d\d s behind the broker's")

        # A full batch has come to it, so how slow a link may be isn't waited for: few heartbeats are.
        client.api("STREAM.UPDATE.CMP", name="CMP", subjects=["cmp.>"], no_ack=False)
        told, beats = self.path("told"), lambda: client.api("STREAM.INFO.KV_cmp-stations")["state"]["last_seq"]
        with told.open("w") as file:
            station = self.station(FRONT, "--stream-age", "5s", "--stream-wait", 0, stderr=file)
        lab.wait_until(lambda: "connected to" in told.read_text(), "it is connected")
        client.api("STREAM.UPDATE.CMP", name="CMP", subjects=["cmp.>"], no_ack=True)
        before = beats()
        lab.simulate(CAN, "--rate", RATE, "--duration", 5)
        lab.wait_until(lambda: "doesn't say that it keeps them" in told.read_text(), "it notices")
        self.assertLess(beats() - before, 11)
        station.stop_with_any_code()

    def test_a_name_is_one_station_s(self):
        station = self.station(FRONT)
        code, _, errors = lab.call([lab.STATION, "run", "--module", CAN[0], "--stream", URL, "--station", "bench 1",
                                    "--spool", self.spool])
        self.assertEqual(code, 1)
        self.assertIn("another station of this name", errors)
        station.stop()
        # The owner of the name ended: no wait. What is a little comes soon.
        station = self.station(FRONT)
        lab.simulate(CAN, "--rate", 10, "--duration", 0.5)
        lab.wait_until(self.batches, "they are in the stream while it measures")
        client = Client()
        self.addCleanup(client.close)
        key = "$KV.cmp-stations.bench=201"
        own = lambda: json.loads(base64.b64decode(client.api(
            "STREAM.MSG.GET.KV_cmp-stations", last_by_subj=key)["message"]["data"]))
        lab.wait_until(lambda: "backlog_bytes" in own(), "its heart beats")
        self.assertEqual((own()["station"], own()["ended"]), ("bench 1", False))
        station.stop()
        self.assertEqual(own()["ended"], True)
        # Another machine has the name.
        there = json.dumps({"owner": "elsewhere", "host": "far"})
        client.put_heartbeat("bench=201", there)
        station = self.station(FRONT, "--stream-wait", 0)
        simulator = lab.start_simulator(CAN, "--rate", RATE, "--duration", 4)
        for away in (0, 6):  # for longer than the other may be silent
            if away:
                time.sleep(2.5)  # until its latest sign is known
                self.broker.kill()
                time.sleep(away)
                self.broker.start()
                time.sleep(3)  # until the other one has its broker again
                client = Client()
                self.addCleanup(client.close)
            for _ in range(16):
                client.put_heartbeat("bench=201", there)
                time.sleep(0.25)
        lab.finish_simulator(simulator)
        report, errors = station.stop(code=1)
        self.assertIn('another station is called "bench 1" and runs on far', errors)
        self.assertEqual(own()["owner"], "elsewhere")
        self.assertGreater(report["stream"]["backlogMessages"], 0)
        # It is silent from now on.
        report, errors = self.station(FRONT, "--stream-wait", lab.PATIENCE).stop()
        self.assertEqual(report["stream"]["backlogMessages"], 0)
        self.assertGreater(report["stream"]["acknowledged"], 0)

        # It sleeps, and another machine takes its name meanwhile.
        station = self.station(FRONT)
        lab.wait_until(lambda: not own().get("ended", True), "its heart beats again")
        station.process.send_signal(signal.SIGSTOP)
        for turn in range(40):
            client.put_heartbeat("bench=201", there)
            time.sleep(0.25)
            if turn == 12:
                station.process.send_signal(signal.SIGCONT)
        _, errors = station.stop(code=1)
        self.assertIn("another station has taken the name of this one", errors)
        self.assertIn('another station is called "bench 1" and runs on far', errors)
        self.assertEqual(own()["owner"], "elsewhere")

    def test_what_another_program_publishes_under_the_name_is_not_believed(self):
        with contextlib.closing(Client()) as client:
            client.make_stream(duplicate_window=3 * 10**9)
            station = self.station(FRONT, "--stream-wait", lab.PATIENCE)
            simulator = lab.start_simulator(CAN, "--rate", RATE, "--duration", 6)
            lab.wait_until(self.batches, "it streams")
            station.process.send_signal(signal.SIGSTOP)
            subject, headers, payload = self.batches()[-1]
            session, number = headers["Cmp-Session"], int(headers["Cmp-Batch"])
            for identifier in (f"{session}/{subject}/{number + 2}", "another"):
                client.ask(subject, payload, {**headers, "Nats-Msg-Id": identifier, "Cmp-Batch": 10**6})
            station.process.send_signal(signal.SIGCONT)
        sent = lab.finish_simulator(simulator)
        report, errors = station.stop()
        self.assertIn("another program publishes under this name", errors)
        self.expect_stream(sent, report, self.rows([batch for batch in self.batches()
                                                    if batch[1]["Cmp-Batch"] != str(10**6)]))


if __name__ == "__main__":
    main()
