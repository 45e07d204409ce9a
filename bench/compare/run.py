"""Runs every comparison; see scripts/bench."""

import json
import os
import pathlib
import random
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
import wave

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import servers  # noqa: E402
from table import Row, compared, plain, spread, write_page  # noqa: E402


class Programs:
    """The measuring programs of bench/, asked for single figures."""

    def __init__(self, directory, repetitions):
        self.directory = pathlib.Path(directory)
        self.repetitions = repetitions

    def run(self, name, pattern, environment=None, times=1):
        """{name: ([milliseconds of each round], counters)}; sides take turns inside the program,
        `times` as often as elsewhere."""
        out = subprocess.run(
            [self.directory / f"bench-{name}", f"--benchmark_filter={pattern}",
             f"--benchmark_repetitions={times * self.repetitions}", "--benchmark_format=json",
             "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.05"],
            capture_output=True, text=True, check=True,
            env={**os.environ, **(environment or {})}).stdout
        units = {"ns": 1e-6, "us": 1e-3, "ms": 1, "s": 1e3}
        found = {}
        for one in json.loads(out)["benchmarks"]:
            if one.get("run_type") == "aggregate" or one.get("error_occurred"):
                continue
            plain_name = re.sub(r"/(real_time|repeats:\d+|iterations:\d+)", "", one["name"])
            which = "real_time" if "real_time" in one["name"] else "cpu_time"
            times, _ = found.setdefault(plain_name, ([], one))
            times.append(one[which] * units[one["time_unit"]])
        return found


def against(found, work, ours, peer, goal, unit="ms", scale=1.0, note=""):
    if ours not in found or peer not in found:
        return Row(work, "not measured", note="the peer is not installed")
    return compared(work, [t * scale for t in found[ours][0]], [t * scale for t in found[peer][0]],
                    unit, goal, False, note)


def speed_rows(programs):
    found = programs.run("speed", "stretch|soundTouch|sonic|rubberBand")
    rows = []
    for percent, default, sonic in ((125, 3.0, 2.6), (80, 2.3, 2.0)):
        work = f"12 s clip at {percent / 100}"
        for peer, name, goal in ((f"soundTouch/default/{percent}", "SoundTouch", default),
                                 (f"soundTouch/framesLikeOurs/{percent}",
                                  "SoundTouch with such frames", 9.0),
                                 (f"sonic/{percent}", "sonic", sonic),
                                 (f"rubberBand/{percent}", "Rubber Band", 50.0)):
            rows.append(against(found, f"{work}, {name}", f"stretch/{percent}", peer, goal))
    soundtouch = found.get("soundTouch/default/125")
    return rows, statistics.median(soundtouch[0]) if soundtouch else None


def queue_rows(programs):
    found = programs.run("queue", ".")
    work = "queue hand-over, two threads and "
    return [against(found, work + "the library's semaphore", "synthQueue",
                    "plainPair<std::counting_semaphore<>>", 1 / 1.3, "µs", 1e3),
            against(found, work + "our own", "synthQueue", "plainPair<OwnSignal>", None, "µs", 1e3)]


def placeholder_rows(programs):
    found = programs.run("placeholder", ".")
    rows = []
    for number, name in ((0, "Chinese"), (1, "English")):
        work = f"placeholder, a line of 12 s, {name}"
        rows.append(against(found, work + ", plain loop", f"placeholder/{number}",
                            f"plainLoop/{number}", 10.0))
        rows.append(against(found, work + ", espeak-ng as a process", f"placeholder/{number}",
                            f"espeak/{number}", None))
    return rows


def zip_rows(programs, rounds):
    found = programs.run("zip", "ourExport|zip6|ourReading|unzip")
    rows = [against(found, "export of 50 MB of WAV, zip -6", "ourExport", "zip6", 2.0),
            against(found, "reading it back, unzip -p", "ourReading", "unzip", 2.0)]
    directory = pathlib.Path(tempfile.mkdtemp(prefix="zephon-bench-noise-"))
    try:
        (directory / "clips").mkdir()
        source = random.Random(1)
        for number in range(10):
            with wave.open(str(directory / "clips" / f"{number}.wav"), "wb") as clip:
                clip.setparams((1, 2, 44100, 0, "NONE", ""))
                clip.writeframes(source.randbytes(1_000_000))
        times = {}
        for _ in range(rounds):
            began = time.perf_counter()
            subprocess.run("rm -f n.zip; cd clips && zip -q -0 -r ../n.zip . && sync ../n.zip",
                           shell=True, cwd=directory, check=True)
            times.setdefault("zip", []).append((time.perf_counter() - began) * 1e3)
        noise = programs.run("zip", "ourExport", {"ZEPHO_BENCH_CLIPS": str(directory / "clips")})
        rows.append(compared("export of 10 MB of noise, zip -0 and sync", noise["ourExport"][0],
                             times["zip"], "ms", 0.9, False, "both reach the disk"))
    finally:
        shutil.rmtree(directory)
    return rows


def download_rows(programs, megabytes, rounds):
    out = subprocess.run([programs.directory / "bench-download", str(megabytes), str(rounds)],
                         capture_output=True, text=True, check=True).stdout
    curl = float(re.search(r"^curl +(\d+)", out, re.M)[1])
    ours = float(re.search(r"^downloader +(\d+)", out, re.M)[1])
    return [compared(f"download of {megabytes} MB, sparse, loopback, curl", [ours], [curl], "MB/s",
                     0.9, True)]


def decode_rows(programs):
    # A difference of milliseconds between two that vary by as much.
    found = programs.run("decode", "inHelper|inProcess", times=5)
    rows = []
    for kind in ("mp3", "ogg"):
        ours, peer = found.get(f"inHelper/{kind}/1"), found.get(f"inProcess/{kind}/1")
        if not ours or not peer:
            rows.append(Row(f"10 s of mono {kind} in the helper", "not measured"))
            continue
        more = statistics.median(ours[0]) - statistics.median(peer[0])
        rows.append(Row(f"10 s of mono {kind} in the helper, at most 2 ms more than in process",
                        f"{more:.2f} ms more", "2 ms", 2 / max(more, 0.01), 1.0, spread(ours[0])))
    return rows


def index_rows(programs):
    found = programs.run("cache", "start|parseIndexOnly|writeIndex")
    rows = [against(found, "start on 100,000 clips, nlohmann parse alone", "start",
                    "parseIndexOnly", 2.0),
            against(found, "write of their index, nlohmann sorted and indented", "writeIndex",
                    "writeIndexByLibrary", 4.0, note="both synced to the disk"),
            against(found, "the same without the disk", "writeIndexInMemory",
                    "writeIndexInMemoryByLibrary", None, note="both into a file in memory")]
    ours, theirs = (found[name][1].get("peak", 0) for name in ("start", "parseIndexOnly"))
    if ours > 0 and theirs > 0:
        rows.append(Row("peak memory of that start, at most 0.6 of the parse", f"{ours / 1e6:.0f} MB",
                        f"{theirs / 1e6:.0f} MB", theirs / ours, 1 / 0.6))
    peak = found["start"][1].get("VmRSS")
    if peak:
        rows.append(Row("resident after that start, below 150 MB", f"{peak / 1e6:.0f} MB", "150 MB",
                        150e6 / peak, 1.0))
    return rows


def growth_rows(programs):
    rows = []
    for count in (10, 1000, 100000):
        found = programs.run("cache", "^start|^hit/|index:0", {"ZEPHO_BENCH_ENTRIES": str(count)})
        middle = {name: statistics.median(times) for name, (times, _) in found.items()}
        rows.append(Row(f"cache of {count:,} clips",
                        f"start {middle['start']:.2f} ms, hit {middle['hit'] * 1e3:.2f} µs, "
                        f"put {middle['put/index:0']:.2f} ms"))
    for count in (1, 100, 2000):
        found = programs.run("voices", "findById|routeAtLastStep|listAll",
                             {"ZEPHO_BENCH_VOICES": str(count)})
        middle = {name: statistics.median(times) * 1e3 for name, (times, _) in found.items()}
        rows.append(Row(f"{count:,} voices",
                        f"by id {middle['findById']:.2f} µs, routing "
                        f"{middle['routeAtLastStep']:.2f} µs, list {middle['listAll']:.0f} µs"))
    return rows


def main():
    quick = "--quick" in sys.argv
    words = [word for word in sys.argv[2:] if not word.startswith("--")]
    wanted = lambda word: not words or word in words  # noqa: E731
    began, load = time.monotonic(), os.getloadavg()[0]
    rounds, seconds = (2, 1) if quick else (5, 1)
    server_rounds = rounds if quick else 9
    programs = Programs(sys.argv[1], 2 if quick else 3)
    rows, growth, soundtouch = [], [], None

    def add(word, make):
        if not wanted(word):
            return
        print(f"{time.monotonic() - began:5.0f} s  {word}", file=sys.stderr)
        try:
            rows.extend(make())
        except (subprocess.CalledProcessError, RuntimeError, OSError, KeyError) as problem:
            # One that fails leaves the others their turn, and stands in the table.
            rows.append(Row(word, "failed", ratio=0.0, goal=1.0, note=repr(problem)[:200]))

    def speed():
        nonlocal soundtouch
        made, soundtouch = speed_rows(programs)
        return made

    add("speed", speed)
    if wanted("servers") or wanted("growth"):
        under_load = servers.Servers(sys.argv[1])
        try:
            add("servers", lambda: under_load.hits(server_rounds, seconds))
            add("servers", lambda: under_load.small(server_rounds, seconds))
            if soundtouch:
                add("servers", lambda: under_load.retimed(server_rounds, soundtouch))
            add("servers", lambda: under_load.idle(10000))
            if wanted("growth"):
                growth.extend(under_load.growth(seconds + 1))
        finally:
            under_load.end()
    add("queue", lambda: queue_rows(programs))
    add("placeholder", lambda: placeholder_rows(programs))
    add("zip", lambda: zip_rows(programs, rounds))
    add("download", lambda: download_rows(programs, 512 if quick else 4096, 1 if quick else 3))
    add("decode", lambda: decode_rows(programs))
    add("index", lambda: index_rows(programs))
    add("start", lambda: servers.start_rows(sys.argv[1], 2 * rounds))
    if wanted("growth"):
        growth.extend(growth_rows(programs))
    print(plain(rows))
    if growth:
        print("\n" + plain(growth))
    if not words and (not quick or "--page" in sys.argv):
        write_page("docs/performance.md", rows, growth, load, time.monotonic() - began, server_rounds)


if __name__ == "__main__":
    main()
