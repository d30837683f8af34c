"""Writes blocks of Markdown in the language of manual pages."""

import re

INDENT = 4
TABLE_WIDTH = 70  # characters, for the cells of a table

_SPECIAL = {"\\": "\\e", "-": "\\-", "'": "\\(aq", "`": "\\(ga", "^": "\\(ha", "~": "\\(ti", '"': "\\(dq"}
_INLINE = re.compile(
    r"`(?P<code>[^`]+)`"
    r"|\*\*(?P<bold>[^*]+)\*\*"
    r"|(?<![\w*])\*(?P<italic>[^*\s][^*]*)\*(?!\w)"
    r"|\[(?P<text>(?:`[^`]*`|[^\]])*)\]\((?P<target>[^)]*)\)"
)


def escape(text):
    """Text as it stands: dashes that can be copied, no escapes, no requests."""
    text = "".join(_SPECIAL.get(c, c if ord(c) < 128 else f"\\[u{ord(c):04X}]") for c in text)
    return "\\&" + text if text.startswith(".") else text


def _plain(text):
    """Text between what is marked: its dashes are hyphens, unless they begin a word."""
    text = re.sub(r"\\([\\`*_|<>])", r"\1", text)
    return re.sub(r"(?<=\w)\\-(?=\w)", "-", escape(text))


def _code_words(text):
    """Words that are not divided: those with \\% in them, which inline() then puts in front."""
    return " ".join("\\%" + escape(word) for word in text.split(" "))


def reference(page):
    return f"\\fB\\%{escape(page)}\\fR(1)"


def inline(text):
    out = []
    at = 0
    for match in _INLINE.finditer(text):
        out.append(_plain(text[at : match.start()]))
        out.append(_marked(match))
        at = match.end()
    out.append(_plain(text[at:]))
    text = re.sub(r"\S*\\%\S*", lambda word: "\\%" + word[0].replace("\\%", ""), "".join(out))
    return "\\&" + text if text.startswith(".") else text


def _marked(match):
    if match["code"]:
        return f"\\fB{_code_words(match['code'])}\\fR"
    if match["bold"]:
        return f"\\fB{_plain(match['bold'])}\\fR"
    if match["italic"]:
        return f"\\fI{_plain(match['italic'])}\\fR"
    page = re.fullmatch(r"(?:.*/)?(kbag[a-z-]*)\.md(?:#.*)?", match["target"])
    if page and match["text"].startswith("`"):
        return reference(page[1])
    document = re.fullmatch(r"\.\./([a-z/]+\.md)(?:#.*)?", match["target"])
    return inline(match["text"]) + (f" (docs/{_plain(document[1])})" if document else "")


def blocks(items):
    out = []
    for block in items:
        out += {"paragraph": _paragraph, "heading": _heading, "code": _code, "table": _table, "list": _list}[
            block.kind
        ](block)
    return out


def _paragraph(block):
    return [".PP", inline(block.text)]


def _heading(block):
    return [f".SS {inline(block.text)}"]


def _code(block):
    return [".PP", f".RS {INDENT}", ".EX", *(escape(line) or "\\&" for line in block.lines), ".EE", ".RE"]


def _list(block):
    """A list of marked words and what they mean, or else one with bullets."""
    out = []
    for item in block.lines:
        first, rest = item[0], item[1:]
        head = re.fullmatch(r"((?:`[^`]+`(?:, )?)+): (.*)", first.text)
        if head:
            out += [".TP", inline(head[1]), inline(head[2])]
        else:
            out += [".IP \\(bu 2", inline(first.text)]
        if rest:
            out += [".RS", *blocks(rest), ".RE"]
    return out


def _table(block):
    rows = block.lines
    if len(rows[0]) == 2:
        return _two_columns(rows[1:])
    widths = _widths(rows)
    out = [".PP", ".TS", "nokeep tab(\x1f);", " ".join(f"lb w({width}n)" for width in widths)]
    out.append(" ".join(f"l w({width}n)" for width in widths) + ".")
    for row in rows:
        out.append("\x1f".join(f"T{{\n{inline(cell)}\nT}}" if cell else "" for cell in row))
    return [*out, ".TE"]


def _two_columns(rows):
    out = []
    for name, text in rows:
        out += [".TP", inline(name), inline(text) or "\\&"]
    return out


def _widths(rows):
    """As wide as the longest cell, but for the wide columns, which share what is left."""
    longest = [max(len(re.sub(r"[`*]", "", cell)) for cell in column) for column in zip(*rows)]
    widths = [min(length, 12) for length in longest]
    left = TABLE_WIDTH - sum(widths) - 3 * (len(widths) - 1)
    while left > 0 and any(width < length for width, length in zip(widths, longest)):
        for i, length in enumerate(longest):
            if widths[i] < length and left > 0:
                widths[i] += 1
                left -= 1
    return widths
