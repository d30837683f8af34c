"""Sphinx settings of the documentation site. scripts/make_site.py gathers its pages and tells it, in the environment,
the version, where Doxygen's result lies, and the tables of contents."""

import json
import os
import re

from docutils import nodes

project = "kbag"
author = "kbag developers"
version = release = os.environ["KBAG_SITE_VERSION"]

extensions = ["myst_parser", "breathe"]
myst_heading_anchors = 6  # links between pages name headings as they are called in any other viewer
breathe_projects = {"kbag": os.environ["KBAG_SITE_XML"]}
breathe_default_project = "kbag"
breathe_default_members = ("members", "protected-members", "undoc-members")
breathe_show_enumvalue_initializer = True  # callers see the numbers

smartquotes = False  # "--version" is to stay that
highlight_language = "none"
pygments_style = "friendly"
pygments_dark_style = "native"

html_theme = "furo"
html_title = f"kbag {version}"
html_static_path = [os.path.join(os.path.dirname(os.path.abspath(__file__)), "static")]
html_css_files = ["site.css"]
html_show_sphinx = False
html_show_copyright = False
html_copy_source = False
html_use_index = True


def add_contents(_app, docname, source):
    """The front page is an ordinary one; what the side bar holds comes behind its text."""
    if docname == "index":
        source[0] += "".join(
            "\n```{toctree}\n:hidden:\n:caption: " + caption + "\n\n" + "\n".join(pages) + "\n```\n"
            for caption, pages in json.loads(os.environ["KBAG_SITE_CONTENTS"])
        )


FIGURE = re.compile(r"(?<=\d) (?=(?:us|ms|s|x|h|mm|m|kB|MB|GB|%)\b)|(?<=<=) (?=[+\d])")


def keep_figures_whole(_app, doctree):
    """In tables no line is broken between a number and its unit."""
    for entry in doctree.findall(nodes.entry):
        for text in list(entry.findall(nodes.Text)):
            if not isinstance(text.parent, nodes.literal):
                text.parent.replace(text, nodes.Text(FIGURE.sub("\u00a0", text)))


def set_dashes_behind_parameters(_app, doctree):
    for body in doctree.findall(nodes.field_body):
        for text in list(body.findall(nodes.Text)):
            if text == " -- ":
                text.parent.replace(text, nodes.Text(" \u2013 "))


def setup(app):
    app.connect("doctree-read", set_dashes_behind_parameters)
    app.connect("doctree-read", keep_figures_whole)
    app.connect("source-read", add_contents)
