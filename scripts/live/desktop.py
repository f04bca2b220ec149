"""The desktop program with a user, in a live run."""

import json
import os
import signal
from subprocess import PIPE

import lab
import setups

USER = str(lab.BIN / "gui-user")


class Desktop(lab.Station):
    """`gui-user` with a new setup of these modules, None for one that is there; it measures when this is made."""

    def __init__(self, modules, *options, setup, record=(), display=False):
        self.recordings = list(record)
        if modules is not None:
            setups.make_measured(setup, modules)
        command = [USER, "--setup", str(setup), *lab.repeat("--record", record)]
        command += map(str, options)
        variables = {**os.environ, "QT_QPA_PLATFORM": "offscreen", "QT_LOGGING_RULES": "*=false"}
        if display:
            self.screen, name = lab.start_display()
            variables.update(QT_QPA_PLATFORM="xcb", DISPLAY=name)
        self.process = lab.spawn(command, stdout=PIPE, stderr=PIPE, env=variables)
        lab.wait_until(lambda: self.process.poll() is not None or self.is_capturing(), "it measures")
        if self.process.poll() is not None:
            raise lab.Failure(f"gui-user ended with {self.process.returncode}: {self.finish()}")

    def stop(self, code=0, number=signal.SIGINT):
        """Closes the window; returns what `gui-user` prints, and its messages."""
        self.process.send_signal(number)
        returned, output, errors = self.finish()
        if returned != code:
            raise lab.Failure(f"gui-user ended with {returned} instead of {code}: {errors}")
        return json.loads(output), errors
