"""A mixed load for a long time, and the slope of the service's memory; see scripts/soak."""

import base64
import http.client
import json
import pathlib
import random
import socket
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tools"))
from live_service import Service  # noqa: E402
from store_checks import tone_wav  # noqa: E402

GONE = (OSError, http.client.HTTPException)
SAMPLE_SECONDS = 5
WARM_UP = 1 / 3  # of the time: caches and logs fill
FLAT = 3.0       # MB an hour; below it there is nothing to see between two samples


def slope(samples):
    """MB an hour by least squares over (seconds, KiB)."""
    count = len(samples)
    middle = sum(at for at, _ in samples) / count
    height = sum(size for _, size in samples) / count
    spread = sum((at - middle) ** 2 for at, _ in samples)
    rise = sum((at - middle) * (size - height) for at, size in samples)
    return rise / spread * 3600 / 1024 if spread else 0.0


class Soak:
    def __init__(self, program):
        self.service = Service(program, {
            "synthesis": {"outputSampleRate": 8000}, "cache": {"enabled": True, "budgetMB": 16}})
        self.random = random.Random()
        self.stop = threading.Event()
        self.lock = threading.Lock()
        self.counts = {}
        self.problems = []
        self.voices = []

    def ask(self, kind, method, target, body=None, expected=(200,)):
        status, headers, answer = self.service.ask(method, target, body, timeout=30)
        with self.lock:
            self.counts[kind] = self.counts.get(kind, 0) + 1
            if status not in expected and len(self.problems) < 20:
                self.problems.append(f"{kind}: {status} {answer[:200]!r}")
        return headers, answer

    def hit(self):
        number = self.random.randrange(40)
        speed = self.random.choice(["1.0", "1.0", "1.25", "0.8"])
        self.ask("hit", "GET", f"/v1/tts?text=Known+line+{number}&speed={speed}")
        time.sleep(0.01)

    def miss(self):
        self.ask("miss", "POST", "/v1/tts", {"text": f"Line {self.random.getrandbits(40):x}",
                                             "language": self.random.choice(["zh", "en", "ja"])},
                 (200, 503))
        time.sleep(0.1)

    def bake(self):
        items = [{"text": f"Baked {self.random.getrandbits(40):x}"} for _ in range(3)]
        self.ask("bake", "POST", "/v1/prewarm", {"items": items}, (202,))
        time.sleep(1)

    def clone(self):
        number = self.random.getrandbits(30)
        _, answer = self.ask("clone", "POST", "/v1/voices/clone", {
            "display": f"Voice {number}", "reference_text": f"text {number}",
            "audio": base64.b64encode(tone_wav(number)).decode()})
        self.voices.append(json.loads(answer)["id"])
        self.ask("bind", "PUT", "/v1/airlines",
                 {"airline": f"A{self.random.randrange(20):02}", "voice": self.voices[-1]})
        self.ask("speak as", "GET", f"/v1/tts?text=Gate+{number}&voice={self.voices[-1]}")
        if len(self.voices) > 10:
            self.ask("delete", "DELETE", "/v1/voices/" + self.voices.pop(0))
        time.sleep(0.5)

    def look(self):
        for target in ("/health", "/v1/stats", "/v1/voices", "/v1/airlines", "/v1/log?lines=2000"):
            self.ask("look", "GET", target)
        time.sleep(0.2)

    def mistake(self):
        self.ask("mistake", "POST", "/v1/tts", b"no JSON", (400,))
        self.ask("mistake", "POST", "/v1/tts", {"text": "x" * 6000}, (413,))
        self.ask("mistake", "POST", "/v1/voices/clone",
                 {"audio": base64.b64encode(b"OggS" + bytes(200)).decode(),
                  "reference_text": "x"}, (400,))
        self.ask("mistake", "GET", f"/v1/{self.random.getrandbits(60):x}", expected=(404,))
        time.sleep(0.5)

    def rudeness(self):
        """Clients that go in the middle of a head, of a body, of an answer."""
        for words in (b"GET /v1/tts?te", b"POST /v1/tts HTTP/1.1\r\nContent-Length: 900000\r\n\r\n{",
                      b"GET /v1/tts?text=Known+line+1 HTTP/1.1\r\n\r\n" * 20):
            with socket.create_connection(("127.0.0.1", self.service.port), 10) as client:
                client.sendall(words)
                time.sleep(0.02)
            self.counts["rude"] = self.counts.get("rude", 0) + 1
        time.sleep(0.5)

    def repeat(self, work):
        while not self.stop.is_set():
            try:
                work()
            except GONE as error:
                if not self.stop.is_set():
                    self.problems.append(f"{work.__name__}: {error!r}")
                    time.sleep(1)

    def run(self, seconds):
        self.service.start()
        works = [self.hit, self.hit, self.miss, self.bake, self.clone, self.look, self.mistake,
                 self.rudeness]
        threads = [threading.Thread(target=self.repeat, args=[work]) for work in works]
        for thread in threads:
            thread.start()
        begin = time.monotonic()
        samples = []
        told = begin
        while time.monotonic() - begin < seconds and self.service.lives():
            time.sleep(min(SAMPLE_SECONDS, seconds))
            samples.append((time.monotonic() - begin, self.service.status("RssAnon")))
            if time.monotonic() - told > 60:
                told = time.monotonic()
                print(f"{told - begin:.0f} s, {samples[-1][1] / 1024:.1f} MB, "
                      f"{self.service.descriptors()} descriptors, "
                      f"{self.service.status('Threads')} threads, {sum(self.counts.values())} "
                      f"requests, {len(self.problems)} problems", flush=True)
        alive = self.service.lives()
        self.stop.set()
        for thread in threads:
            thread.join()
        code = self.service.stop() if alive else None
        return self.verdict(samples, alive, code, time.monotonic() - begin)

    def verdict(self, samples, alive, code, seconds):
        settled = [sample for sample in samples if sample[0] >= seconds * WARM_UP]
        rise = slope(settled) if len(settled) > 2 else float("nan")
        sizes = [size / 1024 for _, size in settled]
        seen = (f"{seconds / 60:.0f} minutes, {sum(self.counts.values())} requests; after the first "
                f"third {sizes[0]:.1f} MB, at the end {sizes[-1]:.1f} MB, between {min(sizes):.1f} "
                f"and {max(sizes):.1f} MB, slope {rise:+.2f} MB an hour; "
                f"{len(self.problems)} answers amiss")
        print(seen, self.counts, *self.problems[:5], sep="\n")
        return seen, alive and code == 0 and not self.problems and abs(rise) < FLAT


def main():
    soak = Soak(sys.argv[1])
    try:
        _, holds = soak.run(60 * float(sys.argv[2] if len(sys.argv) > 2 else 60))
    finally:
        soak.stop.set()
        soak.service.remove()
    sys.exit(0 if holds else 1)


if __name__ == "__main__":
    main()
