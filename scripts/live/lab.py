"""The network and the programs of a live run: a station here, simulated modules in a namespace behind
veth pairs. Nothing is left behind, for all of it goes with the processes, and they go with this one."""

import contextlib
import ctypes
import json
import os
import pty
import shutil
import signal
import socket
import subprocess
import sys
import time
from pathlib import Path

BIN = Path(os.environ["CMP_BIN"])
STATION = str(BIN / "cmp-station")
PLUGIN = str(BIN / "cmp_plugin.so")
SIMULATOR = str(BIN / "cmp-sim")
PATIENCE = 120  # seconds that anything may take on a busy machine

SETUP = """
mount -t tmpfs none /run
# A home folder for root in which nothing is registered.
sed 's|^\\([^:]*:[^:]*:0:.*:\\)[^:]*\\(:[^:]*\\)$|\\1/run/home\\2|' /etc/passwd >/run/passwd
mount --bind /run/passwd /etc/passwd
mkdir /run/netns
ip netns add modules
ip link set lo up
quiet() { "$@" sh -c 'echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6' 2>/dev/null || true; }
quiet env
quiet nsenter --net=/run/netns/modules
for i in $(seq 0 $(($1 - 1))); do
    ip link add veth$i type veth peer name sim$i netns modules
    ip link set veth$i up
    ip -n modules link set sim$i up
done
"""


class Failure(Exception):
    """Something other than expected, in words for the user."""


def prepare(links=1):
    """Makes `links` veth pairs: veth0, veth1, ... here, sim0, sim1, ... where the modules are."""
    if [name for _, name in socket.if_nameindex()] != ["lo"]:
        sys.exit(f"{sys.argv[0]}: start it with scripts/live/in_namespaces")
    subprocess.run(["sh", "-ec", SETUP, "sh", str(links)], check=True)
    # One that may be registered: what root loads from there must be root's own, which a build need not be.
    global PLUGIN
    PLUGIN = shutil.copy(PLUGIN, "/run/cmp_plugin.so")
    # Where nothing is registered: the plug-in is the one beside the station.
    os.environ["KESTROVA_REGISTRY"] = "/run/registry"
    os.environ["XDG_DATA_HOME"] = "/run/home/.local/share"


def with_store(folder):
    """Variables of a program for which the plug-ins of all users are registered there."""
    return {**os.environ, "KESTROVA_REGISTRY": str(folder)}


def register(folder):
    """Registers the plug-in for this user; from now on nothing else is found."""
    os.environ["KESTROVA_REGISTRY"] = str(folder)
    code, output, errors = call([STATION, "plugins", "--register", PLUGIN, "--user"])
    if code != 0 or PLUGIN not in output:
        raise Failure(f"the plug-in couldn't be registered: {errors}")


def _die_with_parent():
    set_parent_death_signal = 1
    ctypes.CDLL(None).prctl(set_parent_death_signal, signal.SIGKILL)


def spawn(command, **options):
    options.setdefault("stdin", subprocess.DEVNULL)
    return subprocess.Popen(command, text=True, preexec_fn=_die_with_parent, **options)


def call(command, **options):
    """Runs it to its end: exit code, standard output, standard error."""
    process = spawn(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
    try:
        output, errors = process.communicate(timeout=PATIENCE)
    finally:
        end(process)
    return process.returncode, output, errors


def end(process):
    """Kills it, if it still runs."""
    with process:
        process.kill()


def wait_until(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise Failure(f"waited in vain until {what}")
        time.sleep(0.01)


def wait_until_loaded(process, *libraries):
    """Waits until it has these; it may also end."""
    maps = Path(f"/proc/{process.pid}/maps")
    wait_until(lambda: process.poll() is not None or all(name in maps.read_text() for name in libraries),
               f"{', '.join(libraries)} are loaded")


def run(*command):
    """Runs a tool of the system, which must succeed."""
    subprocess.run([str(word) for word in command], check=True)


def ip(words):
    run("ip", *words.split())


def add_link(name, peer):
    """A veth pair: `name` here, still down, and its peer where the modules are."""
    ip(f"link add {name} type veth peer name {peer} netns modules")
    ip(f"-n modules link set {peer} up")


def mount(disk, size, kind="tmpfs", pages="never"):
    """A file system of its own, "tmpfs" or "ext4", which fills up or is frozen without touching the machine's. One in
    memory has large pages where `pages` is "always"."""
    disk.mkdir()
    if kind == "tmpfs":
        run("mount", "-t", kind, "-o", f"size={size},huge={pages}", "none", disk)
    else:
        image = disk.with_suffix(".image")
        run("truncate", "-s", size, image)
        run(f"mkfs.{kind}", "-q", image)
        run("mount", "-o", "loop", image, disk)
    return disk


def freeze(disk):
    run("fsfreeze", "--freeze", disk)


def thaw(disk):
    run("fsfreeze", "--unfreeze", disk)


@contextlib.contextmanager
def frozen(disk):
    freeze(disk)
    try:
        yield
    finally:
        thaw(disk)


def start_display():
    """A screen in memory: its process, and its name."""
    screen = spawn(["Xvfb", "-ac", "-displayfd", "1", "-screen", "0", "1600x1000x24"], stdout=subprocess.PIPE,
                   stderr=subprocess.DEVNULL)
    return screen, f":{screen.stdout.readline().strip()}"


def start_simulator(modules, *options, interface="sim0"):
    command = ["nsenter", "--net=/run/netns/modules", SIMULATOR, "--interface", interface, "--json"]
    return spawn(command + repeat("--module", modules) + [str(option) for option in options],
                 stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def finish_simulator(process, code=0):
    """What it has sent."""
    output, errors = process.communicate(timeout=PATIENCE)
    if process.returncode != code:
        raise Failure(f"cmp-sim ended with {process.returncode}: {errors}")
    return json.loads(output)


def simulate(modules, *options, interface="sim0"):
    return finish_simulator(start_simulator(modules, *options, interface=interface))


def repeat(option, values):
    return [word for value in values for word in (option, str(value))]


def is_capturing(process):
    """Whether its capture thread runs, as from then on nothing is missed."""
    try:
        threads = Path(f"/proc/{process.pid}/task").glob("*/comm")
        return any(thread.read_text() == "cmp-capture\n" for thread in threads)
    except OSError:  # a thread that has just ended
        return False


class Station:
    """`cmp-station run`; it captures when this is made."""

    def __init__(self, modules=(), *options, setup=None, record=(), prefix=(), stderr=subprocess.PIPE, **more):
        self.recordings = [Path(path) for path in record]
        command = [*prefix, STATION, "run", "--json", *repeat("--module", modules)]
        command += ["--setup", str(setup)] if setup else []
        command += [*repeat("--record", record), *map(str, options)]
        self.process = spawn(command, stdout=subprocess.PIPE, stderr=stderr, **more)
        wait_until(lambda: self.process.poll() is not None or self.is_capturing(), "it captures")
        if self.process.poll() is not None:
            raise Failure(f"cmp-station ended with {self.process.returncode}: {self.finish()}")

    def is_capturing(self):
        return is_capturing(self.process)

    def settle(self):
        """Waits until what was sent has been taken in: the recordings, flushed twice a second, no
        longer grow."""
        sizes = None
        while sizes != (sizes := [path.stat().st_size for path in self.recordings]):
            time.sleep(0.8)

    def finish(self):
        """After its end: the exit code and what it has printed."""
        output, errors = self.process.communicate(timeout=PATIENCE)
        return self.process.returncode, output, errors

    def stop(self, code=0, number=signal.SIGINT):
        """Ends it; returns what it says of the run, and its messages."""
        returned, report, errors = self.stop_with_any_code(number)
        if returned != code:
            raise Failure(f"cmp-station ended with {returned} instead of {code}: {errors}")
        return report, errors

    def stop_with_any_code(self, number=signal.SIGINT):
        """The same, with its exit code in front."""
        self.process.send_signal(number)
        returned, output, errors = self.finish()
        return returned, json.loads(output) if output else {}, errors


class Terminal:
    """What the station shows its messages and its progress on."""

    def __init__(self):
        self.ours, self.its = pty.openpty()
        os.set_blocking(self.ours, False)
        self.is_read, self.text = True, b""

    def stop(self):
        self.is_read = False

    def read(self):
        self.is_read = True
        with contextlib.suppress(BlockingIOError, OSError):
            while piece := os.read(self.ours, 65536):
                self.text = (self.text + piece)[-20000:]
