"""Signals of recordings, beside those that canmatrix finds by the same databases."""

import csv
import json
import logging
import math
import random
import signal
from collections import defaultdict

import canmatrix.formats
import lab
from case import Case, main
from mf4_reader import SignalMf4

SIZES = [1, 2, 3, 5, 7, 8, 12, 16, 20, 24, 32, 48, 64]
HAND_WRITTEN = '''VERSION "by hand"
BU_: Body Door
BO_ 291 Engine: 8 Body
 SG_ Speed : 0|16@1+ (0.25,-10) [0|8000] "1/min" Door,Body
 SG_ Torque : 23|12@0- (1,0) [0|0] "N,m" Vector__XXX
 SG_ Gear : 28|3@1+ (1,0) [0|7] "" Door
BO_ 2566834709 Modes: 8 Door
 SG_ Mode M : 0|4@1+ (1,0) [0|0] "" Body
 SG_ Level m0 : 8|8@1- (0.5,1) [0|0] "%" Body
 SG_ Count m1 : 15|16@0+ (1,0) [0|0] "" Body
BO_ 1000 Pages: 8 Door
 SG_ Top M : 0|2@1+ (1,0) [0|0] "" Body
 SG_ Page m1M : 2|2@1+ (1,0) [0|0] "" Body
 SG_ Low m0 : 8|8@1+ (1,0) [0|0] "" Body
 SG_ Deep m2 : 16|8@1+ (1,0) [0|0] "" Body
VAL_ 291 Gear 0 "Park" 1 "Rev, slow" 7 "none" ;
SG_MUL_VAL_ 1000 Page Top 1-1;
SG_MUL_VAL_ 1000 Low Top 0-0, 2-3;
SG_MUL_VAL_ 1000 Deep Page 1-2;
'''


def random_signal(number, bits, values):
    """A line of a .dbc, and what belongs to it further down."""
    kind = values.choice("uuuusssfd")
    size = {"f": 32, "d": 64}.get(kind, values.randint(1, min(64, bits)))
    if size > bits:
        kind, size = "u", bits
    first = values.randint(0, bits - size)
    big = values.random() < 0.5
    start = first // 8 * 8 + 7 - first % 8 if big else first
    scale = values.choice(["1,0", "0.5,-40", "-0.001,7", "3,1E+3", "1e-05,0"]) if kind in "us" else "1,0"
    line = (f'SG_ S{number} {{mux}}: {start}|{size}@{"01"[not big]}{"+" if kind == "u" else "-"} ({scale}) [0|0] '
            f'"{values.choice(["", "V", "km/h"])}" Body')
    return line, {"f": f"SIG_VALTYPE_ {{id}} S{number} : 1;", "d": f"SIG_VALTYPE_ {{id}} S{number} : 2;"}.get(kind)


def random_database(signals, values):
    """Text of a .dbc with so many signals, in messages of all sizes."""
    lines, rest, number, message = ["VERSION \"\"", "BU_: Body"], [], 0, 0
    while number < signals:
        identifier = message + 1 if message < 0x700 and message % 3 else 0x80000000 | 0x10000 + message
        size = values.choice(SIZES)
        lines.append(f"BO_ {identifier} M{message}: {size} Body")
        multiplexed = values.random() < 0.2
        if multiplexed:
            lines.append(' SG_ Switch M : 0|2@1+ (1,0) [0|0] "" Body')
        for _ in range(values.randint(1, 12)):
            line, kind = random_signal(number, 8 * size, values)
            lines.append(" " + line.format(mux=f"m{values.randint(0, 3)} " if multiplexed and number % 4 else ""))
            rest += [kind.format(id=identifier)] if kind else []
            if kind is None and number % 5 == 0:
                rest.append(f'VAL_ {identifier} S{number} 0 "off" 1 "on" 2 "say \'it\'" ;')
            number += 1
        message += 1
    return "\n".join(lines + rest) + "\n"


def read_table(path):
    with path.open(newline="") as file:
        return list(csv.DictReader(file))


class Decode(Case):
    def send(self, path, matrix, values, times):
        """A recording of each message with random data; returns the messages by their number."""
        sent, lines = [], []
        for frame in matrix.frames * times:
            data = bytes(values.choice([values.randrange(256), values.randrange(3)]) for _ in range(frame.size))
            identifier = frame.arbitration_id
            digits = f"{identifier.id:08X}" if identifier.extended else f"{identifier.id:03X}"
            length = len(data)
            lines.append(f"({1700000000 + len(sent)}.000000) can0 {digits}{'##0' if length > 8 else '#'}{data.hex().upper()}")
            sent.append((frame, data))
        path.write_text("\n".join(lines) + "\n")
        return sent

    def compare(self, database, values, times):
        """Decodes both ways; returns how many signals there were."""
        log, table = self.path("in.log"), self.path("out.csv")
        logging.disable(logging.WARNING)
        matrix = canmatrix.formats.loadp(str(database), dbcImportEncoding="utf-8")[""]
        sent = self.send(log, matrix, values, times)
        self.expect(0, "decode", log, table, "--db", database)
        rows = defaultdict(dict)
        for row in read_table(table):
            rows[row["time"]][row["signal"]] = row
        times = sorted(rows)
        self.assertEqual(len(times), len(sent))
        for time, (frame, data) in zip(times, sent):
            expected, mine = frame.decode(data), rows[time]
            self.assertEqual(set(mine), set(expected), (frame.name, data.hex()))
            for name, signal in expected.items():
                definition, row = frame.signal_by_name(name), mine[name]
                raw = signal.raw_value
                about = (frame.name, name, data.hex(), row, raw)
                self.assertEqual((row["message"], row["unit"]), (frame.name, definition.unit), about)
                wanted = raw if definition.is_float else float(raw * definition.factor + definition.offset)
                value = float(row["value"])
                self.assertTrue(math.isnan(value) and math.isnan(wanted) or
                                value == wanted or math.isclose(value, wanted, rel_tol=1e-12, abs_tol=1e-12), about)
                if not definition.is_float and (definition.factor, definition.offset) == (1, 0):
                    self.assertEqual(int(row["value"]), raw, about)
                self.assertEqual(row["text"], definition.values.get(raw, ""), about)
        return sum(map(len, rows.values()))

    def test_random_databases(self):
        values, database = random.Random(7), self.path("random.dbc")
        database.write_text(random_database(10_000, values))
        self.assertGreater(self.compare(database, values, 1), 8_000)

    def test_by_hand_written_database(self):
        database = self.path("hand.dbc")
        database.write_text(HAND_WRITTEN)
        self.assertGreater(self.compare(database, random.Random(8), 40), 200)

    def test_measured_values_are_those_of_the_table(self):
        values, database = random.Random(9), self.path("random.dbc")
        database.write_text(random_database(300, values))
        log, table, measured = self.path("in.log"), self.path("out.csv"), self.path("out.mf4")
        matrix = canmatrix.formats.loadp(str(database))[""]
        self.send(log, matrix, values, 3)
        self.expect(0, "decode", log, table, "--db", database)
        self.expect(0, "decode", log, measured, "--db", database)
        rows = defaultdict(list)
        for row in read_table(table):
            rows[row["channel"], row["message"], row["signal"], row["unit"]].append(float(row["value"]))
        columns = {}
        for group in SignalMf4(measured).groups:
            for name, unit, column in group.columns:
                columns[group.source, group.name, name, unit] = [v for v in column if not math.isnan(v)]
            self.assertEqual([time % 10**9 for time in group.times], [0] * len(group.times))
        self.assertEqual({key: found for key, found in columns.items() if found},
                         {key: [v for v in found if not math.isnan(v)] for key, found in rows.items()
                          if not all(map(math.isnan, found))})
        for command in (["decode", measured, "--db", database], ["convert", measured, self.path("again.csv")]):
            self.assertIn("no bus messages", self.expect(3, *command)[1])
        self.assertIn("behind the =", self.expect(2, "decode", log, "--db", "can0=")[1])

    def test_what_is_left_out_is_counted(self):
        database, log, wrong = self.path("hand.dbc"), self.path("in.log"), self.path("wrong.dbc")
        database.write_text(HAND_WRITTEN)
        wrong.write_text("BO_ 1 A: 8 X\n SG_ S : 0|99@1+\n")
        log.write_text("(1.0) can0 123#10\n(2.0) can0 123#0000\n(3.0) can1 123#0000\n(4.0) can0 7FF#\n")
        output, errors = self.expect(0, "decode", log, self.path("o.csv"), "--db", f"can0={database}", "--json")
        counts = json.loads(output)
        self.assertEqual([counts[key] for key in ("messages", "decoded", "undefined", "withoutDatabase",
                                                  "withoutSignals")], [4, 1, 1, 1, 1])
        self.assertIn("1 messages have no definition", errors)
        output, _ = self.expect(0, "decode", log, "--db", database, "--channel", "can1")
        self.assertEqual(output.splitlines()[1:], ["1970-01-01T00:00:03.000000000Z,can1,Engine,Speed,-10,1/min,"])
        other = self.path("other.dbc")
        other.write_text('BO_ 291 Other: 2 X\n SG_ S : 0|8@1+ (1,0) [0|0] "" X\n')
        output, _ = self.expect(0, "decode", log, "--db", other, "--db", f"can0={database}", "--id", "0x123")
        self.assertEqual([line.split(",")[1:3] for line in output.splitlines()[1:]],
                         [["can0", "Engine"], ["can1", "Other"]])
        kept, fresh = self.path("kept.csv"), self.path("fresh.csv")
        kept.write_text("of before")
        for command, options in [("decode", ["--db", f"can7={database}"]), ("decode", ["--db", database, "--channel", "x"]),
                                 ("decode", ["--db", f"can0={database}", "--db", f"can7={database}"]),
                                 ("convert", ["--channel", "x"]), ("convert", ["--channel", "x", "--channel", "can1"])]:
            for path in (kept, fresh):
                _, errors = self.expect(2, command, log, path, "--overwrite", *options)
                self.assertRegex(errors, 'no channel is named "(can7|x)"; there are "can0", "can1"')
        self.assertEqual((kept.read_text(), fresh.exists()), ("of before", False), "a wrong name destroys nothing")
        for code, text, options in [
                (3, f"{wrong}, line 2: a signal's size", ["--db", wrong]),
                (2, "no channel is named \"can7\"", ["--db", f"can7={database}"]),
                (2, "name a .dbc (CAN) or a .ldf (LIN)", ["--db", log]),
                (2, "is a database of LIN, and there are no messages", ["--db", self.lin_database()]),
                (2, "is a database of LIN", ["--db", f"can0={self.lin_database()}"])]:
            _, errors = self.expect(code, "decode", log, *options)
            self.assertIn(text, errors)
        self.assertIn("the file exists and is not empty",
                      self.expect(1, "decode", log, self.path("o.csv"), "--db", database)[1])

    def test_what_was_there_outlives_a_failure_and_a_kill(self):
        database, log, out = self.path("hand.dbc"), self.path("in.log"), self.path("out.mf4")
        database.write_text(HAND_WRITTEN)
        log.write_text("".join(f"({number}.0) can0 123#{number % 256:02X}00\n" for number in range(400_000)))
        command = [lab.STATION, "decode", log, out, "--overwrite", "--quiet", "--db", database]
        out.write_text("of before")
        out.chmod(0o600)
        code, _, errors = lab.call(["prlimit", "--fsize=1000000", *command])
        self.assertEqual(code, 1)
        self.assertIn("left as it was", errors)
        other = self.path("out.mf4.part")
        other.write_text("somebody's")

        def parts():
            return [path for path in out.parent.glob(f"{out.name}*") if path not in (out, other)]
        self.assertEqual((out.read_text(), parts()), ("of before", []))
        for end, left in (signal.SIGTERM, 0), (signal.SIGKILL, 1):
            decoding = lab.spawn(command)
            lab.wait_until(lambda: any(part.stat().st_size > 100_000 for part in parts()), "a part is written")
            self.assertEqual({part.stat().st_mode & 0o777 for part in parts()}, {0o600})
            decoding.send_signal(end)
            decoding.wait()
            self.assertEqual((out.read_text(), len(parts())), ("of before", left))
        self.assertEqual(lab.call(command)[0], 0)
        self.assertEqual(out.stat().st_mode & 0o777, 0o600)
        self.assertEqual([len(group.times) for group in SignalMf4(out).groups], [400_000])
        self.assertEqual((len(parts()), other.read_text()), (1, "somebody's"))  # that of the killed one

    def test_a_run_shows_what_decoding_its_recording_finds(self):
        setup, recording, table = self.path("bench.xml"), self.path("drive.pcapng"), self.path("drive.csv")
        front, lin = self.scratch / "front.dbc", self.scratch / "lin.ldf"
        front.write_text("".join(f'BO_ {number} M{number}: 8 X\n SG_ Number : 0|32@1+ (1,0) [0|0] "" X\n'
                                 f' SG_ Page M : 2|2@1+ (1,0) [0|0] "" X\n SG_ Odd m1 : 4|4@1+ (0.5,1) '
                                 f'[0|0] "V" X\nVAL_ {number} Odd 1 "one" 3 "three" ;\n' for number in (0x140, 0x141)))
        lin.write_text("LIN_description_file;\nSignals { N: 8, 0, A, B; }\nFrames { W: 20, A, 8 { N, 0; } }\n")
        self.expect(0, "setup", "new", setup)
        for module in ("CAN combo", "LIN combo"):
            self.expect(0, "setup", "add", setup, "--type", module, "--config-id", "5", "--name", module)
            self.expect(0, "setup", "channel", setup, module, "all", "--used", "yes")
        before = setup.read_text()
        self.expect(0, "setup", "database", setup, "CAN combo", "0x10", "--db", front)
        self.assertEqual(json.loads(self.expect(0, "setup", "show", setup, "--json")[0])["modules"][0]["channels"][0]
                         ["databases"], [str(front)])
        self.expect(0, "setup", "database", setup, "CAN combo", "0x10", "--db", "front.dbc", cwd=self.scratch)
        self.assertEqual([line.strip() for line in setup.read_text().splitlines() if line not in before.splitlines()],
                         ["<Database>front.dbc</Database>"])
        self.assertIn("is a database of LIN", self.expect(2, "setup", "database", setup, 1, "all", "--db", lin)[1])
        station = lab.Station([], "--db", lin, setup=setup, record=[recording])
        lab.simulate(["CAN combo:5", "LIN combo:5"], "--rate", 200, "--duration", 1, "--length", "8")
        station.settle()
        report, _ = station.stop()
        self.expect(0, "decode", recording, table, "--db", f"CAN combo 0x10={front}", "--db", lin)
        found, count = {}, 0
        for row in read_table(table):
            key = row["channel"], row["message"], row["signal"]
            found[key] = [float(row["value"]), row["unit"], row["text"], found.get(key, [0])[-1] + 1]
        shown = {(channel["name"], message["name"], signal["name"]):
                 [signal["value"], signal["unit"], signal["text"], signal["count"]]
                 for channel in report["channels"] for message in channel.get("messages", [])
                 for signal in message["signals"]}
        self.assertEqual(shown, found)
        self.assertGreater(len({channel for channel, *_ in shown}), 3)
        for channel in report["channels"]:
            if "messages" in channel:
                known = sum(message["count"] for message in channel["messages"])
                self.assertEqual(channel["frames"], known + channel["undefinedMessages"])
                count += known
        self.assertGreater(count, 100)
        self.expect(0, "setup", "database", setup, "CAN combo", "all", "--none")
        self.assertEqual(setup.read_text(), before)

    def lin_database(self):
        path = self.path("doors.ldf")
        path.write_text("LIN_description_file;\nSignals { Lock: 1, 0, A, B; }\nFrames { W: 1, A, 2 { Lock, 3; } }\n")
        return path


if __name__ == "__main__":
    main()
