"""Tables of the page."""


def table(heads, rows):
    """Of which the heads that begin with ">" are aligned to the right."""
    rules = ["---:" if head.startswith(">") else "---" for head in heads]
    lines = [[head.lstrip(">") for head in heads], rules, *rows]
    return "\n".join("|" + "".join(f" {cell} |" if cell else " |" for cell in line) for line in lines)


def by_job(figures):
    """The jobs in the order in which they were measured, each with its figures, the library's first."""
    jobs = {}
    for figure in figures:
        jobs.setdefault(figure.job, []).append(figure)
    return {job: sorted(sides, key=lambda side: not side.ours) for job, sides in jobs.items()}


def measured(figures, *measures):
    return [figure for figure in figures if figure.measure in measures]
