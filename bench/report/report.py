#!/usr/bin/python3
"""bench/report/report.py FOLDER BUILD_DIR PAGE: makes results.csv of the rows.csv in FOLDER, writes PAGE from page.md,
which has a mark for each table, and the pictures into the folder that is named like PAGE."""

import os
import platform
import re
import subprocess
import sys
from itertools import groupby

import growth
import pictures
from figures import PACKAGE_OF_TLS, PACKAGES, package_version, ratio_text, read, time_text, value_text, write
from growth import GROWTHS
from summary import VERDICTS, summary
from tables import by_job, measured, table

# In the order of the page.
TITLES = {
    "conf": "Reading configuration",
    "scale": "Time and the length of the text",
    "locks": "Locks",
    "trees": "Folder trees and large files",
    "socket": "The network",
    "queue": "The link queue",
    "tracer": "The memory tracer",
    "sysinfo": "The system's tables",
    "log": "Log lines",
    "cpp": "The C++ layer",
    "load": "Loading the library",
    "tool": "The tool",
}
# The page's words, with a mark for each part.
PAGE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "page.md")


def compared(figures, elapsed):
    """A row a peer; `elapsed`: the ratios of elapsed time, by job and side."""
    rows = []
    for job, sides in by_job(figures).items():
        first = (job, value_text(sides[0]) if sides[0].ours else "")
        peers = [side for side in sides if not side.ours]
        if not peers:
            rows.append((*first, "", "", "", "", "", ""))
        for peer in peers:
            rows.append((*first, peer.side, value_text(peer), ratio_text(peer.ratio),
                         ratio_text(elapsed.get((job, peer.side))), peer.aim_text, VERDICTS[peer.reached]))
            first = ("", "")
    heads = ("job", ">korvex", "peer", ">its figure", ">ratio", ">ratio, elapsed", ">aim", "")
    used = [place for place in range(len(heads)) if place < 5 or any(row[place] for row in rows)]
    return table([heads[place] for place in used], [[row[place] for place in used] for row in rows])


def counted(figures):
    """System calls: for each side the sum, and each call's number."""
    rows = []
    for job, calls in by_job(figures).items():
        for side, group in groupby(sorted(calls, key=lambda call: (not call.ours, call.side)), lambda call: call.side):
            each = sorted(group, key=lambda call: (-call.value, call.unit))
            rows.append((job, side, f"{sum(call.value for call in each):,.0f}",
                         ", ".join(f"{call.value:,.0f} `{call.unit}`" for call in each)))
    return table(("job", "side", ">system calls", "of which"), rows)


def scale_parts(figures):
    """{messages: {text: {function: [figures]}}}"""
    parts = {}
    for figure in figures:
        job, _, messages = figure.job.partition("; ")
        text, _, function = job.rpartition(": ")
        parts.setdefault(messages, {}).setdefault(text, {}).setdefault(function, []).append(figure)
    return parts


def scale_tables(figures):
    told = []
    for messages, texts in scale_parts(figures).items():
        functions = list(next(iter(texts.values())))
        rows = [[text] + [" ".join(f"{size.value * 1e9:.3g}" for size in cells[function]) for function in functions]
                for text, cells in texts.items()]
        name = "With all messages made" if messages else "Without a log"
        told.append(f"{name}, nanoseconds a byte of 1/16, 1/4 and the whole of the text:\n\n"
                    + table(["text"] + [f">{function}" for function in functions], rows))
    return "\n\n".join(told)


def scale_picture(path, figures):
    bars = {}
    for messages, texts in scale_parts(figures).items():
        for text, functions in texts.items():
            growth = {name: sizes[-1].ratio for name, sizes in functions.items()}
            alone = growth.pop("read alone")
            worst = max(growth, key=growth.get)
            if not messages:
                bars.setdefault(text, []).append(("reading alone", alone))
            bars[text].append((f"{worst}{', all messages' if messages else ''}", growth[worst]))
    pictures.growth(path, TITLES["scale"] + ": the function that grows most", bars)


def load_table(figures):
    """Elapsed time, and what the library adds."""
    differences = {figure.job.split(":")[0]: figure for figure in figures if figure.aim}
    rows = []
    for job, sides in by_job([figure for figure in figures if not figure.aim]).items():
        more = differences[job]
        rows.append((job, *(value_text(side) for side in sides), time_text(more.value), more.aim_text,
                     VERDICTS[more.reached]))
    return table(("job", ">korvex", ">empty object", ">more", ">aim", ""), rows)


def family_section(family, figures, folder):
    """The picture's file is written; the section's text is returned."""
    path = os.path.join(folder, family + ".svg")
    times, elapsed = measured(figures, "processor"), measured(figures, "elapsed")
    if family == "scale":
        scale_picture(path, figures)
        parts = [scale_tables(figures)]
    elif family == "load":
        shown = [figure for figure in elapsed if not figure.aim]
        aims = {figure.job.split(":")[0]: float(figure.aim[1:]) for figure in elapsed if figure.aim}
        pictures.times(path, TITLES[family], shown, aims)
        parts = [load_table(elapsed)]
    else:
        pictures.ratios(path, TITLES[family], [side for sides in by_job(times).values() for side in sides])
        parts = [compared(times, {(figure.job, figure.side): figure.ratio for figure in elapsed})]
    memory, calls = measured(figures, "memory"), measured(figures, "calls")
    if memory:
        parts.append("Peak of the resident memory of the whole process:\n\n" + compared(memory, {}))
    if calls:
        parts.append(counted(calls))
    picture = f"![{TITLES[family]}]({os.path.basename(folder)}/{family}.svg)"
    return "\n\n".join([picture, *parts])


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.strip()


def machine(folder, build):
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        processor = re.search(r"model name\s*: (.*)", file.read()).group(1)
    with open(os.path.join(folder, "start.txt"), encoding="utf-8") as file:
        start, load, rounds = file.read().split("\n")[:3]
    system = platform.freedesktop_os_release()["PRETTY_NAME"]
    rows = [
        ("run", f"begun {start}; load average before it {load}; {rounds}"),
        ("library", our_version(build)),
        ("processor", f"{processor}, {os.cpu_count()} of them"),
        ("kernel", platform.release()),
        ("system", f"{system}, glibc {platform.libc_ver()[1]}"),
        ("compiler", output("g++", "--version").split("\n", maxsplit=1)[0]),
    ]
    rows += [(f"`{package}`", package_version(package))
             for package in sorted({package for _, package in PACKAGES if package} | {PACKAGE_OF_TLS})]
    return table(("what", "version"), rows)


def durations(folder):
    with open(os.path.join(folder, "times.csv"), encoding="utf-8") as file:
        times = [line.strip().split(",") for line in file]
    rows = [(f"`{name}`", f"{float(elapsed):.0f} s", f"{float(user) + float(kernel):.0f} s")
            for name, elapsed, user, kernel in times]
    rows.append(("all", f"{sum(float(time[1]) for time in times):.0f} s",
                 f"{sum(float(time[2]) + float(time[3]) for time in times):.0f} s"))
    return table(("benchmark", ">elapsed", ">processor time"), rows)


def our_version(build):
    with open(os.path.join(build, "CMakeCache.txt"), encoding="utf-8") as file:
        return "korvex " + re.search(r"^CMAKE_PROJECT_VERSION:\w+=(.*)$", file.read(), re.MULTILINE).group(1)


def page_of(template, parts):
    """The template with each part at its mark; a mark without a part, or a part without a mark, ends the program."""
    marked = re.compile(r"<!-- (.+?) -->")
    marks = marked.findall(template)
    if sorted(marks) != sorted(parts):
        sys.exit(f"{PAGE} and the report have different parts: {set(marks) ^ set(parts)}")
    return marked.sub(lambda mark: parts[mark.group(1)], template)


def main(folder, build, page):
    figures = read(os.path.join(folder, "rows.csv"))
    left_out = [family for family in (*TITLES, *GROWTHS) if not any(figure.family == family for figure in figures)]
    if left_out:
        sys.exit(f"no figures of {', '.join(left_out)}")
    write(os.path.join(folder, "results.csv"), figures, our_version(build))

    shown = os.path.splitext(page)[0]
    os.makedirs(shown, exist_ok=True)
    parts = {"machine": machine(folder, build), "summary": summary(figures, TITLES), "durations": durations(folder)}
    for family in TITLES:
        parts[family] = family_section(family, [figure for figure in figures if figure.family == family], shown)
    for family in GROWTHS:
        parts[family] = growth.section(family, [figure for figure in figures if figure.family == family], shown)
    with open(PAGE, encoding="utf-8") as file:
        text = page_of(file.read(), parts)
    with open(page, "w", encoding="utf-8") as file:
        file.write(text)


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    main(*sys.argv[1:])
