#!/usr/bin/env python3
"""make_event_table.py EVENTS.def FOLDER: writes event_table.rc with its message tables, one for each language, which
Event Viewer takes the texts of our events from."""
import pathlib
import re
import struct
import sys

ROW = re.compile(r'^QIV_SYSTEM_EVENT\(\w+, (\d+), \w+, "((?:[^"\\]|\\.)*)", "((?:[^"\\]|\\.)*)"\)$', re.M)
LANGUAGES = {"0409": ("LANGUAGE 9, 1", 0), "0804": ("LANGUAGE 4, 2", 1)}
UNICODE = 1


def message_table(texts):
    """MESSAGE_RESOURCE_DATA: blocks of successive numbers, then their entries. `texts`: number to text."""
    entries, offsets = b"", {}
    for number in sorted(texts):
        body = (texts[number] + "\r\n\0").encode("utf-16-le")
        body += b"\0" * (-len(body) % 4)
        offsets[number] = len(entries)
        entries += struct.pack("<HH", len(body) + 4, UNICODE) + body
    head = 4 + 12 * len(offsets)
    blocks = b"".join(struct.pack("<III", number, number, head + offset) for number, offset in sorted(offsets.items()))
    return struct.pack("<I", len(offsets)) + blocks + entries


def main(source, folder):
    rows = ROW.findall(pathlib.Path(source).read_text(encoding="utf-8"))
    if not rows or len(rows) != pathlib.Path(source).read_text(encoding="utf-8").count("\nQIV_SYSTEM_EVENT("):
        sys.exit(f"{source}: a row has another form")
    script = "// Written by make_event_table.py.\n"
    for language, (statement, column) in LANGUAGES.items():
        name = f"event_table_{language}.bin"
        texts = {int(row[0]): row[1 + column] for row in rows}
        pathlib.Path(folder, name).write_bytes(message_table(texts))
        script += f'{statement}\n1 11 "{pathlib.Path(folder, name).as_posix()}"\n'  # 11: RT_MESSAGETABLE
    pathlib.Path(folder, "event_table.rc").write_text(script)


if __name__ == "__main__":
    main(*sys.argv[1:])
