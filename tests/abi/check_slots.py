#!/usr/bin/env python3
"""Compares slots.txt, the published slots of the native-module interface, with what compilers make of three things:

- the interface in the vendor's order of declaration, under the MSVC ABI, which lays overloads out in reverse. That order is made here
  by the vendor's rules, not from the order of slots.txt;
- iis/httpserv.h, under the MSVC ABI and under the Itanium ABI of Linux and mingw;
- the compiled module (`check_slots.py LIBRARY`): the virtual tables of the classes that it hands to the server."""
import itertools
import pathlib
import re
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
# The classes that a module implements, and ours.
OF_THE_MODULE = {"IHttpModuleFactory": "CQivIpsIIsModuleFactory", "CGlobalModule": "MyGlobalModule", "CHttpModule": "CQivIpsIIsModule",
                 "IHttpStoredContext": "CQivStoredContext"}
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


def documented(method):
    """Where the vendor declares an overload: what changes an object before what only looks, a name before a number, wide before narrow."""
    return method.endswith(" const"), "HTTP_HEADER_ID" in method, "PCWSTR" not in method


def natural_header(table):
    """The interface in the vendor's order of declaration: methods as in the table, the overloads of a name as documented."""
    named = sorted(set(re.findall(r"\b[CI][A-Z]\w*[a-z]\w*", str(table))))
    lines = ["#pragma once", '#include "tests/abi/natural_types.h"', *(f"class {name};" for name in named)]
    for name, methods in table.items():
        lines.append(f"class {name} {{ public:")
        for _, overloads in itertools.groupby(methods, lambda method: method.split("(")[0].split(" ")[-1].lstrip("*")):
            lines += [f"protected: virtual ~{name}() {{}}" if method == "destructor" else f"virtual {method} = 0;"
                      for method in sorted(overloads, key=documented)]
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


def layouts(source, target):
    """{class: [method per slot]} as clang lays them out, without qualification of types."""
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "probe.cpp"
        path.write_text(source)
        result = subprocess.run(
            ["clang++", f"--target={target}", "-std=c++20", "-fno-rtti", "-fno-exceptions", "-ffreestanding", "-nostdinc++",
             "-w", f"-I{ROOT}", f"-isystem{HERE / 'freestanding'}", "-Xclang", "-fdump-vtable-layouts",
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


def compiled(library, table):
    """{class: [method per slot]} of the classes of the module that stand for one of the table; methods by name alone."""
    text = subprocess.run(["readelf", "-rW", library], capture_output=True, text=True, check=True).stdout
    found = {}
    for owner, block in re.findall(r"^Relocation section '\.rela\S*\._ZTVN3qiv\d+(\w+)E' .*\n((?:.+\n)+)", text, re.M):
        places = re.findall(r"^([0-9a-f]{16}) .* (_ZN\w+|__cxa_pure_virtual) \+ 0$", block, re.M)
        names = subprocess.run(["c++filt", "-p"], input="\n".join(name for _, name in places), capture_output=True, text=True,
                               check=True).stdout.split("\n")
        methods = {(int(place, 16) - 16) // 8: name.split("::")[-1] for (place, _), name in zip(places, names)}
        for base in (name for name, ours in OF_THE_MODULE.items() if ours == owner):
            found[base] = [methods.get(slot, "nothing") for slot in range(len(table[base]))]
    return found


def main():
    table = read_table(HERE / "slots.txt")
    natural = natural_header(table).replace("#pragma once\n", "")
    faults = differences(table, layouts(probe(table, natural, ""), MSVC), "natural order, MSVC ABI")
    for target in (MSVC, MINGW, LINUX):
        faults += differences(table, layouts(probe(table, '#include "iis/httpserv.h"', "iis::"), target), f"iis/httpserv.h, {target}")
    of_module = {name: [re.search(r"(\w+)(\(|$)", method)[1] for method in table[name]] for name in OF_THE_MODULE}
    of_module["CHttpModule"][-1] = "~" + OF_THE_MODULE["CHttpModule"]
    faults += differences(of_module, compiled(sys.argv[1], table), "compiled module")
    for fault in faults:
        print(fault)
    if not faults:
        print(f"{sum(map(len, table.values()))} slots compared on 4 layouts and in the compiled module, no difference")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
