#!/usr/bin/env python3
"""at_url.py HOST:PORT: sends every case of cases.txt to a server that runs somewhere (a real IIS with the module) and looks
whether what must be blocked is, and the rest is not. Exit code 1 when one is not as expected."""
import socket
import sys

import cases

LIMIT = 30  # seconds for an answer


def answer(host, port, request):
    # One request a connection: a server that keeps it open would be waited for.
    request = request.replace(b"\r\n", b"\r\nConnection: close\r\n", 1)
    with socket.create_connection((host, port), timeout=LIMIT) as connection:
        connection.sendall(request)
        received = b""
        while piece := connection.recv(65536):
            received += piece
    return received


def main(place):
    host, _, port = place.rpartition(":")
    faults = 0
    for name, expected, request in cases.load():
        received = answer(host, int(port), request)
        blocked = received.split(b"\r\n", 1)[0].split(b" ")[1:2] == [b"403"] and b"\nX-Qiv-Event:" in received
        if not received or blocked != (expected != "pass"):
            faults += 1
            print(f"{name}: {'blocked' if blocked else 'not blocked'}, expected {expected}: {received[:120]!r}")
    print(f"{faults} not as expected")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
