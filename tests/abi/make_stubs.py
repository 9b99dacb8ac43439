#!/usr/bin/env python3
"""make_stubs.py FOLDER: writes C++ headers from slots.txt: natural_httpserv.h, the interface for a compiler of the MSVC ABI, and
classes that stand in for the server's objects.

For each interface that a server implements there is `stubs::Unexpected<name>`, whose every method reports a call that the module is
not meant to make, by stubs::Unexpected<result>(method), which the includer defines. server_stubs.h implements our declaration,
natural_stubs.h the one in natural order. Classes whose methods a module implements are left out."""
import pathlib
import re
import sys

from check_slots import HERE, OF_THE_MODULE, natural_header, read_table

HEADERS = {"server_stubs.h": ("iis/httpserv.h", "iis::"), "natural_stubs.h": ("tests/abi/natural_httpserv.h", "")}


def class_text(name, methods, prefix):
    qualified = lambda text: re.sub(r"\b[A-Z]\w*", lambda word: prefix + word[0], text)
    lines = [f"struct Unexpected{name.removeprefix('I')} : {prefix}{name} {{"]
    for method in methods:
        result, called, arguments, const = re.fullmatch(r"(.*?)(\w+)\((.*)\)( const)?", method).groups()
        result = qualified(result.strip())
        lines.append(f"  {result} {called}({qualified(arguments)}){const or ''} override {{ "
                     f"return Unexpected<{result}>(\"{name}.{called}\"); }}")
    return "\n".join(lines + ["};", ""])


def main():
    table = read_table(HERE / "slots.txt")
    texts = {"natural_httpserv.h": natural_header(table)}
    for file, (header, prefix) in HEADERS.items():
        classes = [class_text(*row, prefix) for row in table.items() if row[0] not in OF_THE_MODULE]
        texts[file] = "\n".join([f"#pragma once\n#include \"{header}\"\nnamespace stubs {{", "template <typename R>",
                                 "R Unexpected(const char* method);", *classes, "}  // namespace stubs", ""])
    for file, text in texts.items():
        path = pathlib.Path(sys.argv[1]) / file
        if not path.exists() or path.read_text() != text:
            path.write_text(text)


main()
