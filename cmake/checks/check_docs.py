#!/usr/bin/env python3
"""Checks the documents: every folder has a README.md of at most 30 lines, every link inside the repository leads somewhere."""
import pathlib
import re
import sys
import urllib.parse

import cpp_text

FOLDERS = ["base", "bench", "checks", "cmake", "command_line", "common", "config", "docs", "engines", "fuzz", "host", "iis", "module",
           "packaging", "port", "rules", "setup", "tests", "tools"]
MAX_README_LINES = 30
LINK = re.compile(r"(?<!!)\[[^\]\n]*\]\(\s*<?([^)\s>]+)>?(?:\s+\"[^\"]*\")?\s*\)|!\[[^\]\n]*\]\(\s*([^)\s]+)\s*\)")


def without_code(markdown):
    """Markdown with fenced blocks and code spans blanked."""
    text = re.sub(r"^(```|~~~).*?^\1[^\n]*$", lambda m: re.sub(r"[^\n]", " ", m.group(0)), markdown, flags=re.M | re.S)
    return re.sub(r"`[^`\n]*`", lambda m: " " * len(m.group(0)), text)


def anchors(markdown):
    """The anchors that headings make: lower case, punctuation dropped, blanks as hyphens."""
    found = set()
    fences_gone = re.sub(r"^(```|~~~).*?^\1[^\n]*$", "", markdown, flags=re.M | re.S)
    for heading in re.findall(r"^#{1,6}\s+(.*?)\s*#*$", fences_gone, flags=re.M):
        plain = re.sub(r"[^\w\- ]", "", heading.replace("`", "").lower())
        found.add(plain.replace(" ", "-"))
    return found


def link_faults(root, name):
    source = (root / name).read_text(encoding="utf-8")
    text = without_code(source)
    faults = []
    for match in LINK.finditer(text):
        target = match.group(1) or match.group(2)
        line = text.count("\n", 0, match.start()) + 1
        if re.match(r"[a-z][a-z0-9+.-]*:", target, re.I):
            continue
        path, _, anchor = urllib.parse.unquote(target).partition("#")
        destination = (root / name).parent / path if path else root / name
        if not destination.exists():
            faults.append(f"{name}:{line}: link to {target}: no such file")
        elif anchor and destination.suffix == ".md" and anchor not in anchors(destination.read_text(encoding="utf-8")):
            faults.append(f"{name}:{line}: link to {target}: no such heading")
    return faults


def readme_faults(root, folders):
    faults = []
    for folder in folders:
        readme = root / folder / "README.md"
        if not readme.is_file():
            faults.append(f"{folder}/README.md is missing")
        elif (lines := len(readme.read_text(encoding="utf-8").splitlines())) > MAX_README_LINES:
            faults.append(f"{folder}/README.md has {lines} lines (at most {MAX_README_LINES})")
    return faults


def main():
    pages = [path for path in cpp_text.tracked_files() if path.suffix == ".md"]
    faults = readme_faults(cpp_text.ROOT, FOLDERS)
    for page in pages:
        faults += link_faults(cpp_text.ROOT, pathlib.Path(page))
    return cpp_text.report("documents", faults, len(pages))


if __name__ == "__main__":
    sys.exit(main())
