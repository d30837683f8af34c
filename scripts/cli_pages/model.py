"""The command line of a program, as docs/cli/PROGRAM.toml describes it."""

import tomllib
from dataclasses import dataclass, field

KINDS = {"bag", "directory", "file", "new_file", "topic", "integer", "number", "time", "text", "choice"}


@dataclass
class Value:
    """A word that follows an option."""

    name: str
    kind: str
    choices: list[str] = field(default_factory=list)
    default: str = ""
    min: str = ""
    max: str = ""


@dataclass
class Option:
    names: list[str]
    text: str
    values: list[Value] = field(default_factory=list)
    many: bool = False
    repeat: bool = False
    alone: bool = False
    everywhere: bool = False
    in_usage: bool = True
    excludes: list[str] = field(default_factory=list)

    @property
    def name(self):
        return self.names[0]


@dataclass
class Argument:
    """A word without dashes that follows the command."""

    name: str
    kind: str
    text: str = ""
    many: bool = False
    optional: bool = False
    excludes: list[str] = field(default_factory=list)


@dataclass
class Command:
    name: str
    text: str
    arguments: list[Argument]
    options: list[Option]  # its own ones, and those that it shares with others


@dataclass
class Program:
    name: str
    text: str
    options: list[Option]
    commands: list[Command]
    see_also: list[str]
    options_anywhere: bool

    def command(self, name):
        return next(command for command in self.commands if command.name == name)

    def options_of(self, command):
        """All options that may stand behind a command."""
        return command.options + [o for o in self.options if o.everywhere or self.options_anywhere]

    def options_before(self):
        """All options that may stand before the command."""
        found = list(self.options)
        if self.options_anywhere:
            for command in self.commands:
                found += [o for o in command.options if o.name not in {f.name for f in found}]
        return found


def _option(table):
    return Option(**{**table, "values": [Value(**value) for value in table.get("values", [])]})


def _command(table, groups):
    shared = [option for group in table.get("groups", []) for option in groups[group]]
    command = Command(
        name=table["name"],
        text=table["text"],
        arguments=[Argument(**argument) for argument in table.get("arguments", [])],
        options=[_option(option) for option in shared + table.get("options", [])],
    )
    _exclude_both_ways(command)
    return command


def _exclude_both_ways(command):
    by_name = {part.name: part for part in command.options + command.arguments}
    for option in command.options:
        for other in option.excludes:
            if option.name not in by_name[other].excludes:
                by_name[other].excludes.append(option.name)


def load(path):
    """Reads a description. Raises KeyError or TypeError for what it does not know."""
    with open(path, "rb") as file:
        table = tomllib.load(file)
    program = Program(
        name=table["name"],
        text=table["text"],
        options=[_option(option) for option in table["options"]],
        commands=[_command(command, table["groups"]) for command in table["commands"]],
        see_also=table["see_also"],
        options_anywhere=table.get("options_anywhere", False),
    )
    for command in program.commands:
        for part in command.arguments + [v for o in command.options for v in o.values]:
            if part.kind not in KINDS:
                raise KeyError(f"{path}: {command.name}: no kind '{part.kind}'")
    return program
