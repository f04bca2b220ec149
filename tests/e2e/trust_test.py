"""Whose code runs: with a capability root's alone, as root that of root and the program's owner."""

import os
import re
import shutil
import signal
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
RUNTIME = Path("/usr/local/lib/cmp/libkvrtcoretypes-64-1.so")
METRICS = RUNTIME.parent / "cmp_metrics.so"
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
    lab.run("setcap", "cap_net_raw+ep", station)
    return station


def give(path, owner=USER):
    lab.run("chown", "-hR", f"{owner}:{owner}", path)
    return path


class Trust(Case):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        TRACE.parent.mkdir()
        TRACE.parent.chmod(0o777)
        HIS.mkdir()
        give(HIS)
        # A station with the right takes its runtime library from there.
        lab.run("mount", "-t", "tmpfs", "-o", "mode=755", "none", RUNTIME.parent.parent)
        copy(lab.BIN / RUNTIME.name, RUNTIME)
        copy(lab.BIN / METRICS.name, METRICS)
        install(INSTALLED)
        lab.run("env", "KESTROVA_REGISTRY=/run/template", lab.STATION, "plugins", "--register", lab.PLUGIN)
        for name in ("cmp-station", "cmp-station-gui", "cmp_plugin.so"):
            copy(lab.BIN / name, PLAIN / name)
        screen, name = lab.start_display()
        cls.addClassCleanup(lab.end, screen)
        cls.variables = {"DISPLAY": name, "HOME": HIS, "LC_ALL": "C.UTF-8", "QT_QPA_PLATFORM": "xcb"}

    def as_user(self, variables=()):
        """In front of a command of the ordinary user."""
        variables = {**self.variables, **dict(variables)}
        return [*SETPRIV, "env", "-i", *(f"{name}={value}" for name, value in variables.items())]

    def start_desktop(self, command):
        """Waits until it has a display, and with it the plug-in."""
        process = self.start(command, cwd=HIS)
        lab.wait_until_loaded(process, "libqxcb.so", "cmp_plugin.so")
        return process

    def run_as(self, prefix, command):
        """Its exit code and messages; a desktop is ended when it has shown its window."""
        if any(str(word).endswith("gui") for word in command):
            process = self.start_desktop([*prefix, *command])
            process.send_signal(signal.SIGTERM)
        else:
            process = self.start([*prefix, *command], cwd=HIS)
        errors = process.communicate(timeout=lab.PATIENCE)[1]
        return process.returncode, errors

    def was_loaded(self):
        """Whether foreign code has run since the last question, and then never with a right of ours."""
        text = TRACE.read_text() if TRACE.exists() else ""
        TRACE.unlink(missing_ok=True)
        self.assertEqual(set(re.findall(r"Cap(?:Prm|Eff|Amb):\s*(\w+)", text)) - {"0" * 16}, set(), text)
        return text != ""

    def test_a_user_of_the_group_captures_with_station_and_desktop(self):
        recording, setup = HIS / "a.pcapng", HIS / "a.xml"
        setups.make_measured(setup, FRONT)
        give(setup)
        desktop = install(Path("/run/desktop"), gui="gui-user")  # which is the desktop with somebody before it
        self.addCleanup(setattr, lab, "STATION", lab.STATION)
        lab.STATION = str(INSTALLED / "cmp-station")
        station = lab.Station(FRONT, "--metrics", 9464, prefix=self.as_user(), record=[recording])
        sent = lab.simulate(CAN, "--rate", RATE, "--duration", 1)
        station.settle()
        maps = Path(f"/proc/{station.process.pid}/maps").read_text()
        self.assertTrue(f"{RUNTIME}\n" in maps and f"{METRICS}\n" in maps, maps)
        self.expect_complete(sent, station.stop()[0], recording)

        measuring = lab.Station.__new__(lab.Station)
        measuring.process = self.start([*self.as_user(), desktop, "gui", "--setup", setup], cwd=HIS)
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
        for path in (module, part, HIS / METRICS.name):
            copy(FOREIGN, path)
        for name in ("data/kestrova", "home/.local/share/kestrova", "store"):
            store = shutil.copytree("/run/template", HIS / name / "registry")
            for file in store.rglob("values"):
                file.write_text(file.read_text().replace(lab.PLUGIN, str(module)))
        give(HIS)
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
        copy(FOREIGN, HIS / "--plugin/part.so")
        page = ["run", "--module", *CAN, "--metrics", "9464"]
        # Values that the window toolkit would take for options of its own.
        toolkit = ["gui", "--setup=-platformpluginpath", "--plugin=-platform", "--sample-rate=1000"]
        linked = HIS / "cmp-station"  # beside files of his, as where hard links aren't protected
        for station, is_plain in ((PLAIN / "cmp-station", True), (INSTALLED / "cmp-station", False)):
            os.link(station, linked)
            for program, variables, command in (*((station, *way) for way in ways), (linked, {}, new),
                                                (linked, {}, ["gui"]), (linked, {}, page), (station, {}, toolkit)):
                result = self.run_as(self.as_user(variables), [program, *command])
                is_loaded = is_plain and command != toolkit
                self.assertEqual(self.was_loaded(), is_loaded, (variables, program, command, result))
                if not is_plain and program == station and command in (new, ["gui"]):
                    self.assertEqual(result[0], 0, (variables, command, result))  # the environment isn't followed
                (HIS / "x.xml").unlink(missing_ok=True)
            linked.unlink()
        # A desktop with a right of its own, which an administrator gave it although he shouldn't.
        gui = copy(lab.BIN / "cmp-station-gui", Path("/run/gui/cmp-station-gui"))
        copy(lab.PLUGIN, gui.parent / "cmp_plugin.so")
        lab.run("setcap", "cap_net_raw+ep", gui)
        os.link(gui, HIS / "parts/gui")  # beside libraries of his
        for path, variables, code in ((gui, {"QT_PLUGIN_PATH": HIS / "parts"}, 0), (HIS / "parts/gui", {}, 4)):
            result = self.run_as(self.as_user(variables), [path])
            self.assertEqual((self.was_loaded(), result[0]), (False, code), result)

    def test_what_others_could_change_is_refused_with_the_command_that_mends_it(self):
        tmp, mine = Path("/run/tmp"), Path("/run/mine")
        for path in (tmp, mine, mine / "mount"):
            path.mkdir()
        tmp.chmod(0o1777)
        lab.run("mount", "-t", "tmpfs", "-o", "nosuid,mode=755", "none", mine / "mount")
        self.addCleanup(lab.run, "umount", mine / "mount")
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
        root, his_clone = [PLAIN / "cmp-station"], [clone / "bin/cmp-station"]  # with a plug-in of a third one
        user, capable, secure = ([*self.as_user(), station] for station in (*root, INSTALLED / "cmp-station", of_group))
        for who, module, told in (
            (root, PLAIN / "cmp_plugin.so", ""), (root, loose, f"chmod go-w '{loose}'"), (root, public, ""),
            (root, theirs, "chown root '/run/mine/it'\\''s.so'"), (root, link, f"chown -h root '{link}'"),
            (root, own, f"chown root '{own}'"), (root, guarded, ""),
            (his_clone, own, ""), (his_clone, theirs, "chown root"),
            (his_clone, "", f"chown root '{clone}/bin/cmp_plugin.so'"),
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
        self.assertEqual(self.run_as(his_clone, ["setup", "new", HIS / "z.xml"])[0], 0)
        for words in (["plugins"], ["setup", "new", HIS / "w.xml"]):
            store = HIS / ".local/share/kestrova/registry"
            store.mkdir(parents=True, exist_ok=True)
            self.assertIn(f"{store} isn't looked at, as this program has more", self.run_as(capable, words)[1])
        code, errors = self.run_as(capable, ["plugins", "--register", public, "--user"])
        self.assertEqual((code, "more rights than who started it" in errors), (1, True), errors)

    def test_a_group_of_the_owner_alone_may_write(self):
        users, groups = Path("/run/passwd"), Path("/run/group")  # the former is /etc/passwd
        users_before = users.read_text()
        self.addCleanup(users.write_text, users_before)
        groups.touch()
        lab.run("mount", "--bind", groups, "/etc/group")
        self.addCleanup(lab.run, "umount", "/etc/group")
        clone = Path("/run/clone")
        for name in ("cmp-station", "cmp_plugin.so"):
            copy(lab.BIN / name, clone / name)
        give(clone, 5001)
        lab.run("chmod", "-R", "g+w", clone)
        for number, (more_users, group, members, code) in enumerate((
                ("", "alice", "", 0), ("", "alice", "alice", 0), ("", "alice", "alice,bob", 1), ("", "all", "", 1),
                ("bob:x:5002:5001::/:\n", "alice", "", 1), ("bob:x:5002:5002::/:\n", "alice", "", 0))):
            users.write_text(users_before + "alice:x:5001:5001::/:\n" + more_users)
            groups.write_text(f"root:x:0:\n{group}:x:5001:{members}\n")
            result = self.run_as([clone / "cmp-station"], ["setup", "new", HIS / f"{number}.xml"])
            self.assertEqual(result[0], code, (more_users, group, members, result))


if __name__ == "__main__":
    main()
