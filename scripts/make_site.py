#!/usr/bin/env python3
"""Makes the documentation site: pages that open from the file system, with nothing loaded from elsewhere.

usage: make_site.py OUT_DIR

Pages are docs/*.md, docs/commands/*.md, CONTRIBUTING.md and CHANGELOG.md as they stand, one for each public header
by its comments, and one for each source file that a page links to. The programs that do the work are doxygen and
sphinx-build; a warning of either, and a link that leads nowhere, is an error. OUT_DIR is made anew.
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SITE = ROOT / "docs/site"
HEADERS = ROOT / "include/morva"

# The side bar: pages by their names in the site, "*" being all others of the folder.
CONTENTS = (
    ("Begin", ("start", "install")),
    ("Commands", ("commands/kbag", "commands/kbagkit", "commands/*")),
    ("What comes out", ("outputs", "batch", "format")),
    ("C++", ("api", "api/*", "genindex")),
    ("How well it works", ("reliability", "performance")),
    ("How it is made", ("architecture", "dependencies", "contributing", "changes")),
)

CODE_OR_LINK = re.compile(r"(?P<code>^```.*?^```$|`[^`\n]+`)|\]\((?P<link>[^)\s]+)\)", re.MULTILINE | re.DOTALL)
COMMENT = re.compile(r"^<!--.*?-->\n", re.MULTILINE | re.DOTALL)
LANGUAGES = {".cpp": "cpp", ".h": "cpp", ".json": "json", ".proto": "protobuf", ".py": "python"}


def fail(message):
    sys.exit(f"make_site: {message}")


def version():
    return re.search(r"^project\(kbag VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"), re.M)[1]


def pages():
    """The documents, by their names in the site."""
    docs = ROOT / "docs"
    found = {path.relative_to(docs).with_suffix("").as_posix(): path for path in sorted(docs.rglob("*.md"))}
    return found | {"contributing": ROOT / "CONTRIBUTING.md", "changes": ROOT / "CHANGELOG.md"}


class Sources:
    """The folder that Sphinx reads: copies of the documents, whose links lead to pages of the site."""

    def __init__(self, folder):
        self.folder = folder
        self.names = {path: name for name, path in pages().items()}
        self.names[ROOT / "README.md"] = "index"

    def write(self, name, text):
        path = self.folder / f"{name}.md"
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def add_pages(self):
        for path, name in list(self.names.items()):
            if path.name != "README.md":
                self.write(name, self.rewritten(path, name))

    def rewritten(self, path, name):
        def replace(match):
            link = match["link"]
            if not link or link.startswith("#") or re.match(r"[a-z]+:", link):
                return match[0]
            file, _, anchor = link.partition("#")
            target = self.page_of((path.parent / file).resolve(), path)
            relative = os.path.relpath(f"{target}.md", Path(name).parent)
            return f"]({relative}{'#' if anchor else ''}{anchor})"

        return CODE_OR_LINK.sub(replace, COMMENT.sub("", path.read_text(encoding="utf-8")))

    def page_of(self, file, linked_from):
        """The page that a link to a file of the project leads to; made, where it is a source file."""
        if file.parent == HEADERS:
            return f"api/{file.name.removesuffix('.in').removesuffix('.h')}"
        if file not in self.names:
            if not file.is_file() or not file.is_relative_to(ROOT):
                fail(f"{linked_from.relative_to(ROOT)} links to {file}, which is no file of the project")
            self.names[file] = self.add_source(file)
        return self.names[file]

    def add_source(self, file):
        """A page that shows a source file, and lets one have it."""
        path = file.relative_to(ROOT)
        copy = self.folder / "files" / path
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(file, copy)
        language = LANGUAGES.get(file.suffix, "none")
        name = f"sources/{path.as_posix().replace('.', '_')}"
        self.write(
            name,
            f"---\norphan: true\n---\n\n# `{path}`\n\n{{download}}`The file itself </files/{path}>`\n\n"
            f"```{{literalinclude}} /files/{path}\n:language: {language}\n```\n",
        )
        return name

    def add_headers(self, headers, xml):
        for header in headers:
            parts = "".join(f"\n## `{name}`\n\n{directive}\n" for name, directive in declarations(header, xml))
            if not parts:
                fail(f"{header.name} declares nothing that doxygen knows")
            self.write(f"api/{header.stem}", f"# `morva/{header.name}`\n{parts}")

    def contents(self):
        """CONTENTS, with all names spelled out; every page has its place."""
        left = {path.relative_to(self.folder).with_suffix("").as_posix() for path in self.folder.rglob("*.md")}
        left = {name for name in left if name != "index" and not name.startswith("sources/")}
        left -= {name for _, names in CONTENTS for name in names}
        found = []
        for caption, names in CONTENTS:
            spelled_out = []
            for name in names:
                folder = name.removesuffix("*")
                matching = sorted(page for page in left if folder != name and page.startswith(folder))
                spelled_out += matching if folder != name else [name]
                left -= set(matching)
            found.append((caption, spelled_out))
        if left:
            fail(f"no place in the contents for {', '.join(sorted(left))}")
        return found


def stage_headers(folder):
    """The public headers as they are installed."""
    folder.mkdir()
    for path in sorted(HEADERS.iterdir()):
        text = path.read_text(encoding="utf-8")
        for part, number in zip(("MAJOR", "MINOR", "PATCH"), version().split("."), strict=True):
            text = text.replace(f"@PROJECT_VERSION_{part}@", number)
        (folder / path.name.removesuffix(".in")).write_text(
            text.replace("@PROJECT_VERSION@", version()), encoding="utf-8"
        )
    return sorted(folder.glob("*.h"))


def declarations(header, xml):
    """What a header declares, in its order: name, and the directive that describes it."""
    compounds = [compound for file in xml.glob("*.xml") for compound in ElementTree.parse(file).iter("compounddef")]
    found = []
    for compound in compounds:
        kind, name, place = compound.get("kind"), compound.findtext("compoundname"), compound.find("location")
        here = place is not None and Path(place.get("file")).name == header.name
        if kind in ("class", "struct") and here and name.rpartition("::")[0] == "morva":
            found.append((int(place.get("line")), name, f"doxygen{kind}", name))
        if kind in ("namespace", "file"):
            for member in compound.iter("memberdef"):
                place, kind = member.find("location"), member.get("kind")
                if Path(place.get("file")).name == header.name and not member.findtext("name").endswith("_H_"):
                    name = member.findtext("qualifiedname") or member.findtext("name")
                    found.append((int(place.get("line")), name, f"doxygen{kind}", name))
    return [
        (name.removeprefix("morva::"), f"```{{{directive}}} {argument}\n```")
        for _, name, directive, argument in sorted(set(found))
    ]


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False, **options)
    if done.returncode != 0:
        fail(f"{command[0]} failed\n{done.stdout[-4000:]}{done.stderr[-8000:]}")


def run_doxygen(headers, out):
    settings = (SITE / "Doxyfile").read_text(encoding="utf-8")
    settings += f'\nINPUT = {" ".join(header.name for header in headers)}\nOUTPUT_DIRECTORY = "{out}"\n'
    run("doxygen", "-", input=settings, cwd=headers[0].parent)


def take_in_styles(folder):
    """Debian's theme imports a style sheet from where a web server of Debian has it: it becomes part of the site."""
    for sheet in folder.rglob("*.css"):
        text = sheet.read_text(encoding="utf-8")
        for statement, path in re.findall(r"(@import url\((/javascript/[^)]+)\);)", text):
            imported = Path("/usr/share") / path.lstrip("/")
            if not imported.is_file():
                fail(f"{sheet.name} imports {path}, and there is no {imported}")
            text = text.replace(statement, imported.read_text(encoding="utf-8"))
        sheet.write_text(text, encoding="utf-8")


def make_site(out):
    for program in ("doxygen", "sphinx-build"):
        if shutil.which(program) is None:
            fail(f"there is no {program} here; scripts/install_packages.sh docs installs what is needed")
    with tempfile.TemporaryDirectory() as scratch:
        folder = Path(scratch)
        headers = stage_headers(folder / "morva")
        run_doxygen(headers, folder)
        sources = Sources(folder / "pages")
        sources.add_headers(headers, folder / "xml")
        sources.add_pages()
        environment = {
            **os.environ,
            "LC_ALL": "C.UTF-8",
            "KBAG_SITE_VERSION": version(),
            "KBAG_SITE_XML": str(folder / "xml"),
            "KBAG_SITE_CONTENTS": json.dumps(sources.contents()),
        }
        run(
            *("sphinx-build", "-b", "html", "-W", "--keep-going", "-q", "-c", SITE),
            *("-d", folder / "doctrees", sources.folder, folder / "html"),
            env=environment,
        )
        take_in_styles(folder / "html")
        (folder / "html/.buildinfo").unlink(missing_ok=True)
        shutil.rmtree(out, ignore_errors=True)
        shutil.copytree(folder / "html", out)


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    make_site(Path(sys.argv[1]).resolve())
