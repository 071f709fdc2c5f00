#!/usr/bin/env python3
"""Types command lines with Tab into an interactive shell, and looks at what the shell made of them.

Usage: check_shell_completion.py bash|zsh|fish KORVEX COMPLETION_DIR
"""
import os
import pathlib
import pty
import re
import select
import shutil
import subprocess
import sys
import tempfile

CONFIGURATION = "g = 1\n[attic]\nread only = yes\n[my share]\na = 1\n"

# What is typed, and the words that korvex is then called with.
LINES = [
    ("korvex conf uns\tf.conf k", "conf|unset|f.conf|k"),
    ("korvex conf section rem\t", "conf|section|remove"),
    ("korvex --verb\tunits size 1", "--verbose|units|size|1"),
    ("korvex du --js\t", "du|--json"),
    ("korvex conf get --ty\tbo\tx", "conf|get|--type|bool|x"),
    ("korvex conf get f.c\tg", "conf|get|f.conf|g"),
    ("korvex conf get f.conf -s at\tx", "conf|get|f.conf|-s|attic|x"),
    ("korvex conf get f.conf -s my\tx", "conf|get|f.conf|-s|my share|x"),
    ("korvex conf get f.conf --section=at\t", "conf|get|f.conf|--section=attic"),
    ("korvex conf get -s attic f.conf re\t", "conf|get|-s|attic|f.conf|read only"),
    ("korvex doctor --config fol\tx", "doctor|--config|folder/x"),
    ("korvex lock f.conf -- korvex-pr\tf.c\t", "lock|f.conf|--|korvex-program|f.conf"),
    ("korvex net resolve f\t", "net|resolve|f"),
]

# The shell's function hands on what the completion asks, and shows all else.
SHOW = {
    "bash": """korvex() { if [[ $1 == --complete ]]; then command korvex "$@"; else
               local IFS='|'; printf '<%s>\\n' "$*"; fi; }""",
    "zsh": """korvex() { if [[ $1 == --complete ]]; then command korvex "$@"; else
              print -r -- "<${(j:|:)@}>"; fi; }""",
}


def install(shell, source, home):
    """Puts the script where the shell looks for it; returns the commands that make an interactive shell look there."""
    if shell == "bash":
        folder = home / "share/bash-completion/completions"
        folder.mkdir(parents=True)
        shutil.copy(source / "korvex.bash", folder / "korvex")
        os.environ["XDG_DATA_HOME"] = str(home / "share")
        return "source /usr/share/bash-completion/bash_completion; bind 'set bell-style none'"
    folder = home / "functions"
    folder.mkdir()
    shutil.copy(source / "_korvex", folder)
    return f"fpath=({folder} $fpath); autoload -Uz compinit; compinit -u -D; setopt no_beep"


class Terminal:
    def __init__(self, words):
        self.pid, self.screen = pty.fork()
        if self.pid == 0:
            os.execvp(words[0], words)
        self.seen = ""

    def type(self, keys):
        os.write(self.screen, keys.encode())

    def wait_for(self, pattern):
        """The text up to what matches, and what matches; None for the latter where the shell has ended or hangs."""
        while not (match := re.search(pattern, self.seen)):
            readable, _, _ = select.select([self.screen], [], [], 60)
            try:
                block = os.read(self.screen, 65536) if readable else b""
            except OSError:
                block = b""
            if not block:
                return self.seen, None
            self.seen += block.decode(errors="replace")
        before, self.seen = self.seen[:match.start()], self.seen[match.end():]
        return before, match


def type_lines(shell, setup, folder):
    words = {"bash": ["bash", "--norc", "--noprofile", "-i"], "zsh": ["zsh", "-f", "-i"]}[shell]
    terminal = Terminal(words)
    rc_file = folder.parent / "setup"
    rc_file.write_text(f"cd '{folder}'\n{setup}\n{SHOW[shell]}\nprintf 'set %s\\n' up\n", encoding="utf-8")
    terminal.type(f"source '{rc_file}'\n")
    if terminal.wait_for("set up\r?\n")[1] is None:
        return [f"{shell} is not ready: {terminal.seen}"]

    complaints = []
    for typed, expected in LINES:
        terminal.type(typed + "\n")
        before, shown = terminal.wait_for(r"<([^<>\r\n]*)>\r?\n")
        if shown is None:
            return complaints + [f"{typed!r}: {shell} shows {before!r}"]
        if shown[1] != expected:
            complaints.append(f"{typed!r}: {shown[1]!r}, not {expected!r}")
    # The summaries stand beside the words where the shell shows them.
    terminal.type("korvex conf \t" + ("\t" if shell == "bash" else ""))
    if terminal.wait_for("Print a key's value" if shell == "zsh" else r"unset")[1] is None:
        complaints.append(f"no list of commands: {terminal.seen!r}")
    os.close(terminal.screen)
    os.waitpid(terminal.pid, 0)
    return complaints


def ask_fish(source, folder):
    """fish says by itself what it would offer: each line is a word, and what it is for."""
    cases = [
        ("korvex conf uns", ["unset\tRemove a key"]),
        ("korvex du --j", ["--json\tPrint JSON"]),
        ("korvex conf get --type b", ["bool"]),
        ("korvex conf get f.c", ["f.conf"]),
        ("korvex conf get f.conf -s m", ["my share"]),
        ("korvex conf get f.conf -s my\\ ", ["my share"]),
        ("korvex conf get f.conf --section=at", ["--section=attic"]),
        ("korvex conf get -s attic f.conf re", ["read only"]),
        ("korvex doctor --config fol", ["folder/"]),
        ("korvex lock f.conf -- korvex-pr", ["korvex-program"]),
        ("korvex net resolve f", []),
    ]
    complaints = []
    for line, expected in cases:
        script = f"source '{source}/korvex.fish'; complete --do-complete $argv[1]"
        offered = subprocess.run(["fish", "--no-config", "-c", script, line], cwd=folder, check=True,
                                 capture_output=True, text=True)
        found = offered.stdout.splitlines()
        # What fish says of files and programs by itself is its own affair.
        if expected and "\t" not in expected[0]:
            found = [word.split("\t")[0] for word in found]
        if found != expected or offered.stderr:
            complaints.append(f"{line!r}: {found}, not {expected} {offered.stderr}")
    return complaints


def main(shell, program, source):
    script = {"bash": "korvex.bash", "zsh": "_korvex", "fish": "korvex.fish"}[shell]
    subprocess.run([shell, "-n", source / script], check=True)
    with tempfile.TemporaryDirectory() as name:
        home = pathlib.Path(name)
        folder = home / "work"
        (folder / "folder").mkdir(parents=True)
        (folder / "f.conf").write_text(CONFIGURATION, encoding="utf-8")
        programs = home / "bin"
        programs.mkdir()
        (programs / "korvex-program").write_text("#!/bin/sh\n", encoding="utf-8")
        (programs / "korvex-program").chmod(0o755)
        os.environ.update(HOME=name, XDG_CONFIG_HOME=name, LC_ALL="C.UTF-8", TERM="xterm", PS1="$ ",
                          PATH=f"{programs}:{pathlib.Path(program).parent}:{os.environ['PATH']}")
        complaints = ask_fish(source, folder) if shell == "fish" else type_lines(shell, install(shell, source, home),
                                                                                 folder)
    print("\n".join(complaints) or f"{shell}: all as it should be")
    return bool(complaints)


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2], pathlib.Path(sys.argv[3])))
