"""Measures the window; see scripts/bench-window."""

import ctypes
import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests/tools"))
from desktop import PATIENCE, Display, free_port  # noqa: E402

FIRST_PAINT_GOAL = 400
ROUNDS = 9
CLIPS = 10000
MANY_CLIPS = 100000
SIZE = (1060, 720)  # of the first window
BACKGROUND = 0xf5f6f8  # of the light look
HEADS = ["work", "median ms", "longest ms", "CPU ms", "goal", ""]


class Attributes(ctypes.Structure):
    """XWindowAttributes up to what is read here, and room for the rest."""

    _fields_ = [(name, ctypes.c_int) for name in ("x", "y", "width", "height", "border", "depth")]
    _fields_ += [("visual", ctypes.c_void_p), ("root", ctypes.c_ulong), ("kind", ctypes.c_int),
                 ("bit_gravity", ctypes.c_int), ("win_gravity", ctypes.c_int),
                 ("backing_store", ctypes.c_int), ("planes", ctypes.c_ulong),
                 ("pixel", ctypes.c_ulong), ("save_under", ctypes.c_int),
                 ("colormap", ctypes.c_ulong), ("map_installed", ctypes.c_int),
                 ("map_state", ctypes.c_int), ("rest", ctypes.c_long * 16)]


class Screen:
    """Looks at pixels of an X display, quicker than a program for each look would."""

    def __init__(self, name):
        self.x = ctypes.CDLL("libX11.so.6")
        for function in ("XOpenDisplay", "XGetImage"):
            getattr(self.x, function).restype = ctypes.c_void_p
        self.x.XDefaultRootWindow.restype = ctypes.c_ulong
        self.x.XGetPixel.restype = ctypes.c_ulong
        # A window may go between two looks.
        self.handler = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p)(
            lambda display, error: 0)
        self.x.XSetErrorHandler(self.handler)
        self.display = ctypes.c_void_p(self.x.XOpenDisplay(name.encode()))
        self.root = ctypes.c_ulong(self.x.XDefaultRootWindow(self.display))

    def children(self):
        root, parent = ctypes.c_ulong(), ctypes.c_ulong()
        found, count = ctypes.POINTER(ctypes.c_ulong)(), ctypes.c_uint()
        if not self.x.XQueryTree(self.display, self.root, ctypes.byref(root), ctypes.byref(parent),
                                 ctypes.byref(found), ctypes.byref(count)):
            return []
        windows = [found[i] for i in range(count.value)]
        if windows:
            self.x.XFree(found)
        return windows

    def pixel(self, window, x, y):
        image = self.x.XGetImage(self.display, ctypes.c_ulong(window), x, y, 1, 1,
                                 ctypes.c_ulong(0xffffff), 2)
        if not image:
            return None
        image = ctypes.c_void_p(image)
        colour = self.x.XGetPixel(image, 0, 0) & 0xffffff
        self.x.XDestroyImage(image)
        return colour

    def is_painted(self):
        """The window is there, and both its upper part and its lowest line have their colour."""
        for window in self.children():
            about = Attributes()
            self.x.XGetWindowAttributes(self.display, ctypes.c_ulong(window), ctypes.byref(about))
            if about.map_state == 2 and (about.width, about.height) == SIZE:
                return all(self.pixel(window, SIZE[0] - 4, y) == BACKGROUND
                           for y in (4, SIZE[1] - 4))
        return False


def write_config(home):
    home = pathlib.Path(home)
    (home / "data").mkdir(exist_ok=True)
    (home / "data/config.json").write_text(json.dumps(
        {"server": {"port": free_port(), "bind": "127.0.0.1", "uiLanguage": "en"}}))


def environment(home):
    return {**os.environ, "ZEPHO_HOME": str(home), "XDG_RUNTIME_DIR": str(home),
            "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent"}


def first_paint(program, home):
    """[(milliseconds, CPU milliseconds)] of warm starts on a display of its own."""
    display = Display(bare=True)
    try:
        screen = Screen(os.environ["DISPLAY"])
        times = []
        for _ in range(ROUNDS + 1):
            write_config(home)
            begin = time.monotonic()
            child = subprocess.Popen([program, "--theme", "light"], stderr=subprocess.DEVNULL,
                                     env={**environment(home), "QT_QPA_PLATFORM": "xcb"})
            try:
                while not screen.is_painted():
                    if time.monotonic() - begin > PATIENCE or child.poll() is not None:
                        raise SystemExit("bench-window: no window was painted")
                    time.sleep(0.002)
                wall = (time.monotonic() - begin) * 1e3
                words = pathlib.Path(f"/proc/{child.pid}/stat").read_text().rpartition(")")[2].split()
                cpu = (int(words[11]) + int(words[12])) * 1e3 / os.sysconf("SC_CLK_TCK")
            finally:
                child.terminate()
                child.wait()
            times.append((wall, cpu))
        return times[1:]  # the first warms up
    finally:
        display.end()


def show(cells):
    print(f"{cells[0]:44}", *(f"{cell:>11}" for cell in cells[1:5]), *cells[5:], flush=True)


def tell(work, goal, median, longest, cpu, judged):
    show([work, median, longest, cpu, f"{goal:g}", "" if float(judged) <= goal else "missed"])
    return float(judged) <= goal


def main():
    programs = pathlib.Path(sys.argv[1]).resolve()
    met = []
    show(HEADS)
    with tempfile.TemporaryDirectory(prefix="zephon-bench-window-") as home:
        bench = str(programs / "bench-window")

        def rows(what):
            write_config(home)
            run = subprocess.run([bench, what], env=environment(home), check=True,
                                 capture_output=True, text=True)
            for line in run.stdout.splitlines():
                work, goal, median, longest, cpu = line.split("\t")
                met.append(tell(work, float(goal), median, longest, cpu, cpu))

        def starts(name):
            times = first_paint(str(programs / "zephon"), home)
            wall = statistics.median(time for time, _ in times)
            met.append(tell(name, FIRST_PAINT_GOAL, f"{wall:.0f}",
                            f"{max(time for time, _ in times):.0f}",
                            f"{statistics.median(cpu for _, cpu in times):.0f}", wall))
        starts("first paint, empty cache")
        subprocess.run([bench, "fill", home + "/temp", str(CLIPS)], check=True)
        starts(f"first paint, {CLIPS:,} clips")
        rows("pages")
        subprocess.run([bench, "fill", home + "/temp", str(MANY_CLIPS)], check=True)
        rows("filter")
    sys.exit(0 if all(met) else 1)


main()
