#!/usr/bin/env python3
"""Refuses C++ files that clang-format would change."""
import re
import shutil
import subprocess
import sys

import cpp_text


def badly_formatted(root, names, tool="clang-format"):
    """The files among `names` that the tool complains about."""
    result = subprocess.run([tool, "--dry-run", "-Werror", "--ferror-limit=1", *names], cwd=root, capture_output=True, text=True,
                            check=False)
    bad = sorted(set(re.findall(r"^(.+?):\d+:\d+: error:", result.stderr, flags=re.M)))
    return bad if bad or result.returncode == 0 else [result.stderr.strip()]


def main():
    if not shutil.which("clang-format"):
        print("format: clang-format is missing; cmake/install-packages.sh installs it")
        return 1
    # .def files are tables laid out by hand.
    names = [str(path) for path in cpp_text.code_files() if path.suffix in (".h", ".cpp")]
    faults = [f"{name}: run clang-format -i {name}" for name in badly_formatted(cpp_text.ROOT, names)] if names else []
    return cpp_text.report("format", faults, len(names))


if __name__ == "__main__":
    sys.exit(main())
