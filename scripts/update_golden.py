#!/usr/bin/env python3
"""Rewrites the golden files of the command-line tests from what the tool does now.

usage: update_golden.py BUILD_DIR [CASE...]     (a CASE is "info/table", for example; all of them by default)

Nothing else writes these files: look at the difference before it is committed.
"""

import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
CASES = ROOT / "tests" / "cli"
sys.path.insert(0, str(CASES))
import golden  # noqa: E402


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    build = Path(sys.argv[1]).resolve()
    names = sys.argv[2:] or sorted(path.parent.relative_to(CASES).as_posix() for path in CASES.glob("*/*/args"))
    for name in names:
        case = CASES / name
        with tempfile.TemporaryDirectory() as directory:
            work = Path(directory).resolve() / "work"
            outcome = golden.run(case, build / "bin/kbag", build / "tests/cli/bags", work)
            problems = golden.compare(case, outcome)
            if problems:
                golden.write_golden(case, outcome)
        print(f"{name}: {'rewritten' if problems else 'unchanged'}")


if __name__ == "__main__":
    main()
