"""Why an aim is missed, where it is: a sentence for a job, a peer and its aim. What is reached needs none, and is not shown."""

import re

# (family, pattern of the job, pattern of the peer, sentence); the first that matches counts.
SENTENCES = (
    ("conf", r"parse", r"", "Reading all is one allocation a section and a key on both sides, and there the peer saves what "
     "the library keeps: every line as it stands."),
    ("trees", r"remove", r"rm -rf", "Both sides remove each entry by one call, which is most of the time; what is left is one "
     "look and one open a folder."),
    ("trees", r"copy 1 GiB", r"", "The calls are those of the bare loop, so what differs is the spread of fresh memory."),
    ("trees", r"", r"", "Both sides spend most of their time in the same calls of the kernel."),
    ("socket", r"Recv_File", r"select and splice", "The calls are the same but for a look at the clock, so what differs is the "
     "spread between rounds."),
    ("socket", r".*64 B", r"", "A receive begins with a look at the clock, by contract, and beside the cheapest transfer that "
     "look is felt."),
    ("socket", r"", r"", "The calls are the same on both sides, so what differs is the spread between rounds."),
    ("queue", r".*threads", r"", "The queue broadcasts with its mutex held, by contract, so a thread that is woken finds the "
     "mutex taken; the peer wakes one thread, and only where one waits."),
    ("queue", r"one thread", r"", "Each call is one into a shared object that locks the mutex, and so is the peer's."),
    ("tracer", r".*", r"malloc", "Libc keeps a block that is freed at once at hand, and three times that is little for two calls "
     "into a shared object, two lockings and four guards."),
    ("tracer", r".*", r"dmalloc", "Most of the time goes to fetching the memory of the live blocks into the processor's cache, "
     "which both sides do."),
    ("sysinfo", r".*among 600", r"", "The names of more shares find less room in the processor's cache."),
    ("log", r"", r"spdlog", "Each line looks for the log's lock, by contract, and that one call takes longer than all of the "
     "peer's line."),
    ("log", r"", r"stat\+stamp", "The look for the lock and the write are most of a line, and both sides make them."),
    ("cpp", r".*lock", r"", "The lock's object keeps its path, which is a copy of some bytes."),
    ("cpp", r"", r"", "The layer checks the texts that it is given before it makes the C call."),
    ("tool", r"conf get", r"git", "The loader binds the library and the C++ runtime each time the tool starts."),
)


def sentence(figure):
    """The one for this figure, or None."""
    for family, job, peer, text in SENTENCES:
        if figure.family == family and re.match(job, figure.job) and re.match(peer, figure.side):
            return text
    return None
