#!/usr/bin/env python3
"""Every relative link of the documents leads to a file that exists, and to a heading that it has.

usage: links_test.py PROJECT_DIR
"""

import re
import sys
import unittest
from pathlib import Path

PROJECT = Path()
LINK = re.compile(r"(?<!!)\[(?:`[^`]*`|[^\]`])*\]\(([^)\s]+)\)")


def documents():
    hidden = {"build", "out"}
    found = (page for page in PROJECT.rglob("*.md") if page.relative_to(PROJECT).parts[0] not in hidden)
    return sorted(found)


def prose(page):
    """The lines of a page that are not code."""
    inside = False
    for line in page.read_text(encoding="utf-8").splitlines():
        if line.lstrip().startswith("```"):
            inside = not inside
        elif not inside:
            yield line


def anchors(page):
    """What headings are called in links: lower case, without punctuation, blanks as hyphens, and counted."""
    found = set()
    for line in prose(page):
        if heading := re.match(r"#+ (.*)", line):
            text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading[1]).strip().lower()
            anchor = re.sub(r"[^\w\- ]", "", text).replace(" ", "-")
            name, count = anchor, 0
            while name in found:
                count += 1
                name = f"{anchor}-{count}"
            found.add(name)
    return found


def links(page):
    # A link's text may be broken over lines; code within text is no link.
    text = re.sub(r"`[^`\n]*`", "`code`", "\n".join(prose(page)))
    return LINK.findall(text)


class Links(unittest.TestCase):
    def test_there_are_documents_with_links(self):
        self.assertGreater(len(documents()), 10)
        self.assertGreater(sum(len(links(page)) for page in documents()), 50)

    def test_they_lead_to_files(self):
        for page in documents():
            for link in links(page):
                if not re.match(r"[a-z]+:", link):
                    path = link.partition("#")[0]
                    target = page.parent / path
                    self.assertTrue(target.exists(), f"{page.relative_to(PROJECT)}: {link}")
                    self.assertTrue(target.resolve().is_relative_to(PROJECT), f"{page}: {link} leads out")

    def test_they_lead_to_headings(self):
        for page in documents():
            for link in links(page):
                path, _, anchor = link.partition("#")
                if anchor and not re.match(r"[a-z]+:", link):
                    target = page.parent / path if path else page
                    self.assertIn(anchor, anchors(target), f"{page.relative_to(PROJECT)}: {link}")


if __name__ == "__main__":
    PROJECT = Path(sys.argv.pop(1)).resolve()
    unittest.main()
