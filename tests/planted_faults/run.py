#!/usr/bin/env python3
"""Plants small faults, one at a time, and looks whether the test that must find each goes red.

usage: run.py [--only TEXT] [--list] [--check] [--build FOLDER]

Each fault of faults.toml is a text of a file that is replaced by another, and the test program that must fail then. It
works on a copy of the tracked files in build/planted-faults, built without sanitizers; nothing here is changed. With
--check it only says which faults no longer fit the sources. Exit code 0: every fault was found; 1: some were not, or do
not fit; 2: it could not run."""
import argparse
import filecmp
import pathlib
import shutil
import subprocess
import sys
import tomllib

ROOT = pathlib.Path(__file__).resolve().parents[2]
FAULTS = pathlib.Path(__file__).with_name("faults.toml")
KEYS = {"file", "find", "replace", "test", "what"}
TEST_SECONDS = 300


def load(root=ROOT, source=FAULTS):
    """The faults, and a message for each that does not fit."""
    faults = tomllib.loads(source.read_text(encoding="utf-8")).get("fault", [])
    messages = [] if faults else [f"{source.name}: no fault in it"]
    for number, fault in enumerate(faults, 1):
        name = f"fault {number} ({fault.get('what', '?')})"
        if set(fault) != KEYS:
            messages.append(f"{name}: has the keys {sorted(fault)}, not {sorted(KEYS)}")
            continue
        path = root / fault["file"]
        count = path.read_text(encoding="utf-8").count(fault["find"]) if path.is_file() else 0
        if count != 1:
            messages.append(f"{name}: its text stands {count} times in {fault['file']}, not once")
        if fault["find"] == fault["replace"]:
            messages.append(f"{name}: replaces a text by itself")
    return faults, messages


def run(*command, **options):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
                          stdin=subprocess.DEVNULL, check=False, **options)


def prepare(copy):
    """The tracked files as they are in the work tree, configured; false when that fails."""
    for name in filter(None, run("git", "-C", str(ROOT), "ls-files", "-z").stdout.split("\0")):
        source, target = ROOT / name, copy / name
        if source.is_file() and not (target.is_file() and filecmp.cmp(source, target, shallow=False)):
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(source, target)
    configured = run("cmake", "-S", str(copy), "-B", str(copy / "build/plain"), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                     "-DCMAKE_CXX_FLAGS_DEBUG=-O1")
    if configured.returncode:
        print(configured.stdout[-3000:], file=sys.stderr)
    return configured.returncode == 0


def outcome(fault, copy):
    """"found", "not found" or "does not build"."""
    path = copy / fault["file"]
    original = path.read_text(encoding="utf-8")
    build = str(copy / "build/plain")
    path.write_text(original.replace(fault["find"], fault["replace"]), encoding="utf-8")
    try:
        built = run("cmake", "--build", build, "--target", fault["test"])
        if built.returncode:
            return "does not build"
        tested = run("ctest", "--test-dir", build, "-R", f"^{fault['test']}$", "--no-tests=error", "--timeout",
                     str(TEST_SECONDS))
        return "found" if tested.returncode else "not found"
    finally:
        path.write_text(original, encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", default="", help="faults whose file, test or description holds this text")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/planted-faults")
    options = parser.parse_args()

    faults, messages = load()
    for message in messages:
        print(f"planted faults: {message}", file=sys.stderr)
    if options.check:
        print(f"planted faults: {len(faults)} checked, {len(messages) or 'no'} misfit")
        return 1 if messages else 0
    if messages:
        return 1
    chosen = [f for f in faults if any(options.only in f[key] for key in ("file", "test", "what"))]
    if options.list:
        for fault in chosen:
            print(f"{fault['file']}\t{fault['test']}\t{fault['what']}")
        return 0
    if not chosen or not prepare(options.build):
        print("planted faults: nothing to run", file=sys.stderr)
        return 2
    tests = sorted({fault["test"] for fault in chosen})
    build = str(options.build / "build/plain")
    if run("cmake", "--build", build, "--target", *tests).returncode:
        print("planted faults: the copy does not build without a fault", file=sys.stderr)
        return 2
    for test in tests:  # a test that is red anyway finds nothing
        if run("ctest", "--test-dir", build, "-R", f"^{test}$", "--no-tests=error").returncode:
            print(f"planted faults: {test} fails without a fault", file=sys.stderr)
            return 2
    results = {}
    for fault in chosen:
        result = outcome(fault, options.build)
        results.setdefault(result, []).append(fault)
        print(f"{result:15} {fault['test']:22} {fault['what']}", flush=True)
    found = len(results.get("found", []))
    print(f"{found} of {len(chosen)} planted faults found")
    return 0 if found == len(chosen) else 1


if __name__ == "__main__":
    sys.exit(main())
