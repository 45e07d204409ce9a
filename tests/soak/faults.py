"""Rows of scripts/torture: a disk that refuses, an end at any moment, a clock that jumps, hostile bytes."""

import base64
import contextlib
import http.client
import json
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
from pathlib import Path

from crash import Crash
from live_service import Service
from store_checks import (json_faults, processes_of, temporary_files, tone_wav, zombies_of)

GONE = (OSError, http.client.HTTPException)
CALLS = ("write", "fsync", "rename", "openat", "getdents64")
ERRORS = ("ENOSPC", "EIO", "EROFS", "EMFILE")


def store_calls(bins, count):
    """One call of a store at work fails; what was there stays, what was promised is kept."""
    program = str(bins / "store-load")
    problems, struck, told, refused_start, runs = [], 0, 0, 0, 0
    with tempfile.TemporaryDirectory(prefix="zephon-calls-") as folder:
        prepared = Path(folder, "prepared")
        old = promised(run_lines([program, str(prepared), "prepare"])[1])
        for call, error, number in ((c, e, n) for c in CALLS for e in ERRORS
                                    for n in range(1, count + 1)):
            root, trace = Path(folder, "root"), Path(folder, "trace")
            shutil.copytree(prepared, root)
            code, lines = run_lines(
                ["strace", "-f", "-o", str(trace), "-e", f"trace={call}", "-e",
                 f"inject={call}:error={error}:when={number}", program, str(root), "work", *old])
            runs += 1
            hit = "INJECTED" in trace.read_text(errors="replace")
            struck += hit
            told += hit and any(line.startswith("told ") for line in lines)
            what = f"{call} {number} {error}"
            if "end" not in lines:
                # The program's own libraries could not be loaded.
                refused_start += 1
                if code == 0:
                    problems.append(f"{what}: ended early without a word")
            problems += [f"{what}: {line}" for line in lines if line.startswith("missing ")]
            _, after = run_lines([program, str(root), "check", *old, *promised(lines)])
            problems += [f"{what}, later: {line}" for line in after if line != "end"
                         and line.startswith("missing ")]
            problems += [f"{what}: {fault}" for fault in json_faults(root)]
            problems += [f"{what}: {path} is left" for path in temporary_files(root)]
            shutil.rmtree(root)
    print(*problems[:10], sep="\n")
    return (f"{runs} runs, the fault struck in {struck}; told in {told}, outlasted or without "
            f"consequence in {struck - told - refused_start}, no start in {refused_start}; "
            f"{len(problems)} lost, torn or left behind"), not problems and struck > runs / 4


def run_lines(command):
    ran = subprocess.run(command, capture_output=True, timeout=60)
    return ran.returncode, ran.stdout.decode(errors="replace").splitlines()


def promised(lines):
    return [line for line in lines if line.split(" ")[0] in ("clip", "voice", "binding")]


def small_disk(bins, megabytes):
    """A data root on a disk that is soon full."""
    folder = Path(tempfile.mkdtemp(prefix="zephon-small-"))
    mount = ["mount", "-t", "tmpfs", "-o", f"size={megabytes}m", "tmpfs", str(folder)]
    if subprocess.run(mount, capture_output=True).returncode:
        folder.rmdir()
        return "not run: this user may not mount", False
    service = Service(bins / "zephond", {"synthesis": {"outputSampleRate": 16000}}, root=folder)
    problems = []

    def expect(what, condition):
        if not condition:
            problems.append(what)

    def log():
        return service.log.read_text(errors="replace")

    def speak(text):
        status, headers, _ = service.ask("GET", "/v1/tts?text=" + text.replace(" ", "+"))
        return status, headers.get("X-ZEPHO-Cache")

    def clone(number):
        return service.ask("POST", "/v1/voices/clone", {
            "display": f"Voice {number}", "reference_text": "one",
            "audio": base64.b64encode(tone_wav(number, 160000)).decode()})
    try:
        service.start()
        expect("the first line", speak("The first line") == (200, "miss"))
        status, _, answer = clone(1)
        expect("the first voice", status == 200)
        voice = json.loads(answer)["id"]
        service.ask("PUT", "/v1/airlines", {"airline": "OLD", "voice": voice})
        for number in range(1000):
            status, _ = speak(f"A line that fills the disk by and by, number {number}")
            expect(f"line {number} got {status}", status == 200)
            if "cannot write cache" in log():
                break
        expect("nothing about a full disk in the log", "cannot write cache" in log())
        status, _, answer = clone(2)
        expect(f"a voice got {status} {answer[:100]}", status == 500 and b"clone_failed" in answer)
        expect("the cached line is no hit", speak("The first line") == (200, "hit"))
        with contextlib.suppress(OSError), open(folder / "filler", "wb", 0) as filler:
            while filler.write(bytes(4096)):
                pass
        service.ask("PUT", "/v1/airlines", {"airline": "MID", "voice": voice})
        expect("nothing about the settings in the log", "cannot write config" in log())
        expect("the binding is forgotten", b"MID" in service.ask("GET", "/v1/airlines")[2])
        expect("/health", service.ask("GET", "/health")[0] == 200)
        problems += json_faults(folder)
        expect(f"left: {temporary_files(folder)}", not temporary_files(folder))
        service.kill()
        service.start()
        expect("the old voice is lost", voice.encode() in service.ask("GET", "/v1/voices")[2])
        expect("the old binding is lost", b"OLD" in service.ask("GET", "/v1/airlines")[2])
        expect("the old line is lost", speak("The first line") == (200, "hit"))
        (folder / "filler").unlink()
        # Room again, and no restart.
        service.ask("DELETE", "/v1/cache")
        expect("no voice with room", clone(3)[0] == 200)
        service.ask("PUT", "/v1/airlines", {"airline": "NEW", "voice": voice})
        speak("A line with room")
        expect("not kept with room", speak("A line with room") == (200, "hit"))
        expect("the exit", service.stop() == 0)
        service.start()
        expect("the new binding is lost", b"NEW" in service.ask("GET", "/v1/airlines")[2])
        problems += json_faults(folder)
        lines = log()
        told = [line for line in ("cannot write cache to", "cannot write cache index",
                                  "cannot write config") if line in lines]
    finally:
        service.kill()
        subprocess.run(["umount", "-l", str(folder)], check=False)
        service.remove()
    print(*problems, sep="\n")
    return (f"full after {number} lines; told in the log: {', '.join(told)}; a voice refused with "
            f"clone_failed; {len(problems)} lost, torn or not as told"), not problems


class Ended(Crash):
    """The load of the crash test, with an inference process that misbehaves, ended by a signal."""

    def __init__(self, bins):
        super().__init__(bins / "zephond")
        self.engine = self.service.with_engine(bins / "fake-s2")
        self.allowed |= {404, 500, 503, 504}
        self.codes, self.longest, self.unfinished = {}, 0, 0

    def behave(self):
        words = self.random.choice(["", "delay-ms=2500", "ignore-term=1", "hang-up=1",
                                    "delay-ms=20", "start-delay-ms=2000", "die-at=request"])
        (self.engine.parent / "fake-s2.conf").write_text(words + "\n")

    def end(self):
        number = self.random.choice([signal.SIGTERM, signal.SIGINT])
        pid = self.service.process.pid
        begin = time.monotonic()
        code = self.service.end_by(number)
        took = time.monotonic() - begin
        self.longest = max(self.longest, took)
        self.codes[code] = self.codes.get(code, 0) + 1
        if code != 0:
            self.problem(f"{number.name} ended it with {code}")
        if took > 10:
            self.problem(f"{number.name} took {took:.1f} s")
        if left := {pid: state for pid, state in processes_of(self.engine).items()}:
            self.problem(f"the child is left: {left}")
        if zombies_of(pid):
            self.problem("a zombie is left")
        # A write that nobody was promised ends with the process; the next start clears it away.
        self.unfinished += len(temporary_files(self.service.root))

    def run(self, rounds):
        self.prepare()
        for _ in range(rounds):
            self.behave()
            self.load(self.random.uniform(0, 0.8))
            self.check_files("after the end")
            self.behave()
            self.service.start()
            if self.random.random() < 0.3:
                # At once, in the middle of its start.
                self.end()
                self.service.start()
            self.check_started()


def signals(bins, rounds):
    """SIGTERM and SIGINT while lines, voices, bindings and pre-bakes are under way."""
    soak = Ended(bins)
    try:
        soak.run(rounds)
    finally:
        soak.service.remove()
    return (f"{sum(soak.codes.values())} ends under load, {soak.asked} requests, {soak.promised} "
            f"lines promised; exit codes {soak.codes}, longest {soak.longest:.1f} s; "
            f"{soak.unfinished} unfinished writes lay about until the next start; "
            f"{len(soak.problems)} lost, torn or left behind"), not soak.problems


class Jumping(Crash):
    """The load of the crash test under a clock that jumps by years; the steady one goes on."""

    LIBRARY = "/usr/lib/x86_64-linux-gnu/faketime/libfaketimeMT.so.1"

    def __init__(self, bins):
        super().__init__(bins / "zephond")
        self.clock = Path(tempfile.mkdtemp(prefix="zephon-clock-"), "clock")
        self.clock.write_text("+0d\n")
        self.service.settings["synthesis"]["timeoutMs"] = 20000
        self.service.environment = {
            "LD_PRELOAD": self.LIBRARY, "FAKETIME_TIMESTAMP_FILE": str(self.clock),
            "FAKETIME_NO_CACHE": "1", "FAKETIME_DONT_FAKE_MONOTONIC": "1",
            "DONT_FAKE_MONOTONIC": "1"}
        self.engine = self.service.with_engine(bins / "fake-s2")
        (self.engine.parent / "fake-s2.conf").write_text("delay-ms=30\n")
        self.allowed |= {503}  # while the engine loads
        self.jumps = 0

    def jump(self, stop):
        while not stop.is_set():
            following = self.clock.with_suffix(".next")
            following.write_text(f"{self.random.randrange(-20, 20):+}y\n")
            following.rename(self.clock)
            self.jumps += 1
            time.sleep(0.05)

    def end(self):
        if self.service.stop() != 0:
            self.problem("no orderly end")

    def run(self, rounds):
        self.prepare()
        stop = threading.Event()
        jumper = threading.Thread(target=self.jump, args=[stop])
        jumper.start()
        try:
            for _ in range(rounds):
                self.load(5)
                self.check_files("after the end")
                self.service.start()
                self.check_started()
        finally:
            stop.set()
            jumper.join()
        voices = json.loads((self.service.root / "data/voices.json").read_text())["voices"]
        return len({voice["createdAt"][:4] for voice in voices})


def clock(bins, rounds):
    """The wall clock jumps back and forth by years, twenty times a second."""
    if not Path(Jumping.LIBRARY).exists():
        return "not run: no libfaketime", False
    soak = Jumping(bins)
    try:
        years = soak.run(rounds)
    finally:
        soak.service.remove()
        shutil.rmtree(soak.clock.parent, ignore_errors=True)
    return (f"{soak.jumps} jumps within 20 years, voices made in {years} different years; "
            f"{soak.asked} requests, {soak.promised} lines and {soak.cloned} voices promised over "
            f"{rounds} restarts; {len(soak.problems)} timed out, lost or torn"), (
                not soak.problems and years > 3)


def send_raw(service, words):
    with socket.create_connection(("127.0.0.1", service.port), 5) as client:
        client.settimeout(0.3)
        with contextlib.suppress(OSError):
            client.sendall(words)
            client.shutdown(socket.SHUT_WR)
            client.recv(1 << 16)


def corpus(name):
    folder = Path(__file__).parents[2] / "fuzz/corpus" / name
    return [path.read_bytes() for path in sorted(folder.iterdir())] if folder.exists() else []


def hostile(bins, rounds):
    """Everything that the fuzzers keep, handed to a live service and to the readers of files."""
    problems, statuses = [], {}
    service = Service(bins / "zephond").start()
    deep = b'{"text":' + b"[" * 1_000_000
    wide = b'{"items":[' + b"[]," * 30_000_000 + b"[]]}"
    with tempfile.TemporaryDirectory(prefix="zephon-clips-") as folder:
        subprocess.run([bins / "hostile-clips", folder], check=True, capture_output=True)
        made = [path.read_bytes() for path in sorted(Path(folder).iterdir())]
    clips = made + corpus("wav") + corpus("mp3") + corpus("ogg")
    texts = corpus("json") + corpus("manifest") + corpus("hub-list") + corpus("releases") + [deep]

    def ask(method, target, body):
        try:
            status = service.ask(method, target, body, timeout=60)[0]
        except GONE as error:
            problems.append(f"{method} {target}: {error!r}")
            return
        statuses[status] = statuses.get(status, 0) + 1
        if status >= 500 and status != 503:
            problems.append(f"{method} {target}: {status} for {body[:60]!r}")
    sizes = []
    try:
        for _ in range(rounds):
            for clip in clips:
                ask("POST", "/v1/voices/clone", json.dumps(
                    {"audio": base64.b64encode(clip).decode(), "reference_text": "one"}).encode())
            for text in texts + clips[:20]:
                for method, target in (("POST", "/v1/tts"), ("POST", "/v1/prewarm"),
                                       ("POST", "/v1/voices/clone"), ("PUT", "/v1/airlines"),
                                       ("PUT", "/v1/defaults")):
                    ask(method, target, text)
            for words in corpus("http"):
                send_raw(service, words[1:])
            for voice in json.loads(service.ask("GET", "/v1/voices")[2])["voices"]:
                service.ask("DELETE", "/v1/voices/" + voice["id"])
            service.ask("DELETE", "/v1/cache")
            service.wait_until(lambda: b'"prewarm_pending":0' in service.ask("GET", "/v1/stats")[2])
            sizes.append(service.status("RssAnon") / 1024)
        peak = service.status("VmHWM") / 1024
        ask("POST", "/v1/prewarm", wide)
        wide_peak = service.status("VmHWM") / 1024
        if service.stop() != 0:
            problems.append("no orderly end")
        starts = replay_stores(service, problems)
    finally:
        service.remove()
    programs = replay_programs(bins, problems)
    print(*problems[:10], sep="\n")
    growth = sizes[-1] - sizes[len(sizes) // 3]
    return (f"{rounds} rounds of {len(clips)} clips, {len(texts)} texts at 5 routes, "
            f"{len(corpus('http'))} streams: statuses {dict(sorted(statuses.items()))}; memory "
            f"{sizes[len(sizes) // 3]:.0f} MB after a third, {sizes[-1]:.0f} MB at the end, peak "
            f"{peak:.0f} MB; 90 MB of empty lists refused at {wide_peak:.0f} MB; {starts} starts on "
            f"damaged stores; {programs}; {len(problems)} amiss"), (
                not problems and growth < 10 and wide_peak < 700)


def replay_stores(service, problems):
    """A start with each kept input as one of the files."""
    starts = 0
    for name, kind in (("voices.json", "voices"), ("config.json", "config"), ("index.json", "index")):
        path = service.root / ("temp" if kind == "index" else "data") / name
        for content in corpus(kind):
            if kind == "config":
                # The test needs its port; a file that is no object would open the usual one.
                try:
                    if not isinstance(json.loads(content), dict):
                        continue
                    sections = json.loads(content)
                except ValueError:
                    continue
                if not isinstance(sections.get("server", {}), dict):
                    continue
            path.write_bytes(content)
            try:
                service.start(20)
                starts += 1
                if service.ask("GET", "/health")[0] != 200 or service.stop() != 0:
                    problems.append(f"{name}: no health or no orderly end")
            except (RuntimeError, *GONE) as error:
                problems.append(f"{name} {content[:60]!r}: {error!r:.200}")
            path.unlink(missing_ok=True)
    return starts


def replay_programs(bins, problems):
    """Packs, feeds and hub replies have no route: their readers, in a process of their own."""
    inputs = 0
    for name in ("zip", "manifest", "releases", "hub-list", "exchange"):
        folder = Path(__file__).parents[2] / "fuzz/corpus" / name
        ran = subprocess.run([bins / f"replay-{name}", folder], capture_output=True, timeout=120)
        if ran.returncode:
            problems.append(f"replay-{name} ended with {ran.returncode}")
        else:
            inputs += int(re.match(rb"\d+", ran.stdout)[0])
    return f"{inputs} packs, feeds and replies read in process"
