"""An inference process that misbehaves under a live service; see scripts/soak-engine.

The process is tests/tools/FakeS2.cpp. One run of the service takes as many deaths as it restarts the
process after; then, or at random, the service itself is stopped or killed and started again.
"""

import http.client
import json
import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tools"))
from live_service import Service  # noqa: E402
from store_checks import processes_of, zombies_of  # noqa: E402

GONE = (OSError, http.client.HTTPException)

# What the process is told, and whether it dies of it.
FAULTS = {
    "kill": ("", True),
    "abort while it speaks": ("die-at=request\ndie-signal=6", True),
    "exit while it speaks": ("die-at=request\ndie-exit=3", True),
    "exit while it is idle": ("die-at=idle\ndie-exit=0", True),
    "exit at every start": ("die-at=start\ndie-exit=1", True),
    "stopped": ("", False),
    "silent": ("delay-ms=2500", False),
    "cut off in the head": ("cut=9", False),
    "cut off in the audio": ("cut=300", False),
    "hang up": ("hang-up=1", False),
    "garbage": ("body=no audio at all", False),
    "error": ("status=500\nbody=out of memory", False),
    "busy": ("busy=3", False),
}


class EngineSoak:
    def __init__(self, program):
        self.service = Service(program, {
            "synthesis": {"timeoutMs": 2000, "outputSampleRate": 8000},
            "engine": {"timeoutMs": 5000}})
        self.fake = pathlib.Path(program).resolve().parent / "fake-s2"
        self.engine = self.service.with_engine(self.fake)
        self.random = random.Random()
        self.problems = []
        self.statuses = {}
        self.served = 0
        self.faults = {}
        self.lock = threading.Lock()

    def problem(self, text):
        self.problems.append(text)
        print("PROBLEM", text, flush=True)

    def behave(self, lines, stubborn):
        path = self.engine.parent / "fake-s2.conf"
        text = lines + ("\nignore-term=1" if stubborn else "") + "\n"
        path.with_suffix(".next").write_text(text)
        path.with_suffix(".next").rename(path)

    def line(self):
        """The status of a line that was never spoken before; None when the service is gone."""
        try:
            status, _, answer = self.service.ask(
                "GET", f"/v1/tts?text=Line+{random.getrandbits(40):x}", timeout=30)
        except GONE:
            return None
        with self.lock:
            self.statuses[status] = self.statuses.get(status, 0) + 1
        if status not in (200, 500, 503, 504):
            self.problem(f"a line got {status} {answer[:200]!r}")
        return status

    @staticmethod
    def signal(pids, number):
        for pid in pids:
            try:
                os.kill(pid, number)
            except ProcessLookupError:
                continue

    def known_line(self):
        """A line that was spoken once is served whatever the process does."""
        try:
            status, headers, _ = self.service.ask("GET", "/v1/tts?text=Known+line", timeout=30)
        except GONE:
            return
        self.served += 1
        if status != 200 or headers.get("X-ZEPHO-Cache") != "hit":
            self.problem(f"the known line got {status}, {headers.get('X-ZEPHO-Cache')}")

    def deaths(self):
        """How often the log of this run tells that the process was gone."""
        text = self.service.log.read_bytes()[self.log_start:].decode(errors="replace")
        return text.count("inference process gone"), text.count("inference process exited")

    def is_ready(self):
        return json.loads(self.service.ask("GET", "/health")[2])["engine_ready"]

    def begin_run(self, orphans):
        self.stubborn = self.random.random() < 0.3
        self.behave("", self.stubborn)
        self.log_start = self.service.log.stat().st_size if self.service.log.exists() else 0
        self.service.start()
        if not self.service.wait_until(self.is_ready) or self.line() != 200:
            self.problem("the engine does not come up")
        self.service.ask("GET", "/v1/tts?text=Known+line")
        for pid in orphans:
            if pid in processes_of(self.engine):
                self.problem(f"orphan {pid} of the killed service is still there")
        if len(processes_of(self.engine)) != 1:
            self.problem(f"engine processes after the start: {processes_of(self.engine)}")
        time.sleep(0.2)
        self.flat = self.service.descriptors()

    def cycle(self):
        """False when the service has given the process up."""
        name = self.random.choice(sorted(FAULTS))
        lines, deadly = FAULTS[name]
        self.faults[name] = self.faults.get(name, 0) + 1
        stop = threading.Event()

        def client():
            while not stop.is_set():
                if self.line() in (None, 503):
                    time.sleep(0.05)

        def listener():
            while not stop.is_set():
                self.known_line()
                time.sleep(0.02)
        clients = [threading.Thread(target=work) for work in (client, client, client, listener)]
        for thread in clients:
            thread.start()
        time.sleep(self.random.uniform(0, 0.2))
        before = processes_of(self.engine)
        self.behave(lines, self.stubborn)
        if name in ("kill", "exit at every start"):
            self.signal(before, signal.SIGKILL)
        if name == "stopped":
            self.signal(before, signal.SIGSTOP)
        if deadly:
            if not self.service.wait_until(
                    lambda: not any(processes_of(self.engine).get(pid, "Z") != "Z"
                                    for pid in before), 10):
                self.problem(f"{name}: the process lives")
        else:
            time.sleep(self.random.uniform(0.1, 0.6))
        if name == "exit at every start":
            # Until it was started again, and has ended again.
            self.service.wait_until(lambda: self.deaths()[1] > 0 or self.deaths()[0] > 3, 10)
        self.behave("", self.stubborn)
        if name == "stopped":
            self.signal(before, self.random.choice([signal.SIGCONT, signal.SIGKILL]))
        stop.set()
        for thread in clients:
            thread.join()
        return self.recovers(name)

    def recovers(self, name):
        end = time.monotonic() + 30
        while time.monotonic() < end:
            if self.line() == 200:
                break
            gone, exited = self.deaths()
            if (gone > 3 or exited > 0) and not processes_of(self.engine):
                return False
            time.sleep(0.05)
        else:
            self.problem(f"{name}: no line is spoken afterwards, deaths {self.deaths()}")
            return False
        pid = self.service.process.pid
        if zombies_of(pid):
            if not self.service.wait_until(lambda: not zombies_of(pid), 5):
                self.problem(f"{name}: a zombie is left")
        if not self.service.wait_until(lambda: self.service.descriptors() <= self.flat, 10):
            self.problem(f"{name}: {self.service.descriptors()} descriptors, {self.flat} before")
        if len(processes_of(self.engine)) != 1:
            self.problem(f"{name}: engine processes {processes_of(self.engine)}")
        return True

    def end_run(self):
        """The orphans that a killed service leaves."""
        if self.random.random() < 0.5:
            self.service.kill()
            return list(processes_of(self.engine))
        code = self.service.stop()
        if code != 0:
            self.problem(f"the service ended with {code}")
        if left := processes_of(self.engine):
            self.problem(f"after an orderly end: {left}")
        return []

    def run(self, cycles):
        stranger_home = pathlib.Path(tempfile.mkdtemp(prefix="zephon-stranger-")).resolve()
        stranger = stranger_home / "s2"
        shutil.copy2(self.fake, stranger)
        (stranger_home / "fake-s2.conf").write_text(f"never-ready=1\nlives-with={os.getpid()}\n")
        orphans_seen = runs = done = 0
        orphans = []
        begin = time.monotonic()
        try:
            # Its shell is gone at once, so that it is an orphan as well.
            subprocess.run(["sh", "-c", "setsid ./s2 >/dev/null 2>&1 &"], cwd=stranger_home,
                           check=True)
            self.service.wait_until(lambda: processes_of(stranger), 10)
            strangers = set(processes_of(stranger))
            while done < cycles:
                self.begin_run(orphans)
                if set(processes_of(stranger)) != strangers or not strangers:
                    self.problem("the start killed a stranger's program")
                runs += 1
                while done < cycles:
                    done += 1
                    if done % 25 == 0:
                        print(f"{done} cycles, {len(self.problems)} problems", flush=True)
                    if not self.cycle() or self.random.random() < 0.2:
                        break
                orphans = self.end_run()
                orphans_seen += len(orphans)
            self.begin_run(orphans)
            self.end_run()
            self.service.kill()
            for pid in processes_of(self.engine):
                os.kill(pid, signal.SIGKILL)
            if not processes_of(stranger):
                self.problem("the stranger's program is gone")
        finally:
            for pid in processes_of(stranger):
                os.kill(pid, signal.SIGKILL)
            self.service.kill()
            for pid in processes_of(self.engine):
                os.kill(pid, signal.SIGKILL)
            shutil.rmtree(stranger_home, ignore_errors=True)
            self.service.remove()
        print(f"faults {self.faults}\nanswers {self.statuses}")
        return (f"{done} cycles in {time.monotonic() - begin:.0f} s over {runs} runs of the service, "
                f"{sum(self.statuses.values())} lines asked for, {self.served} cached ones served "
                f"meanwhile, {orphans_seen} orphans swept, {len(self.problems)} problems")


def main():
    soak = EngineSoak(sys.argv[1])
    print(soak.run(int(sys.argv[2]) if len(sys.argv) > 2 else 100))
    sys.exit(1 if soak.problems else 0)


if __name__ == "__main__":
    main()
