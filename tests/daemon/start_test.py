"""Starts zephond where it cannot start.

Usage: start_test.py <source directory> <zephond> <fake-s2>
"""

import fcntl
import os
import pathlib
import resource
import shutil
import socket
import subprocess
import sys
import unittest

SOURCE, ZEPHOND, FAKE_S2 = (pathlib.Path(word).resolve() for word in sys.argv[1:4])
sys.path.insert(0, str(SOURCE / "tests/tools"))
from live_service import Service, free_port  # noqa: E402
from store_checks import processes_of  # noqa: E402


class StartTest(unittest.TestCase):
    def setUp(self):
        self.service = Service(ZEPHOND)
        self.addCleanup(self.service.remove)
        self.config = self.service.root / "data/config.json"

    def begin(self, program=ZEPHOND, **more):
        return subprocess.Popen([str(program)], env={"ZEPHO_HOME": str(self.service.root)}, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, **more)

    def expect_order(self, limits, restrict, program=ZEPHOND):
        """With less and less to want it fails with a sentence, and then it starts."""
        seen = set()
        for limit in limits:
            self.service.port = free_port()
            self.service._write_config()
            with self.begin(program, preexec_fn=lambda: restrict(limit)) as process:
                if process.stdout.readline():
                    process.terminate()
                _, words = process.communicate(timeout=60)
            self.assertIn(process.returncode, (0, 1), f"at {limit}: {words}")
            seen.add(process.returncode)
            if process.returncode == 0:
                break
            self.assertTrue(words.strip(), limit)
        self.assertEqual(seen, {0, 1})

    def test_a_want_of_descriptors_ends_it_in_order(self):
        self.expect_order(range(6, 64),
                          lambda most: resource.setrlimit(resource.RLIMIT_NOFILE, (most, most)))

    @unittest.skipUnless(os.geteuid() == 0, "the threads of a whole user are counted")
    def test_a_want_of_threads_ends_it_in_order(self):
        stranger = 60000 + os.getpid() % 5000  # who runs nothing else
        program = self.service.root / "zephond"
        shutil.copy2(ZEPHOND, program)
        for path in (self.service.root, *self.service.root.rglob("*")):
            os.chown(path, stranger, stranger)

        def restrict(most):
            resource.setrlimit(resource.RLIMIT_NPROC, (most, most))
            os.setresuid(stranger, stranger, stranger)

        self.expect_order(range(1, 64), restrict, program)

    def test_beside_another_one_it_writes_nothing(self):
        with open(self.service.root / "zephon.lock", "w") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            with self.begin() as process:
                _, words = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 1, words)
        self.assertFalse(self.config.exists())

    def test_where_its_port_is_taken_no_inference_process_stays(self):
        engine = self.service.with_engine(FAKE_S2)
        with socket.create_server(("127.0.0.1", 0)) as taken:
            self.service.port = taken.getsockname()[1]
            self.service._write_config()
            with self.begin() as process:
                _, words = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 1, words)
        self.assertIn(str(self.service.port), words)
        self.assertEqual(processes_of(engine), {})


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
