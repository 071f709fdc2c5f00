"""The rows that the benchmarks wrote, as figures.h describes them: reading, judging and writing them as people read."""

import csv
import re
import subprocess
from dataclasses import dataclass

OURS = "korvex"

# Whose version a peer has; the first pattern that a side's name matches. What is not named here is a bare system call.
PACKAGES = (
    (r"GKeyFile|GAsyncQueue", "libglib2.0-0"),
    (r"SimpleIni", "libsimpleini1"),
    (r"libini_config", "libini-config5"),
    (r"liblockfile", "liblockfile1"),
    (r"spdlog", "libspdlog1.10"),
    (r"git", "git"),
    (r"crudini", "crudini"),
    (r"augtool", "augeas-tools"),
    (r"find", "findutils"),
    (r"flock", "util-linux"),
    (r"inih", "libinih1"),
    (r"iniparser", "libiniparser1"),
    (r"du |rm |cp\b", "coreutils"),
    (r"dmalloc", "libdmalloc5"),
    (r"deque|std::", "libstdc++6"),
    (r"among", None),  # the library itself
    (r"", "libc6"),
)
PACKAGE_OF_TLS = "libssl3"


def package_version(package):
    found = subprocess.run(
        ["dpkg-query", "-W", "-f", "${Version}", package], capture_output=True, text=True, check=False
    )
    return found.stdout or "not installed"


@dataclass
class Figure:
    """One side of one job."""

    family: str
    job: str
    side: str
    value: float
    unit: str
    ratio: float | None
    aim: str
    measure: str

    @property
    def ours(self):
        return self.side.startswith(OURS)

    @property
    def package(self):
        """Where the side comes from; None for the library."""
        if self.ours:
            return None
        if self.job.startswith("TLS"):
            return PACKAGE_OF_TLS
        return next(package for pattern, package in PACKAGES if re.match(pattern, self.side))

    @property
    def wanted_ratio(self):
        return float(self.aim[:-1]) if self.aim.endswith("x") else None

    @property
    def reached(self):
        """Whether the aim is reached; None without one."""
        if self.aim.startswith("<"):
            return self.value < float(self.aim[1:])
        return None if self.wanted_ratio is None else self.ratio >= self.wanted_ratio

    @property
    def aim_text(self):
        return f"less than {float(self.aim[1:]) * 1e3:g} ms" if self.aim.startswith("<") else self.aim


COLUMNS = ("family", "job", "side", "value", "unit", "ratio", "aim", "measure")


def read(path):
    figures = []
    with open(path, newline="", encoding="utf-8") as file:
        for row in csv.DictReader(file, COLUMNS):
            ratio = float(row["ratio"]) if row["ratio"] else None
            figures.append(Figure(**(row | {"value": float(row["value"]), "ratio": ratio})))
    return figures


def write(path, figures, our_version):
    """Writes them with a heading, with the version of each side, and whether an aim is reached."""
    versions = {package: package_version(package) for package in {figure.package for figure in figures} if package}
    with open(path, "w", newline="", encoding="utf-8") as file:
        out = csv.writer(file, lineterminator="\n")
        out.writerow(COLUMNS[:3] + ("version",) + COLUMNS[3:] + ("reached",))
        for figure in figures:
            version = f"{figure.package} {versions[figure.package]}" if figure.package else our_version
            ratio = "" if figure.ratio is None else figure.ratio
            reached = {None: "", True: "yes", False: "no"}[figure.reached]
            out.writerow((figure.family, figure.job, figure.side, version, figure.value, figure.unit, ratio, figure.aim,
                          figure.measure, reached))


def time_text(seconds):
    for unit, size in (("s", 1), ("ms", 1e-3), ("us", 1e-6)):
        if abs(seconds) >= size * 0.9995:
            return f"{seconds / size:#.3g}".rstrip(".") + " " + unit
    return f"{seconds * 1e9:#.3g}".rstrip(".") + " ns"


def size_text(size):
    return f"{size / 1024:,.0f} KiB"


def value_text(figure):
    if figure.unit == "s":
        return time_text(figure.value)
    if figure.unit == "B":
        return size_text(figure.value)
    raise ValueError(f"no text for the unit {figure.unit}")


def ratio_text(ratio):
    """Near 1 the third place tells an aim that was reached from one that was not."""
    if ratio is None:
        return ""
    return f"{ratio:.0f}x" if ratio >= 9.95 else f"{ratio:.2f}x" if ratio >= 1.1 else f"{ratio:.3f}x"
