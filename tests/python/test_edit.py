"""Configuration files, changed: several changes as one step, and nothing lost."""

import os
import signal
import subprocess
import sys
from pathlib import Path

import korvex
import pytest

from conftest import threads_of, until


def test_edit_changes_keys_and_leaves_every_other_line(conf: Path) -> None:
    with korvex.edit(conf) as edit:
        edit["global"]["workgroup"] = "ATTIC"
        del edit["homes"]["guest ok"]
        edit["new"]["count"] = 3
        edit["new"]["is on"] = True
        edit["new"]["ratio"] = 0.5
    text = conf.read_text()
    assert text.startswith("# of the house\n[global]\nworkgroup = ATTIC\nport = 445\n")
    assert "guest ok" not in text
    assert dict(korvex.read(conf)["new"]) == {"count": "3", "is on": "yes", "ratio": "0.5"}


def test_leaving_with_an_exception_changes_nothing(conf: Path) -> None:
    before = conf.read_bytes(), conf.stat().st_ino
    with pytest.raises(ZeroDivisionError), korvex.edit(conf) as edit:
        edit["global"]["workgroup"] = "ATTIC"
        1 // 0
    assert (conf.read_bytes(), conf.stat().st_ino) == before
    assert os.listdir(conf.parent) == [conf.name]


def test_reads_see_the_edits_and_the_file_does_not(conf: Path) -> None:
    with korvex.edit(conf) as edit:
        edit["global"]["workgroup"] = "ATTIC"
        edit["new"]["k"] = "v"
        assert edit["global"]["workgroup"] == "ATTIC"
        assert dict(edit["global"]) == {"workgroup": "ATTIC", "port": "445"}
        assert list(edit) == ["global", "homes", "new"] and "new" in edit and len(edit) == 3
        assert edit["global"].get_int("port") == 445
        assert len(edit["none"]) == 0
        assert "workgroup = ATTIC" in edit.text
        assert edit.path == conf
        assert korvex.get(conf, "global", "workgroup") == "HOME"


def test_diff_tells_what_will_change(conf: Path) -> None:
    with korvex.edit(conf) as edit:
        assert edit.diff() == ""
        edit["global"]["port"] = 139
        lines = edit.diff().splitlines()
        assert "-port = 445" in lines and "+port = 139" in lines
        edit.cancel()
    assert korvex.get(conf, "global", "port") == "445"


def test_deleting_what_is_not_there_is_a_key_error(conf: Path) -> None:
    with pytest.raises(KeyError), korvex.edit(conf) as edit:
        del edit["homes"]["nobody"]
    assert korvex.delete(conf, "homes", "nobody") is False
    assert korvex.delete(conf, "homes", "guest ok") is True
    assert korvex.get(conf, "homes", "guest ok") is None


@pytest.mark.parametrize("value", [" blank", "two\nlines", "nul\0"])
def test_what_would_not_read_back_is_refused(conf: Path, value: str) -> None:
    before = conf.read_bytes()
    with pytest.raises(korvex.BadValue):
        korvex.set(conf, "global", "k", value)
    with pytest.raises(ValueError):
        korvex.set(conf, "global", "k", float("inf"))
    assert conf.read_bytes() == before


def test_set_makes_a_file_and_keeps_the_bits_of_one(tmp_path: Path) -> None:
    path = tmp_path / "new.conf"
    korvex.set(path, "a", "k", "v")
    path.chmod(0o640)
    korvex.set(path, "a", "k", "w", durable=False)
    assert path.read_text() == "[a]\nk = w\n"
    assert path.stat().st_mode & 0o777 == 0o640


def test_a_backup_keeps_the_old_file(conf: Path) -> None:
    with korvex.edit(conf, backup="~") as edit:
        edit["global"]["port"] = 1
    assert "port = 445" in conf.with_name("smb.conf~").read_text()


def test_expect_makes_a_change_conditional(conf: Path) -> None:
    with korvex.edit(conf) as edit:
        edit.expect("global", "port", 445)
        edit.expect("global", "none", None)
        edit["global"]["port"] = 446
    with pytest.raises(korvex.Changed, match="expected '445'") as caught, korvex.edit(conf) as edit:
        edit.expect("global", "port", 445)
        edit["global"]["port"] = 447
    assert caught.value.code == "expectation_failed"
    assert korvex.get(conf, "global", "port") == "446"


def test_a_change_by_somebody_without_the_lock_is_noticed(conf: Path) -> None:
    with pytest.raises(korvex.Changed) as caught, korvex.edit(conf) as edit:
        edit["global"]["port"] = 446
        conf.write_text("[global]\nport = 1\n")
    assert caught.value.code == "changed_meanwhile"
    assert conf.read_text() == "[global]\nport = 1\n"

    with korvex.edit(conf, force=True) as edit:
        edit["global"]["port"] = 446
        conf.write_text("[other]\n")
    assert korvex.get(conf, "global", "port") == "446"


def test_a_failed_commit_can_be_tried_again(conf: Path) -> None:
    edit = korvex.edit(conf)
    edit["global"]["port"] = 446
    conf.rename(conf.with_name("away"))
    with pytest.raises(korvex.Changed):
        edit.commit()
    conf.with_name("away").rename(conf)
    edit.commit()
    with pytest.raises(korvex.Error, match="closed"):
        edit["global"]["port"] = 1
    assert korvex.get(conf, "global", "port") == "446"


def test_an_edit_waits_for_the_lock_and_says_who_holds_it(conf: Path) -> None:
    with korvex.lock(conf):
        with pytest.raises(korvex.LockTimeout, match=f"process {os.getpid()} .* holds it"):
            korvex.edit(conf, timeout=0.05)
        with pytest.raises(korvex.Canceled):
            korvex.edit(conf, stop=lambda: True)


def test_ctrl_c_ends_the_wait_of_an_edit(conf: Path, child) -> None:  # type: ignore[no-untyped-def]
    with korvex.lock(conf):
        other = child(
            "try: korvex.set(sys.argv[1], 'global', 'port', 1, timeout=None)\n"
            "except KeyboardInterrupt: print('interrupted')",
            conf,
        )
        until(lambda: threads_of(other.pid) == 2, "the wait")
        os.kill(other.pid, signal.SIGINT)
        assert other.end()[1] == "interrupted\n"
    assert korvex.get(conf, "global", "port") == "445"
    assert os.listdir(conf.parent) == [conf.name]


def test_a_process_killed_in_an_edit_leaves_the_old_file_and_no_lock_for_long(conf: Path, child) -> None:  # type: ignore[no-untyped-def]
    before = conf.read_bytes()
    other = child(
        "edit = korvex.edit(sys.argv[1]).__enter__()\n"
        "edit['global']['port'] = 1\n"
        "print('edited', flush=True)\n"
        "sys.stdin.read()",
        conf,
    )
    assert other.line() == "edited"
    other.process.kill()
    other.end()
    assert conf.read_bytes() == before
    korvex.set(conf, "global", "port", 2)  # takes the dead one's lock over
    left = [name for name in os.listdir(conf.parent) if name != conf.name]
    assert all(korvex.is_temporary_name(name) for name in left) and len(left) == 1
    assert (conf.parent / left[0]).stat().st_mode & 0o077 == 0


def test_a_forked_child_leaves_its_parents_edit_alone(conf: Path) -> None:
    with korvex.edit(conf) as edit:
        edit["global"]["port"] = 1
        pid = os.fork()
        if pid == 0:
            try:
                edit.commit()
            except korvex.Error:
                edit.cancel()
                os._exit(7)
            os._exit(0)
        assert os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]) == 7
        assert korvex.inspect_lock(conf).status is korvex.LockStatus.HELD
    assert korvex.get(conf, "global", "port") == "1"


ROUNDS = 25
IN_PYTHON = f"""
import korvex, sys
for i in range({ROUNDS}):
    with korvex.edit(sys.argv[1], durable=False, timeout=60) as edit:
        edit["count"]["n"] = edit["count"].get_int("n", 0) + 1
        edit[sys.argv[2]][str(i)] = i
"""
IN_SHELL = f"""
set -e
i=0
while [ $i -lt {ROUNDS} ]; do
  "$1" conf set "$2" $i $i -s "$3"
  i=$((i + 1))
done
"""
IN_C = f"""
#include <korvex_util.h>
#include <stdio.h>
int main(int argc, char **argv) {{
    char number[16];
    if (argc != 3) return 2;
    for (int i = 0; i < {ROUNDS}; i++) {{
        snprintf(number, sizeof number, "%d", i);
        int result = 0;
        /* The setter itself waits 10 s for the lock, which eight busy processes may outlast. */
        do result = Set_Conf_File_String_Value(argv[1], argv[2], number, number); while (result == -ENOLCK);
        if (result != 0) return 1;
    }}
    return 0;
}}
"""


def test_eight_processes_of_python_c_and_the_shell_lose_nothing(tmp_path: Path) -> None:
    path = tmp_path / "shared.conf"
    path.write_text("[count]\nn = 0\n")
    tool, library, headers = (os.environ[name] for name in ("KORVEX_TOOL", "KORVEX_LIBRARY", "KORVEX_HEADERS"))
    (tmp_path / "set.c").write_text("#include <errno.h>\n" + IN_C)
    compiler = ["cc", str(tmp_path / "set.c"), "-o", str(tmp_path / "set"), f"-I{headers}", library]
    subprocess.run([*compiler, f"-Wl,-rpath,{os.path.dirname(library)}"], check=True)

    commands = []
    for number in range(8):
        kind = number % 3
        if kind == 0:
            commands.append([sys.executable, "-B", "-c", IN_PYTHON, str(path), f"s{number}"])
        elif kind == 1:
            commands.append([str(tmp_path / "set"), str(path), f"s{number}"])
        else:
            commands.append(["sh", "-c", IN_SHELL, "sh", tool, str(path), f"s{number}"])
    running = [subprocess.Popen(command) for command in commands]
    assert [one.wait(timeout=120) for one in running] == [0] * 8

    config = korvex.read(path)
    for number in range(8):
        assert dict(config[f"s{number}"]) == {str(i): str(i) for i in range(ROUNDS)}
    assert config["count"].get_int("n") == 3 * ROUNDS
