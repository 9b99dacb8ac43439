#!/usr/bin/env python3
"""What the firewall lets pass of everything sqlmap sends while it finds nothing, rewritten by each of its tamper scripts.

One run of sqlmap (level 3, risk 2) for each database against a page that always answers the same gives the payloads; each script
rewrites them; `qivctl check --batch` judges them in each place. What passes is then tried on the injectable page itself, without
the firewall: it counts as open when the database runs it and the page shows another table than for the plain value.
Minutes instead of the day that try_sqlmap.py takes; that one remains the proof.
Exit code 0: nothing is open; 1: something is; 2: proves nothing."""
import argparse
import contextlib
import http.server
import importlib
import json
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse

from guarded_site import BIN, Site
from try_sqlmap import LIKELY, TAMPERS

SQLMAP = pathlib.Path("/usr/share/sqlmap")
PLACES = ["query", "form", "json", "cookie", "multipart", "header"]
POSITIONS = ["number", "text", "order"]
SECONDS = 900
DELAY = 0.9  # what is asked of the database is a second


class Recorder(http.server.BaseHTTPRequestHandler):
    """Always the same page; keeps the values of `id`."""

    def do_GET(self):
        query = urllib.parse.urlsplit(self.path).query
        self.server.values.update(urllib.parse.parse_qs(query, keep_blank_values=True, errors="surrogateescape").get("id",
                                                                                                                     []))
        page = b"<html><body><h1>Goods</h1><p>0 found</p></body></html>"
        self.send_response(200)
        self.send_header("Content-Type", "text/html")
        self.send_header("Content-Length", str(len(page)))
        self.end_headers()
        self.wfile.write(page)

    def log_message(self, *_):
        pass


def payloads(database):
    """What sqlmap sends to a page with one parameter."""
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Recorder)
    server.values = set()
    threading.Thread(target=server.serve_forever, daemon=True).start()
    with tempfile.TemporaryDirectory(prefix="qiv-sqlmap-") as folder:
        with contextlib.suppress(subprocess.TimeoutExpired):  # what came until then counts
            subprocess.run(["sqlmap", "-u", f"http://127.0.0.1:{server.server_port}/?id=1", "-p", "id", "--batch",
                            "--ignore-stdin", "--flush-session",
                            "--output-dir", folder, "--dbms", "SQLite" if database == "sqlite" else "MySQL", "--level", "3",
                            "--risk", "2",
                            "--time-sec", "1", "--skip-waf", "--technique", "BEUSTQ", "--union-cols", "1-4"],
                            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                           timeout=SECONDS, check=False)
    server.shutdown()
    return sorted(value for value in server.values if value != "1")


def prepare_scripts():
    """What the scripts find prepared when sqlmap runs them."""
    sys.path[:0] = [str(SQLMAP)]
    from lib.core.data import conf, kb
    conf.smokeTest, kb.aliasName = True, "aliased"
    kb.keywords = {line for line in (SQLMAP / "data/txt/keywords.txt").read_text().splitlines() if line and line[0] != "#"}


def tamper_function(names):
    """The scripts one after another, as sqlmap runs them."""
    functions = []
    for name in filter(None, names.split(",")):
        functions.append(importlib.import_module(f"tamper.{name}").tamper)

    def tampered(payload):
        for function in functions:
            payload = function(payload=payload, headers={})
        return payload
    return tampered


def request(place, at, value):
    """A raw request as sqlmap sends it: what a script wrote is taken for encoded where it has percent signs."""
    data = value.encode("utf-8", "surrogateescape")
    coded = urllib.parse.quote_from_bytes(data, safe="%" if re.search("%[0-9a-fA-F]{2}", value) else "")
    head, path, body = ["Host: 127.0.0.1"], f"/?at={at}", b""
    if place == "query":
        path += f"&id={coded}"
    elif place == "form":
        head, body = head + ["Content-Type: application/x-www-form-urlencoded"], f"id={coded}&send=1".encode()
    elif place == "json":
        head, body = head + ["Content-Type: application/json"], json.dumps({"id": value, "page": 2}).encode("utf-8",
                                                                                                            "replace")
    elif place == "cookie":
        head.append(f"Cookie: id={coded}")
    elif place == "multipart":
        head.append("Content-Type: multipart/form-data; boundary=b7f3")
        body = b'--b7f3\r\nContent-Disposition: form-data; name="id"\r\n\r\n' + data + b"\r\n--b7f3--\r\n"
    else:
        path += "&from=header"
        head.append("User-Agent: " + re.sub("[\r\n]", " ", value))
    if body:
        head.append(f"Content-Length: {len(body)}")
    method = "POST" if body else "GET"
    return f"{method} {path} HTTP/1.1\r\n".encode() + "\r\n".join(head).encode("utf-8",
                                                                               "surrogateescape") + b"\r\n\r\n" + body


def blocked(module, requests):
    framed = b"".join(b"%%%% %d\n%s\n" % (len(one), one) for one in requests)
    out = subprocess.run([str(BIN / "qivctl"), "check", "--batch", "--config", str(module)], input=framed,
                         capture_output=True, check=False).stdout
    lines = out.splitlines()
    if len(lines) != len(requests):
        raise RuntimeError(f"qivctl check --batch: {len(lines)} answers to {len(requests)} requests")
    return [line.split(b"\t")[0] == b"blocked" or b"refused" in line.split(b"\t")[0] for line in lines]


def answer(site, raw):
    """The site's own page, and the seconds it took."""
    host, port = site.direct[7:].split(":")
    with socket.create_connection((host, int(port)), 20) as connection:
        connection.sendall(raw.replace(b"\r\n\r\n", b"\r\nConnection: close\r\n\r\n", 1))
        data, start = b"", time.monotonic()
        while piece := connection.recv(65536):
            data += piece
    return data.partition(b"\r\n\r\n")[2], time.monotonic() - start


def does_something(site, place, at, value):
    """What a tool learns from: other rows than the value's number alone brings, an error that holds what was asked, or a delay."""
    number = re.match(r"-?\d+", value)
    page, seconds = answer(site, request(place, at, value))
    if seconds > DELAY:  # not by chance
        page, seconds = answer(site, request(place, at, value))
    plain, _ = answer(site, request(place, at, number.group() if number else "1"))
    if page == plain:
        return seconds > DELAY
    if b"Database error" in page:
        return seconds > DELAY or bool(re.search(rb"XPATH|Duplicate entry|out of range|truncated incorrect", page, re.I))
    return seconds > DELAY or rows(page) != rows(plain)


def rows(page):
    found = re.search(rb"(\d+) found", page)
    return found and found.group()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--database", choices=["sqlite", "mariadb"], action="append", help="both when not given")
    parser.add_argument("--tamper", action="append", help="these scripts only")
    parser.add_argument("--place", choices=PLACES, action="append")
    parser.add_argument("--list", type=pathlib.Path,
                        help="write what is open there: database, position, place, scripts, payload")
    options = parser.parse_args()
    scripts, places = options.tamper or ["", *LIKELY, *TAMPERS], options.place or PLACES
    open_, judged, results = [], 0, []
    prepare_scripts()
    for database in options.database or ["sqlite", "mariadb"]:
        found = payloads(database)
        with Site(database) as site:
            module = site.folder / "module"
            for names in scripts:
                tampered = tamper_function(names)
                values = list(dict.fromkeys(value for value in map(tampered, found) if value))
                for place in places:
                    verdicts = blocked(module, [request(place, "text", value) for value in values])
                    passed = [value for value, stopped in zip(values, verdicts) if not stopped]
                    hits = [(at, value) for value in passed for at in POSITIONS if does_something(site, place, at, value)]
                    judged += len(values)
                    open_ += [(database, at, place, names or "-", value) for at, value in hits]
                    results.append((database, names or "-", place, len(values), len(passed), len(hits)))
                line = results[-len(places):]
                print(f"{database:8}{names or '-':40}{len(values):6} " + " ".join(f"{row[2]} {row[4]}/{row[5]}" for row in line), flush=True)
    if options.list:
        options.list.write_text("".join("\t".join(one).encode("unicode_escape").decode() + "\n" for one in open_))
    print(f"{judged} judged, {sum(row[4] for row in results)} passed, {len(open_)} of them do something on the page")
    if not judged:
        print("judge_payloads: sqlmap sent nothing: proves nothing", file=sys.stderr)
        return 2
    return 1 if open_ else 0


if __name__ == "__main__":
    sys.exit(main())
