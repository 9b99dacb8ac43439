#!/usr/bin/env python3
"""check_sources.py BUILD_FOLDER...: refuses a .cpp file that no target of any of these build folders compiles."""
import pathlib
import re
import sys

import cpp_text


def compiled(build_folder):
    """Absolute paths of the sources that a build folder's rules name, those of custom commands included."""
    folder = pathlib.Path(build_folder).resolve()
    rules = (folder / "build.ninja").read_text(encoding="utf-8")
    return {str((folder / name).resolve()) for name in set(re.findall(r"[^\s:|]+\.cpp(?=[\s:|])", rules))}


def unlisted(root, names, compiled_files):
    return [f"{name}: in no target; add it to its folder's CMakeLists.txt or delete it"
            for name in names if str((root / name).resolve()) not in compiled_files]


def main(folders):
    if not folders:
        print(__doc__)
        return 2
    known = set()
    for folder in folders:
        known |= compiled(folder)
    names = [path for path in cpp_text.code_files() if path.suffix == ".cpp"]
    return cpp_text.report("sources", unlisted(cpp_text.ROOT, names, known), len(names))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
