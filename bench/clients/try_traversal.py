#!/usr/bin/env python3
"""Sends lists of directory traversals to a page that includes what it is told, as a path and as a parameter, as they stand and encoded.

Needs the packages of the group "clients" and build/bin (./run.sh --build-only). Two minutes. Every
line counts, those that name no directory up too; {FILE} becomes etc/passwd and boot.ini.
Exit code 0: nothing showed the file through the firewall, and at least --least per cent were stopped in each place; 1: not so;
2: the run proves nothing."""
import argparse
import pathlib
import socket
import sys
import urllib.parse

from try_wapiti import VulnerableSite

LISTS = [pathlib.Path("/usr/share/wfuzz/wordlist") / name for name in (
    "Injections/Traversal.txt", "vulns/dirTraversal.txt", "vulns/dirTraversal-nix.txt", "vulns/dirTraversal-win.txt")]
SHOWN = b"root:x:0:0"
PLACES = {
    "path": lambda line: "/" + line.lstrip("/"),
    "query": lambda line: "/?page=file&q=" + line,
    "query, encoded": lambda line: "/?page=file&q=" + urllib.parse.quote(line, safe=""),
    "form": lambda line: line,
}


def lines_of(path):
    """What the list holds, once each, as bytes that a request line can hold."""
    for line in path.read_text("latin-1").splitlines():
        line = line.strip().replace(" ", "%20")
        if line and not line.startswith("#"):
            yield from (line.replace("{FILE}", name) for name in ("etc/passwd", "boot.ini")) if "{FILE}" in line else [line]


def answer(port, place, line):
    target = PLACES[place](line)
    if place == "form":
        body = "page=file&q=" + urllib.parse.quote(line, safe="%")
        text = f"POST / HTTP/1.1\r\nContent-Type: application/x-www-form-urlencoded\r\nContent-Length: {len(body)}\r\n"
    else:
        text, body = f"GET {target} HTTP/1.1\r\n", ""
    with socket.create_connection(("127.0.0.1", port), 20) as connection:
        connection.sendall(f"{text}Host: shop.example\r\nConnection: close\r\n\r\n{body}".encode("latin-1"))
        data = b""
        while piece := connection.recv(65536):
            data += piece
    return data


def verdict(data):
    head = data.partition(b"\r\n\r\n")[0]
    status = head.split(b" ")[1] if data else b"none"
    return "shown" if SHOWN in data else "stopped" if b"\r\nX-Qiv-Event:" in head else "refused" if status == b"400" else "passed"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--profile", default="default")
    parser.add_argument("--list", action="store_true", help="print what was neither stopped nor refused")
    parser.add_argument("--least", type=float, default=95.0, help="per cent of each list that must be stopped in each place")
    options = parser.parse_args()
    missing = [str(path) for path in LISTS if not path.is_file()]
    if missing:
        print(f"try_traversal: missing: {', '.join(missing)}: cmake/install-packages.sh clients", file=sys.stderr)
        return 2
    good, open_without = True, 0
    with VulnerableSite("sqlite", options.profile) as site:
        direct = int(site.direct.rsplit(":", 1)[1])
        print(f"{'':46}{'lines':>7}{'open without':>14}{'stopped':>9}{'refused':>9}{'passed':>8}{'shown':>7}")
        for path in LISTS:
            lines = list(dict.fromkeys(lines_of(path)))
            for place in PLACES:
                without = sum(verdict(answer(direct, place, line)) == "shown" for line in lines)
                verdicts = {line: verdict(answer(site.guarded_port, place, line)) for line in lines}
                counts = [sum(said == one for said in verdicts.values()) for one in ("stopped", "refused", "passed", "shown")]
                print(f"{path.name:30}{place:16}{len(lines):7}{without:14}" + "".join(f"{n:{w}}" for n, w in zip(counts, (9, 9, 8, 7))), flush=True)
                good &= counts[3] == 0 and 100 * (counts[0] + counts[1]) >= options.least * len(lines)
                open_without += without
                if options.list:
                    print("".join(f"    {said} {line[:200]}\n" for line, said in verdicts.items() if said in ("passed", "shown")), end="")
    if not open_without:
        print("try_traversal: nothing was shown without the firewall: proves nothing", file=sys.stderr)
        return 2
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
