"""Whose code runs: with a capability root's alone, as root that of root and the program's owner."""

import os
import re
import shutil
import signal
import subprocess
import sys
from pathlib import Path

import lab
import setups
import traffic
from case import CAN, FRONT, RATE, Case, main

USER, GROUP = 65534, 4242  # an ordinary user, and the group that may capture
SETPRIV = ["setpriv", f"--reuid={USER}", f"--regid={USER}", f"--groups={GROUP}"]
FOREIGN = sys.argv.pop(1)
TRACE = Path("/run/trace/foreign")  # where it writes that it was loaded
INSTALLED, PLAIN, HIS = Path("/run/installed"), Path("/run/plain"), Path("/run/his")


def copy(source, target):
    target.parent.mkdir(parents=True, exist_ok=True)
    shutil.copy(source, target)
    return target


def install(folder, gui="cmp-station-gui"):
    """The programs as an administrator installs them for the group; returns the station."""
    copy(lab.BIN / gui, folder / "cmp-station-gui")
    copy(lab.BIN / "cmp_plugin.so", folder / "cmp_plugin.so")
    station = copy(lab.BIN / "cmp-station", folder / "cmp-station")
    os.chown(station, 0, GROUP)
    station.chmod(0o750)
    subprocess.run(["setcap", "cap_net_raw+ep", station], check=True)
    return station


def give(path, owner=USER):
    subprocess.run(["chown", "-hR", f"{owner}:{owner}", path], check=True)
    return path


class Trust(Case):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        TRACE.parent.mkdir()
        TRACE.parent.chmod(0o777)
        HIS.mkdir()
        try:
            give(HIS)
        except subprocess.CalledProcessError:
            cls.skipTest(cls, "there is no other user in this user namespace")
        install(INSTALLED)
        code, _, errors = lab.call([lab.STATION, "plugins", "--register", lab.PLUGIN],
                                   env={**os.environ, "KESTROVA_REGISTRY": "/run/template"})
        assert code == 0, errors
        for name in ("cmp-station", "cmp-station-gui", "cmp_plugin.so"):
            copy(lab.BIN / name, PLAIN / name)
        cls.screen = lab.spawn(["Xvfb", "-ac", "-displayfd", "1", "-screen", "0", "1600x1000x24"],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        cls.addClassCleanup(lab.end, cls.screen)
        cls.variables = {"DISPLAY": f":{cls.screen.stdout.readline().strip()}", "HOME": HIS, "LC_ALL": "C.UTF-8",
                         "QT_QPA_PLATFORM": "xcb"}

    def as_user(self, variables=()):
        """In front of a command of the ordinary user."""
        variables = {**self.variables, **dict(variables)}
        return [*SETPRIV, "env", "-i", *(f"{name}={value}" for name, value in variables.items())]

    def start(self, command):
        process = lab.spawn([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.PIPE, cwd=HIS)
        self.addCleanup(lab.end, process)
        return process

    def start_desktop(self, command):
        """Waits until it has a display, and with it the plug-in."""
        process = self.start(command)
        maps = Path(f"/proc/{process.pid}/maps")
        lab.wait_until(lambda: process.poll() is not None or
                       all(name in maps.read_text() for name in ("libqxcb.so", "cmp_plugin.so")), "the desktop runs")
        return process

    def run_as(self, prefix, command):
        """Its exit code and messages; a desktop is ended when it has shown its window."""
        if str(command[-1]).endswith("gui") or "gui" in command:
            process = self.start_desktop([*prefix, *command])
            process.send_signal(signal.SIGTERM)
        else:
            process = self.start([*prefix, *command])
        errors = process.communicate(timeout=lab.PATIENCE)[1]
        return process.returncode, errors

    def was_loaded(self):
        """Whether foreign code has run since the last question, and then never with a right of ours."""
        text = TRACE.read_text() if TRACE.exists() else ""
        TRACE.unlink(missing_ok=True)
        self.assertEqual(set(re.findall(r"Cap(?:Prm|Eff|Amb):\s*(\w+)", text)) - {"0" * 16}, set(), text)
        return text != ""

    def register(self, store, module):
        """What this user has put into a store."""
        shutil.copytree("/run/template", store)
        for file in store.rglob("values"):
            file.write_text(file.read_text().replace(lab.PLUGIN, str(module)))
        give(HIS)

    def test_a_user_of_the_group_captures_with_station_and_desktop(self):
        recording, setup = HIS / "a.pcapng", HIS / "a.xml"
        setups.make_measured(setup, FRONT)
        give(setup)
        desktop = install(Path("/run/desktop"), gui="gui-user")  # which is the desktop with somebody before it
        self.addCleanup(setattr, lab, "STATION", lab.STATION)
        lab.STATION = str(INSTALLED / "cmp-station")
        station = lab.Station(FRONT, prefix=self.as_user(), record=[recording])
        sent = lab.simulate(CAN, "--rate", RATE, "--duration", 1)
        station.settle()
        self.expect_complete(sent, station.stop()[0], recording)

        measuring = lab.Station.__new__(lab.Station)
        measuring.process = self.start([*self.as_user(), desktop, "gui", "--setup", setup])
        lab.wait_until(lambda: measuring.process.poll() is not None or measuring.is_capturing(), "it captures")
        sent = lab.simulate(CAN, "--rate", RATE, "--duration", 1)
        self.assertEqual(traffic.count_differences(sent, measuring.stop()[0]["report"]), [])

    def test_the_desktop_inherits_the_right_alone(self):
        desktop = self.start_desktop([*self.as_user({"LD_BIND_NOW": 1, "PATH": HIS}), INSTALLED / "cmp-station", "gui"])
        proc = Path(f"/proc/{desktop.pid}")
        rights = dict(re.findall(r"(Uid|CapPrm|CapEff|CapAmb):\s*(\w+)", (proc / "status").read_text()))
        net_raw = f"{1 << 13:016x}"
        self.assertEqual(rights, {"Uid": str(USER), "CapPrm": net_raw, "CapEff": net_raw, "CapAmb": "0" * 16})
        given = dict(entry.split("=") for entry in (proc / "environ").read_text().strip("\0").split("\0"))
        self.assertEqual(given, {name: str(value) for name, value in self.variables.items()} |
                         {"QT_QPA_PLATFORM": "xcb", "QT_XCB_GL_INTEGRATION": "none"})
        desktop.send_signal(signal.SIGTERM)
        self.assertEqual(desktop.wait(lab.PATIENCE), 0, desktop.stderr.read())

    def test_nothing_that_a_user_supplies_runs_with_the_right(self):
        module, part = HIS / "cmp_plugin.so", HIS / "parts/platforms/libqxcb.so"
        for path in (module, part):
            copy(FOREIGN, path)
        for name in ("data/kestrova", "home/.local/share/kestrova", "store"):
            self.register(HIS / name / "registry", module)
        program = HIS / "cmp-station-gui"
        program.write_text(f"#!/bin/sh\ncat /proc/self/status >{TRACE}\n")
        program.chmod(0o755)
        hook = f"unixexec:path={program}"
        new = ["setup", "new", HIS / "x.xml"]
        ways = [({"XDG_DATA_HOME": HIS / "data"}, new), ({"HOME": HIS / "home"}, new),
                ({"KESTROVA_REGISTRY": HIS / "store/registry"}, new), ({}, [*new, "--plugin", module]),
                ({}, ["plugins", "--register", module, "--user"]), ({}, ["plugins", "--register", module]),
                ({"LD_PRELOAD": module}, new), ({"LD_PRELOAD": module}, ["gui"]), ({"LD_AUDIT": module}, ["gui"]),
                ({"QT_PLUGIN_PATH": HIS / "parts"}, ["gui"]),
                ({"HOME": HIS / "home"}, ["gui"]), ({}, ["gui", "--plugin", module]),
                ({"DBUS_SESSION_BUS_ADDRESS": hook}, ["gui"])]
        linked = HIS / "cmp-station"
        for variables, command in ways:
            for station, is_loaded in ((PLAIN / "cmp-station", True), (INSTALLED / "cmp-station", False)):
                result = self.run_as(self.as_user(variables), [station, *command])
                self.assertEqual(self.was_loaded(), is_loaded, (variables, station, command, result))
                if not is_loaded and command in (new, ["gui"]):  # the environment isn't followed
                    self.assertEqual(result[0], 0, (variables, command, result))
                (HIS / "x.xml").unlink(missing_ok=True)
        # Values that the window toolkit would take for options of its own.
        copy(FOREIGN, HIS / "--plugin/part.so")
        for station in (PLAIN / "cmp-station", INSTALLED / "cmp-station"):
            result = self.run_as(self.as_user(), [station, "gui", "--setup=-platformpluginpath", "--plugin=-platform",
                                                  "--sample-rate=1000"])
            self.assertFalse(self.was_loaded(), (station, result))
        # A desktop with a right of its own, which an administrator gave it although he shouldn't.
        gui = copy(lab.BIN / "cmp-station-gui", Path("/run/gui/cmp-station-gui"))
        copy(lab.PLUGIN, gui.parent / "cmp_plugin.so")
        subprocess.run(["setcap", "cap_net_raw+ep", gui], check=True)
        os.link(gui, HIS / "parts/gui")  # beside libraries of his
        for path, variables, code in ((gui, {"QT_PLUGIN_PATH": HIS / "parts"}, 0), (HIS / "parts/gui", {}, 4)):
            result = self.run_as(self.as_user(variables), [path])
            self.assertEqual((self.was_loaded(), result[0]), (False, code), result)
        # The station under another name beside files of his, as where hard links aren't protected.
        for station, is_loaded in ((PLAIN / "cmp-station", True), (INSTALLED / "cmp-station", False)):
            os.link(station, linked)
            for command in (new, ["gui"]):
                result = self.run_as(self.as_user(), [linked, *command])
                self.assertEqual(self.was_loaded(), is_loaded, (station, command, result))
            linked.unlink()

    def test_what_others_could_change_is_refused_with_the_command_that_mends_it(self):
        tmp, mine = Path("/run/tmp"), Path("/run/mine")
        for path in (tmp, mine, mine / "mount"):
            path.mkdir()
        tmp.chmod(0o1777)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "nosuid,mode=755", "none", mine / "mount"], check=True)
        self.addCleanup(subprocess.run, ["umount", mine / "mount"], check=True)
        clone = give(copy(lab.BIN / "cmp-station", HIS / "clone/bin/cmp-station").parent.parent)
        give(copy(lab.PLUGIN, clone / "bin/cmp_plugin.so"), 12345)
        loose, theirs = copy(lab.PLUGIN, mine / "loose.so"), give(copy(lab.PLUGIN, mine / "it's.so"), 12345)
        loose.chmod(0o664)
        os.chown(loose, 0, GROUP)
        link = mine / "link.so"
        link.symlink_to(lab.PLUGIN)
        os.lchown(link, 12345, 12345)
        own = give(copy(lab.PLUGIN, tmp / "own.so"))
        public = copy(lab.PLUGIN, tmp / "public.so")
        guarded = copy(lab.PLUGIN, mine / "mount/guarded.so")
        of_group = copy(lab.STATION, Path("/run/setgid/cmp-station"))
        of_group.chmod(0o2755)
        root = [PLAIN / "cmp-station"]
        user, capable, secure = ([*self.as_user(), station] for station in (*root, INSTALLED / "cmp-station", of_group))
        # Root's own clone, another one's beside which lies what a third one could change, and that mended.
        for who, module, told in (
            (root, PLAIN / "cmp_plugin.so", ""), (root, loose, f"chmod go-w '{loose}'"), (root, public, ""),
            (root, theirs, "chown root '/run/mine/it'\\''s.so'"), (root, link, f"chown -h root '{link}'"),
            (root, own, f"chown root '{own}'"), (root, guarded, ""),
            ([clone / "bin/cmp-station"], own, ""), ([clone / "bin/cmp-station"], theirs, "chown root"),
            ([clone / "bin/cmp-station"], "", f"chown root '{clone}/bin/cmp_plugin.so'"),
            (user, own, ""), (user, public, ""), (user, theirs, "sudo chown nobody '"),
            (capable, "", ""), (capable, public, ""), (capable, own, f"sudo chown root '{own}'"),
            (secure, own, f"sudo chown root '{own}'"), (capable, loose, f"sudo chmod go-w '{loose}'"),
            (capable, guarded, "nosuid"),
        ):
            with self.subTest(who=who[-1], module=module):
                setup = HIS / "y.xml"
                setup.unlink(missing_ok=True)
                code, errors = self.run_as(who, ["setup", "new", setup, *(["--plugin", module] if module else [])])
                self.assertEqual((code, setup.exists()), (1, False) if told else (0, True), errors)
                self.assertIn(told, errors)
        # A desktop that isn't there is nothing that could be judged, and anybody may put one there.
        code, errors = self.run_as([*self.as_user(), copy(lab.STATION, tmp / "cmp-station")], ["gui"])
        self.assertEqual((code, "tmp/cmp-station-gui, isn't there" in errors), (1, True), errors)
        give(clone)
        self.assertEqual(self.run_as([clone / "bin/cmp-station"], ["setup", "new", HIS / "z.xml"])[0], 0)
        for words in (["plugins"], ["setup", "new", HIS / "w.xml"]):
            store = HIS / ".local/share/kestrova/registry"
            store.mkdir(parents=True, exist_ok=True)
            self.assertIn(f"{store} isn't looked at", self.run_as(capable, words)[1])
        code, errors = self.run_as(capable, ["plugins", "--register", public, "--user"])
        self.assertEqual((code, "more rights than who started it" in errors), (1, True), errors)

    def test_a_group_of_the_owner_alone_may_write(self):
        users, groups = Path("/run/passwd"), Path("/run/group")  # the former is /etc/passwd
        users_before = users.read_text()
        self.addCleanup(users.write_text, users_before)
        groups.touch()
        subprocess.run(["mount", "--bind", groups, "/etc/group"], check=True)
        self.addCleanup(subprocess.run, ["umount", "/etc/group"], check=True)
        clone = Path("/run/clone")
        for name in ("cmp-station", "cmp_plugin.so"):
            copy(lab.BIN / name, clone / name)
        give(clone, 5001)
        subprocess.run(["chmod", "-R", "g+w", clone], check=True)
        for number, (more_users, group, members, code) in enumerate((
                ("", "alice", "", 0), ("", "alice", "alice", 0), ("", "alice", "alice,bob", 1), ("", "all", "", 1),
                ("bob:x:5002:5001::/:\n", "alice", "", 1), ("bob:x:5002:5002::/:\n", "alice", "", 0))):
            users.write_text(users_before + "alice:x:5001:5001::/:\n" + more_users)
            groups.write_text(f"root:x:0:\n{group}:x:5001:{members}\n")
            result = self.run_as([clone / "cmp-station"], ["setup", "new", HIS / f"{number}.xml"])
            self.assertEqual(result[0], code, (more_users, group, members, result))


if __name__ == "__main__":
    main()
