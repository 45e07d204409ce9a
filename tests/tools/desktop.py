"""A display of a test's own, with a window manager and a tray, and what can be seen on it."""

import os
import shutil
import socket
import subprocess
import time

PATIENCE = 60
TOOLS = ("Xvfb", "openbox", "trayer", "wmctrl", "xdotool", "xprop", "xwininfo", "import")


def need_tools(tools=TOOLS):
    for tool in tools:
        if not shutil.which(tool):
            raise SystemExit(f"{tool} is missing; run scripts/setup --test")


def eventually(what, holds):
    end = time.monotonic() + PATIENCE
    while True:
        value = holds()
        if value:
            return value
        if time.monotonic() > end:
            raise SystemExit(f"not within {PATIENCE} s: {what}")
        time.sleep(0.03)


def out(*words):
    done = subprocess.run(words, capture_output=True, text=True, timeout=PATIENCE)
    return done.stdout if done.returncode == 0 else ""


def end_child(child):
    if child.poll() is None:
        child.kill()
    child.wait()


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Display:
    """An X server of its own, bare or with a window manager and a tray; programs find it by DISPLAY."""

    def __init__(self, bare=False):
        # The server picks a free number itself and tells it.
        reader, writer = os.pipe()
        self.children = [subprocess.Popen(
            ["Xvfb", "-displayfd", str(writer), "-screen", "0", "1280x900x24", "-nolisten", "tcp"],
            pass_fds=[writer], stderr=subprocess.DEVNULL)]
        os.close(writer)
        os.environ["DISPLAY"] = ":" + os.fdopen(reader).readline().strip()
        if bare:
            return
        try:
            self.furnish()
        except BaseException:
            self.end()
            raise

    def furnish(self):
        # What is mapped while it starts up may stay out of sight for good: it tells when that is over.
        self.start("openbox", "--startup", "xprop -root -f _READY 8s -set _READY yes")
        eventually("a window manager", lambda: "yes" in out("xprop", "-root", "_READY"))
        self.tray = self.start("trayer", "--edge", "bottom", "--height", "32")
        eventually("a tray", lambda: windows("panel"))

    def start(self, *words):
        self.children.append(subprocess.Popen(words, stdout=subprocess.DEVNULL,
                                              stderr=subprocess.DEVNULL))
        return self.children[-1]

    def end(self):
        for child in reversed(self.children):
            child.terminate()  # killed, the server would leave its socket
            try:
                child.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                end_child(child)


def windows(name, pid=None):
    narrow = ["--all", "--pid", str(pid)] if pid else []
    return out("xdotool", "search", "--onlyvisible", *narrow, "--name", name).split()


def geometry(window):
    lines = out("xdotool", "getwindowgeometry", "--shell", window).split()
    return {key: int(value) for key, value in (line.split("=") for line in lines)}


def painted(window):
    """More than the one colour of an empty window."""
    colours = out("import", "-window", window, "-format", "%k", "info:-")
    return colours.isdigit() and int(colours) > 1
