"""The sections about growth: a table and a picture each."""

import os
from dataclasses import dataclass

import pictures
from figures import OURS, size_text, time_text
from tables import table


@dataclass
class Growth:
    title: str
    size: str   # what grows
    value: str  # what is shown
    linear: bool = False  # whether the sizes are few, and the axes begin at 0


GROWTHS = {
    "growth of keys": Growth("Keys of one file", "keys", "of a key"),
    "growth of log lines": Growth("Lines from many processes", "processes", "of a line, elapsed", linear=True),
    "growth of entries": Growth("Entries of a tree", "entries", "of an entry"),
    "growth of mounts": Growth("Mounts", "mounts", "of a mount"),
    "growth of shares": Growth("Shares", "shares", "of a share"),
    "growth of processes": Growth("Processes", "processes", "of a process"),
    "growth of waiters": Growth("Waiters of one lock", "waiters", "until the unluckiest has it, elapsed", linear=True),
}


def lines_of(figures):
    """{(work, side): {size: value}}, the library's first."""
    lines = {}
    for figure in figures:
        side, _, size = figure.side.rpartition(", ")
        lines.setdefault((figure.job, side), {})[int(size)] = figure.value
    works = list(dict.fromkeys(work for work, _ in lines))
    return dict(sorted(lines.items(), key=lambda line: (works.index(line[0][0]), line[0][1] != OURS)))


def growth_table(lines, what, text):
    sizes = sorted({size for points in lines.values() for size in points})
    rows = [(work, side, *(text(points[size]) if size in points else "" for size in sizes))
            for (work, side), points in lines.items()]
    return table((what, "side", *(f">{size:,}" for size in sizes)), rows)


def section(family, figures, folder):
    """The picture's file is written; the section's text is returned."""
    growth = GROWTHS[family]
    name = family.replace(" ", "-")
    panels = [("Time " + growth.value, time_text, lines_of([figure for figure in figures if figure.unit == "s"]))]
    memory = lines_of([figure for figure in figures if figure.unit == "B"])
    if memory:
        panels.append(("Peak of the resident memory", size_text, memory))
    pictures.lines(os.path.join(folder, name + ".svg"), growth, panels)
    tables = [growth_table(lines, f"{what}, by number of {growth.size}", text) for what, text, lines in panels]
    return "\n\n".join([f"![{growth.title}]({os.path.basename(folder)}/{name}.svg)", *tables])
