"""Shells that are driven through a pseudo-terminal, the way a person types: what do they make of a line with a Tab in it?"""

import os
import pathlib
import pty
import re
import select
import shutil
import subprocess
import time

COMPLETIONS = pathlib.Path(__file__).resolve().parents[2] / "packaging" / "completions"
PATIENCE_S = 60
PROMPT = "READY> "


class Shell:
    """An interactive shell in which every program of ours prints its arguments instead of running."""

    def __init__(self, command, environment, directory):
        self.unread = ""
        self.child, self.terminal = pty.fork()
        if self.child == 0:
            os.chdir(directory)
            os.execvpe(command[0], command, {**os.environ, **environment, "TERM": "dumb", "LC_ALL": "C.UTF-8"})

    def send(self, text):
        os.write(self.terminal, text.encode())

    def read_until(self, pattern):
        """Reads on to the first match of the pattern, and returns it."""
        deadline = time.monotonic() + PATIENCE_S
        while True:
            match = re.search(pattern, self.unread, re.DOTALL)
            if match:
                self.unread = self.unread[match.end():]
                return match
            ready, _, _ = select.select([self.terminal], [], [], max(0.0, deadline - time.monotonic()))
            if not ready:
                raise AssertionError(f"the shell said only {self.unread!r}")
            self.unread += os.read(self.terminal, 65536).decode(errors="replace").replace("\r", "")

    def arguments(self, line):
        """The arguments that a command gets when that line is typed."""
        self.send(line + "\n")
        words = self.read_until(r"\[\[(.*?)\]\]").group(1)
        self.read_until(re.escape(PROMPT))
        return words.split("|")[:-1]

    def close(self):
        os.close(self.terminal)
        os.waitpid(self.child, 0)


def fakes(programs):
    """Functions in place of the programs. Their output is not in their text, which a terminal echoes."""
    return "".join(f"{name}() {{ printf '[''['; printf '%s|' \"$@\"; printf ']'']\\n'; }}\n" for name in programs)


class Bash(Shell):
    """Alt-* puts all completions of a word into the line."""

    def __init__(self, programs, directory):
        script = pathlib.Path(directory) / ".bashrc-of-test"
        script.write_text(
            "".join(f". '{COMPLETIONS / name}.bash'\n" for name in programs) + fakes(programs) +
            "bind 'set enable-bracketed-paste off'\n" + f"PS1='{PROMPT}'\n", encoding="utf-8")
        super().__init__(["bash", "--noprofile", "--rcfile", str(script), "-i"], {"HISTFILE": "/dev/null"}, directory)
        self.read_until(re.escape(PROMPT))

    def complete(self, line):
        """What one Tab makes of the line."""
        return self.arguments(line + "\t")

    def all_completions(self, line):
        """Everything that the last word of the line can become."""
        return sorted(self.arguments(line + "\x1b*")[len(line.split()) - (not line.endswith(" ")) - 1:])


class Zsh(Shell):
    """Ctrl-T puts all completions of a word into the line."""

    def __init__(self, programs, directory):
        (pathlib.Path(directory) / ".zshrc").write_text(
            f"fpath=('{COMPLETIONS}' $fpath)\nautoload -Uz compinit\ncompinit -u -D\n" + fakes(programs) +
            "zle -C all-matches complete-word _generic\nbindkey '^T' all-matches\n"
            "zstyle ':completion:all-matches:*' completer _all_matches _complete\n"
            "zstyle ':completion:all-matches:*' insert true\n"
            f"unsetopt prompt_cr prompt_sp\nunset zle_bracketed_paste\nPS1='{PROMPT}'\n",
            encoding="utf-8")
        super().__init__(["zsh", "--no-global-rcs", "-i"], {"ZDOTDIR": str(directory)}, directory)
        self.read_until(re.escape(PROMPT))

    def complete(self, line):
        return self.arguments(line + "\t")

    def all_completions(self, line):
        return sorted(self.arguments(line + "\x14")[len(line.split()) - (not line.endswith(" ")) - 1:])


class Fish:
    """fish tells its completions when asked."""

    def __init__(self, programs, directory):
        self.directory = directory
        self.start = "".join(f"source '{COMPLETIONS / name}.fish'\n" for name in programs)

    def all_completions(self, line):
        output = subprocess.run(["fish", "--no-config", "-c", self.start + "complete -C $argv[1]", line],
                                cwd=self.directory, env={**os.environ, "HOME": str(self.directory)},
                                check=True, capture_output=True, text=True, timeout=PATIENCE_S).stdout
        return sorted(row.split("\t")[0] for row in output.splitlines())

    def close(self):
        pass


KINDS = {"bash": Bash, "zsh": Zsh, "fish": Fish}


def installed():
    return {name: kind for name, kind in KINDS.items() if shutil.which(name)}
