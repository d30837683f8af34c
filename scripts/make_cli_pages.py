#!/usr/bin/env python3
"""Makes shell completions and manual pages of the command-line programs.

usage: make_cli_pages.py VERSION OUT_DIR

Commands, options and arguments come from docs/cli/PROGRAM.toml, the text of the pages from docs/commands. Writes
into OUT_DIR what an installation has under share/: bash-completion/completions, zsh/vendor-completions,
fish/vendor_completions.d, man/man1. Fails where a page and the description do not name the same options.
"""

import sys
from pathlib import Path

from cli_pages import completions, manual, model

ROOT = Path(__file__).resolve().parent.parent


def files_of(program, version):
    """Path and content of everything that is made for a program."""
    yield f"bash-completion/completions/{program.name}", completions.bash(program)
    yield f"zsh/vendor-completions/_{program.name}", completions.zsh(program)
    yield f"fish/vendor_completions.d/{program.name}.fish", completions.fish(program)
    for name, page in manual.pages(program, version, ROOT / "docs/commands"):
        yield f"man/man1/{name}.1", page


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    version, out = sys.argv[1], Path(sys.argv[2])
    for name in ("kbag", "kbagkit"):
        program = model.load(ROOT / f"docs/cli/{name}.toml")
        try:
            for path, content in files_of(program, version):
                (out / path).parent.mkdir(parents=True, exist_ok=True)
                (out / path).write_text(content, encoding="utf-8")
        except manual.PageError as error:
            sys.exit(f"make_cli_pages: {error}")


if __name__ == "__main__":
    main()
