"""Makes manual pages of the pages in docs/commands."""

import re

from . import markdown, roff


SYNOPSIS_WIDTH = 66  # characters


class PageError(Exception):
    """A page and the description of the command line do not say the same."""


def pages(program, version, folder):
    """Name and text of the program's manual pages: its own, and one for each command with a page of its own."""
    yield program.name, _page(program, None, version, folder)
    for command in program.commands:
        if (folder / f"{program.name}-{command.name}.md").exists():
            yield f"{program.name}-{command.name}", _page(program, command, version, folder)


def _page(program, command, version, folder):
    name = f"{program.name}-{command.name}" if command else program.name
    path = folder / f"{name}.md"
    sections = markdown.sections(path.read_text(encoding="utf-8"))
    title = sections.pop(0).title
    if title != name.replace("-", " ", 1):
        raise PageError(f"{path}: the title is '{title}'")
    _check_options(path, program, command, sections)
    text = command.text if command else program.text
    out = [
        "'\\\" t",
        ".\\\" Made by scripts/make_cli_pages.py.",
        f'.TH {roff.escape(name.upper())} 1 "" "kbag {version}" "User Commands"',
        ".nh",
        ".ad l",
        ".SH NAME",
        f"{roff.escape(name)} \\- {roff.escape(text[0].lower() + text[1:])}",
    ]
    for section in sections:
        if section.title == "Synopsis":
            _fold(section.blocks)
        out.append(f".SH {roff.escape(section.title.upper())}")
        out += roff.blocks(section.blocks)
        if section.title == "Commands" and not command:
            out += _commands(program, folder)
    out += _see_also(program, command, folder)
    return "\n".join(out) + "\n"


def _fold(blocks):
    """Breaks the lines of a synopsis before options, so that they fit a terminal."""
    for block in blocks:
        lines = []
        for line in block.lines if block.kind == "code" else []:
            parts = re.split(r" (?=\[)", line)
            lines.append(parts[0])
            for part in parts[1:]:
                if len(lines[-1]) + 1 + len(part) <= SYNOPSIS_WIDTH:
                    lines[-1] += " " + part
                else:
                    lines.append(" " * 8 + part)
        block.lines = lines or block.lines


def _commands(program, folder):
    """The list of commands, beside what the page says of them."""
    for command in program.commands:
        if (folder / f"{program.name}-{command.name}.md").exists():
            yield ".TP"
            yield roff.reference(f"{program.name}-{command.name}")
            yield roff.escape(command.text)


def _see_also(program, command, folder):
    names = [program.name] if command else program.see_also
    if len(program.commands) > 1:
        names = names + [
            f"{program.name}-{other.name}"
            for other in program.commands
            if other is not command and (folder / f"{program.name}-{other.name}.md").exists()
        ]
    yield ".SH SEE ALSO"
    yield ",\n".join(roff.reference(name) for name in names)


def _check_options(path, program, command, sections):
    """Every option stands in the synopsis and among the options, and nothing else does."""
    options = command.options if command else program.options
    if not command and program.options_anywhere:
        options = program.options_before()
    elif not command:
        return  # its page names the commands
    known = {name for option in options for name in option.names}
    optional = {name for option in program.options for name in option.names} - known
    for title in ("Synopsis", "Options"):
        section = next((s for s in sections if s.title == title), None)
        if section is None:
            raise PageError(f"{path}: no section '{title}'")
        shown = set(re.findall(r"(?<![\w/-])--?[a-z][a-z-]*", "\n".join(markdown.code_of(section.blocks))))
        if shown - known - optional or known - shown:
            raise PageError(
                f"{path}: {title}: missing {sorted(known - shown)}, unknown {sorted(shown - known - optional)}"
            )
