"""The summary: one row per job, and a sentence for each aim that is missed."""

import re
import sys

from figures import ratio_text, time_text, value_text
from misses import sentence
from tables import by_job, measured, table

VERDICTS = {None: "", True: "reached", False: "**missed**"}


def anchor(title):
    return re.sub(r"[^a-z ]", "", title.lower()).replace(" ", "-")


def shown_peer(peers):
    """The one whose aim is nearest to being missed; without aims the fastest."""
    aimed = [peer for peer in peers if peer.wanted_ratio is not None]
    if aimed:
        return min(aimed, key=lambda peer: peer.ratio / peer.wanted_ratio)
    return min(peers, key=lambda peer: peer.value)


def job_row(job, sides):
    ours = next((side for side in sides if side.ours), None)
    peers = [side for side in sides if not side.ours]
    if ours is None or not peers:
        return None
    peer = shown_peer(peers)
    return (job, value_text(ours), peer.side, value_text(peer), ratio_text(peer.ratio), peer.aim_text,
            VERDICTS[peer.reached])


def difference_row(figure, sides):
    """A job whose aim is for the difference to its peer."""
    peer = next(side for side in sides if not side.ours)
    return (figure.job.split(":")[0], value_text(sides[0]), peer.side, value_text(peer), ratio_text(peer.ratio),
            f"{figure.aim_text} more, is {time_text(figure.value)}", VERDICTS[figure.reached])


def family_rows(family, figures):
    if family == "load":
        jobs = by_job([figure for figure in measured(figures, "elapsed") if not figure.aim])
        return [difference_row(figure, jobs[figure.job.split(":")[0]]) for figure in figures if figure.aim]
    jobs = by_job(measured(figures, "processor"))
    return [row for row in (job_row(job, sides) for job, sides in jobs.items()) if row is not None]


def missed_lines(figures):
    lines = []
    for figure in figures:
        if figure.reached is not False:
            continue
        why = sentence(figure)
        if why is None:
            print(f"no sentence says why {figure.job} misses its aim beside {figure.side}", file=sys.stderr)
        got = ratio_text(figure.ratio) if figure.wanted_ratio is not None else time_text(figure.value)
        told = f"- {figure.job}, beside {figure.side}: {got}, aim {figure.aim_text}."
        lines.append(f"{told} {why}" if why else told)
    return lines


def summary(figures, titles):
    """`titles`: the families that have rows, in the order of the page."""
    rows = []
    for family, title in titles.items():
        own = family_rows(family, [figure for figure in figures if figure.family == family])
        if own:
            rows += [(f"**[{title}](#{anchor(title)})**", "", "", "", "", "", ""), *own]
    aims = [figure for figure in figures if figure.reached is not None]
    missed = missed_lines(aims)
    told = table(("job", ">korvex", "peer", ">its figure", ">ratio", ">aim", ""), rows)
    counted = f"Of {len(aims)} aims {len(aims) - len(missed)} are reached" + ("; missed are:" if missed else ".")
    return "\n\n".join(filter(None, (told, counted, "\n".join(missed))))
