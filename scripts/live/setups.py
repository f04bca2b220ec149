"""The setup of the demo, made as a user makes one."""

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


def make_demo(path, tell=False):
    """Writes the demo's setup to a file that isn't there yet."""
    for words in DEMO:
        if tell:
            print("cmp-station setup", shlex.join(words).replace("FILE", path.name), flush=True)
        code, _, errors = lab.call([lab.STATION, "setup", *[str(path) if word == "FILE" else word for word in words]])
        if code != 0:
            raise lab.Failure(f"cmp-station setup {words[0]} ended with {code}: {errors}")
