"""One picture a family: bars of how much longer the peer took, or of times; lines where growth is shown."""

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402
from matplotlib.ticker import FuncFormatter, LogLocator, MaxNLocator, NullFormatter  # noqa: E402

from figures import OURS, ratio_text, size_text, time_text  # noqa: E402

# Text stays text, and equal figures give equal files.
plt.rcParams.update({
    "svg.fonttype": "none",
    "svg.hashsalt": "korvex",
    "font.family": "sans-serif",
    "font.sans-serif": ["DejaVu Sans", "Verdana", "Arial"],
    "font.size": 9,
    "hatch.linewidth": 0.6,
    "axes.spines.top": False,
    "axes.spines.right": False,
    "axes.spines.left": False,
})

# Told apart by the colour-blind as well (Okabe and Ito), and by hatching without colours.
PLAIN, REACHED, MISSED = "#56b4e9", "#0072b2", "#d55e00"
STYLES = {
    None: {"color": PLAIN},
    True: {"color": REACHED},
    False: {"facecolor": MISSED, "hatch": "////", "edgecolor": "white", "linewidth": 0},
}
NAMES = {None: "no aim", True: "aim reached", False: "aim missed", "aim": "the aim"}
WIDTH = 8.2  # inches
ROW = 0.215
LABELS = 3.1  # inches at the left
ENDS = 1.1  # inches at the right, for a bar's text


def save(figure, path):
    figure.savefig(path, facecolor="white", metadata={"Date": None, "Creator": None})
    plt.close(figure)
    with open(path, encoding="utf-8") as file:
        lines_of_text = [line.rstrip() for line in file]
    with open(path, "w", encoding="utf-8") as file:
        file.write("\n".join(lines_of_text) + "\n")


class Chart:
    """Rows from the top down, each a heading or a label with a bar."""

    def __init__(self, title, note, names=None):
        self.title, self.note, self.names = title, note, names or NAMES
        self.rows = []
        self.used = set()

    def heading(self, text):
        self.rows.append(("heading", text))

    def bar(self, label, value, text, reached=None, aim=None):
        self.rows.append(("bar", label, value, text, reached, aim))

    def save(self, path, start, logarithmic, tick_text, end=None):
        bottom, top = 0.5, 0.72
        height = len(self.rows) * ROW + bottom + top
        figure = plt.figure(figsize=(WIDTH, height))
        axes = figure.add_axes((LABELS / WIDTH, bottom / height, (WIDTH - LABELS - ENDS) / WIDTH,
                                len(self.rows) * ROW / height))
        if logarithmic:
            axes.set_xscale("log")
        self._limit(axes, start, logarithmic, end)
        self._draw(axes, start, logarithmic)
        axes.set_ylim(len(self.rows) - 0.4, -0.6)
        axes.set_yticks([])
        axes.axvline(start, color="black", linewidth=0.9)
        axes.grid(axis="x", color="#dddddd", linewidth=0.6)
        axes.set_axisbelow(True)
        if logarithmic:
            self._ticks(axes, end)
        else:
            axes.xaxis.set_major_locator(MaxNLocator(5))
        axes.xaxis.set_major_formatter(FuncFormatter(lambda value, _: tick_text(value)))
        axes.xaxis.set_minor_formatter(NullFormatter())
        axes.tick_params(axis="x", which="both", length=0, labelcolor="#444444")
        figure.text(0.012, 1 - 0.2 / height, self.title, fontsize=11, fontweight="bold", va="center")
        figure.text(0.012, 1 - 0.43 / height, self.note, color="#444444", va="center")
        self._legend(figure, height)
        save(figure, path)

    def _limit(self, axes, start, logarithmic, end):
        ends = [row[2] for row in self.rows if row[0] == "bar"] + [row[5] for row in self.rows if row[0] == "bar"]
        ends = [value for value in [*ends, start, end] if value is not None]
        low, high = min(ends), max(ends)
        if logarithmic:
            # A few hundredths should not fill the picture.
            axes.set_xlim(min(low / 1.04, 0.8) if low < start else start, max(high * 1.04, 1.25))
        else:
            axes.set_xlim(low, high * 1.04)

    def _draw(self, axes, start, logarithmic):
        label_at = axes.get_yaxis_transform()
        for place, row in enumerate(self.rows):
            if row[0] == "heading":
                axes.text(-LABELS / (WIDTH - LABELS - ENDS) + 0.02, place + 0.08, row[1], transform=label_at,
                          fontweight="bold", va="center", zorder=5,
                          bbox={"facecolor": "white", "edgecolor": "none", "pad": 1})
                continue
            _, label, value, text, reached, aim = row
            self.used.add(reached)
            axes.barh(place, value - start, left=start, height=0.68, **STYLES[reached])
            axes.text(-0.015, place, label, transform=label_at, ha="right", va="center")
            if aim is not None:
                axes.plot((aim, aim), (place - 0.46, place + 0.46), color="black", linewidth=1.8, clip_on=False)
            missed = "  missed" if reached is False else ""
            # Behind the aim's mark, which is near; the one of a time is not.
            end = max(value, start, aim or start) if logarithmic else value
            axes.annotate(text + missed, (end, place), (5, 0),
                          textcoords="offset points", va="center", annotation_clip=False)

    def _ticks(self, axes, end):
        low, high = axes.get_xlim()
        steps = ((0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 50, 100, 200, 500, 1000) if high / low > 3 else
                 (0.5, 0.6, 0.7, 0.8, 0.9, 1, 1.2, 1.4, 1.6, 1.8, 2, 2.5) if high / low > 1.3 else
                 [number / 100 for number in range(50, 200, 5)])
        axes.set_xticks([step for step in sorted({*steps, end or 1}) if low <= step <= high])
        axes.set_xticks([], minor=True)

    def _legend(self, figure, height):
        entries = [(plt.Rectangle((0, 0), 1, 1, **STYLES[kind]), self.names[kind])
                   for kind in (None, True, False) if kind in self.used]
        if any(row[0] == "bar" and row[5] is not None for row in self.rows):
            entries.append((plt.Line2D([], [], color="black", linewidth=1.8, marker="|", linestyle="none",
                                       markersize=9, markeredgewidth=1.8), self.names["aim"]))
        if len(entries) < 2:
            return
        handles, names = zip(*entries)
        figure.legend(handles, names, loc="lower left", bbox_to_anchor=(0.005, 0.02 / height), frameon=False,
                      ncol=len(entries), fontsize=8.5, handlelength=1.4, columnspacing=1.6)


def ratios(path, title, figures):
    """Figures in the order of their jobs, each peer a bar."""
    chart = Chart(title, "Peer's processor time by the library's: a bar to the right of 1 is how many times faster the "
                         "library is.")
    job = None
    for figure in figures:
        if figure.job != job:
            job = figure.job
            chart.heading(job)
        if not figure.ours:
            chart.bar(figure.side, figure.ratio, ratio_text(figure.ratio), figure.reached, figure.wanted_ratio)
    chart.save(path, 1, True, lambda value: f"{value:g}x")


def times(path, title, figures, aims):
    """Elapsed time of both sides; `aims` says for each job how much more than its peer's it may be."""
    chart = Chart(title, "Elapsed time: loading the object and letting go of it, and a process that is linked with it.",
                  {None: "the empty object", True: "korvex, aim reached", False: "korvex, aim missed",
                   "aim": "the aim: less than 1 ms more than the empty object"})
    of_peers = {figure.job: figure.value for figure in figures if not figure.ours}
    job = None
    for figure in figures:
        if figure.job != job:
            job = figure.job
            chart.heading(job)
        aim = of_peers[job] + aims[job] if figure.ours else None
        reached = None if aim is None else figure.value < aim
        chart.bar(figure.side, figure.value, time_text(figure.value), reached, aim)
    chart.save(path, 0, False, lambda value: f"{value * 1e3:g} ms")


def growth(path, title, texts):
    """`texts`: for each text the bars of it, as (label, growth)."""
    chart = Chart(title, "Time for a byte of the whole text by that of a sixteenth of it: 1x where time grows with the "
                         "length, 16x with its square.")
    for text, bars in texts.items():
        chart.heading(text)
        for label, value in bars:
            chart.bar(label, value, ratio_text(value))
    # As far as the square would reach: growth that is none should look so.
    chart.save(path, 1, True, lambda value: f"{value:g}x", 16)


# One colour a job, told apart as above; the library's lines are whole, each peer has dashes and a mark of its own.
COLOURS = ("#0072b2", "#d55e00", "#009e73", "#cc79a7")
DASHES = ((0, (4, 2)), (0, (1, 1.5)), (0, (5, 1.5, 1, 1.5)), (0, (2, 1)), (0, (6, 3)))
MARKS = "sD^vP"


def draw_panel(axes, growth, what, text, drawn):
    works = list(dict.fromkeys(work for work, _ in drawn))
    peers = list(dict.fromkeys(side for _, side in drawn if side != OURS))
    for (work, side), points in drawn.items():
        place = None if side == OURS else peers.index(side) % len(DASHES)
        label = side if len(works) == 1 else f"{work}, {side}"
        axes.plot(points.keys(), points.values(), color=COLOURS[works.index(work) % len(COLOURS)], label=label,
                  linestyle="-" if place is None else DASHES[place], marker="o" if place is None else MARKS[place],
                  markersize=4.5, linewidth=1.6, markerfacecolor=None if place is None else "white")
    if growth.linear:
        axes.set_ylim(bottom=0)
        axes.set_xlim(left=0)
    else:
        axes.set_xscale("log")
        axes.set_yscale("log")
        # A few hundredths should not fill the picture.
        low, high = axes.get_ylim()
        middle = (low * high) ** 0.5
        axes.set_ylim(min(low, middle / 4), max(high, middle * 4))
        axes.yaxis.set_major_locator(LogLocator(2) if text is size_text else LogLocator(10, (1, 2, 5)))
        axes.yaxis.set_minor_formatter(NullFormatter())
    axes.xaxis.set_major_formatter(FuncFormatter(lambda value, _: f"{value:,.0f}"))
    axes.yaxis.set_major_formatter(FuncFormatter(lambda value, _: text(value) if value else "0"))
    axes.grid(color="#dddddd", linewidth=0.6)
    axes.set_axisbelow(True)
    axes.tick_params(which="both", length=0, labelcolor="#444444")
    axes.set_xlabel(growth.size)
    axes.set_title(what, fontsize=9, loc="left", color="#444444")


def lines(path, growth, panels):
    """`panels`: beside each other, as (what is shown, its text, {(work, side): {size: value}})."""
    named = max(len(drawn) for _, _, drawn in panels)
    bottom = 0.62 + 0.2 * ((named + 2) // 3)
    height = 2.6 + bottom + 0.6
    figure = plt.figure(figsize=(WIDTH, height))
    left, gap = 0.85, 1.1  # inches
    width = (WIDTH - left - 0.2 - gap * (len(panels) - 1)) / len(panels)
    for place, (what, text, drawn) in enumerate(panels):
        axes = figure.add_axes(((left + place * (width + gap)) / WIDTH, bottom / height, width / WIDTH, 2.6 / height))
        draw_panel(axes, growth, what, text, drawn)
    handles, labels = axes.get_legend_handles_labels()
    figure.text(0.012, 1 - 0.2 / height, growth.title, fontsize=11, fontweight="bold", va="center")
    figure.legend(handles, labels, loc="lower left", bbox_to_anchor=(0.005, 0.02 / height), frameon=False, ncol=3,
                  fontsize=8.5, handlelength=3, columnspacing=1.6)
    save(figure, path)
