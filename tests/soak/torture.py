"""All attacks on the service, one after the other, and one table of what was seen; see scripts/torture."""

import argparse
import contextlib
import datetime
import io
import json
import os
import pathlib
import platform
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tools"))

import faults  # noqa: E402
import many  # noqa: E402
from crash import Crash  # noqa: E402
from engine import EngineSoak  # noqa: E402
from soak import Soak  # noqa: E402

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PAGE = SOURCE / "docs/torture.md"


def kills(bins, rounds):
    crash = Crash(bins / "zephond")
    try:
        seen = crash.run(rounds)
    finally:
        crash.service.remove()
    damaged = Crash(bins / "zephond")
    checks = max(2, min(5, rounds // 100))
    try:
        blind = damaged.control(checks)
    finally:
        damaged.service.remove()
    return (f"{seen}; control: {3 * checks} damages done by hand, {blind} not noticed",
            not crash.problems and not blind)


def children(bins, cycles):
    soak = EngineSoak(bins / "zephond")
    return soak.run(cycles), not soak.problems


def soaked(bins, minutes):
    soak = Soak(bins / "zephond")
    try:
        return soak.run(60 * minutes)
    finally:
        soak.stop.set()
        soak.service.remove()


# name: (attack, holds when, what runs it, its counts, its counts with --quick)
ROWS = {
    "kills": ("SIGKILL at random in a load of lines, clones, bindings and pre-bakes",
              "nothing that was acknowledged is lost, no file is torn, no temporary file stays; a "
              "control proves that damage would be seen", kills, [3000], [30]),
    "calls": ("each of the first 50 write, fsync, rename, open and directory calls of the stores "
              "fails once, with ENOSPC, EIO, EROFS and EMFILE",
              "what was there stays, the failure is told, and the stores work again without a restart",
              faults.store_calls, [50], [3]),
    "disk": ("a data root of 2 MB that fills up", "as above", faults.small_disk, [2], [2]),
    "crowd": ("10,000 idle connections, 500 slow senders of heads and bodies and slow readers",
              "`/health` within 50 ms at p99 for others, less than 250 MB resident, threads bounded",
              many.crowd, [10000, 500], [2000, 100]),
    "descriptors": ("`prlimit --nofile=64` and four times as many clients",
                    "no spin, served again within 1 s, nothing cached is forgotten",
                    many.descriptors, [64], [64]),
    "bodies": ("a body of 1 GB; bodies that are promised and do not come; lengths that lie or overflow; "
               "chunks", "memory bounded by what one request may hold and given back, others served",
               many.bodies, [1024], [64]),
    "queue": ("1,000 lines at one moment, 64 may wait",
              "exactly 64 wait, the rest is refused within 50 ms, those that wait are spoken",
              many.queue, [1000], [300]),
    "child": ("the inference process is killed, stopped, silent, talks garbage, is cut off, ends at "
              "every start, 1,000 cycles",
              "no zombie, no orphan, descriptors flat, cached lines served throughout", children,
              [1000], [10]),
    "signals": ("SIGTERM and SIGINT in the middle of everything",
                "the end within 10 s, the child gone, the stores whole", faults.signals, [200], [8]),
    "clock": ("the clock jumps back and forth by years",
              "no time-out fires wrongly, nothing is lost", faults.clock, [20], [2]),
    "hostile": ("hostile clips, packs, JSON, feeds, hub replies and stores: the fuzzers' corpora",
                "a told error, the service lives, memory flat", faults.hostile, [15], [4]),
    "soak": ("mixed load for a long time", "the slope of the memory is flat, every answer as it should "
             "be", soaked, [60], [1]),
}


def run_row(name, bins, counts):
    attack, holds, run, _, _ = ROWS[name]
    begin = time.monotonic()
    talk = io.StringIO()
    try:
        with contextlib.redirect_stdout(talk):
            seen, good = run(bins, *counts)
    except Exception as error:  # a row that breaks is a row that does not hold
        seen, good = f"the test itself broke: {error!r}", False
    if not good:
        print(talk.getvalue()[-3000:], file=sys.stderr)
    return {"seen": seen, "verdict": "holds" if good else "FALLS SHORT", "counts": counts,
            "seconds": round(time.monotonic() - begin),
            "day": datetime.date.today().isoformat()}


def table(results):
    lines = ["| attack | holds when | what was seen | verdict |", "|---|---|---|---|"]
    for name, (attack, holds, _, _, _) in ROWS.items():
        result = results.get(name)
        seen, verdict = ("", "not run")
        if result:
            verdict = result["verdict"]
            seen = (f"{result['seen']} ({result['day']}, counts "
                    f"{', '.join(map(str, result['counts']))}, {result['seconds']} s)")
        lines.append(f"| {attack} | {holds} | {seen} | {verdict} |")
    return "\n".join(lines)


def fuzz_table(path):
    """The sums of what scripts/fuzz has noted."""
    sums = {}
    for line in path.read_text().splitlines():
        name, seconds, runs, finds = line.split("\t")
        old = sums.get(name, (0, 0, 0))
        sums[name] = tuple(a + int(b) for a, b in zip(old, (seconds, runs, finds)))
    lines = ["| target | seconds | executions | finds |", "|---|---|---|---|"]
    lines += [f"| {name} | {seconds} | {runs:,} | {finds} |"
              for name, (seconds, runs, finds) in sorted(sums.items())]
    return "\n".join(lines)


def write_page(results, work):
    text = PAGE.read_text()
    blocks = {"attacks": table(results), "machine":
              f"{os.cpu_count()} cores, {platform.system()} {platform.release()}, "
              f"{os.sysconf('SC_PAGE_SIZE') * os.sysconf('SC_PHYS_PAGES') >> 30} GiB."}
    if (work.parent / "fuzz/results.tsv").exists():
        blocks["fuzz"] = fuzz_table(work.parent / "fuzz/results.tsv")
    for name, block in blocks.items():
        begin, end = f"<!-- {name} -->\n", f"\n<!-- end of {name} -->"
        before, _, rest = text.partition(begin)
        text = before + begin + block + end + rest.partition(end)[2]
    PAGE.write_text(text)


def main():
    parser = argparse.ArgumentParser(prog="torture", description="rows: " + ", ".join(ROWS))
    parser.add_argument("programs", type=pathlib.Path)
    parser.add_argument("rows", nargs="*", metavar="row[=count,…]")
    parser.add_argument("--quick", action="store_true", help="small counts; the page stays as it is")
    parser.add_argument("--page", action="store_true", help="writes the page from what was noted only")
    words = parser.parse_intermixed_args()
    work = words.programs.resolve().parents[1] / "torture"
    work.mkdir(exist_ok=True)
    noted = work / "results.json"
    results = json.loads(noted.read_text()) if noted.exists() and not words.quick else {}
    asked = {word.partition("=")[0]: word.partition("=")[2] for word in words.rows}
    if unknown := asked.keys() - ROWS.keys():
        parser.error(f"no such row: {', '.join(unknown)}")
    failed = False
    for name in [] if words.page else asked or ROWS:
        counts = ([int(count) for count in asked[name].split(",")] if asked.get(name)
                  else ROWS[name][4 if words.quick else 3])
        print(f"== {name} {counts}", file=sys.stderr, flush=True)
        results[name] = run_row(name, words.programs.resolve(), counts)
        failed |= results[name]["verdict"] != "holds"
        print(f"   {results[name]['verdict']}: {results[name]['seen']}", file=sys.stderr, flush=True)
        if not words.quick:
            noted.write_text(json.dumps(results, indent=1))
    print(table(results))
    if not words.quick:
        write_page(results, work.parent / "torture")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
