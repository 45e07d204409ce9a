"""Drives zephonctl, and the client's example, against live services.

Usage: zephonctl_test.py <source directory> <zephond> <zephonctl> <example>
"""

import io
import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import unittest
import wave

SOURCE, ZEPHOND, ZEPHONCTL, EXAMPLE = (pathlib.Path(word).resolve() for word in sys.argv[1:5])
sys.path.insert(0, str(SOURCE / "tests/tools"))
from live_service import Service, write_clip  # noqa: E402

COMMANDS = ["say", "prebake", "voices", "remove", "clone", "bind", "pack", "health", "selftest",
            "stats", "log"]


def samples(data):
    with wave.open(io.BytesIO(data)) as clip:
        return clip.getnframes(), clip.getframerate()


class Wrong:
    """A listener that gives every connection the same bytes, or nothing."""

    def __init__(self, answer):
        self.answer = answer
        self.socket = socket.create_server(("127.0.0.1", 0))
        self.url = f"http://127.0.0.1:{self.socket.getsockname()[1]}"
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            try:
                connection, _ = self.socket.accept()
                connection.recv(65536)
                if self.answer is not None:
                    connection.sendall(self.answer)
                    connection.close()
                else:
                    connection.recv(1)
            except OSError:
                return


class ZephonctlTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.services = [Service(ZEPHOND).start(), Service(ZEPHOND).start()]
        cls.urls = [f"http://127.0.0.1:{service.port}" for service in cls.services]
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="zephonctl-"))
        write_clip(cls.folder / "desk.wav", 1)

    @classmethod
    def tearDownClass(cls):
        for service in cls.services:
            service.remove()
        shutil.rmtree(cls.folder)

    def run_it(self, *words, code=0, url=None, text=None, program=ZEPHONCTL, **environment):
        """(stdout, stderr) as bytes and text."""
        env = {**os.environ, "ZEPHON_URL": url or self.urls[0], **environment}
        done = subprocess.run([program, *map(str, words)], env=env, cwd=self.folder, input=text,
                              capture_output=True, timeout=120)
        self.assertEqual(done.returncode, code, f"{words}\n{done.stdout[:500]}\n{done.stderr}")
        return done.stdout, done.stderr.decode()

    def json_of(self, *words, **more):
        return json.loads(self.run_it("--json", *words, **more)[0])

    def test_say(self):
        told = self.json_of("say", "Gate four, \"now\"", "-l", "en", "-o", "four.wav", "--speed", "1.25",
                            "--sample-rate", "16000", "--urgent")
        self.assertEqual((told["cache"], told["sample_rate"], told["file"]), ("miss", 16000, "four.wav"))
        frames, rate = samples((self.folder / "four.wav").read_bytes())
        self.assertAlmostEqual(frames / rate * 1000, told["duration_ms"], delta=2)
        words = ("say", "-", "-l", "en", "--speed", "1.25", "--sample-rate", "16000")
        audio, notes = self.run_it(*words, "-o", "-", text=b"Gate four, \"now\"")
        self.assertEqual(samples(audio), (frames, rate))
        self.assertIn("from the cache", notes)
        held = self.json_of("say", "Gate four, \"now\"", *words[2:], "-o", "no.wav", "--etag", told["etag"])
        self.assertTrue(held["not_modified"])
        self.assertFalse((self.folder / "no.wav").exists())
        self.assertIn("empty_text", self.run_it("say", " ", "-o", "no.wav", code=5)[1])
        self.run_it("say", "Gate four", "-l", "en", "-o", "/proc/no/such", code=7)
        self.run_it("say", "Gate four", "--speed", "3", code=2)

    def test_say_plays_with_what_is_there(self):
        player = self.folder / "bin" / "aplay"
        player.parent.mkdir()
        player.write_text("#!/bin/sh\n/bin/cp \"$1\" played.wav\n")
        player.chmod(0o755)
        path = str(player.parent)
        scratch = self.folder / "scratch"
        scratch.mkdir()
        self.run_it("say", "Gate five", "-l", "en", PATH=path, TMPDIR=str(scratch))
        self.assertGreater(samples((self.folder / "played.wav").read_bytes())[0], 1000)
        player.write_text("#!/bin/sh\nexit 1\n")
        self.run_it("say", "Gate five", "-l", "en", code=7, PATH=path, TMPDIR=str(scratch))
        self.assertIn("-o", self.run_it("say", "Gate five", "-l", "en", code=7, PATH="/nowhere")[1])
        self.assertEqual(list(scratch.iterdir()), [])

    def test_failures_have_their_codes(self):
        with socket.socket() as unused:
            unused.bind(("127.0.0.1", 0))
            self.run_it("health", code=3, url=f"http://127.0.0.1:{unused.getsockname()[1]}")
        self.run_it("health", code=2, url="https://127.0.0.1")
        self.run_it("health", "--timeout", "0.3", code=4, url=Wrong(None).url)
        for answer in (b"", b"SSH-2.0\r\n", b"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{}",
                       b"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}"):
            self.run_it("health", code=6, url=Wrong(answer).url)
        for words in ((), ("sing",), ("say",), ("say", "a", "--loud"), ("health", "--url"),
                      ("pack",), ("bind", "--voice", "x"), ("clone", "a", "--clip", "desk.wav")):
            self.run_it(*words, code=2)
        self.run_it("say", "a", "--url", self.urls[0], "--url", self.urls[1], code=2)

    def test_voices_on_two_services_and_in_a_pack(self):
        both = ",".join(self.urls)
        self.run_it("clone", "Desk", "-l", "en", "-g", "female", "-a", "CCA", "--clip", "desk.wav",
                    "--text", "one two", "--style", "calm", url=both)
        rows = [json.loads(row) for row in self.run_it("--json", "voices", url=both)[0].splitlines()]
        self.assertEqual([row["url"] for row in rows], self.urls)
        mine = [next(voice for voice in row["answer"]["voices"] if voice["display"] == "Desk")
                for row in rows]
        self.assertEqual(mine[0], mine[1])
        identity = mine[0]["id"]
        self.assertEqual(self.json_of("bind")["CCA:en:female"], identity)
        self.run_it("bind", "-a", "CES", "-g", "male", "--voice", "Desk")
        self.assertEqual(self.json_of("bind", "-a", "CES", "-g", "male", "--remove"),
                         {"CCA:en:female": identity})
        self.assertIn("no such voice", self.run_it("bind", "-a", "CES", "--voice", "Nobody", code=2)[1])
        self.assertIn("Desk", self.run_it("voices")[0].decode())

        # From the files of the first service to the second one, which lacks the voice at first.
        self.run_it("remove", "Desk", url=self.urls[1])
        root = self.services[0].root
        exported = self.json_of("pack", "export", "desk.cln", "--data-root", root)
        self.assertEqual((exported["voices"], exported["bindings"], exported["clips"]), (1, 1, 1))
        taken = self.json_of("pack", "import", "desk.cln", url=self.urls[1])
        self.assertEqual(taken, {"added": 1, "reused": 0, "bindings": 1})
        there = self.json_of("voices", url=self.urls[1])["voices"]
        self.assertEqual(next(voice for voice in there if voice["display"] == "Desk"), mine[0])
        told = self.json_of("say", "Gate", "-a", "CCA", "-l", "en", "-g", "female", "-o", "a.wav",
                            url=self.urls[1])
        self.assertEqual(told["voice"], identity)
        self.run_it("pack", "import", "desk.wav", code=2)
        self.run_it("pack", "export", "x.cln", "--data-root", self.folder, code=2)
        self.run_it("remove", "Desk", url=both)
        self.assertNotIn("Desk", self.run_it("voices")[0].decode())

    def test_prebake(self):
        table = self.folder / "lines.csv"
        table.write_bytes("text,language,speed,voice\r\n".encode() + "".join(
            f"\"Flight {i}, \"\"now\"\" boarding\",{'zh' if i % 3 else ''},{'1.2' if i % 2 else ''},\r\n"
            for i in range(300)).encode() + " ,,,\r\n".encode())
        words = ("prebake", table, "-l", "en", "--interval", "0.05")
        report, progress = self.run_it(*words)
        self.assertRegex(report.decode(),
                         r"301 lines: 300 hits \(0 were there before\), 0 failed, 1 without text")
        # Not on a terminal: whole lines, and the bar ends full.
        bars = re.findall(r"\[(#*)\.*\] (\d+)/301 (.*)", progress)
        self.assertEqual(bars[-1], ("#" * 30, "301", "done"))
        self.assertEqual(progress.count("\n"), len(bars))
        with table.open("ab") as file:
            file.write(b"A new one,en,,\r\nA wrong one,en,,nobody\r\n")
        told = self.json_of(*words, code=1)
        self.assertEqual((told["hits"], told["already"], told["empty"]), (301, 300, 1))
        self.assertEqual([(one["line"], one["text"], one["error"]) for one in told["failed"]],
                         [(304, "A wrong one", "bad_voice")])
        spoken = self.json_of("say", "Flight 1, \"now\" boarding", "-l", "zh", "--speed", "1.2", "-o",
                              "b.wav")
        self.assertEqual(spoken["cache"], "hit")
        # Line by line, as behind a balancer.
        single = self.json_of("prebake", "-", "--batch", "1", "-l", "en", "--node", self.urls[0],
                              text=b"text\nA new one\nAnother one\n")
        self.assertEqual((single["hits"], single["already"]), (2, 1))
        for wrong in (b"", b"text,colour\na,red\n", b"voice\na\n", b"text\n\"a\n", b"text,speed\na,x\n",
                      b"text,speed\na,1.0 2\n"):
            self.run_it("prebake", "-", code=2, text=wrong)
        self.run_it("prebake", "nowhere.csv", code=2)

    def test_state(self):
        self.assertIn("degraded", self.run_it("health", code=1)[0].decode())
        self.assertTrue(self.json_of("health", code=1)["placeholder"])
        test = self.json_of("selftest", "--text", "Hello", "-l", "en", code=1)
        self.assertEqual([check["ok"] for check in test["checks"]], [False, True, True, True])
        self.assertIn("[FAIL] engine", self.run_it("selftest", code=1)[0].decode())
        looks = self.run_it("--json", "stats", "--watch", "0.05", "--count", "3")[0].splitlines()
        self.assertEqual(len([json.loads(look)["total"] for look in looks]), 3)

    def test_log_is_followed(self):
        self.run_it("prebake", "-", text=b"text\nlogged\n")
        self.assertEqual(len(self.run_it("log", "--lines", "1")[0].splitlines()), 1)
        follower = subprocess.Popen([ZEPHONCTL, "log", "-f", "--lines", "1", "--url", self.urls[0]],
                                    stdout=subprocess.PIPE, text=True)
        try:
            first = follower.stdout.readline()
            self.run_it("say", "followed", "-l", "en", "-o", "c.wav")
            self.run_it("prebake", "-", text=b"text\na line that is followed\n")
            seen = [first]
            while "a line that is followed" not in seen[-1]:
                seen.append(follower.stdout.readline())
                self.assertNotEqual(seen[-1], "")
            # Each line once and none left out; two lines of one moment may read the same.
            shown = [line.rstrip("\n") for line in seen]
            whole = self.run_it("log", "--lines", "2000")[0].decode().splitlines()
            self.assertIn(shown, [whole[at:at + len(shown)] for at in range(len(whole))])
        finally:
            follower.terminate()
            follower.wait(30)
            follower.stdout.close()

    def test_every_option_is_told_everywhere(self):
        manual = (SOURCE / "cli/zephonctl.1").read_text().replace("\\-", "-")
        completion = (SOURCE / "cli/completion/zephonctl.bash").read_text()
        for command in COMMANDS:
            pages = [(command, "--help")]
            if command == "pack":
                pages += [("pack", "import", "--help"), ("pack", "export", "--help")]
            self.assertRegex(manual, rf"\n\.(B|BI) \"?{command}\b")
            script = (f"{completion}\nCOMP_WORDS=(zephonctl {command} '')\nCOMP_CWORD=2\n"
                      "_zephonctl\nprintf '%s\\n' \"${COMPREPLY[@]}\"")
            offered = subprocess.run(["bash", "-c", script], capture_output=True, text=True,
                                     check=True, cwd=self.folder).stdout.split()
            for page in pages:
                help_text = self.run_it(*page)[0].decode()
                if len(page) == 2:
                    self.assertIn("Examples:", help_text)
                options = re.findall(r"^  (?:-\w,)?(--[\w-]+)", help_text, re.M)
                self.assertIn("--help", options)
                for option in options:
                    self.assertIn(option, offered, command)
                    self.assertIn(option, manual, command)

    def test_the_example_of_the_client(self):
        words = (self.urls[0], "An example", self.folder / "example.wav")
        first = self.run_it(*words, program=EXAMPLE)[0].decode()
        self.assertIn("from the engine\nunchanged", first)
        self.assertIn("from the cache\nunchanged", self.run_it(*words, program=EXAMPLE)[0].decode())
        self.assertGreater(samples((self.folder / "example.wav").read_bytes())[0], 1000)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0]] + sys.argv[5:])
