"""Decoding of signals: ours beside canmatrix's, on the same database and recording.

signals_bench.py FOLDER"""

import logging
import os
import random
import subprocess
import sys
import time
from pathlib import Path

import canmatrix.formats

MESSAGES = 200
SENT = 20_000
COMPARED = 2_000  # of them by canmatrix, which takes its time


def database(values):
    """Messages as those of a car: some eight signals each, a tenth multiplexed."""
    lines, rest = ['VERSION ""', "BU_: A"], []
    for number in range(MESSAGES):
        identifier, switched = 0x100 + number, number % 10 == 0
        lines.append(f"BO_ {identifier} M{number}: 8 A")
        if switched:
            lines.append(' SG_ Mode M : 0|4@1+ (1,0) [0|15] "" A')
        at = 8
        while at < 64:
            size = min(values.choice([1, 2, 4, 8, 8, 12, 16]), 64 - at)
            big = values.random() < 0.4
            start = at // 8 * 8 + 7 - at % 8 if big else at
            mux = f"m{at % 3} " if switched else ""
            lines.append(f' SG_ S{at} {mux}: {start}|{size}@{"01"[not big]}{values.choice("+-")} (0.1,-40) [0|0] "V" A')
            if size < 4 and not switched:
                rest.append(f'VAL_ {identifier} S{at} 0 "off" 1 "on" ;')
            at += size
    return "\n".join(lines + rest) + "\n"


def main(folder):
    folder = Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    values = random.Random(1)
    path, log = folder / "bench.dbc", folder / "bench.log"
    path.write_text(database(values))
    sent = [(0x100 + values.randrange(MESSAGES), values.randbytes(8)) for _ in range(SENT)]
    log.write_text("".join(f"({1700000000 + i / 1000:.6f}) can0 {identifier:03X}#{data.hex().upper()}\n"
                           for i, (identifier, data) in enumerate(sent)))
    subprocess.run([f"{os.environ['CMP_BIN']}/signals-benchmark", path, log], check=True)
    logging.disable(logging.WARNING)
    frames = {frame.arbitration_id.id: frame for frame in canmatrix.formats.loadp(str(path))[""].frames}
    start, count = time.perf_counter(), 0
    for identifier, data in sent[:COMPARED]:
        count += len([signal.phys_value for signal in frames[identifier].decode(data).values()])
    took = time.perf_counter() - start
    print(f"canmatrix: {took / count * 1e9:.0f} ns a signal, {count / took / 1e6:.3f} million a second")


if __name__ == "__main__":
    main(*sys.argv[1:])
