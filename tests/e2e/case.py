"""What the tests here share: a scratch folder, and traffic as heavy as the build bears."""

import os
import tempfile
import unittest
from collections import defaultdict
from pathlib import Path
from subprocess import PIPE

import lab
import traffic

RATE = int(os.environ.get("CMP_RATE", 1000))  # messages per second and channel; sanitizers bear less
MODULES = ["CAN combo:5", "LIN combo:2", "NeoviFire3:7"]
NAMES = ["CAN combo:5:Front", "LIN combo:2:Doors", "NeoviFire3:7:Rear"]
CAN = ["CAN combo:5"]
FRONT = ["CAN combo:5:Front"]


def main(links=1):
    """Runs the tests of the program in the network of `lab.prepare`."""
    lab.prepare(links)
    unittest.main()


class Case(unittest.TestCase):
    maxDiff = 2000

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.scratch = Path(folder.name)

    def path(self, name):
        """A file of this test's own in the scratch folder."""
        return self.scratch / f"{self._testMethodName}-{name}"

    def add_link(self, name, up=True):
        """A link between late0 here and far0 where the modules are, for example; at the end of the test it goes."""
        lab.add_link(name, name.replace("late", "far"))
        if up:
            lab.ip(f"link set {name} up")
        self.addCleanup(lab.call, ["ip", "link", "del", name])  # it may be gone already

    def start(self, command, **options):
        """A program that runs until it ends or the test does."""
        process = lab.spawn([str(word) for word in command], stdout=PIPE, stderr=PIPE, **options)
        self.addCleanup(lab.end, process)
        return process

    def expect(self, code, *arguments, **options):
        """Runs cmp-station to its end; returns its output and its messages."""
        returned, output, errors = lab.call([lab.STATION, *map(str, arguments)], **options)
        self.assertEqual(returned, code, errors)
        return output, errors

    def expect_no_gap(self, rows):
        """Of each channel there are the first message and those behind it, once and in order."""
        numbers = defaultdict(list)
        for row in rows:
            numbers[row.name].append(int.from_bytes(row.data[:4], "little"))
        for there in numbers.values():
            self.assertEqual(there, list(range(len(there))))

    def expect_complete(self, sent, report, recording):
        """All that was sent was counted and is in the recording, once and in order; returns the latter's rows."""
        rows = traffic.read_with_tshark(recording)
        self.assertEqual(traffic.count_differences(sent, report), [])
        self.assertEqual(traffic.account_differences(report), [])
        self.expect_rows_of(sent, report, rows)
        return rows

    def expect_rows_of(self, sent, report, rows, names=None, log=False):
        """In the order of time, too, but for the few that the report says came in late, on a machine too busy."""
        late = report["outOfOrder"]
        self.assertLessEqual(late, len(rows) // 50)
        self.assertEqual(traffic.row_differences(sent, names or traffic.names_of(report), rows, log, late), [])
