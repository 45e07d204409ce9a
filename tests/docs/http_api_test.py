"""Runs every command of docs/http-api.md against a live service and compares what the page says.

Usage: http_api_test.py <source directory> <zephond>
"""

import pathlib
import re
import subprocess
import sys
import tempfile

SOURCE = pathlib.Path(sys.argv[1])
sys.path.insert(0, str(SOURCE / "tests/tools"))
from live_service import Service, write_clip  # noqa: E402

PAGE = (SOURCE / "docs/http-api.md").read_text()

# curl that tells head, body (unless it goes to a file) and status on stdout.
CURL = """curl() {
  command curl -sS --noproxy '*' --max-time 60 -D head.last -w '\\nstatus=%{http_code}\\n' "$@"
  local code=$?
  for word in "$@"; do [ "$word" != head.txt ] || cat head.txt; done
  [ ! -e head.last ] || cat head.last
  return $code
}
"""


def commands():
    """(command, status, text that the answer contains) in the order of the page."""
    for block in re.findall(r"```sh\n(.*?)```", PAGE, re.S):
        lines = block.strip().split("\n")
        if len(lines) % 2:
            raise SystemExit("a command without its comment in:\n" + block)
        for command, comment in zip(lines[::2], lines[1::2]):
            expected = re.fullmatch(r"# -> (\d{3})(?: (.*))?", comment)
            if "curl " not in command or not expected:
                raise SystemExit(f"not a command and its comment:\n{command}\n{comment}")
            yield command, int(expected[1]), expected[2] or ""


def run_page(service, folder):
    failures = 0
    voice = "v-0123456789ab"
    count = 0
    for command, status, text in commands():
        count += 1
        (folder / "head.last").unlink(missing_ok=True)
        line = command.replace("127.0.0.1:17150", f"127.0.0.1:{service.port}")
        ran = subprocess.run(["bash", "-c", CURL + line.replace("v-0123456789ab", voice)],
                             cwd=folder, capture_output=True, text=True, timeout=120)
        answer = ran.stdout
        got = re.search(r"^status=(\d+)$", answer, re.M)
        if not got or int(got[1]) != status or text.replace("v-0123456789ab", voice) not in answer:
            failures += 1
            print(f"FAILED {command}\n  expected {status} {text}\n  got {answer}{ran.stderr}")
        if "/clone" in command and status == 200:
            voice = re.search(r'"id":"([^"]+)"', answer)[1]
    print(f"{count} commands, {failures} failed")
    return failures


def missing_words():
    """What the sources can answer or read, and the page does not name."""
    def words(path, *patterns):
        text = (SOURCE / path).read_text()
        found = {word for pattern in patterns for word in re.findall(pattern, text)}
        if not found:
            raise SystemExit(f"nothing found in {path}")
        return found
    wanted = words("core/http/TtsHttpService.cpp", r'path == "([^"]+)"',
                   r'error\(\s*\d+,\s*"(\w+)"', r'headers\["([^"]+)"\]')
    wanted |= words("core/http/RequestReading.cpp", r'object, "(\w+)"', r'queryValue\("(\w+)"',
                    r'error\(\d+, "(\w+)"')
    wanted |= words("core/http/RouteTts.cpp", r'headers\["([^"]+)"\]', r'error\(\d+, "(\w+)"')
    wanted |= words("core/http/RoutesService.cpp", r'\{"(\w+)", ', r'queryValue\("(\w+)"')
    wanted |= words("core/http/RoutesVoices.cpp", r'\{"(\w+)", ', r'(?:body|item), "(\w+)"',
                    r'error\(\s*\d+, "(\w+)"')
    wanted |= words("core/base/TtsError.cpp", r'return "(\w+)"')
    return sorted(word for word in wanted if not re.search(
        r"`" + re.escape(word) + r"\b[^`\n]*`", PAGE))


def main():
    missing = missing_words()
    for word in missing:
        print("the page does not name", word)
    service = Service(sys.argv[2]).start()
    try:
        with tempfile.TemporaryDirectory() as folder:
            write_clip(pathlib.Path(folder) / "clip.wav", 2)
            failures = run_page(service, pathlib.Path(folder))
        if code := service.stop():
            print("zephond ended with", code)
            failures += 1
    finally:
        service.remove()
    sys.exit(1 if failures or missing else 0)


main()
