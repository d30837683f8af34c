"""Runs one golden case of the command-line tool; exit status 1 when it differs.

usage: run_case.py CASE PROGRAM BAGS WORK
"""

import sys
from pathlib import Path

import golden


def main():
    case, program, bags, work = (Path(argument).resolve() for argument in sys.argv[1:])
    problems = golden.compare(case, golden.run(case, program, bags, work))
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
