"""Rows of the table, and how they are written."""

import dataclasses
import os
import pathlib
import platform
import statistics
import subprocess
import time


@dataclasses.dataclass
class Row:
    """`ratio` tells how many times better than the peer ours is; at least `goal` is wanted."""

    work: str
    ours: str
    peer: str = "–"
    ratio: float | None = None
    goal: float | None = None
    noise: float | None = None  # relative spread of our rounds, as half of the middle half
    note: str = ""

    @property
    def met(self):
        return self.goal is None or (self.ratio is not None and self.ratio >= self.goal)


def spread(values):
    if len(values) < 3 or not statistics.median(values):
        return None
    low, _, high = statistics.quantiles(values, n=4)
    return (high - low) / 2 / statistics.median(values)


def compared(work, ours, peer, unit, goal, more_is_better, note=""):
    """A row from the rounds of both sides."""
    a, b = statistics.median(ours), statistics.median(peer)
    better = (a / b if b else 0) if more_is_better else (b / a if a else 0)
    return Row(work, f"{a:,.4g} {unit}", f"{b:,.4g} {unit}", better, goal, spread(ours), note)


def cells(row):
    return [row.work, row.ours, row.peer,
            "–" if row.ratio is None else f"{row.ratio:.2f}",
            "–" if row.goal is None else f"{row.goal:.2f}",
            "–" if row.noise is None else f"±{row.noise * 100:.0f} %",
            ("" if row.met else "**missed** ") + row.note]


HEADS = ["work", "ours", "peer", "times better", "goal", "noise", ""]


def plain(rows):
    lines = [HEADS] + [cells(row) for row in rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(HEADS))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
                     for line in lines)


def markdown(rows, heads=HEADS):
    lines = [heads, ["---"] * len(heads)] + [cells(row) for row in rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def machine():
    model = "unknown"
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    memory = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") / 2**30
    return (f"{model}, {os.cpu_count()} cores, {memory:.0f} GiB, Linux {platform.release()}, "
            f"{platform.libc_ver()[0]} {platform.libc_ver()[1]}")


def write_page(path, rows, growth, load_before, seconds, rounds):
    missed = [row for row in rows if not row.met]
    commit = subprocess.run(["git", "rev-parse", "--short", "HEAD"], capture_output=True,
                            text=True, check=False).stdout.strip()
    text = f"""# How fast it is

Written by `scripts/bench` on {time.strftime("%Y-%m-%d")} at {commit}, in {seconds:.0f} s. Both sides of a row are measured in
turn in the same run, those of the servers {rounds} times; the figures are medians. "Times better" is the ratio that makes ours look good
when it is above 1: requests or bytes a second over the peer's, or the peer's time over ours.

Machine: {machine()}. Its load average was {load_before:.1f} when the run began: on a busy machine only
the rows of CPU time, and ratios, mean much.

{markdown(rows)}

{len(rows) - len(missed)} of {len(rows)} rows reach their goal or have none.

## How cost grows

{markdown(growth)}
"""
    pathlib.Path(path).write_text(text)
