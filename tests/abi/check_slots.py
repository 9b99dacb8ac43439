#!/usr/bin/env python3
"""Compares the slots that compilers give the native-module interface with slots.txt.

Looked at: the natural-order declaration made from the table under the MSVC ABI, and iis/httpserv.h under the MSVC ABI and under the
Itanium ABI of Linux and mingw. `--self-test` proves that a swapped pair of overloads is found."""
import itertools
import pathlib
import re
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
MSVC, MINGW, LINUX = "x86_64-pc-windows-msvc", "x86_64-w64-mingw32", "x86_64-linux-gnu"


def read_table(path):
    """{class: [method per slot]}; slots must be complete and in order."""
    table = {}
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        name, slot, method = line.split(" ", 2)
        methods = table.setdefault(name, [])
        if int(slot) != len(methods):
            sys.exit(f"{path.name}:{number}: slot {slot} of {name} is out of order")
        methods.append(method)
    if not table:
        sys.exit(f"{path.name}: empty")
    return table


def natural_header(table):
    """The interface in the vendor's order of declaration, from which a compiler of the MSVC ABI makes these slots: it lays
    overloads out in reverse."""
    named = sorted(set(re.findall(r"\b[CI][A-Z]\w*[a-z]\w*", str(table))))
    lines = ["#pragma once", '#include "tests/abi/natural_types.h"', *(f"class {name};" for name in named)]
    for name, methods in table.items():
        lines.append(f"class {name} {{ public:")
        for _, overloads in itertools.groupby(methods, lambda method: method.split("(")[0].split(" ")[-1].lstrip("*")):
            lines += [f"protected: virtual ~{name}() {{}}" if method == "destructor" else f"virtual {method} = 0;"
                      for method in reversed(list(overloads))]
        lines.append("};")
    return "\n".join(lines) + "\n"


def probe(table, header, prefix):
    """A source that calls the first method of each class, so that the compiler lays out its table."""
    lines = [header]
    for index, (name, methods) in enumerate(table.items()):
        call = re.search(r"(\w+)\((.*)\)", methods[0])
        count = len([piece for piece in call.group(2).split(",") if piece.strip()])
        method = call.group(1)
        if method == "GetRawHttpRequest" or method == "GetRawHttpResponse":
            method, count = "GetHttpMethod" if method.endswith("Request") else "Clear", 0
        lines.append(f"void Probe{index}({prefix}{name}* object) {{ object->{method}({', '.join(['{}'] * count)}); }}")
    return "\n".join(lines) + "\n"


def layouts(source, target, include_root):
    """{class: [method per slot]} as clang lays them out, without qualification of types."""
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "probe.cpp"
        path.write_text(source)
        result = subprocess.run(
            ["clang++", f"--target={target}", "-std=c++20", "-fno-rtti", "-fno-exceptions", "-ffreestanding", "-nostdinc++",
             "-w", f"-I{include_root}", f"-I{ROOT}", f"-isystem{HERE / 'freestanding'}", "-Xclang", "-fdump-vtable-layouts",
             "-S", "-o", "/dev/null", str(path)], capture_output=True, text=True, check=False)
    if result.returncode != 0:
        sys.exit(f"{target}: {result.stderr}")
    found = {}
    for name, block in re.findall(r"^VF?Table indices for '([\w:]+)' \(\d+ entr(?:y|ies)\)\.\n((?:\s+\d+ \|.*\n)+)", result.stdout, re.M | re.I):
        methods = []
        for slot, text in re.findall(r"^\s+(\d+) \| (.*)$", block, re.M):
            if "~" in text:
                method = "destructor"
                if methods and methods[-1] == method:
                    continue  # the Itanium ABI has two; both come last
            else:
                method = text.replace("iis::", "").replace(name.removeprefix("iis::") + "::", "")
            if int(slot) != len(methods):
                sys.exit(f"{name}: unexpected slot {slot}")
            methods.append(method)
        found[name.removeprefix("iis::")] = methods
    return found


def differences(table, found, what):
    faults = []
    for name, methods in table.items():
        have = found.get(name)
        if have is None:
            faults.append(f"{what}: {name}: no table seen")
            continue
        if len(have) != len(methods):
            faults.append(f"{what}: {name}: {len(have)} slots instead of {len(methods)}")
        for slot, (expected, seen) in enumerate(zip(methods, have)):
            if expected != seen:
                faults.append(f"{what}: {name} slot {slot}: {seen} instead of {expected}")
    return faults


def run(root):
    table = read_table(HERE / "slots.txt")
    natural = natural_header(table).replace("#pragma once\n", "")
    faults = differences(table, layouts(probe(table, natural, ""), MSVC, ROOT), "natural order, MSVC ABI")
    for target in (MSVC, MINGW, LINUX):
        source = probe(table, '#include "iis/httpserv.h"', "iis::")
        faults += differences(table, layouts(source, target, root), f"iis/httpserv.h, {target}")
    return faults, sum(len(methods) for methods in table.values())


def self_test():
    """A copy of iis/httpserv.h with one overload pair swapped must be refused, on every target."""
    original = (ROOT / "iis" / "httpserv.h").read_text()
    pair = re.compile(r"(QIV_IIS_METHOD\(virtual HRESULT SetUrl\(PCSTR.*?= 0\)),\s*(QIV_IIS_METHOD\(virtual HRESULT SetUrl\(PCWSTR.*?= 0\))")
    swapped, count = pair.subn(r"\2, \1", original)
    if count != 1:
        sys.exit("self-test: SetUrl's overloads not found in iis/httpserv.h")
    with tempfile.TemporaryDirectory() as folder:
        iis = pathlib.Path(folder) / "iis"
        iis.mkdir()
        (iis / "httpserv.h").write_text(swapped)
        faults, _ = run(pathlib.Path(folder))
    if len(faults) != 2 * 3:
        sys.exit(f"self-test: expected 6 differences, found {len(faults)}: {faults}")


def main():
    self_test()
    faults, count = run(ROOT)
    for fault in faults:
        print(fault)
    if not faults:
        print(f"{count} slots compared on 4 layouts, no difference")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
