"""A zephond of a test's own: a data root in a temporary directory, a free port of 127.0.0.1."""

import http.client
import json
import math
import os
import pathlib
import select
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import wave


# An end from outside unwinds, so that no service is left behind.
signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def write_clip(path, seconds):
    """A tone as a WAV file, to clone a voice from."""
    with wave.open(str(path), "wb") as clip:
        clip.setnchannels(1)
        clip.setsampwidth(2)
        clip.setframerate(22050)
        clip.writeframes(b"".join(struct.pack("<h", int(9000 * math.sin(i * 0.07)))
                                  for i in range(22050 * seconds)))


class Service:
    """`settings` are sections of config.json that are added to the address. `prefix` are words in
    front of the command, `environment` what is added to it; `root` is a data root made elsewhere."""

    def __init__(self, program, settings=None, prefix=(), environment=None, root=None):
        self.program = str(pathlib.Path(program).resolve())
        self.root = pathlib.Path(root or tempfile.mkdtemp(prefix="zephon-live-"))
        self.settings = settings or {}
        self.prefix = list(prefix)
        self.environment = environment or {}
        self.process = None
        self.port = 0
        (self.root / "data").mkdir(exist_ok=True)
        # Beside a data root of somebody else, which may be full.
        self.log = (pathlib.Path(tempfile.mkdtemp(prefix="zephon-log-")) if root
                    else self.root) / "stderr.log"

    def start(self, patience=60):
        """Returns when the listener is up. Another process may take the port first: then again."""
        for _ in range(20):
            self.port = free_port()
            self._write_config()
            environment = {**os.environ, **self.environment, "ZEPHO_HOME": str(self.root)}
            with open(self.log, "ab") as log:
                self.process = subprocess.Popen(
                    [*self.prefix, self.program], env=environment, stdout=subprocess.PIPE, stderr=log, text=True)
            ready, _, _ = select.select([self.process.stdout], [], [], patience)
            if ready and self.process.stdout.readline().startswith("http://127.0.0.1:"):
                return self
            self.kill()
        raise RuntimeError("zephond does not start: " + self.log.read_text(errors="replace")[-2000:])

    def _write_config(self):
        """Changes the port only, as bindings live in the same file."""
        path = self.root / "data" / "config.json"
        config = json.loads(path.read_text()) if path.exists() else dict(self.settings)
        config.setdefault("server", {}).update(port=self.port, bind="127.0.0.1", uiLanguage="en")
        path.write_text(json.dumps(config))

    def kill(self):
        """SIGKILL, as a crash."""
        self._end(signal.SIGKILL)

    def stop(self):
        """An orderly end; the exit code."""
        return self._end(signal.SIGTERM)

    def end_by(self, how):
        """The end by that signal; the exit code."""
        return self._end(how)

    def _end(self, how):
        if self.process is None:
            return None
        if self.process.poll() is None:
            self.process.send_signal(how)
        try:
            code = self.process.wait(60)
        finally:
            if self.process.poll() is None:
                self.process.kill()
                self.process.wait()
            self.process.stdout.close()
        self.process = None
        return code

    def remove(self):
        self.kill()
        shutil.rmtree(self.root, ignore_errors=True)
        if self.log.parent != self.root:
            shutil.rmtree(self.log.parent, ignore_errors=True)

    def ask(self, method, target, body=None, timeout=60):
        """(status, headers, body); raises OSError or HTTPException when the service is gone."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)
        try:
            if body is not None and not isinstance(body, bytes):
                body = json.dumps(body).encode()
            connection.request(method, target, body)
            answer = connection.getresponse()
            return answer.status, dict(answer.getheaders()), answer.read()
        finally:
            connection.close()

    def with_engine(self, fake):
        """Installs the stand-in for the inference program; where it runs from."""
        engine = (self.root / "engine").resolve() / "s2"
        engine.parent.mkdir()
        shutil.copy2(fake, engine)
        (self.root / "models").mkdir()
        (self.root / "models/voice.gguf").write_text("a model")
        (self.root / "models/tokenizer.json").write_text("{}")
        return engine

    # What the process costs now.

    def status(self, key):
        """A number of /proc/PID/status: VmRSS, VmHWM and RssAnon in KiB, Threads."""
        text = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(text.split(key + ":")[1].split()[0])

    def reset_peak(self):
        """VmHWM begins anew from what is resident now."""
        pathlib.Path(f"/proc/{self.process.pid}/clear_refs").write_text("5")

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def cpu_seconds(self):
        words = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(words[11]) + int(words[12])) / os.sysconf("SC_CLK_TCK")

    def lives(self):
        return self.process is not None and self.process.poll() is None

    def wait_until(self, holds, patience=30):
        end = time.monotonic() + patience
        while time.monotonic() < end:
            if holds():
                return True
            time.sleep(0.02)
        return False
