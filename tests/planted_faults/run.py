#!/usr/bin/env python3
"""Plants small faults, one at a time, and looks whether the test that must find each goes red.

usage: run.py [--list] [--build FOLDER] [FILE.toml | ID]...

Without arguments all of tests/planted_faults/*.toml. Works on a copy of the files that git tracks, as they are in the work
tree, in build/planted-faults; nothing here is changed. Exit code 0: every fault was found; 1: some were missed, did not
build or no longer fit the sources; 2: it could not run."""
import argparse
import filecmp
import pathlib
import shutil
import subprocess
import sys
import tomllib

ROOT = pathlib.Path(__file__).resolve().parents[2]
LISTS = pathlib.Path(__file__).parent
KEYS = {"id", "file", "find", "replace", "test", "note"}
TEST_SECONDS = 300
# What tests that are no program of ours need.
PROGRAMS = ["QivIpsIIs", "qivctl", "qivhost", "hostile_module"]


def rows(text):
    """The faults of a list: tables of one file each, whose rows are note, find, replace and, where it is not the table's, test."""
    for file, table in tomllib.loads(text).items():
        usual = table.pop("test", "")
        for name, row in table.items():
            yield {"id": name, "file": file, "test": usual, **dict(zip(("note", "find", "replace", "test"), row))}


def load(names):
    """The faults of these lists and with these ids, and a message for each that does not fit."""
    names = set(names)
    faults, messages, ids = [], [], set()
    for source in sorted(LISTS.glob("*.toml")):
        for fault in rows(source.read_text("utf-8")):
            name = f"{source.name}: {fault.get('id', '?')}"
            if set(fault) != KEYS:
                messages.append(f"{name}: has the keys {sorted(fault)}, not {sorted(KEYS)}")
            elif fault["id"] in ids:
                messages.append(f"{name}: stands twice")
            elif not names or names & {source.name, fault["id"]}:
                path = ROOT / fault["file"]
                count = path.read_text("utf-8").count(fault["find"]) if path.is_file() else 0
                if count != 1 or fault["find"] == fault["replace"]:
                    messages.append(f"{name}: its text stands {count} times in {fault['file']}, or replaces itself")
                faults.append(fault)
            ids.add(fault.get("id"))
    known = ids | {source.name for source in LISTS.glob("*.toml")}
    return faults, messages + [f"{name}: no such list or fault" for name in sorted(names - known)]


def run(*command):
    return subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          errors="replace", stdin=subprocess.DEVNULL, check=False)


def prepare(copy):
    """The tracked files as they are here; those whose content is the same keep their time. The build folder."""
    names = set(filter(None, run("git", "-C", ROOT, "ls-files", "-z").stdout.split("\0")))
    for name in names:
        source, target = ROOT / name, copy / name
        if source.is_file() and not (target.is_file() and filecmp.cmp(source, target, shallow=False)):
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)
    build = copy / "build/dev"
    configured = subprocess.run(["cmake", "--preset", "dev", "-D", "QIV_FUZZ=OFF"], cwd=copy, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True, check=False)
    if configured.returncode:
        sys.exit(f"planted faults: the copy cannot be configured\n{configured.stdout[-2000:]}")
    return build


class Tests:
    """The tests of a build folder, what must be built for them, and what they say."""

    def __init__(self, build):
        self.build = build
        self.targets = set(run("cmake", "--build", build, "--target", "help").stdout.replace(":", " ").split())

    def make(self, names):
        targets = set()
        for name in names:
            targets |= {name} if name in self.targets else set(PROGRAMS)
        return run("cmake", "--build", self.build, "--target", *sorted(targets)).returncode == 0

    def of(self, regex):
        listing = run("ctest", "--test-dir", self.build, "-N", "-R", regex).stdout
        return [line.split(": ", 1)[1].strip() for line in listing.splitlines() if ": " in line and "Test " in line.split(":")[0]]

    def passed(self, regex):
        return run("ctest", "--test-dir", self.build, "-R", regex, "--no-tests=error", "--stop-on-failure", "--timeout",
                   TEST_SECONDS).returncode == 0


def outcome(fault, copy, tests):
    path = copy / fault["file"]
    original = path.read_text("utf-8")
    path.write_text(original.replace(fault["find"], fault["replace"]), "utf-8")
    try:
        if not tests.make(tests.of(fault["test"])):
            return "did not build"
        return "missed" if tests.passed(fault["test"]) else "found"
    finally:
        path.write_text(original, "utf-8")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/planted-faults", help="where the copy goes")
    parser.add_argument("names", nargs="*")
    options = parser.parse_args()
    faults, messages = load(options.names)
    for message in messages:
        print(f"planted faults: {message}", file=sys.stderr)
    if options.list:
        for fault in faults:
            print(f"{fault['id']:28} {fault['file']:32} {fault['test']:24} {fault['note']}")
    if messages or options.list:
        return 1 if messages else 0
    if not faults:
        print("planted faults: nothing to run", file=sys.stderr)
        return 2
    copy = options.build.resolve()
    tests = Tests(prepare(copy))
    names = {fault["test"]: tests.of(fault["test"]) for fault in faults}
    every = sorted({name for of_one in names.values() for name in of_one})
    # A test that is red anyway finds nothing.
    missing = sorted(test for test, of_one in names.items() if not of_one)
    if missing:
        print(f"planted faults: there is no test {', '.join(missing)}", file=sys.stderr)
        return 2
    if not tests.make(every):
        print("planted faults: the tree does not build without a fault", file=sys.stderr)
        return 2
    red = [name for name in every if not tests.passed(f"^{name}$")]
    if red:
        print(f"planted faults: {', '.join(red)}: red without a fault", file=sys.stderr)
        return 2
    found = 0
    for fault in faults:
        result = outcome(fault, copy, tests)
        found += result == "found"
        print(f"{result:14} {fault['id']:28} {fault['test']:24} {fault['note']}", flush=True)
    print(f"{found} of {len(faults)} found")
    return 0 if found == len(faults) else 1


if __name__ == "__main__":
    sys.exit(main())
