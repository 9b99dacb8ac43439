#!/usr/bin/env python3
"""Counts what decisions cost in instructions, which no busy machine changes, and holds them against a budget.

    check.py [--bin FOLDER] [--write]

Needs valgrind and build/bin (./run.sh --build-only). The host's share is taken off. A request may cost 1.05 of its budget; whoever makes
it dearer changes budget.json in the same commit and says why, whoever makes it cheaper lowers it (--write does both).
Exit code 0: all within; 1: one is not, has no budget, or is no longer counted; 2: nothing was counted."""
import argparse
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUDGET = pathlib.Path(__file__).with_name("budget.json")
MOST = 1.05
# glibc chooses its memory functions by the processor; with these off every machine counts the same.
TUNABLES = "glibc.cpu.hwcaps=-AVX2_Usable,-AVX2,-AVX512F,-ERMS,-FSRM,-SSE4_2,-SSSE3,-Fast_Unaligned_Copy"


def dumps(program, folder):
    """{"setting/request": instructions of one request}."""
    if shutil.which("valgrind") is None:
        print("check: there is no valgrind", file=sys.stderr)
        return {}
    done = subprocess.run(["valgrind", "--tool=callgrind", "--collect-atstart=no", f"--callgrind-out-file={folder}/out", str(program)],
                          env=dict(os.environ, GLIBC_TUNABLES=TUNABLES), capture_output=True, text=True, check=False)
    if done.returncode != 0:
        print(done.stderr[-2000:], file=sys.stderr)
        return {}
    counted = {}
    for path in pathlib.Path(folder).glob("out.*"):
        text = path.read_text(encoding="utf-8", errors="replace")
        name = re.search(r"^desc: Trigger: Client Request: (.+)$", text, re.M)
        total = re.search(r"^(?:summary|totals): (\d+)", text, re.M)
        if name and total:
            counted[name[1]] = int(total[1]) // int(done.stdout)
    return counted


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", type=pathlib.Path, default=ROOT / "build/bin")
    parser.add_argument("--write", action="store_true", help="make what is counted the budget")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="qiv-instructions-") as folder:
        counted = dumps(options.bin / "instructions", folder)
    host = {name.split("/")[1]: count for name, count in counted.items() if name.startswith("host/")}
    spent = {name: count - host[name.split("/")[1]] for name, count in sorted(counted.items()) if not name.startswith("host/")}
    if not spent:
        print("check: nothing was counted", file=sys.stderr)
        return 2
    budget = json.loads(BUDGET.read_text()) if BUDGET.is_file() else {}
    lost = sorted(set(budget) - set(spent)) if not options.write else []
    for name in lost:
        print(f"{name:36} has a budget and is counted no more", flush=True)
    good = not lost
    for name, count in spent.items():
        share = count / budget[name] if name in budget else float("inf")
        profile, request = name.split("/")
        without = f"{count / spent['without_families/' + request]:8.2f} times that without the families" if profile == "default" else ""
        print(f"{name:36}{count:12,}{share:8.3f} of the budget{without}", flush=True)
        good &= share <= MOST
    if options.write:
        BUDGET.write_text(json.dumps(spent, indent=1) + "\n")
    elif not good:
        print("check: dearer than the budget, without one, or no longer counted (--write)", file=sys.stderr)
    return 0 if good or options.write else 1


if __name__ == "__main__":
    sys.exit(main())
