#!/usr/bin/env python3
"""scan_speed.py QIVCTL FOLDER...: how fast `qivctl scan` goes through folders, beside grep as a floor.

grep searches the same files for 500 fixed words; it reads every byte once and judges nothing. Each command runs a few
times, the best counts; the first run, which may read from the disk, does not. Files and bytes are those of the scan."""
import json
import pathlib
import random
import resource
import subprocess
import sys
import tempfile
import time

RUNS = 3


def words(count):
    """Fixed words of letters that no file is likely to hold."""
    draw = random.Random(1)
    return ["".join(draw.choice("abcdefghijklmnopqrstuvwxyz") for _ in range(draw.randint(8, 16))) for _ in range(count)]


def best(command):
    """(seconds, processor seconds, output) of the best run."""
    found = None
    for run in range(RUNS + 1):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        begin = time.monotonic()
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env={"LC_ALL": "C"})
        seconds = time.monotonic() - begin
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        busy = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
        if run > 0 and (found is None or busy < found[1]):
            found = (seconds, busy, done.stdout)
    return found


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    qivctl, folders = str(pathlib.Path(sys.argv[1]).resolve()), sys.argv[2:]
    scripts = [part for ending in ("php", "inc", "phtml", "asp", "aspx", "ascx", "ashx", "asmx", "master")
               for part in ("--exclude", "*." + ending)]
    print("| | files | MB | seconds | files/s | MB/s | processor seconds |\n|---|---|---|---|---|---|---|")

    def show(name, files, size, seconds, busy):
        print(f"| {name} | {files:,} | {size / 1e6:.1f} | {seconds:.2f} | {files / seconds:,.0f} | {size / 1e6 / seconds:,.0f} "
              f"| {busy:.2f} |", flush=True)

    def scan(name, *options):
        seconds, busy, output = best([qivctl, "scan", "--json", *options, *folders])
        sums = json.loads(output.splitlines()[-1])["summary"]
        show(name, sums["files"], sums["bytes"], seconds, busy)
        return sums

    sums = scan("scan, all processors")
    scan("scan, one processor", "--jobs", "1")
    scan("scan without the scripts, one processor", "--jobs", "1", *scripts)
    with tempfile.NamedTemporaryFile("w", suffix=".txt") as patterns:
        patterns.write("\n".join(words(500)) + "\n")
        patterns.flush()
        seconds, busy, _ = best(["grep", "-rFlf", patterns.name, *folders])
    show("grep -rF, 500 words", sums["files"], sums["bytes"], seconds, busy)


if __name__ == "__main__":
    main()
