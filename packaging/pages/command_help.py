"""What the programs say of themselves (--help), as data for manual pages and completion."""

import re
import subprocess
from dataclasses import dataclass, field

GROUPS = ("Options", "Stream", "NATS")  # of options
SECTION = re.compile(rf"^\s*(Positionals|{'|'.join(GROUPS)}|Subcommands):$")
ENTRY = re.compile(r"^ {2,4}([^\s\[].*?)(?: {2,}(\S.*))?$")
FOOTER = re.compile(r"^(?!\[)\S")


@dataclass
class Entry:
    """An option, a positional argument or a subcommand."""

    head: str
    text: str

    @property
    def names(self):
        return re.match(r"\S+", self.head)[0].split(",")

    @property
    def argument(self):
        """What the user puts behind the name; empty if the option takes nothing."""
        rest = self.head.partition(" ")[2]
        rest = re.sub(r"( ?Excludes:.*| ?REQUIRED| ?\.\.\.)", "", rest)
        return re.sub(r"^TEXT:?", "", rest).strip()

    @property
    def choices(self):
        found = re.search(r"\{(.*)\}", self.argument)
        return found[1].split(",") if found else []

    @property
    def takes_file(self):
        return self.argument.endswith("FILE")


@dataclass
class Command:
    path: list  # the words behind the program's name
    about: str
    usage: str
    sections: dict = field(default_factory=dict)  # "Options": entries, and so on
    footer: dict = field(default_factory=dict)  # "Examples": lines, and so on
    commands: list = field(default_factory=list)

    @property
    def options(self):
        return [entry for group in GROUPS for entry in self.sections.get(group, [])]

    @property
    def positionals(self):
        return self.sections.get("Positionals", [])

    def with_all_below(self):
        yield self
        for command in self.commands:
            yield from command.with_all_below()


def read_command(program, path=()):
    """Asks the program, and for each of its subcommands in turn."""
    text = subprocess.run([program, *path, "--help"], check=True, capture_output=True, text=True).stdout
    about, _, rest = text.partition("Usage: ")
    usage, _, rest = rest.partition("\n")
    command = Command(list(path), about.strip(), usage.strip())
    section = chapter = None
    for line in rest.splitlines():
        if chapter is None and (found := SECTION.match(line)):
            section = command.sections.setdefault(found[1], [])
        elif chapter is not None or FOOTER.match(line):
            if found := re.match(r"^(\w[\w ]*):(.*)$", line):
                chapter = command.footer.setdefault(found[1], [found[2].strip()] if found[2] else [])
            else:
                chapter.append(line)
        elif section is not None:
            add_line(section, line)
    if not command.sections.get("Options"):
        raise SystemExit(f"{program} {' '.join(path)} --help has no options: has its layout changed?")
    for entry in command.sections.get("Subcommands", []):
        command.commands.append(read_command(program, (*path, entry.head)))
    return command


def add_line(section, line):
    if found := ENTRY.match(line):
        section.append(Entry(found[1], found[2] or ""))
    elif section and line.startswith(" " * 20):
        section[-1].text = f"{section[-1].text} {line.strip()}".strip()
