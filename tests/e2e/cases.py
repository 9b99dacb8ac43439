"""Reads cases.txt: name, expectation and raw request a line, separated by tabs; \\r \\n \\t \\\\ \\xHH are escapes, and
@LENGTH@ stands for the number of bytes after the first empty line."""
import pathlib
import re

EXPECTATIONS = {"pass", "sql-get", "sql-post", "sql-header", "xss-get", "xss-post", "xss-header", "upload", "webshell",
                "file_inclusion", "badcode"}
ESCAPE = re.compile(r"\\(r|n|t|\\|x[0-9a-fA-F]{2})")


def unescape(text):
    rest = ESCAPE.sub("", text)
    if "\\" in rest:
        raise ValueError("bad escape")
    value = ESCAPE.sub(lambda m: {"r": "\r", "n": "\n", "t": "\t", "\\": "\\"}.get(m[1]) or chr(int(m[1][1:], 16)), text)
    data = value.encode("latin-1")
    _, _, body = data.partition(b"\r\n\r\n")
    return data.replace(b"@LENGTH@", str(len(body)).encode())


def load(path=pathlib.Path(__file__).with_name("cases.txt")):
    cases = []
    for number, line in enumerate(path.read_text(encoding="ascii").splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        fields = line.split("\t")
        if len(fields) != 3 or fields[1] not in EXPECTATIONS:
            raise ValueError(f"{path}:{number}: malformed case")
        try:
            cases.append((fields[0], fields[1], unescape(fields[2])))
        except ValueError as error:
            raise ValueError(f"{path}:{number}: {error}") from None
    names = [name for name, _, _ in cases]
    if not cases or len(set(names)) != len(names):
        raise ValueError(f"{path}: no case, or a name twice")
    return cases
