"""Tells a figure that grows without end from one that rises once and stays.

A queue that has filled up in a busy moment leaves the process larger for good: that is no leak. A leak is what is
larger in every part of the run than in the part before.
"""

from statistics import median

WARM_UP = 0.2  # of a run: programs and libraries are still being paged in
WINDOWS = 6
LEAST_SAMPLES = 2 * WINDOWS


def settled(samples):
    return samples[int(len(samples) * WARM_UP) :]


def window_medians(samples):
    """Medians of consecutive, equally long parts of a run behind its warm-up; None if it was too short to tell."""
    samples = settled(samples)
    if len(samples) < LEAST_SAMPLES:
        return None
    edges = [len(samples) * k // WINDOWS for k in range(WINDOWS + 1)]
    return [median(samples[begin:end]) for begin, end in zip(edges, edges[1:])]


def keeps_rising(medians, step):
    """Whether each part of the run lies at least `step` above the one before."""
    return all(after - before >= step for before, after in zip(medians, medians[1:]))


def memory_fault(samples, allowance_kib):
    """What is wrong with the resident memory of a process, or None.

    It may not keep rising, however slowly, nor end more than `allowance_kib` above where it settled.
    """
    medians = window_medians(samples)
    if medians is None:
        return "too few samples"
    if keeps_rising(medians, 16):
        return f"memory keeps rising: {_list(medians)} KiB"
    if medians[-1] - medians[0] > allowance_kib:
        return f"memory has grown by more than {allowance_kib} KiB: {_list(medians)} KiB"
    return None


def cpu_fault(shares):
    """What is wrong with the shares of a processor (0 to 1) that a process took, sample by sample, or None.

    A busy machine makes the same work take longer, so only a share that keeps rising, and rises a lot, counts.
    """
    medians = window_medians(shares)
    if medians is None:
        return "too few samples"
    if keeps_rising(medians, 0.0001) and medians[-1] > 1.5 * medians[0] + 0.02:
        return "processor share keeps rising: " + ", ".join(f"{100 * share:.1f}" for share in medians) + " %"
    return None


def count_fault(samples, limit, what):
    """What is wrong with the number of things that a process holds, or None."""
    if max(samples) > limit:
        return f"{max(samples)} {what}, at most {limit} expected"
    return None


def _list(values):
    return ", ".join(f"{value:.0f}" for value in values)
