"""package_test.py CLEAN SCRATCH PACKAGE...

What scripts/package-test does in namespaces of its own: a copy of the root folder CLEAN is booted, and the packages are
installed, used, upgraded, removed and purged there. Says what it sees, and fails at the first thing other than
expected."""

import contextlib
import json
import os
import re
import shlex
import subprocess
import sys
import time
from pathlib import Path

PATIENCE = 120
CLEAN, SCRATCH, *PACKAGES = map(Path, sys.argv[1:])
ROOT = SCRATCH / "root"
PLUGIN = "/usr/lib/cmp/cmp_plugin.so"
RUNTIME = "/usr/lib/cmp/libkvrtcoretypes-64-1.so"
METRICS = "/usr/lib/cmp/cmp_metrics.so"
SETUP = "/etc/cmp-station/setup.xml"
STATE = "/var/lib/cmp-station"
SERVICE = "cmp-station.service"
# Logs, and the package manager's and systemd's own, which change with every installation and every start.
BOOKKEEPING = re.compile(r"^/(proc|sys|dev|run|tmp|packages|var/(log|cache|tmp)|var/lib/(dpkg|systemd|private))(/|$)"
                         r"|^/etc/(passwd|group|shadow|gshadow|subuid|subgid)-?$|^/etc/(\.pwd\.lock|machine-id)$")

# Devices and file systems of a root folder, and nothing that would reach the machine: the kernel's settings and
# devices can't be written there.
PREPARE = """
mount --make-rprivate /
mount -t proc none /proc
cd "$1"
mkdir layers root
mount -t tmpfs none layers
mkdir layers/upper layers/work
mount -t overlay -o "lowerdir=$2,upperdir=layers/upper,workdir=layers/work" none root
cd root
mount -t proc none proc
mount --bind proc/sys proc/sys
mount -o remount,bind,ro proc/sys
mount -t sysfs -o ro none sys
mount -t tmpfs -o mode=755 none run
mount -t tmpfs -o mode=755 none dev
for device in 'null 1 3' 'zero 1 5' 'full 1 7' 'random 1 8' 'urandom 1 9' 'tty 5 0'; do
    set -- $device
    mknod -m 666 "dev/$1" c "$2" "$3"
done
mkdir dev/pts dev/shm packages
mount -t devpts -o newinstance,ptmxmode=666 none dev/pts
ln -s pts/ptmx dev/ptmx
ln -s /proc/self/fd dev/fd
mount -t tmpfs none /run
mkdir /run/netns /run/cgroup
mount -t cgroup2 none /run/cgroup
ip netns add modules
ip link set lo up
ip link add capture0 type veth peer name modules0 netns modules
ip link set capture0 up
ip -n modules link set modules0 up
hostname package-test
"""
# Moves into a cgroup of its own, and becomes process 1 of a system that starts no more than what is asked for.
BOOT = """
echo $$ >"$1/cgroup.procs"
exec unshare --mount --cgroup --pid --fork --kill-child sh -ec '
    mount -t proc none /proc
    umount "$1/proc/sys" "$1/proc"
    mount -t proc none "$1/proc"
    mount --bind "$1/proc/sys" "$1/proc/sys"
    mount -o remount,bind,ro "$1/proc/sys"
    mount -t cgroup2 none "$1/sys/fs/cgroup"
    exec chroot "$1" env -i container=test PATH=/usr/sbin:/usr/bin:/sbin:/bin \\
        /lib/systemd/systemd --unit=systemd-journald.service --show-status=0' sh "$2"
"""


def run(*command, code=0):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=PATIENCE)
    if done.returncode != code:
        sys.exit(f"{shlex.join(map(str, command))} ended with {done.returncode}: {done.stdout}{done.stderr}")
    return done.stdout


def expect(condition, what):
    if not condition:
        sys.exit(f"not so: {what}")
    print(f"   {what}", flush=True)


def wait_until(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            sys.exit(f"waited in vain until {what}")
        time.sleep(0.1)


@contextlib.contextmanager
def booted():
    """Process 1 of the copy, booted."""
    group = Path(f"/run/cgroup/package-test-{SCRATCH.name}")
    group.mkdir()
    parent = subprocess.Popen(["sh", "-ec", BOOT, "sh", group, ROOT], stdin=subprocess.DEVNULL)
    try:
        children = Path(f"/proc/{parent.pid}/task/{parent.pid}/children")
        wait_until(lambda: (ROOT / "run/systemd/private").exists() and children.read_text(), "systemd runs")
        yield int(children.read_text())
    finally:
        parent.kill()
        parent.wait()
        wait_until(lambda: "populated 0" in (group / "cgroup.events").read_text(), "systemd has ended")
        for folder, _, _ in os.walk(group, topdown=False):
            os.rmdir(folder)


class System:
    def __init__(self, process):
        self.enter = ["nsenter", f"--target={process}", "--mount", "--pid", "--root", "--wd", "env", "-i",
                      "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "DEBIAN_FRONTEND=noninteractive"]

    def run(self, *words, **options):
        return run(*self.enter, *words, **options)

    def show(self, name):
        return self.run("systemctl", "show", f"--property={name}", "--value", SERVICE).strip()

    def install(self):
        self.run("dpkg", "--install", *(f"/packages/{package.name}" for package in PACKAGES))

    def registered(self):
        listed = json.loads(self.run("cmp-station", "plugins", "--json"))
        return [plugin["module"] for plugin in listed if not plugin["user"]]

    def status(self, process):
        return self.run("cat", f"/proc/{process}/status")


def files():
    found = set()
    for folder, folders, names in os.walk(ROOT):
        inner = os.path.normpath("/" + os.path.relpath(folder, ROOT))
        paths = {name: os.path.join(inner, name) for name in [*folders, *names]}
        folders[:] = [name for name in folders if not BOOKKEEPING.match(paths[name])]
        found.update(path for path in paths.values() if not BOOKKEEPING.match(path))
    return found


def accounts():
    return [(ROOT / "etc" / name).read_text() for name in ("passwd", "group")]


def recordings():
    return sorted((ROOT / STATE[1:]).iterdir())


def simulate():
    """How many messages were sent; after a time in which a station takes them in."""
    sent = json.loads(run("nsenter", "--net=/run/netns/modules", "chroot", ROOT, "cmp-sim", "--interface", "modules0",
                          "--module", "CAN combo:5", "--duration", "3", "--json"))
    size = None
    while size != (size := sum(path.stat().st_size for path in recordings())):
        time.sleep(1)
    return sent["dataMessages"]


def measure(system):
    """The service records what the simulator sends, and begins another file when it is asked to."""
    for words in (["new", SETUP], ["add", SETUP, "--type", "CAN combo", "--config-id", "5", "--name", "Front"],
                  ["channel", SETUP, "Front", "all", "--used", "yes"]):
        system.run("cmp-station", "setup", *words)
    system.run("systemctl", "start", SERVICE)
    expect(system.show("StatusText") == "Measuring", "the service starts, and reports that it measures")
    status = system.status(system.show("MainPID"))
    expect(set(re.findall(r"Cap(?:Prm|Eff|Bnd):\s*(\w+)", status)) == {f"{1 << 13:016x}"}
           and "NoNewPrivs:\t1" in status, "it has the right to capture, and can't get another")
    count = simulate()
    system.run("systemctl", "reload", SERVICE)
    count += simulate()
    system.run("systemctl", "stop", SERVICE)
    log = system.run("journalctl", "--unit", SERVICE, "--output=cat", "--identifier=record-service",
                     "--identifier=cmp-station")
    expect(system.show("Result") == "success", "it ends without a loss")
    rows = [len(run("tshark", "-r", path, "-T", "fields", "-e", "frame.number").splitlines()) for path in recordings()]
    names = " and ".join(path.name for path in recordings())
    expect(len(rows) == 2 and sum(rows) == count and 0 not in rows, f"tshark reads all {count} messages, in {names}")
    account = json.loads(log[log.index("{"):])
    expect(sum(channel["delivered"] for channel in account["channels"]) == count, "the journal has their account")
    expect({path.stat().st_mode & 0o777 for path in recordings()} == {0o640}, "its group may read them, others may not")


def hang(system):
    changed = ROOT / "run/systemd/system/cmp-station.service.d/sooner.conf"
    changed.parent.mkdir(parents=True)
    changed.write_text("[Service]\nWatchdogSec=3\nRestartSec=1\n")
    system.run("systemctl", "daemon-reload")
    time.sleep(1)  # files are named after the second
    system.run("systemctl", "start", SERVICE)
    time.sleep(8)
    expect(system.show("NRestarts") == "0", "it feeds the watchdog")
    system.run("systemctl", "kill", "--signal=STOP", SERVICE)
    wait_until(lambda: system.show("NRestarts") == "1" and system.show("ActiveState") == "active",
               "a service that hangs is started again")
    print("   hanging, it is started again")
    system.run("systemctl", "stop", SERVICE)


def use_as_a_user(system):
    """The right to capture for the members of the group, as README.Debian says: all code is the package's."""
    program = "/usr/lib/cmp/cmp-station"

    def command(group):
        return ["setpriv", "--reuid=65534", "--regid=65534", f"--groups={group}", "sh", "-c",
                f'cd /tmp && exec {program} run --module "CAN combo:5" --quiet --duration 60 --metrics 9464']

    system.run(*command("cmp-station"), code=4)
    system.run("dpkg-statoverride", "--update", "--add", "root", "cmp-station", "0750", program)
    run("setcap", "cap_net_raw+ep", f"{ROOT}{program}")
    system.run(*command("users"), code=126)
    station = subprocess.Popen(["chroot", str(ROOT), *command("cmp-station")])
    maps = Path(f"/proc/{station.pid}/maps")
    wait_until(lambda: PLUGIN in maps.read_text() or station.poll() is not None, "the plug-in is loaded")
    loaded = set(re.findall(r"\S*(?:kvrtcoretypes|cmp_plugin|cmp_metrics)\S*", maps.read_text()))
    station.kill()
    station.wait()
    expect(loaded == {f"{ROOT}{PLUGIN}", f"{ROOT}{RUNTIME}", f"{ROOT}{METRICS}"},
           "with setcap members of the group capture, with the package's libraries")
    shown = system.run("env", "QT_QPA_PLATFORM=offscreen", "/usr/lib/cmp/cmp-station-gui", "--help")
    expect("--setup" in shown, "the desktop's program starts")
    shown = system.run("sh", "-c", "/usr/lib/*/wireshark/extcap/cmp-station-extcap --extcap-interfaces")
    expect("interface {value=cmp-setup-0x" in shown, "Wireshark has the modules of the service's setup")


def upgrade(system):
    time.sleep(1)  # files are named after the second
    system.run("systemctl", "enable", "--now", SERVICE)
    process = system.show("MainPID")
    system.install()
    expect(system.registered() == [PLUGIN] and system.show("MainPID") == process,
           "installed over itself, it is registered once, and the service goes on")
    system.run("cmp-station", "plugins", "--unregister", PLUGIN)
    system.install()
    expect(system.registered() == [], "what was taken out of the registration stays out")
    system.run("cmp-station", "plugins", "--register", PLUGIN)


def main():
    run("sh", "-ec", PREPARE, "sh", SCRATCH, CLEAN)
    for package in PACKAGES:
        (ROOT / "packages" / package.name).write_bytes(package.read_bytes())
    with booted() as process:
        system = System(process)
        system.run("systemctl", "start", "systemd-tmpfiles-setup.service")
        before, known = files(), accounts()
        system.install()
        expect(system.registered() == [PLUGIN], "installed, and the plug-in is registered for all users")
        expect(system.show("UnitFileState") == "disabled" and system.show("ActiveState") == "inactive",
               "the service waits for a setup")
        measure(system)
        hang(system)
        use_as_a_user(system)
        upgrade(system)

        system.run("dpkg", "--remove", "cmp-capture-desktop", "cmp-capture")
        expect(system.show("ActiveState") in ("inactive", "failed"), "removed, the service has ended")
        left = {path for path in files() - before if not path.startswith((STATE, "/etc/cmp-station"))}
        expect(left == {"/etc/systemd/system/multi-user.target.wants/" + SERVICE} and recordings(),
               "there are left settings and recordings, and that it is enabled")
        system.run("dpkg", "--purge", "cmp-capture-desktop", "cmp-capture")
        there = {STATE, *(f"{STATE}/{path.name}" for path in recordings())}
        expect(files() - before == there and before <= files() and len(there) > 1,
               f"purged, there are left {len(there) - 1} recordings")
        expect({(path.stat().st_uid, path.stat().st_gid) for path in recordings()} == {(0, 0)} and accounts() == known,
               "they are root's, and the user is gone")


if len(sys.argv) < 4:
    sys.exit(__doc__)
main()
