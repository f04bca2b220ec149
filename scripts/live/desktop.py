"""The desktop program with a user, in a live run."""

import json
import os
import signal
from subprocess import DEVNULL, PIPE

import lab
import setups

USER = str(lab.BIN / "gui-user")


class Desktop(lab.Station):
    """`gui-user` with a new setup of these modules; it measures when this is made."""

    def __init__(self, modules, *options, setup, record=(), display=False):
        self.recordings = list(record)
        setups.make_measured(setup, modules)
        command = [USER, "--setup", str(setup), *lab.repeat("--record", record)]
        command += map(str, options)
        variables = {**os.environ, "QT_QPA_PLATFORM": "offscreen", "QT_LOGGING_RULES": "*=false"}
        if display:
            variables.update(QT_QPA_PLATFORM="xcb", DISPLAY=self.open_display())
        self.process = lab.spawn(command, stdout=PIPE, stderr=PIPE, env=variables)
        lab.wait_until(lambda: self.process.poll() is not None or self.is_capturing(), "it measures")
        if self.process.poll() is not None:
            raise lab.Failure(f"gui-user ended with {self.process.returncode}: {self.finish()}")

    def open_display(self):
        """A screen in memory, which goes with this process."""
        self.screen = lab.spawn(["Xvfb", "-displayfd", "1", "-screen", "0", "1600x1000x24"], stdout=PIPE,
                                stderr=DEVNULL)
        return f":{self.screen.stdout.readline().strip()}"

    def stop(self, code=0, number=signal.SIGINT):
        """Closes the window; returns what `gui-user` prints, and its messages."""
        self.process.send_signal(number)
        returned, output, errors = self.finish()
        if returned != code:
            raise lab.Failure(f"gui-user ended with {returned} instead of {code}: {errors}")
        return json.loads(output), errors
