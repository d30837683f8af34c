"""Golden runs of a command-line program: runs a case and compares what it did with what is expected.

A case is a folder:

  args       command lines, one a line, in shell quoting, run one after another; "> FILE" at the end sends
             standard output there; lines that begin with "#" say what the case is about
  setup      actions before the run, one a line (optional; see ACTIONS)
  exit       exit status of each run, one a line; 128 + N for a run that signal N ended
  stdout     what the runs print, one after another
  stderr     the same for standard error
  tree       every path in the working directory afterwards, folders with a "/" behind
  files/     the contents of the files that were not there before; all others must be unchanged
  any_bytes  new files whose contents are different at every run, one a line (optional)
  any_order  lines may come in any order (optional: threads race)

In stdout and stderr "*" stands for text that changes within a line (date and time, source line, duration) and
{work} for the path of the working directory.
"""

import difflib
import os
import re
import resource
import shlex
import shutil
import subprocess
from pathlib import Path

TIMEOUT_S = 60
LARGEST_GOLDEN_BYTES = 100 * 1024

# What changes from run to run, and how it is written in a golden file.
CHANGING = [
    (re.compile(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}"), "*"),
    (re.compile(r",L\d+\]"), ",L*]"),
    (re.compile(r"duration: \d+\.\d{6} Secs"), "duration: * Secs"),
]
# What an emulator adds to standard error where a signal ends the program that it runs.
EMULATOR_LINE = re.compile(r"^qemu: uncaught target signal .*\n", re.MULTILINE)


def _bag(work, bags, name, target=None):
    target = work / (target or name)
    target.parent.mkdir(parents=True, exist_ok=True)
    shutil.copyfile(bags / name, target)


def _write(work, _bags, path, text):
    (work / path).parent.mkdir(parents=True, exist_ok=True)
    (work / path).write_text(text + "\n", encoding="utf-8")


ACTIONS = {
    # bag NAME [PATH]: a copy of a generated bag
    "bag": _bag,
    # write PATH TEXT: a text file of one line
    "write": _write,
    # mkdir PATH
    "mkdir": lambda work, bags, path: (work / path).mkdir(parents=True),
    # link TARGET PATH: a symbolic link
    "link": lambda work, bags, target, path: (work / path).symlink_to(target),
}


class Outcome:
    """What the runs of a case did."""

    def __init__(self, exits, stdout, stderr, tree, files):
        self.exits = exits
        self.stdout = stdout
        self.stderr = stderr
        self.tree = tree  # paths, folders with a "/" behind
        self.files = files  # path -> bytes of files that are new or changed


def lines_of(path):
    """The lines of a case file that are no comments; none where there is no file."""
    text = path.read_text(encoding="utf-8") if path.exists() else ""
    return [line for line in text.splitlines() if line.strip() and not line.startswith("#")]


def _tree(work):
    paths = []
    for folder, folders, files in os.walk(work):
        relative = Path(folder).relative_to(work)
        paths += [f"{(relative / name).as_posix()}/" for name in folders if not (Path(folder) / name).is_symlink()]
        paths += [(relative / name).as_posix() for name in folders if (Path(folder) / name).is_symlink()]
        paths += [(relative / name).as_posix() for name in files]
    return sorted(paths)


def _contents(work):
    return {path: (work / path).read_bytes() for path in _tree(work) if (work / path).is_file()}


def _command(line):
    words = shlex.split(line)
    if len(words) > 2 and words[-2] == ">":
        return words[:-2], words[-1]
    return words, None


def _run_once(program, line, work):
    words, target = _command(line)
    environment = {**os.environ, "LC_ALL": "C", "TZ": "UTC"}
    output = open(work / target, "wb") if target else subprocess.PIPE
    try:
        result = subprocess.run(
            words, executable=program, cwd=work, env=environment, stdin=subprocess.DEVNULL, stdout=output,
            stderr=subprocess.PIPE, timeout=TIMEOUT_S, check=False,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0)))
    finally:
        if target:
            output.close()
    code = result.returncode if result.returncode >= 0 else 128 - result.returncode
    return code, result.stdout or b"", result.stderr


def run(case, program, bags, work):
    """Runs a case in `work`, which is made anew. Returns its Outcome."""
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    for line in lines_of(case / "setup"):
        action, *arguments = shlex.split(line)
        ACTIONS[action](work, bags, *arguments)
    before = _contents(work)
    exits, stdout, stderr = [], b"", b""
    for line in lines_of(case / "args"):
        code, out, err = _run_once(program, line, work)
        exits.append(code)
        stdout += out
        stderr += err
    after = _contents(work)
    changed = {path: content for path, content in after.items() if before.get(path) != content}
    for path in lines_of(case / "any_bytes"):
        changed.pop(path, None)
    return Outcome(exits, _portable(stdout, work), _portable(stderr, work), _tree(work), changed)


def _portable(output, work):
    text = output.decode("utf-8", errors="backslashreplace").replace(str(work), "{work}")
    return EMULATOR_LINE.sub("", text)


def golden_text(text):
    """The golden form of an output: what changes is a "*"."""
    for pattern, replacement in CHANGING:
        text = pattern.sub(replacement, text)
    return text


def matches(expected, actual):
    """Whether text matches, with "*" in `expected` standing for any text within a line."""
    pattern = "[^\n]*".join(re.escape(part) for part in expected.split("*"))
    return re.fullmatch(pattern, actual) is not None


def matches_in_any_order(expected, actual):
    """The same for lines in any order: each expected line has a line of its own."""
    if not expected.endswith("\n") or not actual.endswith("\n"):
        return matches(expected, actual)
    left = actual.splitlines()
    # Lines with fewer placeholders choose first.
    for line in sorted(expected.splitlines(), key=lambda text: text.count("*")):
        found = next((other for other in left if matches(line, other)), None)
        if found is None:
            return False
        left.remove(found)
    return not left


def _difference(name, expected, actual):
    lines = difflib.unified_diff(
        expected.splitlines(keepends=True), golden_text(actual).splitlines(keepends=True),
        f"expected {name}", f"actual {name}")
    return "".join(line if line.endswith("\n") else line + "\n\\ no line feed at the end\n" for line in lines)


def _read(path):
    return path.read_text(encoding="utf-8") if path.exists() else ""


def expected_files(case):
    root = case / "files"
    return {path.relative_to(root).as_posix(): path.read_bytes() for path in sorted(root.rglob("*")) if path.is_file()}


def compare(case, outcome):
    """What differs from the case's golden files, one text for each difference."""
    problems = []
    expected_exits = [int(line) for line in lines_of(case / "exit")]
    if not outcome.exits:
        problems.append("the case runs nothing")
    if expected_exits != outcome.exits:
        problems.append(f"exit: expected {expected_exits}, actual {outcome.exits}")
    match = matches_in_any_order if (case / "any_order").exists() else matches
    for name, actual in (("stdout", outcome.stdout), ("stderr", outcome.stderr)):
        expected = _read(case / name)
        if not match(expected, actual):
            problems.append(_difference(name, expected, actual))
    tree = "".join(path + "\n" for path in outcome.tree)
    if _read(case / "tree") != tree:
        problems.append(_difference("tree", _read(case / "tree"), tree))
    expected = expected_files(case)
    for path in sorted(expected.keys() | outcome.files.keys()):
        if path not in outcome.files:
            problems.append(f"{path}: was not written")
        elif path not in expected:
            problems.append(f"{path}: is new or changed, and no contents are expected")
        elif expected[path] != outcome.files[path]:
            problems.append(_difference(
                path, expected[path].decode("latin-1"), outcome.files[path].decode("latin-1")) or f"{path}: differs")
    return problems


def write_golden(case, outcome):
    """Makes the outcome the expected one. Text that still matches is left as it is."""
    (case / "exit").write_text("".join(f"{code}\n" for code in outcome.exits), encoding="utf-8")
    match = matches_in_any_order if (case / "any_order").exists() else matches
    for name, actual in (("stdout", outcome.stdout), ("stderr", outcome.stderr)):
        if not (case / name).exists() or not match(_read(case / name), actual):
            (case / name).write_text(golden_text(actual), encoding="utf-8")
    (case / "tree").write_text("".join(path + "\n" for path in outcome.tree), encoding="utf-8")
    shutil.rmtree(case / "files", ignore_errors=True)
    for path, content in outcome.files.items():
        if len(content) > LARGEST_GOLDEN_BYTES:
            raise SystemExit(f"{case}: {path} is too large to be kept")
        target = case / "files" / path
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(content)
