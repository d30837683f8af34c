"""Makes completions of shells: fills the tables into the templates beside this file."""

from pathlib import Path

# How topics are listed: kbag has no output for programs, but a table that stays as it is.
TOPIC_LISTS = {
    "kbag": r"""info {bag} </dev/null 2>/dev/null | sed -n 's/^.*MBps [^"]*"\([^[:cntrl:]]*\)".*$/\1/p'""",
    "kbagkit": r"""topics --json {bag} </dev/null 2>/dev/null |"""
    r""" sed -n 's/^.*,"topic":"\([^"\\]*\)","topic_id":.*$/\1/p'""",
}


def _fill(template, program, **tables):
    text = (Path(__file__).parent / template).read_text(encoding="utf-8")
    for name, value in tables.items():
        value = "\n".join(value) if isinstance(value, list) else value
        text = text.replace(f"@{name}@", value)
    return text.replace("@PROGRAM@", program.name)


def _quote(text):
    return "'" + text.replace("'", "'\\''") + "'"


def _words(items):
    return " ".join(_quote(item) if not item.replace("-", "").isalnum() else item for item in items)


def _rows(program):
    """(command, option or argument) pairs, the options before any command under ""."""
    for option in program.options_before():
        yield "", option
    for command in program.commands:
        for part in program.options_of(command) + command.arguments:
            yield command.name, part


# ---------------------------------------------------------------------------------------------- bash


def bash(program):
    indent = " " * 8
    names = [name for option in program.options_before() for name in option.names]
    commands = [f"{indent}'') options=({_words(names)}) ;;"]
    for command in program.commands:
        names = [name for option in program.options_of(command) for name in option.names]
        arguments = [argument.name for argument in command.arguments]
        kinds = [argument.kind for argument in command.arguments]
        repeats = " last_repeats=yes" if command.arguments[-1].many else ""
        commands.append(
            f"{indent}{command.name})\n{indent}    options=({_words(names)})\n"
            f"{indent}    arguments=({_words(arguments)}) argument_kinds=({_words(kinds)}){repeats}\n{indent}    ;;"
        )
    by_effect = {}
    for command, part in _rows(program):
        effect = _bash_effect(part)
        for name in getattr(part, "names", [part.name]):
            if effect:
                by_effect.setdefault(effect, []).append(_quote(f"{command} {name}"))
    options = [
        f"{indent}{' | '.join(patterns)})\n{indent}    {effect}\n{indent}    ;;"
        for effect, patterns in by_effect.items()
    ]
    return _fill(
        "completion.bash",
        program,
        COMMANDS=commands,
        OPTIONS=options,
        COMMAND_NAMES=_words(command.name for command in program.commands),
        OPTIONS_ANYWHERE="yes" if program.options_anywhere else "",
        TOPICS='"${limit[@]}" "$program" ' + TOPIC_LISTS[program.name].format(bag='"$REPLY"'),
    )


def _bash_effect(part):
    effects = []
    values = getattr(part, "values", [])
    if values:
        effects.append(f"values=({_words(value.kind for value in values)})")
        choices = [choice for value in values for choice in value.choices]
        if choices:
            effects.append(f"choices=({_words(choices)})")
    excludes = list(part.excludes) + [name for name in getattr(part, "names", [])[1:]]
    if excludes:
        effects.append(f"excludes=({_words(excludes)})")
    if values and part.many:
        effects.append("last_repeats=yes")
    if getattr(part, "repeat", False) or (values and part.many):
        effects.append("may_repeat=yes")
    return " ".join(effects)


# ----------------------------------------------------------------------------------------------- zsh


def zsh(program):
    commands = [f"    {_quote(f'{c.name}:{_zsh_text(c.text)}')}" for c in program.commands]
    options = []
    for command in program.commands:
        options.append(f"    {command.name})\n      options=(")
        options += [f"        {_zsh_option(option)}" for option in program.options_of(command)]
        options.append("      )\n      arguments=(")
        options += [f"        {_quote(_zsh_argument(argument))}" for argument in command.arguments]
        options.append("      )\n      ;;")
    options.append("    '')\n      options=(")
    options += [f"        {_zsh_option(option)}" for option in program.options_before()]
    options.append("      )\n      ;;")
    return _fill(
        "completion.zsh",
        program,
        COMMANDS=commands,
        OPTIONS=options,
        VALUE_COUNTS=_zsh_value_counts(program),
        TOPICS='$limit $program ' + TOPIC_LISTS[program.name].format(bag='$bag'),
    )


def _zsh_text(text):
    for special in "\\:[]":
        text = text.replace(special, "\\" + special)
    return text


def _zsh_value_counts(program):
    """How many words the options before a command take; one with all words up to the next takes them all."""
    counts = {}
    for option in program.options_before():
        if option.values:
            counts.setdefault(999 if option.many else len(option.values), []).extend(option.names)
    return [f"      {'|'.join(names)}) left={count} ;;" for count, names in counts.items()]


def _zsh_action(part):
    if part.kind == "choice":
        return f"({' '.join(part.choices)})"
    return {
        "bag": "_@PROGRAM@_bags",
        "directory": "_files -/",
        "file": "_files",
        "new_file": "_files",
        "topic": "_@PROGRAM@_topics",
    }.get(part.kind, " ")


def _zsh_option(option):
    """A specification for _arguments; one for each name, by brace expansion."""
    excludes = ["-", "*"] if option.alone else list(option.excludes) + (option.names if len(option.names) > 1 else [])
    excludes = ["*" if name == "PROJECT_DIR" else name for name in excludes]
    before = f"({' '.join(excludes)})" if excludes else ""
    before += "*" if option.repeat or option.many else ""
    behind = ""
    if option.values and option.name.startswith("--") and not option.many and len(option.values) == 1:
        behind += "="
    behind += f"[{_zsh_text(option.text)}]"
    for value in option.values:
        pattern = "*-*" if option.many else ""
        behind += f":{pattern}{':' if pattern else ''}{_zsh_text(value.name)}:{_zsh_action(value)}"
    if len(option.names) == 1:
        return _quote(before + option.name + behind)
    return f"{_quote(before)}{{{','.join(option.names)}}}{_quote(behind)}"


def _zsh_argument(argument):
    before = f"({' '.join(argument.excludes)})" if argument.excludes else ""
    return f"{before}{'*' if argument.many else ''}:{_zsh_text(argument.name)}:{_zsh_action(argument)}"


# ---------------------------------------------------------------------------------------------- fish


def fish(program):
    indent = " " * 8
    values = []
    for command, part in _rows(program):
        if getattr(part, "values", []):
            kinds = [_fish_kind(value) for value in part.values] + (["+"] if part.many else [])
            names = [_quote(f"{command or '-'} {name}") for name in part.names]
            values.append(f"{indent}case {' '.join(names)}\n{indent}    string join \\n {_words(kinds)}")
    arguments = []
    for command in program.commands:
        kinds = [argument.kind for argument in command.arguments] + (["+"] if command.arguments[-1].many else [])
        arguments.append(f"{indent}case {command.name}\n{indent}    string join \\n {_words(kinds)}")
    return _fill(
        "completion.fish",
        program,
        VALUES=values,
        ARGUMENTS=arguments,
        END_OF_VALUES="^-[^0-9]" if program.options_anywhere else "(?!)",
        COMPLETIONS=_fish_completions(program),
        TOPICS="$limit $program " + TOPIC_LISTS[program.name].format(bag="$bag"),
    )


def _fish_kind(part):
    return "one-of:" + ",".join(part.choices) if part.kind == "choice" else part.kind


def _fish_action(part):
    """What is completed, and whether file names are beside it."""
    if part.kind == "choice":
        return f"-a {_quote(' '.join(part.choices))}"
    return {
        "bag": "-k -a '(__@PROGRAM@_bags)'",
        "directory": "-a '(__fish_complete_directories (commandline -ct))'",
        "file": "-F",
        "new_file": "-F",
        "topic": "-a '(__@PROGRAM@_topics)'",
    }.get(part.kind, "")


def _fish_completions(program):
    lines = []
    begin = "complete -c @PROGRAM@ -n"
    for command in program.commands:
        lines.append(f"{begin} '__@PROGRAM@_expects command' -a {command.name} -d {_quote(command.text)}")
    kinds = {}
    for _, part in _rows(program):
        for value in getattr(part, "values", [part]):
            kinds.setdefault(_fish_kind(value), value)
    for kind, value in kinds.items():
        if _fish_action(value):
            excludes = " --merge" if kind == "directory" and program.name == "kbagkit" else ""
            lines.append(f"{begin} '__@PROGRAM@_expects {kind}{excludes}' {_fish_action(value)}")
    by_option = {}
    for command, part in _rows(program):
        if hasattr(part, "names"):
            by_option.setdefault(_fish_option(part), (part, []))[1].append(command or "-")
    for text, (part, commands) in by_option.items():
        spent = [] if part.repeat or part.many else list(part.names)
        argument_kinds = {a.name: f"{a.kind}:" for c in program.commands for a in c.arguments}
        words = spent + [argument_kinds.get(name, name) for name in part.excludes]
        lines.append(f"{begin} '__@PROGRAM@_offers {' '.join(commands)} -- {' '.join(words)}' {text}")
    return lines


def _fish_option(option):
    text = " ".join(f"-l {name[2:]}" if name.startswith("--") else f"-s {name[1:]}" for name in option.names)
    if option.values:
        action = _fish_action(option.values[0])
        text += f" -r {action}" if action == "-F" else f" -x {action}".rstrip()
    return f"{text} -d {_quote(option.text)}"
