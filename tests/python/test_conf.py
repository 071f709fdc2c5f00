"""Configuration files, read."""

from pathlib import Path

import korvex
import pytest


def test_get_reads_a_key(conf: Path) -> None:
    assert korvex.get(conf, "global", "workgroup") == "HOME"
    assert korvex.get(str(conf), "homes", "guest ok") == "yes"


def test_get_answers_with_the_default_where_there_is_no_file_section_or_key(conf: Path) -> None:
    assert korvex.get(conf, "global", "nobody") is None
    assert korvex.get(conf, "nobody", "workgroup", "X") == "X"
    assert korvex.get(conf.with_name("none"), "global", "workgroup", 3) == 3


def test_get_raises_what_keeps_a_file_from_being_read(tmp_path: Path) -> None:
    with pytest.raises(korvex.Error):
        korvex.get(tmp_path, "global", "workgroup")


def test_read_gives_a_mapping_of_mappings(conf: Path) -> None:
    config = korvex.read(conf)
    assert list(config) == ["global", "homes"]
    assert {name: dict(section) for name, section in config.items()} == {
        "global": {"workgroup": "HOME", "port": "445"},
        "homes": {"guest ok": "yes"},
    }
    assert len(config) == 2 and "global" in config and "x" not in config["homes"]
    assert config["homes"].get("x", "y") == "y"


def test_a_missing_section_is_a_key_error(conf: Path) -> None:
    with pytest.raises(korvex.NoSuchKey, match=r"can't read \[nobody\] in .*: no such section"):
        korvex.read(conf)["nobody"]
    assert korvex.read(conf).get("nobody") is None


def test_what_was_read_can_not_be_changed(conf: Path) -> None:
    with pytest.raises(TypeError):
        korvex.read(conf)["global"]["workgroup"] = "X"  # type: ignore[index]


def test_the_first_one_of_a_name_counts(tmp_path: Path) -> None:
    path = tmp_path / "twice.conf"
    path.write_text("[a]\nk = 1\nk = 2\nl = 3\n[a]\nk = 4\n")
    assert dict(korvex.read(path)["a"]) == {"k": "1", "l": "3"}
    assert korvex.get(path, "a", "k") == "1"


def test_bytes_that_are_no_utf8_survive(tmp_path: Path) -> None:
    path = tmp_path / "latin1.conf"
    path.write_bytes(b"[a]\nname = M\xfcller\n")
    value = korvex.read(path)["a"]["name"]
    assert value == "M\udcfcller"
    korvex.set(path, "a", "other", value)
    assert path.read_bytes().startswith(b"[a]\nname = M\xfcller\nother = M\xfcller\n")


def test_parse_reads_a_text() -> None:
    config = korvex.parse("first = 1\n[a]\nk = v")
    assert config[""]["first"] == "1" and config["a"]["k"] == "v"


@pytest.mark.parametrize(
    ("text", "value"), [("yes", True), ("On", True), ("1", True), ("TRUE", True), ("no", False), ("off", False)]
)
def test_truth_values(text: str, value: bool) -> None:
    assert korvex.parse(f"[a]\nk = {text}")["a"].get_bool("k") is value


def test_numbers() -> None:
    section = korvex.parse("[a]\nint = -12\nfloat = 1.5\nbig = 9223372036854775807\nhuge = 9223372036854775808")["a"]
    assert section.get_int("int") == -12
    assert section.get_float("float") == 1.5
    assert section.get_int("big") == 2**63 - 1
    with pytest.raises(korvex.BadValue):
        section.get_int("huge")
    with pytest.raises(ValueError, match="no number"):
        section.get_int("float")
    with pytest.raises(korvex.BadValue, match="not from 0 to 10"):
        section.get_int("int", least=0, most=10)
    with pytest.raises(korvex.BadValue, match="neither yes, on"):
        section.get_bool("int")
    assert section.get_int("none") is None and section.get_bool("none", True) is True
    assert section.get_float("none", 2.5) == 2.5
