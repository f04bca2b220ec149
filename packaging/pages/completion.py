"""Completion of a program's subcommands, options and their values, for bash and zsh."""

# The subcommand that the words before the cursor name, in bash and in zsh.
FIND_COMMAND = """\
    for word in {words}; do
        case "$command $word" in
{cases}
        esac
    done
"""

BASH = """\
# bash completion of {name}

{function}() {{
    local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}} command= word
    COMPREPLY=()
{find}\
    case "$command $previous" in
{values}
    esac
    case "$command $current" in
{options}
{words}
    esac
}}
complete -F {function} {name}
"""

ZSH = """\
#compdef {name}

{function}() {{
    local command= word
    integer depth=1
{find}\
    shift $((depth - 1)) words
    ((CURRENT -= depth - 1))
    case $command in
{cases}
    esac
}}

{function} "$@"
"""

FILES = 'compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$current")'


def function(name):
    return "_" + name.replace("-", "_")


def words_of(words):
    return f"mapfile -t COMPREPLY < <(compgen -W '{' '.join(words)}' -- \"$current\")"


def command_cases(root, then=""):
    for command in root.with_all_below():
        if command.path:
            *before, last = command.path
            yield f'            "{" ".join(before)} {last}") command="{" ".join(command.path)}"{then} ;;'


def bash(name, root):
    values, options, words = [], [], []
    for command in root.with_all_below():
        path = " ".join(command.path)
        for entry in command.options:
            if entry.argument:
                for option in entry.names:
                    reply = FILES if entry.takes_file else words_of(entry.choices) if entry.choices else ":"
                    values.append(f'        "{path} {option}") {reply}; return ;;')
        options.append(f'        "{path} -"*) {words_of(n for e in command.options for n in e.names)} ;;')
        if command.commands:
            words.append(f'        "{path} "*) {words_of(c.path[-1] for c in command.commands)} ;;')
        elif command.positionals:
            words.append(f'        "{path} "*) {FILES} ;;')
    # The longer path first: "setup add " begins like "setup ".
    words.sort(key=len, reverse=True)
    words.sort(key=lambda line: line.split('"')[1].count(" "), reverse=True)
    find = FIND_COMMAND.format(words='"${COMP_WORDS[@]:1:COMP_CWORD-1}"', cases="\n".join(command_cases(root)))
    return BASH.format(name=name, function=function(name), find=find, values="\n".join(values),
                       options="\n".join(options), words="\n".join(words))


def quoted(text):
    return text.replace("'", "'\\''").replace("[", "\\[").replace("]", "\\]").replace(":", "\\:")


def zsh_arguments(command):
    for entry in command.options:
        value = ""
        if entry.argument:
            action = "_files" if entry.takes_file else f"({' '.join(entry.choices)})" if entry.choices else " "
            value = f":{quoted(entry.argument)}:{action}"
        for option in entry.names:
            yield f"'*{option}[{quoted(entry.text)}]{value}'"
    if command.commands:
        yield f"'1:command:({' '.join(c.path[-1] for c in command.commands)})'"
    elif command.positionals:
        yield "'*:file:_files'"


def zsh(name, root):
    cases = [f'        "{" ".join(command.path)}") _arguments -S \\\n            '
             + " \\\n            ".join(zsh_arguments(command)) + " ;;"
             for command in root.with_all_below()]
    find = FIND_COMMAND.format(words='"${(@)words[2,CURRENT-1]}"',
                               cases="\n".join(command_cases(root, "; ((++depth))")))
    return ZSH.format(name=name, function=function(name), find=find, cases="\n".join(cases))
