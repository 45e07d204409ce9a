"""The window in fast motion while clients load its service; see scripts/soak-window."""

import os
import pathlib
import random
import re
import statistics
import subprocess
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "tools")]
from desktop import Display, eventually, need_tools, out, windows  # noqa: E402
from live_service import Service, free_port  # noqa: E402
from soak import GONE, Soak  # noqa: E402

LOG_LINE = re.compile(r"\d\d:\d\d:\d\d\.\d\d\d \[(DEBUG|INFO|WARN|ERROR)\] ")
SAMPLE_SECONDS = 1
ALONE_SECONDS = 30  # of the bare service, before and after
GROWTH = 4.0        # MB between the second and the last third of the time
SLOWER = 2.0        # times the bare service's answers, on a machine that does other things, too
SLACK = 2.0         # ms; below it there is nothing to see
TABLES = (3, 4, 5, 6, 8)  # the pages with a table in the middle
CACHE = 6


class Window(Service):
    """The same, with a window: it tells nobody that it listens."""

    def start(self, patience=60):
        self.port = free_port()
        self._write_config()
        environment = {**os.environ, **self.environment, "ZEPHO_HOME": str(self.root),
                       "XDG_RUNTIME_DIR": str(self.root), "QT_QPA_PLATFORM": "xcb",
                       "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent"}
        self.root.chmod(0o700)
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen([self.program], env=environment, stderr=log,
                                            stdout=subprocess.PIPE)
        if not self.wait_until(self.answers, patience):
            raise RuntimeError("zephon does not start: " + self.log.read_text()[-2000:])
        return self

    def answers(self):
        try:
            return self.ask("GET", "/health")[0] == 200
        except GONE:
            return False

    def second_start(self):
        return subprocess.run([self.program], env={
            **os.environ, "ZEPHO_HOME": str(self.root), "XDG_RUNTIME_DIR": str(self.root),
            "QT_QPA_PLATFORM": "xcb", "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent"},
            capture_output=True, timeout=60).returncode


class Load(Soak):
    """The mixed load of the long test, and somebody who measures how long a known line takes."""

    def __init__(self, service):
        super().__init__(service.program)
        self.service.remove()
        self.service = service
        self.times = []

    def probe(self):
        begin = time.perf_counter()
        self.ask("probe", "GET", "/v1/tts?text=Known+line+1")
        self.times.append((time.perf_counter() - begin) * 1e3)
        time.sleep(0.02)

    def begin(self):
        self.ask("known", "GET", "/v1/tts?text=Known+line+1")
        works = [self.hit, self.hit, self.miss, self.bake, self.clone, self.look, self.mistake,
                 self.rudeness, self.probe]
        self.threads = [threading.Thread(target=self.repeat, args=[work]) for work in works]
        for thread in self.threads:
            thread.start()

    def end(self):
        self.stop.set()
        for thread in self.threads:
            thread.join()

    def quantiles(self):
        cuts = statistics.quantiles(self.times, n=100)
        return cuts[49], cuts[98]


class Motion:
    """A person who never rests, and presses no button."""

    def __init__(self, service):
        self.service = service
        self.random = random.Random()
        self.counts = {}
        self.problems = []

    def window(self):
        return next(iter(windows("Speech Service", self.service.process.pid)), None)

    def act(self):
        kind = self.random.choices(
            [self.turn, self.walk, self.scroll, self.search, self.resize, self.hide],
            [50, 20, 20, 15, 4, 1])[0]
        # A look at the display fails when a window goes away under it.
        kind(eventually("the window", self.window))
        self.counts[kind.__name__] = self.counts.get(kind.__name__, 0) + 1

    def turn(self, _):
        """Through some pages."""
        words = []
        for _ in range(9):
            words += ["key", f"ctrl+{self.random.randint(1, 9)}", "sleep", "0.03"]
        out("xdotool", *words)

    def walk(self, _):
        """The keyboard's focus from control to control."""
        out("xdotool", "key", f"ctrl+{self.random.randint(1, 9)}",
            *[self.random.choice(("Tab", "Tab", "shift+Tab")) for _ in range(12)])

    def scroll(self, window):
        out("xdotool", "key", f"ctrl+{self.random.choice(TABLES)}", "sleep", "0.05", "mousemove",
            "--window", window, "600", "330", "click", "1",
            *["click", "--repeat", "8", "--delay", "5", "5"], *["click", "--repeat", "8", "--delay", "5", "4"])

    def search(self, _):
        """The cache page puts the keyboard into its filter."""
        word = self.random.choice(("known", "line 1", "gate", "zzz"))
        out("xdotool", "key", f"ctrl+{CACHE}", "sleep", "0.05", "key", "ctrl+a", "type",
            "--delay", "5", word)
        out("xdotool", "key", "ctrl+a", "key", "BackSpace")

    def resize(self, window):
        out("xdotool", "windowsize", window, str(self.random.randint(960, 1270)),
            str(self.random.randint(560, 850)))

    def hide(self, window):
        """Into the tray, and back by a second start."""
        out("wmctrl", "-i", "-c", window)
        eventually("no window", lambda: not self.window())
        if self.service.second_start() != 0:
            self.problems.append("a second start does not end with 0")
        eventually("the window", self.window)


def settings():
    return {"synthesis": {"outputSampleRate": 8000}, "cache": {"enabled": True, "budgetMB": 16}}


def alone(zephond):
    """What a bare service answers in, in this hour and on this machine."""
    service = Service(zephond, settings())
    try:
        load = Load(service.start())
        load.begin()
        time.sleep(ALONE_SECONDS)
        load.end()
        service.stop()
        return load.quantiles()
    finally:
        service.remove()


def in_motion(zephon, seconds):
    service = Window(zephon, settings())
    try:
        load = Load(service.start())
        motion = Motion(service)
        eventually("the window", motion.window)
        load.begin()
        samples = []
        begin = told = time.monotonic()
        try:
            while time.monotonic() - begin < seconds and service.lives():
                motion.act()
                now = time.monotonic()
                if not samples or now - samples[-1][0] >= SAMPLE_SECONDS:
                    samples.append((now, service.status("RssAnon") / 1024))
                if now - told > 60:
                    told = now
                    print(f"{now - begin:.0f} s, {samples[-1][1]:.1f} MB, {service.descriptors()} "
                          f"descriptors, {service.status('Threads')} threads", flush=True)
        finally:
            load.end()
        alive = service.lives()
        code = service.stop() if alive else None
        strange = [line for line in service.log.read_text(errors="replace").splitlines()
                   if not LOG_LINE.match(line)]
        problems = load.problems + motion.problems + strange
        if code != 0:
            problems.append(f"it ended with {code}")
        sizes = [size for _, size in samples]
        third = len(sizes) // 3
        growth = statistics.median(sizes[-third:]) - statistics.median(sizes[third:2 * third])
        print(f"{seconds / 60:.0f} minutes, {sum(load.counts.values())} requests {load.counts}, "
              f"motions {motion.counts}")
        print(f"memory at the start {sizes[0]:.1f} MB, in the second third "
              f"{statistics.median(sizes[third:2 * third]):.1f} MB, in the last "
              f"{statistics.median(sizes[-third:]):.1f} MB, at most {max(sizes):.1f} MB")
        print(f"{len(problems)} problems", *problems[:10], sep="\n")
        return load.quantiles(), growth < GROWTH and not problems
    finally:
        service.remove()


def main():
    need_tools()
    zephon, zephond = sys.argv[1:3]
    seconds = 60 * float(sys.argv[3] if len(sys.argv) > 3 else 10)
    display = Display()
    try:
        before = alone(zephond)
        with_window, holds = in_motion(zephon, seconds)
        after = alone(zephond)
    finally:
        display.end()
    for name, (half, most) in (("without a window, before", before), ("with the window", with_window),
                               ("without a window, after", after)):
        print(f"a known line {name}: p50 {half:.2f} ms, p99 {most:.2f} ms")
    quick = all(with_window[i] <= max(before[i], after[i]) * SLOWER + SLACK for i in (0, 1))
    if not quick:
        print("the window slows the service down")
    sys.exit(0 if holds and quick else 1)


if __name__ == "__main__":
    main()
