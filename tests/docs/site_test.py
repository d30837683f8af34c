#!/usr/bin/env python3
"""Makes the documentation site and walks through all of it as a browser would that has the files alone.

usage: site_test.py PROJECT_DIR

Exit status 77: skipped, since what makes the site is not installed.
"""

import re
import shutil
import subprocess
import sys
import tempfile
import tomllib
import unittest
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote

PROJECT = Path(sys.argv.pop(1)).resolve()
HEADERS = sorted((PROJECT / "include/morva").iterdir())
# What makes a browser fetch something, as opposed to what its user may follow.
LOADING = {"script": "src", "img": "src", "iframe": "src", "link": "href", "source": "src", "object": "data"}
SCHEME = re.compile(r"[a-z][a-z0-9+.-]*:|//")


class Page(HTMLParser):
    """Links, loaded files, anchors and text of a page."""

    def __init__(self, path):
        super().__init__()
        self.links, self.loaded, self.anchors, self.text = [], [], set(), []
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        self.anchors |= {attributes[key] for key in ("id", "name") if attributes.get(key)}
        if tag == "a" and attributes.get("href"):
            self.links.append(attributes["href"])
        if attributes.get(LOADING.get(tag, "")):
            self.loaded.append(attributes[LOADING[tag]])

    def handle_data(self, data):
        self.text.append(data)


class Site(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        # A path that has to be escaped in no link, since links are relative.
        cls.site = Path(folder.name).resolve() / "a site"
        made = subprocess.run(
            [PROJECT / "scripts/make_site.py", cls.site], capture_output=True, text=True, check=False
        )
        if made.returncode != 0:
            raise AssertionError(made.stderr)
        cls.pages = {path.relative_to(cls.site).as_posix(): Page(path) for path in cls.site.rglob("*.html")}

    def text_of(self, name):
        return " ".join("".join(self.pages[name].text).split())

    def test_every_document_has_its_page(self):
        documents = [path.relative_to(PROJECT / "docs") for path in (PROJECT / "docs").rglob("*.md")]
        self.assertGreater(len(documents), 20)
        for document in documents:
            self.assertIn(document.with_suffix(".html").as_posix(), self.pages)
        for name in ("contributing.html", "changes.html"):
            self.assertIn(name, self.pages)

    def test_every_command_has_its_page(self):
        for program in ("kbag", "kbagkit"):
            self.assertIn(f"commands/{program}.html", self.pages)
        kbagkit = tomllib.loads((PROJECT / "docs/cli/kbagkit.toml").read_text(encoding="utf-8"))
        self.assertGreater(len(kbagkit["commands"]), 5)
        for command in kbagkit["commands"]:
            self.assertIn(f"commands/kbagkit-{command['name']}.html", self.pages)

    def test_every_public_header_has_its_page_with_all_that_it_declares(self):
        for header in HEADERS:
            name = header.name.removesuffix(".in").removesuffix(".h")
            self.assertIn(f"api/{name}.html", self.pages)
            page = self.pages[f"api/{name}.html"]
            self.assertEqual(self.text_of(f"api/{name}.html").count(f"morva/{name}.h#"), 1)
            code = header.read_text(encoding="utf-8")
            declared = re.findall(r"^(?:class|struct|enum class|enum) (\w+)(?: .*)?\{$", code, re.M)
            declared += re.findall(r"^\[\[nodiscard\]\] \w+ (\w+)\(", code, re.M)
            declared += re.findall(r"^inline constexpr char (\w+)\[", code, re.M)
            self.assertTrue(declared, header)
            for entity in declared:
                there = any(entity in anchor for anchor in page.anchors)
                self.assertTrue(there, f"{entity} is not on the page of {header.name}")

    def test_members_are_described(self):
        expected = {
            "bag": ("kOpenNoIndex = 1", "verifies its checksum", "using View = morva::View"),
            "batch_task": ("initLog", "outputPath", "StartTask() --> running"),
            "export": ("kExportStopped = 4", "options – What to export, and how."),
            "records": ("serialNumber", "us since the Unix epoch, as the writer gave it"),
        }
        for name, texts in expected.items():
            for text in texts:
                self.assertIn(text, self.text_of(f"api/{name}.html"))
        self.assertNotIn("openForWriting", self.text_of("api/bag.html"))  # private

    def test_text_is_left_as_it_is_written(self):
        self.assertIn("start: --version", self.text_of("performance.html"))

    def test_every_page_is_reached_from_the_front_page(self):
        reached, waiting = set(), ["index.html"]
        while waiting:
            name = waiting.pop()
            if name in reached:
                continue
            reached.add(name)
            for link in self.pages[name].links:
                if not SCHEME.match(link) and (file := unquote(link.partition("#")[0])):
                    target = (self.site / name).parent / file
                    if target.suffix == ".html":
                        waiting.append(target.resolve().relative_to(self.site).as_posix())
        self.assertEqual(set(self.pages) - reached, {"search.html"})  # which its field leads to

    def test_every_link_leads_to_a_file_and_an_anchor_of_the_site(self):
        followed = 0
        for name, page in self.pages.items():
            for link in page.links + page.loaded:
                if SCHEME.match(link):
                    continue
                file, _, anchor = link.partition("#")
                file = file.partition("?")[0]
                target = ((self.site / name).parent / unquote(file)).resolve() if file else self.site / name
                self.assertTrue(target.is_file(), f"{name}: {link}")
                self.assertTrue(target.is_relative_to(self.site), f"{name}: {link} leads out of the site")
                if anchor:
                    path = target.relative_to(self.site).as_posix()
                    self.assertIn(unquote(anchor), self.pages[path].anchors, f"{name}: {link}")
                followed += 1
        self.assertGreater(followed, 1000)

    def test_nothing_is_loaded_from_elsewhere(self):
        loaded = 0
        for name, page in self.pages.items():
            for file in page.loaded:
                self.assertFalse(SCHEME.match(file), f"{name} loads {file}")
                loaded += 1
        self.assertGreater(loaded, len(self.pages))
        for path in self.site.rglob("*.css"):
            text = path.read_text(encoding="utf-8")
            for url in re.findall(r"url\(\s*[\"']?([^\"')]+)", text) + re.findall(r"@import\s+[\"']([^\"']+)", text):
                if not url.startswith("data:"):
                    self.assertFalse(SCHEME.match(url) or url.startswith("/"), f"{path.name} loads {url}")
                    self.assertTrue((path.parent / url).is_file(), f"{path.name} loads {url}")
        self.assertEqual([path for path in self.site.rglob("*") if path.is_symlink()], [])

    def test_search_knows_all_pages(self):
        index = (self.site / "searchindex.js").read_text(encoding="utf-8")
        self.assertTrue(index.startswith("Search.setIndex("))
        for name in self.pages:
            if name not in ("genindex.html", "search.html"):
                self.assertIn(f'"{name.removesuffix(".html")}"', index)
        for word in ("salvag", "reindex", "writemessag"):  # stems
            self.assertIn(word, index)
        self.assertIn("searchindex.js", self.pages["search.html"].loaded)

    def test_nothing_tells_where_it_was_made(self):
        for path in self.site.rglob("*"):
            if path.is_file():
                self.assertNotIn(str(self.site.parent).encode(), path.read_bytes(), path)
                self.assertNotIn(str(PROJECT).encode(), path.read_bytes(), path)


if __name__ == "__main__":
    missing = [program for program in ("doxygen", "sphinx-build") if shutil.which(program) is None]
    if missing:
        print(f"{', '.join(missing)} not installed (scripts/install_packages.sh docs): skipped")
        sys.exit(77)
    unittest.main()
