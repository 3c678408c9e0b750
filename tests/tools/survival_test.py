"""What is on the disk when the command is killed or the power fails: the old file or the new one, whole. And what
a decoder could do that was taken over.

    survival_test.py kill RASTREL LETTER [TIMES]     kill -9 at random moments; 1000 takes some minutes
    survival_test.py power RASTREL LETTER FAULTS     every moment of a recorded run (see faults.c)
    survival_test.py escape RASTREL LETTER FAULTS    tries in the midst of a run, with a sandbox and without
"""

import ctypes
import os
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path


def command(rastrel, letter, *more):
    return [rastrel, "apply", letter, letter, "-o", "out.tif", "--overwrite", "-q", *more]


def prepare(rastrel, letter):
    """Makes out.tif and returns it with what replaces it."""
    subprocess.run(command(rastrel, letter), check=True)
    new = Path("out.tif").read_bytes()
    subprocess.run(command(rastrel, letter, "invert"), check=True)
    return Path("out.tif").read_bytes(), new


def kill(rastrel, letter, times):
    old, new = prepare(rastrel, letter)
    start = time.monotonic()
    subprocess.run(command(rastrel, letter), check=True)
    duration = time.monotonic() - start
    kept = 0
    random.seed(1)
    for i in range(times):
        Path("out.tif").write_bytes(old)
        with subprocess.Popen(command(rastrel, letter)) as process:
            time.sleep(random.uniform(0, 1.2 * duration))
            process.kill()
        found = Path("out.tif").read_bytes()
        assert found in (old, new), f"run {i}: {len(found)} other bytes"
        kept += found == old
    subprocess.run(command(rastrel, letter), check=True)
    left = [name for name in os.listdir() if name != "out.tif"]
    assert not left, f"left for ever: {left}"
    print(f"{times} kills: {kept} times the old file, {times - kept} times the new one")


def events(record):
    """What happened, the file's name, another name, bytes, and where they went."""
    data = Path(record).read_bytes()
    at = 0
    while at < len(data):
        what, name, other, size, position = struct.unpack_from("=5q", data, at)
        at += 40
        texts = []
        for length in (name, other, size):
            texts.append(data[at : at + length])
            at += length
        yield chr(what), os.path.abspath(texts[0].decode()), os.path.abspath(texts[1].decode()), texts[2], position


class File:
    def __init__(self, data=b""):
        self.now, self.synced = bytearray(data), bytes(data)

    def write(self, data, position):
        self.now.extend(bytes(max(0, position + len(data) - len(self.now))))
        self.now[position : position + len(data)] = data


def power(rastrel, letter, faults):
    old, new = prepare(rastrel, letter)
    record = os.path.abspath("record")
    environment = dict(os.environ, LD_PRELOAD=faults, RASTREL_RECORD=record)
    subprocess.run(command(rastrel, letter), check=True, env=environment)
    assert Path("out.tif").read_bytes() == new
    out = os.path.abspath("out.tif")
    names = {out: File(old)}  # as programs see them
    synced = dict(names)  # as the disk has them for certain
    moments = 0
    for what, name, other, data, position in events(record):
        if what == "c":
            names[name] = File()
        elif what == "t":
            names[name].now = bytearray()
        elif what == "w":
            names[name].write(data, position)
        elif what in "rl":
            names[other] = names.pop(name) if what == "r" else names[name]
        elif what == "u":
            del names[name]
        elif os.path.isdir(name):
            synced = dict(names)
        else:
            names[name].synced = bytes(names[name].now)
        # Whatever the system had in mind to write may have come to the disk, or not, or half of it.
        for folder in (names, synced):
            file = folder[out]
            torn = bytes(file.now[: len(file.now) // 2]) if bytes(file.now) != file.synced else file.synced
            for found in (bytes(file.now), file.synced, torn):
                assert found in (old, new), f"after {what} of {name}: {len(found)} other bytes"
        moments += 1
    assert synced[out].synced == new, "the new file is not on the disk for certain"
    print(f"{moments} moments, the old file or the new one at each")


def escape(rastrel, letter, faults):
    # Not where temporary files go, which may be written anyway.
    folder = tempfile.mkdtemp(dir=os.path.dirname(faults))
    environment = dict(os.environ, LD_PRELOAD=faults, RASTREL_ESCAPE=folder)
    everything = {"escaped: a file", "escaped: a folder", "escaped: the network", "escaped: a process", "tried"}
    landlock = ctypes.CDLL(None).syscall(444, None, 0, 1)  # its version
    through = everything - {"escaped: the network"} if landlock < 1 else {"tried"}
    if landlock < 6:
        through.add("escaped: a process")
    for word, gone in (("--no-sandbox", everything), ("-q", through)):
        run = subprocess.run(command(rastrel, letter, word), env=environment, stderr=subprocess.PIPE, text=True)
        assert run.returncode == 0, run.stderr
        assert set(run.stderr.splitlines()) == gone, f"{word}: {run.stderr}"
    # What people mean to write is written: plain names, folders to be made, the other ends of links.
    os.chdir(folder)
    os.mkdir("other")
    os.symlink("there.tif", "other/link.tif")
    os.symlink("other/link.tif", "link.tif")
    for output in ("out.tif", "made/", "new/deep/out.tif", "link.tif"):
        subprocess.run([rastrel, "apply", letter, "-o", output, "--parents", "-q"], check=True)
    assert os.path.isfile("other/there.tif")
    os.mkdir("out")
    os.symlink("../other", "out/samples")
    os.makedirs("in/samples")
    shutil.copy(letter, "in/samples")
    subprocess.run([rastrel, "batch", "in", "-o", "out", "-q"], check=True)
    assert os.path.isfile("other/letter-1bit.tif")
    os.chdir("/")
    shutil.rmtree(folder)
    print("nothing got out")


def main():
    what, rastrel, letter, *rest = sys.argv[1:]
    rastrel, letter = os.path.abspath(rastrel), os.path.abspath(letter)
    rest = [int(word) if what == "kill" else os.path.abspath(word) for word in rest]
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        {"kill": kill, "power": power, "escape": escape}[what](rastrel, letter, *(rest or [20]))
        os.chdir("/")


main()
