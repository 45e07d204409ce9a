"""Rows of scripts/torture: too many clients, too few descriptors, too large bodies, a full queue."""

import http.client
import json
import socket
import statistics
import subprocess
import sys
import threading
import time
from pathlib import Path

from live_service import Service

HEALTH_MS = 50
GONE = (OSError, http.client.HTTPException)


def p99(times):
    return statistics.quantiles(times, n=100)[98] if len(times) > 1 else float("nan")


class Watch:
    """Asks for /health over new connections in the background; keeps the milliseconds."""

    def __init__(self, service, pause=0.005):
        self.times, self.failed = [], 0
        self.stop = threading.Event()

        def look():
            while not self.stop.is_set():
                begin = time.perf_counter()
                try:
                    ok = service.ask("GET", "/health", timeout=10)[0] == 200
                except GONE:
                    ok = False
                if ok:
                    self.times.append((time.perf_counter() - begin) * 1000)
                else:
                    self.failed += 1
                time.sleep(pause)
        self.thread = threading.Thread(target=look)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.stop.set()
        self.thread.join()

    def __str__(self):
        return (f"/health p99 {p99(self.times):.1f} ms, longest {max(self.times, default=0):.0f} ms "
                f"over {len(self.times)}, {self.failed} failed")

    def holds(self):
        return len(self.times) > 20 and not self.failed and p99(self.times) < HEALTH_MS


def crowd(bins, idle, slow):
    """Thousands of idle connections, and slow senders and readers."""
    service = Service(bins / "zephond", {"synthesis": {"outputSampleRate": 384000}}).start()
    mob = None
    try:
        service.ask("GET", "/v1/tts?text=Known+line")
        size = len(service.ask("GET", "/v1/tts?text=Known+line")[2])
        parts = [slow // 3, slow // 3, slow - 2 * (slow // 3)]
        mob = subprocess.Popen(
            [sys.executable, str(Path(__file__).with_name("crowd.py")), str(service.port),
             str(idle), *map(str, parts)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        with Watch(service) as arriving:
            mob.stdout.readline()
        with Watch(service) as watch:
            time.sleep(8)
            threads = service.status("Threads")
        peak = service.status("VmHWM") / 1024
        before = service.cpu_seconds()
        mob.stdin.close()
        still = int(mob.stdout.readline().split()[0])
        mob.wait()
        settled = service.wait_until(lambda: service.descriptors() < 50, 20)
        seen = (f"{idle} idle, {slow} slow ({size >> 10} KiB answers); {watch}; while they came "
                f"{arriving}; resident at most {peak:.0f} MB, {threads} threads; {still} idle ones "
                f"kept, all descriptors back: {settled}; CPU {before:.1f} s in all")
        return seen, (watch.holds() and peak < 250 and threads < 50 and still == idle and settled)
    finally:
        if mob and mob.poll() is None:
            mob.kill()
            mob.wait()
        service.remove()


def descriptors(bins, limit):
    """More clients than descriptors."""
    service = Service(bins / "zephond", prefix=["prlimit", f"--nofile={limit}"]).start()
    try:
        service.ask("GET", "/v1/tts?text=Known+line")
        clients = []
        for _ in range(4 * limit):
            client = socket.socket()
            client.setblocking(False)
            client.connect_ex(("127.0.0.1", service.port))
            clients.append(client)
        service.wait_until(lambda: service.descriptors() >= limit - 1, 5)
        full = service.descriptors()
        time.sleep(0.5)
        before = service.cpu_seconds()
        time.sleep(4)
        spin = (service.cpu_seconds() - before) / 4
        for client in clients:
            client.close()
        begin = time.monotonic()
        recovered = service.wait_until(lambda: works(service), 10)
        took = time.monotonic() - begin
        _, headers, _ = service.ask("GET", "/v1/tts?text=Known+line")
        spoken, _, _ = service.ask("GET", "/v1/tts?text=Another+line")
        hit = headers.get("X-ZEPHO-Cache") == "hit"
        seen = (f"{full} of {limit} descriptors in use by {4 * limit} clients: {100 * spin:.1f} % of a "
                f"core; served again {took:.2f} s after they left, the cached line still a hit: {hit}")
        return seen, (recovered and took < 1 and spin < 0.05 and full >= limit - 4 and hit and
                      spoken == 200)
    finally:
        service.remove()


def works(service):
    try:
        return service.ask("GET", "/health", timeout=1)[0] == 200
    except GONE:
        return False


def raw(service, words, chunk=None, chunks=0, patience=5):
    """What comes back first for these bytes, and how many of the chunks were taken."""
    taken = 0
    with socket.create_connection(("127.0.0.1", service.port), 10) as client:
        client.settimeout(patience)
        try:
            client.sendall(words)
            for _ in range(chunks):
                client.sendall(chunk)
                taken += 1
            return client.recv(200), taken
        except socket.timeout:
            return None, taken
        except OSError:
            return b"", taken


def bodies(bins, megabytes):
    """A body that is huge, one that never comes, lengths that lie, chunks."""
    service = Service(bins / "zephond").start()
    try:
        service.ask("GET", "/health")
        idle = service.status("VmRSS") / 1024
        seen, holds = [], True
        with Watch(service, 0.02) as watch:
            head = f"POST /v1/tts HTTP/1.1\r\nContent-Length: {megabytes << 20}\r\n\r\n".encode()
            answer, taken = raw(service, head, b" " * (1 << 20), megabytes, 60)
            told = "no answer" if answer is None else answer.split(b"\r\n")[0].decode() or "closed"
            peak = service.status("VmHWM") / 1024
            seen.append(f"{taken} of {megabytes} MB taken, {told}, resident at most {peak:.0f} MB")
            holds &= answer is not None and peak - idle < 2.2 * megabytes + 100

            # One text without an end: the JSON reader copies it more than once before it knows.
            part = megabytes // 4
            start = b'{"text":"'
            head = f"POST /v1/tts HTTP/1.1\r\nContent-Length: {(part << 20) + len(start)}\r\n\r\n"
            service.reset_peak()
            answer, taken = raw(service, head.encode() + start, b"a" * (1 << 20), part, 60)
            told = (answer or b"nothing").split(b"\r\n")[0].decode()
            peak = service.status("VmHWM") / 1024
            seen.append(f"{taken} MB of one text: {told}, {peak:.0f} MB")
            holds &= bool(answer) and peak - idle < 10 * part + 100

            sockets = []
            before = service.status("VmRSS") / 1024
            for _ in range(100):
                client = socket.create_connection(("127.0.0.1", service.port), 10)
                client.sendall(b"POST /v1/tts HTTP/1.1\r\nContent-Length: 1000000000000\r\n\r\n" +
                               bytes(10000))
                sockets.append(client)
            time.sleep(1)
            grown = service.status("VmRSS") / 1024 - before
            for client in sockets:
                client.close()
            seen.append(f"100 bodies of 1 TB promised, 10 KB sent: {grown:+.0f} MB")
            holds &= grown < 50

            for name, length in (("20 digits", "99999999999999999999"), ("2^63", str(1 << 63)),
                                 ("below 0", "-1"), ("2 TB", str(2 << 40))):
                answer, _ = raw(service, f"POST /v1/tts HTTP/1.1\r\nContent-Length: {length}\r\n\r\n"
                                .encode())
                seen.append(f"length of {name}: "
                            f"{'held open' if answer is None else 'answered' if answer else 'closed'}")
                holds &= answer == b""
            answer, _ = raw(service, b"POST /v1/tts HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n"
                            b"5\r\nhello\r\n0\r\n\r\n")
            seen.append(f"chunked: {(answer or b'nothing').split(bytes([13]))[0].decode()}")
            holds &= answer is not None
        back = service.wait_until(lambda: service.status("VmRSS") / 1024 < idle + 60, 10)
        seen.append(f"memory back: {back}; {watch}")
        return "; ".join(seen), holds and back and watch.holds()
    finally:
        service.remove()


def queue(bins, lines):
    """Far more lines at one moment than may wait."""
    limit = 64
    service = Service(bins / "zephond", {"synthesis": {"queueLimit": limit, "timeoutMs": 600000}})
    engine = service.with_engine(bins / "fake-s2")
    slow = engine.parent / "fake-s2.conf"
    service.start()
    mob = None
    try:
        service.wait_until(lambda: json.loads(service.ask("GET", "/health")[2])["engine_ready"])
        service.ask("GET", "/v1/tts?text=The+first+one+makes+the+voice")
        slow.write_text("delay-ms=6000\n")
        first = socket.create_connection(("127.0.0.1", service.port))
        first.sendall(b"GET /v1/tts?text=The+one+that+runs HTTP/1.1\r\n\r\n")
        service.wait_until(lambda: json.loads(service.ask("GET", "/v1/stats")[2])["busy"])
        # A program of its own: a thousand clients in this one would wait for each other.
        mob = subprocess.Popen([bins / "burst", str(service.port), str(lines), str(lines - limit)],
                               stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        mob.stdout.readline()
        mob.stdin.write("go\n")
        mob.stdin.flush()
        refused, p99, longest, sending = map(float, mob.stdout.readline().split())
        depth = json.loads(service.ask("GET", "/v1/stats")[2])["queue_depth"]
        slow.write_text("\n")
        spoken, refused_at_last = map(int, mob.stdout.readline().split())
        mob.wait()
        first.close()
        seen = (f"{lines} lines at once, sent within {sending:.0f} ms, {limit} may wait: {depth} waited, "
                f"{refused:.0f} refused, p99 {p99:.1f} ms, longest {longest:.1f} ms; {spoken} of those "
                f"that waited were spoken; {service.status('Threads')} threads afterwards")
        return seen, (depth == limit and refused == refused_at_last == lines - limit and
                      spoken == limit and longest < HEALTH_MS)
    finally:
        if mob and mob.poll() is None:
            mob.kill()
            mob.wait()
        # In good order, or the engine's process stays and holds its port for minutes.
        service.stop()
        service.remove()
