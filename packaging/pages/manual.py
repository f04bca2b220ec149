"""A program's manual page, in the macros of man(7)."""

import re


def escaped(text):
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return re.sub(r"^([.'])", r"\\&\1", text, flags=re.MULTILINE)


def paragraphs(text):
    return "\n.PP\n".join(escaped(part) for part in re.split(r"\n\s*\n", text.strip()))


def sentence(text):
    return text[:1].upper() + text[1:] + ("" if text.endswith(".") else ".")


def listed(entries):
    for entry in entries:
        names = ", ".join(f"\\fB{escaped(name)}\\fR" for name in entry.names)
        argument = f" \\fI{escaped(entry.argument)}\\fR" if entry.argument else ""
        yield f".TP\n{names}{argument}\n{escaped(sentence(entry.text))}"
        if excluded := re.search(r"Excludes: (.*)", entry.head):
            yield f"Not together with {escaped(excluded[1])}."
        if "REQUIRED" in entry.head and entry.names[0].startswith("-"):
            yield "It must be given."


def verbatim(lines):
    text = "\n".join(lines).strip("\n")
    return f".EX\n{escaped(text)}\n.EE"


def page(name, purpose, root, version, date, more):
    """`more` is written by hand, and ends the page."""
    lines = [f'.TH {name.upper()} 1 "{date}" "{name} {version}" "CMP capture"',
             f".SH NAME\n{name} \\- {escaped(purpose)}", ".SH SYNOPSIS"]
    for command in root.with_all_below():
        if not command.commands:
            usage = re.sub(r"^\S+", "", command.usage).replace("[OPTIONS]", "[OPTION...]").strip()
            words = " ".join(command.path)
            lines.append(f".B {name} {words}\n{escaped(usage.removeprefix(words).strip())}\n.br")
    lines.append(f".SH DESCRIPTION\n{paragraphs(root.about)}")
    lines += [".SH OPTIONS", *listed(root.options)]
    if root.commands:
        lines.append(".SH COMMANDS")
    for command in root.with_all_below():
        if command.path:
            lines += [f".SS {' '.join(command.path)}", paragraphs(command.about)]
            own = [entry for entry in command.options if "--help" not in entry.names]
            lines += listed(command.positionals + own)
    for title, content in root.footer.items():
        if title == "Exit codes":
            lines.append(f".SH EXIT STATUS\n{escaped(' '.join(content))}")
        elif title != "Examples":
            lines += [f".SH {title.upper()}", verbatim(content)]
    lines += [".SH EXAMPLES", verbatim(dict.fromkeys(examples(root)))]
    return "\n".join([*lines, more.strip(), ""])


def examples(root):
    for command in root.with_all_below():
        yield from (line.strip() for line in command.footer.get("Examples", []) if line.strip())
