"""Setups, made as a user makes them."""

import shlex

import lab

DEMO = [
    ["new", "FILE"],
    ["add", "FILE", "--type", "CAN combo", "--config-id", "5", "--name", "Front"],
    ["add", "FILE", "--type", "LIN combo", "--config-id", "2", "--name", "Doors"],
    ["add", "FILE", "--type", "NeoviFire3", "--config-id", "7", "--name", "Rear"],
    ["channel", "FILE", "Front", "all", "--used", "yes"],
    ["channel", "FILE", "Doors", "all", "--used", "yes"],
    ["channel", "FILE", "Rear", "all", "--used", "yes"],
]


def make_demo(path, show=False):
    """Writes the demo's setup to a file that isn't there yet."""
    make(path, DEMO, show)


def make_measured(path, names):
    """Writes a setup of these modules, "TYPE:CONFIGID:NAME", whose channels are all used."""
    commands = [["new", "FILE"]]
    for module_type, config_id, name in (text.split(":") for text in names):
        commands.append(["add", "FILE", "--type", module_type, "--config-id", config_id, "--name", name])
        commands.append(["channel", "FILE", name, "all", "--used", "yes"])
    make(path, commands)


def make(path, commands, show=False):
    """Gives the commands, with the path in place of FILE."""
    for words in commands:
        if show:
            print("cmp-station setup", shlex.join(words).replace("FILE", path.name), flush=True)
        code, _, errors = lab.call([lab.STATION, "setup", *[str(path) if word == "FILE" else word for word in words]])
        if code != 0:
            raise lab.Failure(f"cmp-station setup {words[0]} ended with {code}: {errors}")
