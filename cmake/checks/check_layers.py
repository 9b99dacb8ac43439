#!/usr/bin/env python3
"""Refuses upward includes, and OS headers, OS conditionals and third-party headers outside the folders that may have them.

Layers, lowest first: port, base, common, engines, config, checks, module. A folder includes itself and what stands below it.
iis/ stands apart: the module and the host meet in it. So does command_line/, which the programs alone may include. Of the rooms of engines/ neither knows the other, and those of
webshell/ stand in an order of their own."""
import re
import sys

import cpp_text

LAYERS = ["port", "base", "common", "engines", "config", "checks", "module"]
ALLOWED = {folder: set(LAYERS[:i + 1]) for i, folder in enumerate(LAYERS)}
ALLOWED["base"] = {"base"}  # beside port/
ALLOWED["engines"] |= {"rules"}  # texts that are compiled in
ALLOWED["module"] |= {"iis"}
ALLOWED["iis"] = {"iis"}
ALLOWED["command_line"] = {"command_line"}  # of the programs
ALLOWED["host"] = {"host", "iis", "command_line", "base", "port"}
ALLOWED["setup"] = {"setup", "host", "command_line", "common", "base", "port"}
EVERYTHING = set(LAYERS) | {"command_line", "iis", "host", "setup", "tools", "tests", "bench", "fuzz"}
for free in ("tools", "tests", "bench", "fuzz"):
    ALLOWED[free] = EVERYTHING - ({"tests"} if free == "tools" else set())

# Rooms of engines/: what each may include of the others.
ROOMS = {
    "engines/injection/": (),
    "engines/webshell/": ("engines/webshell/",),
    "engines/webshell/decoding/": (),
    "engines/webshell/signatures/": (),
    "engines/webshell/flow/": ("engines/webshell/decoding/",),
}
for follower in ("engines/webshell/php/", "engines/webshell/page/"):
    # The headers of webshell/ itself are words and results; no follower knows the other.
    ROOMS[follower] = tuple(f"engines/webshell/{room}" for room in ("decoding/", "signatures/", "flow/", ""))


def room_of(name):
    """The innermost room of a file, with its trailing slash."""
    return max((room for room in ROOMS if name.startswith(room)), key=len, default="")


def is_open_to(room, included):
    """Whether a file of `room` may include the engine header `included`."""
    other = room_of(included)
    if other == room or room == "engines/webshell/" and other.startswith(room):
        return True
    return other in ROOMS[room]

OS_FOLDERS = ("port/", "iis/", "host/", "tests/port/", "tests/host/", "tests/abi/", "tests/e2e/")
OS_HEADER = re.compile(
    r"(?:windows|winsock2?|ws2tcpip|winnt|winbase|winternl|http|httpserv|io|direct|process|tchar|unistd|pthread|dlfcn"
    r"|fcntl|signal|poll|iconv|langinfo|netdb|spawn|dirent|termios|sched|semaphore|intrin)\.h"
    r"|(?:sys|netinet|arpa|linux|net)/.*", re.I)
OS_CONDITIONAL = re.compile(
    r"^\s*#\s*(?:if|ifdef|ifndef|elif)\b.*\b(?:_?WIN(?:32|64)|_WINDOWS|_MSC_VER|__MINGW(?:32|64)__|__CYGWIN__|__linux(?:__)?"
    r"|linux|__unix(?:__)?|__APPLE__|__GLIBC__|_POSIX_VERSION)\b", re.M)
THIRD_PARTY = {"boost": ("host/", "tests/", "bench/"), "CLI": ("command_line/command.cpp",), "gtest": ("tests/",), "gmock": ("tests/",),
               "benchmark": ("bench/",), "modsecurity": ("bench/",)}
INCLUDE = re.compile(r'^\s*#\s*include\s*(?:<([^>]+)>|"([^"]+)")', re.M)


def faults_of_file(name, source, root=cpp_text.ROOT):
    """Faults of one file, as texts "name:line: what"."""
    faults = []
    code = cpp_text.code_only(source, keep_includes=True)
    folder = name.split("/")[0]
    os_allowed = name.startswith(OS_FOLDERS)

    def add(position, text):
        faults.append(f"{name}:{code.count(chr(10), 0, position) + 1}: {text}")

    for match in INCLUDE.finditer(code):
        system, own = match.group(1), match.group(2)
        if system:
            if OS_HEADER.fullmatch(system) and not os_allowed:
                add(match.start(1), f"<{system}> is an OS header; OS calls belong to port/")
            top = system.split("/")[0]
            if top in THIRD_PARTY and not name.startswith(THIRD_PARTY[top]):
                add(match.start(1), f"<{system}> may be included only below {', '.join(THIRD_PARTY[top])}")
        elif "/" not in own:
            beside = (root / name).parent / own
            if folder in LAYERS or not beside.is_file():
                add(match.start(2), f'"{own}": write the path from the root of the repository')
        elif folder in ALLOWED and own.split("/")[0] not in ALLOWED[folder]:
            add(match.start(2), f'"{own}": {folder}/ may include only {", ".join(sorted(ALLOWED[folder]))}')
        elif room_of(name) and room_of(own) and not is_open_to(room_of(name), own):
            add(match.start(2), f'"{own}": {room_of(name)} may not include {room_of(own)}')
    if not os_allowed:
        for match in OS_CONDITIONAL.finditer(code):
            add(match.end(), "conditional on the operating system or compiler; it belongs to port/")
    return faults


def main():
    files = cpp_text.code_files()
    faults = []
    for path in files:
        faults += faults_of_file(str(path), (cpp_text.ROOT / path).read_text(encoding="utf-8"))
    return cpp_text.report("layers", faults, len(files))


if __name__ == "__main__":
    sys.exit(main())
