"""Real shells on a pseudo-terminal, to which a line and the tabulator key are typed."""

import os
import pty
import select
import subprocess
import time
from pathlib import Path

KILL_LINE = "\x15"
TAB = "\t"
SHOW_LINE = "\x18d"  # bound to what writes the line that is being typed to a file
TIME_LIMIT_S = 30

BASH_SETUP = """
PS1='> '
bind 'set bell-style none' 'set completion-query-items 0' 2>/dev/null
{load}
for program in kbag kbagkit; do
    eval "_seen_$program() {{ _$program \\"\\$@\\"; printf '%s\\n' \\"\\${{COMPREPLY[@]}}\\" >{offers}; }}"
    complete -o bashdefault -o default -F _seen_$program $program ./$program
done
show_line() {{ printf '%s' "$READLINE_LINE" >{line}.new; mv {line}.new {line}; }}
bind -x '"\\C-xd": show_line'
"""

ZSH_SETUP = """
PS1='> '
fpath=({share}/zsh/vendor-completions $fpath)
autoload -Uz compinit
compinit -D -u
unsetopt auto_menu beep
LISTMAX=9999
compadd() {{
  if [[ ${{@[1,(i)(-|--)]}} == *-(O|A|D)\\ * ]]; then
    builtin compadd "$@"
    return
  fi
  local -a hits
  builtin compadd -A hits "$@"
  print -rl -- $hits >>{offers}
  builtin compadd "$@"
}}
show-line() {{ print -rn -- "$BUFFER" >{line}.new; mv {line}.new {line} }}
zle -N show-line
bindkey -e
bindkey '^Xd' show-line
"""


class Terminal:
    """An interactive bash or zsh."""

    def __init__(self, name, share, programs, folder):
        self.offers = Path(folder).resolve() / f".{name}.offers"
        self.line = Path(folder).resolve() / f".{name}.line"
        self.screen = b""
        setup = Path(folder).resolve() / f".{name}.setup"
        template, argv, load = {
            "bash": (BASH_SETUP, ["bash", "--norc", "--noprofile", "-i"], _bash_load(share)),
            "zsh": (ZSH_SETUP, ["zsh", "-f", "-i"], ""),
        }[name]
        setup.write_text(template.format(share=share, load=load, offers=self.offers, line=self.line), encoding="utf-8")
        environment = {
            "HOME": str(Path(folder).resolve()),
            "PATH": f"{programs}:/usr/bin:/bin",
            "TERM": "dumb",
            "LC_ALL": "C.UTF-8",
        }
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.chdir(folder)
            os.execvpe(argv[0], argv, environment)
        self._type(f"source {setup}\n")
        self.press("", "")

    def press(self, line, key=TAB):
        """Types a line and a key. Returns what the shell then had to offer, and the line it came to."""
        self.offers.write_text("", encoding="utf-8")
        self.line.unlink(missing_ok=True)
        self._type(KILL_LINE + line + key + SHOW_LINE)
        limit = time.monotonic() + TIME_LIMIT_S
        while not self.line.exists():
            if time.monotonic() > limit:
                raise TimeoutError(f"no answer to {line!r}; the screen shows: {self.screen[-2000:]}")
            self._read()
        offers = set(self.offers.read_text(encoding="utf-8").splitlines()) - {""}
        return offers, self.line.read_text(encoding="utf-8")

    def close(self):
        os.close(self.terminal)
        os.waitpid(self.pid, 0)

    def _type(self, text):
        os.write(self.terminal, text.encode())

    def _read(self):
        if select.select([self.terminal], [], [], 0.01)[0]:
            self.screen += os.read(self.terminal, 65536)


def _bash_load(share):
    """With what Debian loads completions with, where it is there; its loader finds them by XDG_DATA_DIRS."""
    return f"""
source /usr/share/bash-completion/bash_completion
XDG_DATA_DIRS={share}
_completion_loader kbag
_completion_loader kbagkit
"""


class Fish:
    """fish tells by itself what it would offer."""

    def __init__(self, share, programs, folder):
        self.share, self.folder = share, folder
        self.environment = {
            "HOME": str(Path(folder).resolve()),
            "PATH": f"{programs}:/usr/bin:/bin",
            "LC_ALL": "C.UTF-8",
        }

    def press(self, line):
        source = "".join(f"source {self.share}/fish/vendor_completions.d/{name}.fish\n" for name in ("kbag", "kbagkit"))
        run = subprocess.run(
            ["fish", "--no-config", "-c", source + 'complete -C "$argv[1]"', line],
            cwd=self.folder,
            env=self.environment,
            capture_output=True,
            text=True,
            timeout=TIME_LIMIT_S,
            check=True,
        )
        if run.stderr:
            raise AssertionError(f"{line!r}: {run.stderr}")
        return {row.split("\t")[0] for row in run.stdout.splitlines()}, None

    def close(self):
        pass
