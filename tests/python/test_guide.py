"""The guide: each recipe is run from the page, in an empty folder, and prints what follows it."""

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

GUIDE = Path(os.environ["KORVEX_GUIDE"]).read_text()
SECTIONS = re.findall(r"^## ([^\n]*)\n(.*?)(?=^## |\Z)", GUIDE, re.M | re.S)
BLOCKS = re.compile(r"```python\n(.*?)```\n\n```text\n(.*?)```", re.S)
RECIPES = [(title, *found.groups()) for title, text in SECTIONS if (found := BLOCKS.search(text))]


def test_every_recipe_says_what_it_prints() -> None:
    assert len(RECIPES) == GUIDE.count("```python") >= 9


@pytest.mark.parametrize(("title", "program", "expected"), RECIPES, ids=[title for title, _, _ in RECIPES])
def test_recipe(title: str, program: str, expected: str, tmp_path: Path) -> None:
    ran = subprocess.run([sys.executable, "-B", "-c", program], cwd=tmp_path, capture_output=True, text=True, timeout=60)
    assert (ran.stdout.replace(str(tmp_path), "/srv/app"), ran.stderr) == (expected, "")
