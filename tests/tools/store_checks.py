"""Clips for tests to hand in, and what must hold of the files of a data root at every moment."""

import json
import math
import os
import pathlib
import struct


def tone_wav(number, samples=9600, rate=8000):
    """1.2 seconds of a tone; another number is another clip."""
    body = b"".join(struct.pack("<h", int(8000 * math.sin(i * (0.05 + number % 997 / 9000))))
                    for i in range(samples))
    return (b"RIFF" + struct.pack("<I", 36 + len(body)) + b"WAVEfmt " +
            struct.pack("<IHHIIHH", 16, 1, 1, rate, 2 * rate, 2, 16) +
            b"data" + struct.pack("<I", len(body)) + body)


def wav_fault(path):
    """Why the file is no whole WAV; None where it is."""
    data = path.read_bytes()
    if len(data) < 44 or data[:4] != b"RIFF" or data[8:12] != b"WAVE":
        return "no WAV"
    if struct.unpack_from("<I", data, 4)[0] + 8 != len(data):
        return f"RIFF size {struct.unpack_from('<I', data, 4)[0] + 8}, file size {len(data)}"
    at = data.find(b"data", 12)
    if at < 0 or at + 8 + struct.unpack_from("<I", data, at + 4)[0] != len(data):
        return "data chunk and file end apart"
    return None


def json_faults(root):
    """What is wrong with the stores under the data root, one text each."""
    faults = []
    for name in ("temp/index.json", "data/voices.json", "data/config.json"):
        path = pathlib.Path(root) / name
        try:
            if path.exists() and not isinstance(json.loads(path.read_bytes()), dict):
                faults.append(f"{name} is no object")
        except ValueError as error:
            faults.append(f"{name} does not parse: {error}")
    return faults


def temporary_files(root):
    """The writes that are under way, or were cut off."""
    return [str(pathlib.Path(folder, name)) for folder, _, names in os.walk(root)
            for name in names if ".zepho-tmp-" in name]


def processes_of(program):
    """pid -> state of every process of that program."""
    found = {}
    for entry in pathlib.Path("/proc").iterdir():
        if not entry.name.isdigit():
            continue
        try:
            if os.readlink(entry / "exe").removesuffix(" (deleted)") == str(program):
                found[int(entry.name)] = (entry / "stat").read_text().rpartition(")")[2].split()[0]
        except OSError:
            continue
    return found


def zombies_of(parent):
    count = 0
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                words = (entry / "stat").read_text().rpartition(")")[2].split()
            except OSError:
                continue
            count += words[0] == "Z" and int(words[1]) == parent
    return count
