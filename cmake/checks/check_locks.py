#!/usr/bin/env python3
"""check_locks.py BUILD_FOLDER: compiles the sources of module and host with clang for their lock annotations.

The annotations of port/thread_annotations.h mean nothing to g++; clang refuses a guarded item touched without its lock."""
import concurrent.futures
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

import cpp_text

FOLDERS = ("port/", "base/", "common/", "engines/", "config/", "checks/", "module/", "host/")


def clang_command(source, root):
    """Objects, which nobody wants, only where a compiler cache keeps what was found of a source that stays the same."""
    warnings = ["-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Wthread-safety", "-Wthread-safety-beta", "-Werror"]
    common = ["clang++", "-std=c++20", *warnings, f"-I{root}"]
    if shutil.which("ccache") is None:
        return [*common, "-fsyntax-only", str(source)]
    return ["ccache", *common, "-c", str(source), "-o", "unwanted.o"]


def includes(path, root, known):
    """The repository's files that a file includes, directly or not; `known` remembers results."""
    if path not in known:
        known[path] = set()
        names = re.findall(r'^\s*#\s*include\s*"([^"]+)"', path.read_text(encoding="utf-8"), flags=re.M)
        for name in names:
            if (root / name).is_file():
                known[path] |= {root / name} | includes(root / name, root, known)
    return known[path]


def module_sources(build_folder, root):
    with open(pathlib.Path(build_folder) / "compile_commands.json", encoding="utf-8") as listing:
        files = {pathlib.Path(entry["file"]) for entry in json.load(listing)}
    # A source that does not even know the annotations has nothing to look at.
    known = {}
    return sorted(path for path in files
                  if path.is_relative_to(root) and str(path.relative_to(root)).startswith(FOLDERS)
                  and root / "port/thread_annotations.h" in includes(path, root, known))


def faults_of_source(source, root):
    cache = dict(os.environ, CCACHE_BASEDIR=str(root), CCACHE_NOHASHDIR="1")
    with tempfile.TemporaryDirectory(prefix="qiv-locks-") as folder:
        result = subprocess.run(clang_command(source, root), cwd=folder, env=cache, capture_output=True, text=True, check=False)
    return [] if result.returncode == 0 else [result.stderr.strip()]


def main(arguments):
    if len(arguments) != 1:
        print(__doc__)
        return 2
    sources = module_sources(arguments[0], cpp_text.ROOT)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 2) as pool:
        results = pool.map(lambda source: faults_of_source(source, cpp_text.ROOT), sources)
        faults = [fault for result in results for fault in result]
    return cpp_text.report("locks", faults, len(sources))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
