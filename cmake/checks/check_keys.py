#!/usr/bin/env python3
"""Compares the reader of each row of the key table with the sources: a key is marked kIdle exactly when nothing reads its
member. What the loader alone does with a member is no reading; what it prepares from one (Prepare...) is."""
import pathlib
import re
import sys

import cpp_text

TABLES = {
    "base": "config/keys_base.def", "request": "config/keys_request.def", "protect": "config/keys_protect.def",
    "sql": "engines/injection/injection_keys.def", "attack": "config/keys_attack.def",
    "response": "config/keys_response.def", "lists": "config/keys_lists.def",
}
IP_SETS = "config/config_keys.cpp"
# How else a member of a section is read than as "section.member" or "section_.member".
OTHER_READS = {"sql": (r"\bsettings(?:\.|->)", r"\bInjectionSettings::")}
# Sources that act on values. Of the parser only Prepare and what is named after it.
READING_FOLDERS = ("checks/", "module/", "engines/")
READING_FILES = ("config/page_settings.cpp", "config/list_settings.cpp", "config/access_settings.cpp")
PARSER = "config/config_parser.cpp"

# Only keeps answers out of the server's cache where a switch is on; it decides about no request.
NO_READER = re.compile(r"^bool DependsOnClient\(.*?^\}", re.M | re.S)

ROW = re.compile(r'^QIV_(\w+)\((\w+), "(\w+)", (?:(\w+), )?(k\w+), "', re.M)
ANY_ROW = re.compile(r"^QIV_\w+\(", re.M)
IP_SET_ROW = re.compile(r'^\s*\{"(website_\w+)", (?:true|false), KeyReader::(k\w+),', re.M)


def rows_of(section, table):
    """(member, key, reader) of each row; raises ValueError on a row that cannot be read."""
    rows = [(m.group(2), m.group(3), m.group(5)) for m in ROW.finditer(table)]
    if not rows or len(rows) != len(ANY_ROW.findall(table)):
        raise ValueError(f"{section}: a row of the key table has another form")
    return rows


def is_read(section, member, code):
    ways = (rf"\b{section}_?(?:\.|->)", *OTHER_READS.get(section, ()))
    return any(re.search(way + member + r"\b", code) for way in ways)


def faults(tables, ip_sets, code):
    """`tables`: text of the table of each section; `ip_sets`: text with the rows of IP sets; `code`: all reading sources."""
    found = []
    for section, table in tables.items():
        for member, key, reader in rows_of(section, table):
            found += _faults_of(f"{section}.{key}", reader, is_read(section, member, code))
    for name, reader in IP_SET_ROW.findall(ip_sets):
        found += _faults_of(name, reader, is_read("addresses", name, code))
    return found


def _faults_of(key, reader, read):
    if read and reader == "kIdle":
        return [f"{key} is marked kIdle, but its member is read: name its reader in the row"]
    if not read and reader != "kIdle":
        return [f"{key} is read by nothing: mark it kIdle, or read it as section.member"]
    return []


def main():
    root = cpp_text.ROOT
    code = []
    for name in cpp_text.tracked_files():
        if pathlib.Path(name).suffix not in (".h", ".cpp"):
            continue
        if str(name).startswith(READING_FOLDERS) or str(name) in READING_FILES:
            code.append(NO_READER.sub("", cpp_text.code_only((root / name).read_text(encoding="utf-8"))))
    code += re.findall(r"^void Prepare\w*\(.*?^\}", (root / PARSER).read_text(encoding="utf-8"), re.M | re.S)
    tables = {section: (root / path).read_text(encoding="utf-8") for section, path in TABLES.items()}
    found = faults(tables, (root / IP_SETS).read_text(encoding="utf-8"), "\n".join(code))
    return cpp_text.report("keys", found, sum(len(rows_of(*table)) for table in tables.items()))


if __name__ == "__main__":
    sys.exit(main())
