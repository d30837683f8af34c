"""Reads the Markdown that the documents are written in."""

import re
from dataclasses import dataclass, field


@dataclass
class Block:
    """kind: paragraph, heading, code, table, list. What it holds depends on it:

    paragraph, heading: text; code: lines; table: rows of cells, the first being its head;
    list: items, each a list of blocks.
    """

    kind: str
    text: str = ""
    lines: list = field(default_factory=list)


@dataclass
class Section:
    title: str
    blocks: list


def sections(text):
    """The parts of a document under its title and its headings of the second level."""
    found = []
    for block in parse(text.splitlines()):
        if block.kind == "heading" and len(block.lines[0]) < 3:
            found.append(Section(block.text, []))
        else:
            found[-1].blocks.append(block)
    return found


def code_of(blocks):
    """All code in the blocks: that in its own lines, and that within text."""
    for block in blocks:
        if block.kind == "code":
            yield from block.lines
        elif block.kind == "list":
            for item in block.lines:
                yield from code_of(item)
        else:
            texts = [block.text] if block.kind != "table" else [cell for row in block.lines for cell in row]
            for text in texts:
                yield from re.findall(r"`([^`]*)`", text)


def parse(lines):
    blocks = []
    at = 0
    while at < len(lines):
        line = lines[at]
        if not line.strip():
            at += 1
        elif heading := re.match(r"(#+) (.*)", line):
            blocks.append(Block("heading", heading[2], [heading[1]]))
            at += 1
        elif line.startswith("```"):
            end = next(i for i in range(at + 1, len(lines)) if lines[i].startswith("```"))
            blocks.append(Block("code", line[3:], lines[at + 1 : end]))
            at = end + 1
        elif line.startswith("|"):
            end = _end(lines, at, lambda text: text.startswith("|"))
            blocks.append(Block("table", lines=[_cells(row) for i, row in enumerate(lines[at:end]) if i != 1]))
            at = end
        elif line.startswith("- "):
            end = _end(lines, at, lambda text: text.startswith(("- ", "  ")) or not text.strip())
            blocks.append(Block("list", lines=_items(lines[at:end])))
            at = end
        else:
            end = _end(lines, at, lambda text: text.strip() and not text.startswith(("```", "|", "- ", "#")))
            blocks.append(Block("paragraph", " ".join(text.strip() for text in lines[at:end])))
            at = end
    return blocks


def _end(lines, at, belongs):
    at += 1
    while at < len(lines) and belongs(lines[at]):
        at += 1
    return at


def _cells(row):
    """The cells of a table's row; a bar within code, or behind a backslash, is one of the text."""
    cells = re.split(r"(?<!\\)\|(?=(?:[^`]*`[^`]*`)*[^`]*$)", row.strip().strip("|"))
    return [cell.strip().replace("\\|", "|") for cell in cells]


def _items(lines):
    items = []
    for line in lines:
        if line.startswith("- "):
            items.append([])
        items[-1].append(line[2:])
    return [parse(item) for item in items]
