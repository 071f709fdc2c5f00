"""Why an aim is missed, where it is: a sentence for a job and a peer. An aim that is reached needs none."""

import re

# (family, pattern of the job, pattern of the peer, sentence); the first that matches counts.
SENTENCES = (
    ("trees", r"remove", r"rm -rf",
     "Both sides remove each entry by one call of the kernel, which is nearly all of the time."),
    ("trees", r"copy 1 GiB", r"",
     "The calls are those of the bare loop; fresh memory for a gigabyte costs one time more, another time less."),
    ("socket", r".*64 B", r"",
     "A receive begins with a look at the clock, by contract, which is felt beside a transfer of a few bytes."),
    ("queue", r".*threads", r"",
     "The queue broadcasts with its mutex held, by contract, so a thread that is woken finds the mutex taken; "
     "the peer lets one thread wake."),
    ("tracer", r"", r"malloc",
     "Libc keeps a block that is freed at once at hand, and three times that is little for two calls into a "
     "shared object, two lockings and four guards."),
    ("tracer", r".*live blocks", r"dmalloc",
     "Among many live blocks most of the time goes to bringing a block into the processor's cache, which both "
     "sides do."),
    ("sysinfo", r".*among 600", r"",
     "The names and sections of more shares find less room in the processor's cache."),
    ("log", r"", r"spdlog",
     "Each line looks for the log's lock, by contract, and a look for a name that is missing takes longer than the "
     "peer's whole line: a look and a write alone are no faster than their row shows."),
    ("log", r"", r"stat\+stamp",
     "The look for the lock and the write are most of a line, and both sides make them."),
    ("cpp", r".*get", r"",
     "The layer gives the value as a text of its own, which is one copy."),
    ("cpp", r".*lock", r"",
     "The layer first asks the system whether it may make a lock in that folder, so that nobody waits in vain, and "
     "looks at the clock, so that it never releases a lock that others took over."),
    ("cpp", r".*queue", r"",
     "The layer moves the value into its node and out of it, which is felt beside calls that take some ten "
     "nanoseconds."),
    ("cpp", r".*log", r"",
     "The layer hands the text on with its length, which takes one more step of formatting."),
    ("tool", r"conf get", r"git",
     "The loader binds the library and the C++ runtime each time the tool starts."),
)


def sentence(figure):
    """The one for this figure, or None."""
    for family, job, peer, text in SENTENCES:
        if figure.family == family and re.match(job, figure.job) and re.match(peer, figure.side):
            return text
    return None
