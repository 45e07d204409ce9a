"""HTTP servers under load: the product, nginx, and one made with cpp-httplib."""

import os
import pathlib
import re
import resource
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.parse

from table import Row, compared, spread

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "tools"))
from live_service import Service, free_port  # noqa: E402

TICK = os.sysconf("SC_CLK_TCK")
# The length of a line decides that of its clip: 138 KB and 1.05 MB at 44.1 kHz.
LINES = {"132 KB": "ab" * 9, "1.06 MB": "abcdefghi " * 15}
TWELVE_SECONDS = "abcdefghi " * 15

NGINX = """daemon off; worker_processes 2; pid {dir}/pid; error_log {dir}/errors crit; {user}
worker_rlimit_nofile 30000; events {{ worker_connections 14000; }}
http {{
  access_log off; keepalive_requests 100000000; keepalive_timeout 600s; types {{ audio/wav wav; }}
  client_body_temp_path {dir}/1; proxy_temp_path {dir}/2; fastcgi_temp_path {dir}/3;
  uwsgi_temp_path {dir}/4; scgi_temp_path {dir}/5;
  server {{ listen 127.0.0.1:{plain} backlog=4096; root {dir}/root; sendfile on;
    location = /json {{ default_type application/json; return 200 '{{"status":"ready","voices":3}}'; }} }}
  server {{ listen 127.0.0.1:{tuned} sndbuf=512k; root {dir}/root; sendfile on; tcp_nopush on;
    sendfile_max_chunk 0; open_file_cache max=1000; open_file_cache_valid 60s; }}
}}
"""


def cpu_seconds(pids):
    total = 0
    for pid in pids:
        fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
        total += int(fields[11]) + int(fields[12])
    return total / TICK


def resident(pids):
    """Bytes; what several processes share is divided among them."""
    total = 0
    for pid in pids:
        rollup = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
        total += int(re.search(r"^Pss:\s+(\d+)", rollup, re.M)[1]) * 1024
    return total


def wrk(url, connections, seconds):
    """(requests a second, requests, p50 and p99 in milliseconds)"""
    out = subprocess.run(["wrk", "-t1", f"-c{connections}", f"-d{seconds}s", "--latency", url],
                         capture_output=True, text=True, check=True).stdout
    if "Non-2xx" in out:
        raise RuntimeError(out)

    def milliseconds(percent):
        found = re.search(rf"^ +{percent}% +([\d.]+)(us|ms|s|m)$", out, re.M)
        return float(found[1]) * {"us": 1e-3, "ms": 1, "s": 1e3, "m": 6e4}[found[2]] \
            if found else float("nan")

    return (float(re.search(r"Requests/sec: +([\d.]+)", out)[1]),
            int(re.search(r"(\d+) requests in", out)[1]), milliseconds(50), milliseconds(99))


class Servers:
    def __init__(self, programs):
        self.programs = pathlib.Path(programs)
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        if soft < 12000:
            resource.setrlimit(resource.RLIMIT_NOFILE, (min(hard, 24000), hard))
        self.dir = pathlib.Path(tempfile.mkdtemp(prefix="zephon-bench-"))
        os.chmod(self.dir, 0o755)
        (self.dir / "root").mkdir()
        self.ours = Service(self.programs / "zephond", {"cache": {"enabled": True}}).start()
        self.processes = []
        for name, line in LINES.items():
            for _ in range(2):
                status, headers, body = self.ours.ask("GET", self.target(line))
            assert status == 200 and headers["X-ZEPHO-Cache"] == "hit"
            (self.dir / "root" / self.file_of(name)).write_bytes(body)
        self.plain, self.tuned, self.httplib = free_port(), free_port(), free_port()
        user = "user root;" if os.getuid() == 0 else ""
        (self.dir / "nginx.conf").write_text(
            NGINX.format(dir=self.dir, plain=self.plain, tuned=self.tuned, user=user))
        self.nginx = self.begin("nginx", "-p", str(self.dir), "-c", str(self.dir / "nginx.conf"))
        self.lib = self.begin(str(self.programs / "bench-peer-httplib"), str(self.httplib),
                              str(self.dir / "root"))
        for port in (self.plain, self.tuned, self.httplib):
            self.await_port(port)

    @staticmethod
    def target(line, more=""):
        return "/v1/tts?text=" + urllib.parse.quote(line) + more

    @staticmethod
    def file_of(name):
        return name.replace(" ", "_") + ".wav"

    def begin(self, *command):
        process = subprocess.Popen(command, stderr=subprocess.DEVNULL)
        self.processes.append(process)
        return process

    @staticmethod
    def await_port(port):
        for _ in range(200):
            try:
                socket.create_connection(("127.0.0.1", port), 1).close()
                return
            except OSError:
                time.sleep(0.05)
        raise RuntimeError("a peer does not start")

    def pids(self, who):
        if who == "ours":
            return [self.ours.process.pid]
        if who == "httplib":
            return [self.lib.pid]
        children = pathlib.Path(f"/proc/{self.nginx.pid}/task/{self.nginx.pid}/children")
        return [int(pid) for pid in children.read_text().split()]

    def end(self):
        for process in self.processes:
            process.terminate()
            process.wait(30)
        self.ours.remove()
        shutil.rmtree(self.dir, ignore_errors=True)

    # Rounds of all in turn: {who: [(rate, CPU microseconds a request, p50, p99)]}

    def rounds(self, urls, connections, rounds, seconds):
        results = {who: [] for who in urls}
        for _ in range(rounds):
            for who, url in urls.items():
                before = cpu_seconds(self.pids(who))
                rate, count, p50, p99 = wrk(url, connections, seconds)
                used = cpu_seconds(self.pids(who)) - before
                results[who].append((rate, used * 1e6 / max(1, count), p50, p99))
        return results

    def url(self, who, path):
        port = {"ours": self.ours.port, "nginx": self.plain, "tuned": self.tuned,
                "httplib": self.httplib}[who]
        return f"http://127.0.0.1:{port}{path}"

    def hits(self, rounds, seconds):
        rows = []
        for name, line in LINES.items():
            file = "/" + self.file_of(name)
            for connections in (8, 64):
                urls = {"ours": self.url("ours", self.target(line))}
                urls |= {who: self.url(who, file) for who in ("nginx", "tuned", "httplib")}
                result = self.rounds(urls, connections, rounds, seconds)
                large = name != "132 KB"
                goals = {"nginx": 2.0 if large else 0.97, "tuned": 1.2 if large else None,
                         "httplib": 1.0}
                names = {"nginx": "nginx sendfile", "tuned": "nginx for large files",
                         "httplib": "cpp-httplib"}
                work = f"hit {name}, {connections} connections"
                for who, goal in goals.items():
                    rows.append(compared(f"{work}, {names[who]}", column(result["ours"], 0),
                                         column(result[who], 0), "/s", goal, True))
                rows.append(compared(f"{work}, CPU a request, nginx sendfile",
                                     column(result["ours"], 1), column(result["nginx"], 1), "µs",
                                     None if large else 1 / 1.1, False))
                rows.append(compared(f"{work}, p99, nginx sendfile", column(result["ours"], 3),
                                     column(result["nginx"], 3), "ms", 1.0, False))
        return rows

    def small(self, rounds, seconds):
        rows = []
        for path in ("/health", "/v1/stats"):
            for connections in (8, 64):
                urls = {"ours": self.url("ours", path)}
                urls |= {who: self.url(who, "/json") for who in ("nginx", "httplib")}
                result = self.rounds(urls, connections, rounds, seconds)
                work = f"{path}, {connections} connections"
                ours = column(result["ours"], 0)
                rows.append(compared(work + ", nginx return 200", ours, column(result["nginx"], 0),
                                     "/s", 0.9, True))
                rows.append(compared(work + ", cpp-httplib", ours, column(result["httplib"], 0),
                                     "/s", 1.6, True))
                rows.append(compared(work + ", CPU a request, nginx return 200",
                                     column(result["ours"], 1), column(result["nginx"], 1), "µs",
                                     None, False))
                if path == "/v1/stats" and connections == 8:
                    late = column(result["ours"], 3)
                    middle = statistics.median(late)
                    rows.append(Row(work + ", p99 below 5 ms", f"{middle:.2f} ms", "5 ms",
                                    5 / middle, 1.0, spread(late)))
        return rows

    def retimed(self, rounds, soundtouch_ms):
        url = self.url("ours", self.target(TWELVE_SECONDS, "&speed=1.25"))
        got = [wrk(url, 1, 1)[2] for _ in range(rounds)]
        length = len(self.ours.ask("GET", self.target(TWELVE_SECONDS))[2]) / 88200
        # SoundTouch's time is for 12 s.
        peer = [soundtouch_ms * length / 12]
        return [compared(f"whole request of a hit at 1.25, {length:.1f} s, SoundTouch alone", got,
                         peer, "ms", 1.0, False, "the peer's time scaled to this length")]

    def idle(self, count):
        """Each connection is served once, then all of them wait."""
        rows, memory = [], {}
        for who, path in (("nginx", "/json"), ("ours", "/health")):
            pids = self.pids(who)
            wrk(self.url(who, path), 8, 1)
            before = resident(pids)
            port = self.plain if who == "nginx" else self.ours.port
            request = f"GET {path} HTTP/1.1\r\nHost: a\r\n\r\n".encode()
            sockets = []
            try:
                for _ in range(count):
                    sockets.append(socket.create_connection(("127.0.0.1", port), 30))
                    sockets[-1].sendall(request)
                    if not sockets[-1].recv(4096).startswith(b"HTTP/1.1 200"):
                        raise RuntimeError(who + " does not serve an idle connection")
                time.sleep(1)
                cpu = cpu_seconds(pids)
                time.sleep(3)
                memory[who] = (resident(pids) - before, resident(pids), cpu_seconds(pids) - cpu)
            finally:
                for each in sockets:
                    each.close()
            time.sleep(1)
        ours, theirs = memory["ours"], memory["nginx"]
        mb = 1e6
        name = f"{count:,} idle connections"
        rows.append(Row(name + ", growth below 10 MB", f"{ours[0] / mb:.1f} MB",
                        f"{theirs[0] / mb:.1f} MB", 10 * mb / max(ours[0], 1), 1.0))
        rows.append(Row(name + ", resident", f"{ours[1] / mb:.1f} MB", f"{theirs[1] / mb:.1f} MB",
                        theirs[1] / ours[1], 1.0))
        rows.append(Row(name + ", CPU in 3 s", f"{ours[2] * 1e3:.0f} ms", f"{theirs[2] * 1e3:.0f} ms",
                        1.0 if ours[2] <= 0.02 else 0.0, 1.0))
        return rows

    def growth(self, seconds):
        rows = []
        for connections in (1, 100, 10000):
            rate, _, p50, p99 = wrk(self.url("ours", "/health"), connections, seconds)
            rows.append(Row(f"/health, {connections:,} connections",
                            f"{rate:,.0f} /s, p50 {p50:.2f} ms, p99 {p99:.2f} ms"))
        return rows


def column(results, index):
    return [result[index] for result in results]


def start_rows(programs, rounds):
    """From the start of the process on an empty data root to the first answer."""
    times = []
    for _ in range(rounds):
        service = Service(pathlib.Path(programs) / "zephond")
        service.port = free_port()
        service._write_config()
        began = time.perf_counter()
        with open(service.log, "ab") as log:
            service.process = subprocess.Popen(
                [service.program], env={**os.environ, "ZEPHO_HOME": str(service.root)},
                stdout=subprocess.PIPE, stderr=log, text=True)
        while True:
            try:
                if service.ask("GET", "/health")[0] == 200:
                    break
            except OSError:
                if time.perf_counter() - began > 30:
                    raise
                time.sleep(0.0005)
        times.append((time.perf_counter() - began) * 1e3)
        service.remove()
    middle = statistics.median(times)
    return [Row("start of zephond to the first /health, below 60 ms", f"{middle:.1f} ms", "60 ms",
                60 / middle, 1.0, spread(times))]
