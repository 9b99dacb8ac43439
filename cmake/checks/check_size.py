#!/usr/bin/env python3
"""Refuses functions of more than 120 lines and source files of more than 500 (tables, *.def and *.inc, excepted)."""
import re
import sys

import cpp_text

MAX_FUNCTION_LINES = 120
MAX_FILE_LINES = 500
_TYPE_OR_SCOPE = re.compile(r"\b(?:namespace|class|struct|union|enum|extern)\b")
_BODY_AHEAD = re.compile(r"(?:\)|\bconst|\bnoexcept|\boverride|\bfinal|\btry|\bmutable|\}|>|&)\s*$")


def _is_function(header):
    """True when the text before a brace outside any function opens a function body."""
    if "(" not in header:
        return False
    before_arguments = header[:header.index("(")]
    if _TYPE_OR_SCOPE.search(before_arguments) and not re.search(r"[\w>&*]\s+\w[\w:]*\s*$", before_arguments):
        return False
    if re.search(r"(?<![=!<>+\-*/|&^%])=(?!=)", before_arguments) and "operator" not in before_arguments:
        return False  # an initialiser
    if re.search(r"\)[^()]*->[^{}]*$", header):
        return True  # a trailing return type
    if re.search(r"\)\s*(?:noexcept)?\s*:(?!:)", header):
        return bool(re.search(r"[)}]\s*$", header))  # after a constructor's list, not one of its braces
    return bool(_BODY_AHEAD.search(header))


def functions(source):
    """(first line, last line, header) of every function, in order; lambdas belong to the function around them."""
    code = re.sub(r"^[ \t]*#(?:[^\n\\]|\\.|\\\n)*", lambda m: re.sub(r"[^\n]", " ", m.group(0)),
                  cpp_text.code_only(source), flags=re.M)
    found, depth, inside, header, header_line, line = [], 0, None, "", 1, 1
    in_list = []  # depth of braces that belong to a header (member initialisers, default arguments)
    for char in code:
        if char == "\n":
            line += 1
        if inside is not None:
            depth += {"{": 1, "}": -1}.get(char, 0)
            if depth == inside[0]:
                found.append((inside[1], line, inside[2]))
                inside, header = None, ""
            continue
        if char == "{":
            if in_list or header.count("(") > header.count(")") or (
                    re.search(r"\)\s*(?:noexcept)?\s*:(?!:)", header) and re.search(r"[\w>]\s*$", header)):
                in_list.append(depth)
                header += char
            elif _is_function(header):
                inside = (depth, header_line, " ".join(header.split()))
            else:
                header = ""
            depth += 1
        elif char == "}":
            depth -= 1
            if in_list:
                in_list.pop()
                header += char
            else:
                header = ""
        elif char == ";" and not in_list and header.count("(") <= header.count(")"):
            header = ""
        else:
            if not header.strip() and not char.isspace():
                header, header_line = "", line
            header += char
    return found


def faults_of_file(name, source):
    faults = []
    lines = source.count("\n") + 1
    if lines > MAX_FILE_LINES and not name.endswith((".def", ".inc")):
        faults.append(f"{name}: {lines} lines; split it by stage (at most {MAX_FILE_LINES})")
    for first, last, header in functions(source):
        if last - first + 1 > MAX_FUNCTION_LINES:
            faults.append(f"{name}:{first}: a function of {last - first + 1} lines (at most {MAX_FUNCTION_LINES}): {header[:60]}")
    return faults


def main():
    faults, total = [], 0
    for path in cpp_text.code_files():
        source = (cpp_text.ROOT / path).read_text(encoding="utf-8")
        faults += faults_of_file(str(path), source)
        total += len(functions(source))
    return cpp_text.report("size", faults, total)


if __name__ == "__main__":
    sys.exit(main())
