"""Kills a busy service again and again; see scripts/soak-crash.

What an answer of 200 has promised must survive: a spoken line is a hit, a cloned voice is listed, a
binding holds. Files are whole at every moment, right after the kill included.
"""

import base64
import http.client
import json
import pathlib
import random
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tools"))
from live_service import Service  # noqa: E402
from store_checks import json_faults, temporary_files, tone_wav, wav_fault  # noqa: E402

GONE = (OSError, http.client.HTTPException)


class Crash:
    def __init__(self, program):
        self.service = Service(program, {
            "synthesis": {"outputSampleRate": 8000}, "cache": {"enabled": True}})
        self.random = random.Random()
        self.lock = threading.Lock()
        self.lines = []      # (text, file name) answered with 200
        self.voices = set()  # ids answered with 200 and not deleted since
        self.deleting = set()  # ids whose end was asked for; may be listed without their clips
        self.bindings = {}   # key -> values that may stand there: the acknowledged, and one under way
        self.allowed = {200, 202}
        self.ending = False
        self.checked = {}    # file name -> time of the version that was whole
        self.asked = self.promised = self.cloned = 0
        self.problems = []

    def problem(self, text):
        self.problems.append(text)
        print("PROBLEM", text, flush=True)

    # The load. Each loop ends when the service is gone.

    def ask(self, method, target, body=None, timeout=30):
        status, headers, answer = self.service.ask(method, target, body, timeout)
        self.asked += 1
        # While it ends in order, it says so.
        if status not in self.allowed and not (self.ending and status == 503):
            self.problem(f"{method} {target}: {status} {answer[:200]!r}")
        return status, headers, answer

    def speak(self):
        while True:
            text = f"Line {self.random.getrandbits(40):x}"
            status, headers, _ = self.ask("GET", "/v1/tts?text=" + text.replace(" ", "+"))
            if status == 200:
                with self.lock:
                    self.promised += 1
                    self.lines.append((text, headers["ETag"].strip('"') + ".wav"))

    def bake(self):
        while True:
            items = [{"text": f"Baked {self.random.getrandbits(40):x}"} for _ in range(5)]
            self.ask("POST", "/v1/prewarm", {"items": items})
            time.sleep(0.02)

    def clone(self):
        while True:
            number = self.random.getrandbits(30)
            status, _, answer = self.ask("POST", "/v1/voices/clone", {
                "display": f"Voice {number}", "reference_text": f"text {number}",
                "audio": base64.b64encode(tone_wav(number)).decode()})
            if status != 200:
                continue
            voice = json.loads(answer)["id"]
            with self.lock:
                self.cloned += 1
                self.voices.add(voice)
                old = self.random.choice(sorted(self.voices)) if len(self.voices) > 20 else None
                # Its end is not certain any more from here on.
                self.voices.discard(old)
                self.deleting.add(old)
            if old:
                self.ask("DELETE", "/v1/voices/" + old)

    def bind(self):
        while True:
            airline = "A%02d" % self.random.randrange(20)
            key = f"{airline}::default"
            voice = self.random.choice([self.anchor, ""])
            with self.lock:
                self.bindings.setdefault(key, {""}).add(voice)
            self.ask("PUT", "/v1/airlines", {"airline": airline, "voice": voice})
            with self.lock:
                self.bindings[key] = {voice}

    def end(self):
        self.service.kill()

    def load(self, seconds):
        def until_gone(work):
            try:
                work()
            except GONE:
                pass
        loops = [self.speak, self.speak, self.bake, self.clone, self.bind]
        threads = [threading.Thread(target=until_gone, args=[work]) for work in loops]
        for thread in threads:
            thread.start()
        time.sleep(seconds)
        self.ending = True
        self.end()
        for thread in threads:
            thread.join()
        self.ending = False

    # The checks.

    def check_files(self, when):
        root = self.service.root
        for fault in json_faults(root):
            self.problem(f"{when}: {fault}")
        for path in (root / "temp").glob("*.wav"):
            if self.checked.get(path.name) == path.stat().st_mtime_ns:
                continue
            if fault := wav_fault(path):
                self.problem(f"{when}: temp/{path.name}: {fault}")
            self.checked[path.name] = path.stat().st_mtime_ns

    def check_started(self):
        for path in temporary_files(self.service.root):
            self.problem(f"after the start: {path} is left")
        self.check_files("after the start")
        for text, _ in self.lines[-4:] + self.random.sample(self.lines, min(4, len(self.lines))):
            status, headers, _ = self.ask("GET", "/v1/tts?text=" + text.replace(" ", "+"))
            if status == 200 and headers["X-ZEPHO-Cache"] != "hit":
                self.problem(f"lost: {text!r} was answered before and is a miss")
        listed = {voice["id"]: voice for voice in
                  json.loads(self.ask("GET", "/v1/voices")[2])["voices"]}
        for voice in self.voices - listed.keys():
            self.problem(f"lost: voice {voice}")
        for voice in listed.values():
            for clip in voice["clips"]:
                path = self.service.root / "clone" / clip["file"]
                if path.exists() and not wav_fault(path):
                    continue
                if voice["id"] not in self.deleting:
                    self.problem(f"voice {voice['id']} is listed, its clip {path.name} is not whole")
        airlines = json.loads(self.ask("GET", "/v1/airlines")[2])
        for key, allowed in self.bindings.items():
            found = airlines.get(key, "")
            if found not in allowed:
                self.problem(f"binding {key} is {found!r}, not one of {sorted(allowed)}")
            self.bindings[key] = {found}

    def prepare(self):
        self.service.start()
        self.service.wait_until(
            lambda: json.loads(self.service.ask("GET", "/health")[2])["engine_ready"])
        self.ask("GET", "/v1/tts?text=Anchor")  # makes the default voice
        self.anchor = json.loads(self.ask("GET", "/v1/voices")[2])["voices"][0]["id"]

    def tamper(self):
        """What a service that writes carelessly would leave."""
        temp = self.service.root / "temp"
        cut, gone = (name for _, name in self.lines[-2:])
        (temp / cut).write_bytes((temp / cut).read_bytes()[:-100])
        (temp / gone).unlink()
        index = temp / "index.json"
        index.write_bytes(index.read_bytes()[:index.stat().st_size // 2])

    def run(self, rounds):
        self.prepare()
        begin = time.monotonic()
        starts = []
        for number in range(1, rounds + 1):
            self.load(self.random.uniform(0.02, 0.4))
            self.check_files("after the kill")
            started = time.monotonic()
            self.service.start()
            starts.append(time.monotonic() - started)
            self.check_started()
            if number % 50 == 0 or number == rounds:
                print(self.tell(number, begin, starts), flush=True)
            if number % 200 == 0:
                # What was promised has been looked at; a directory that only grows makes the looks slow.
                self.lines.clear()
                self.checked.clear()
                # Tens of thousands of files, on a disk that others use.
                self.ask("DELETE", "/v1/cache", timeout=300)
        return self.tell(rounds, begin, starts)

    def tell(self, number, begin, starts):
        return (f"{number} kills in {time.monotonic() - begin:.0f} s, {self.asked} requests, "
                f"{self.promised} lines and {self.cloned} voices promised, slowest start "
                f"{max(starts):.2f} s, {len(self.problems)} lost, torn or left behind")

    def control(self, rounds):
        """Whether each damage is noticed, in every round."""
        self.prepare()
        blind = 0
        for _ in range(rounds):
            self.load(0.5)
            if len(self.lines) < 2:
                continue
            # An index of before the last clips, as after a crash between two writes of it.
            self.check_files("after the kill")
            before = len(self.problems)
            self.tamper()
            self.check_files("after the kill")
            self.service.start()
            self.check_started()
            found = " ".join(self.problems[before:])
            for sign in ("RIFF size", "index.json does not parse", "is a miss"):
                if sign not in found:
                    blind += 1
                    print("NOT NOTICED:", sign)
            # The next round begins with a sound directory.
            self.lines.clear()
            self.ask("DELETE", "/v1/cache")
        print(f"control: {rounds} rounds, {len(self.problems)} problems reported, "
              f"{blind} damages not noticed")
        return blind


def main():
    words = sys.argv[2:]
    control = "--control" in words
    numbers = [int(word) for word in words if word.isdigit()]
    crash = Crash(sys.argv[1])
    try:
        if control:
            failed = crash.control(numbers[0] if numbers else 5)
        else:
            crash.run(numbers[0] if numbers else 200)
            failed = len(crash.problems)
    finally:
        crash.service.remove()
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
