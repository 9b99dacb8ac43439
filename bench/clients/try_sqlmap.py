#!/usr/bin/env python3
"""Runs sqlmap against an injectable page behind the firewall and says which of its techniques succeed.

Needs the packages of the group "clients" (cmake/install-packages.sh clients) and build/bin (./run.sh --build-only).
Each place is first tried without the firewall: where sqlmap finds nothing there, the run proves nothing and fails.
Results are kept in a file and not run again; what is most likely to get through comes first, so that --minutes may end it.
Exit code 0: no technique succeeded through the firewall; 1: one did; 2: the run proves nothing."""
import argparse
import collections
import contextlib
import hashlib
import itertools
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

from guarded_site import BIN, ROOT, Site

BOUNDARY = "----------------------------7f3c2a"
PLACES = {
    "query": ["-u", "{url}/?at={at}&id=1", "-p", "id"],
    "form": ["-u", "{url}/?at={at}", "--data", "id=1&send=1", "-p", "id"],
    "chunked": ["-u", "{url}/?at={at}", "--data", "id=1&send=1", "-p", "id", "--chunked"],
    "json": ["-u", "{url}/?at={at}", "--data", '{{"id": "1", "page": 2}}', "-p", "id"],
    "cookie": ["-u", "{url}/?at={at}", "--cookie", "id=1", "-p", "id", "--level", "3"],
    "multipart": None,
    "header": None,
}
# What an attacker would try after the plain run; "," joins scripts that work together.
LIKELY = ["between", "space2comment", "charencode", "equaltolike", "versionedmorekeywords", "unmagicquotes", "percentage",
          "overlongutf8", "chardoubleencode", "space2comment,randomcase", "between,randomcase,space2comment",
          "space2randomblank,equaltolike", "symboliclogical,space2comment", "misunion,space2randomblank", "0eunion,randomcase",
          "charunicodeescape", "scientific", "dunion", "space2hash", "modsecurityversioned"]
TAMPERS = ["space2plus", "space2morecomment", "space2randomblank", "space2morehash", "space2dash", "space2mysqldash",
           "space2mysqlblank", "space2mssqlblank", "space2mssqlhash", "multiplespaces", "randomcase", "randomcomments", "greatest",
           "least", "symboliclogical", "charunicodeencode", "apostrophemask", "apostrophenullencode", "appendnullbyte",
           "base64encode", "commentbeforeparentheses", "concat2concatws", "halfversionedmorekeywords", "versionedkeywords",
           "modsecurityzeroversioned", "informationschemacomment", "if2case", "ifnull2ifisnull", "ifnull2casewhenisnull",
           "commalesslimit", "commalessmid", "substring2leftright", "overlongutf8more", "unionalltounion", "misunion", "0eunion",
           "schemasplit", "sleep2getlock", "hex2char", "ord2ascii", "decentities", "htmlencode", "hexentities", "escapequotes",
           "binary", "lowercase", "uppercase", "luanginx", "varnish", "xforwardedfor", "bluecoat", "plus2concat",
           "plus2fnconcat", "equaltorlike", "sp_password", "charencode,space2plus", "versionedkeywords,randomcase",
           "space2mysqldash,between", "randomcomments,greatest", "schemasplit,space2morecomment", "if2case,multiplespaces",
           "unmagicquotes,between,space2comment", "commalesslimit,commalessmid,space2mysqldash"]
QUICK = ["", "space2comment", "between,randomcase,space2comment"]
RUN_SECONDS = 900
LATE = "\nthe time was over\n"


def request_file(place, at, port, folder):
    """A raw request for what no option says."""
    if place == "multipart":
        body = f'--{BOUNDARY}\r\nContent-Disposition: form-data; name="id"\r\n\r\n1\r\n--{BOUNDARY}--\r\n'
        head = f"Content-Type: multipart/form-data; boundary={BOUNDARY}\r\nContent-Length: {len(body)}\r\n"
        text = f"POST /?at={at} HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\n{head}\r\n{body}"
    else:
        text = f"GET /?at={at}&from=header HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nUser-Agent: 1\r\n\r\n"
    path = pathlib.Path(folder) / f"{place}.http"
    path.write_bytes(text.encode())
    return ["-r", str(path), "-p", "id" if place == "multipart" else "user-agent"]


def sqlmap(url, place, at, tamper, database, quick):
    """The techniques that succeeded, as sqlmap names them, and its whole output."""
    with tempfile.TemporaryDirectory(prefix="qiv-sqlmap-") as folder:
        target = PLACES[place]
        target = [part.format(url=url, at=at) for part in target] if target else \
            request_file(place, at, url.rsplit(":", 1)[1], folder)
        command = ["sqlmap", *target, "--batch", "--ignore-stdin", "--flush-session", "--output-dir", folder, "--disable-coloring",
                   "--dbms", "SQLite" if database == "sqlite" else "MySQL", "--time-sec", "1", "--timeout", "10",
                   "--retries", "0", "--ignore-code", "*", "--skip-waf"]
        if "--level" not in command:
            command += ["--level", "1" if quick else "3"]
        command += ["--risk", "1" if quick else "2"]
        if tamper.startswith("--"):
            command.append(tamper)
        elif tamper:
            command += ["--tamper", tamper]
        try:
            done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, errors="replace",
                                  timeout=RUN_SECONDS, preexec_fn=lambda: os.nice(19))
            output = done.stdout + done.stderr
        except subprocess.TimeoutExpired as late:
            output = (late.stdout or b"").decode(errors="replace") + LATE
        found = re.findall(r"^ +Type: (.+)$", output, re.M)
        said = re.findall(r"(?:parameter|custom .*?) '[^']+' (?:appears to be|is) '([^']+)' injectable", output)
        if "false positive or unexploitable" in output:
            said = []  # it tried what it had found, and it was nothing
        return sorted(set(found + said)), output


def plan(options):
    """Runs as (database, position, place, scripts): plain everywhere, then by how likely a success is."""
    databases = options.database or ["sqlite", "mariadb"]
    positions = options.at or (["text"] if options.quick else ["number", "text", "order"])
    places = options.place or (["query", "form"] if options.quick else list(PLACES))
    if options.tamper or options.quick:
        return list(itertools.product(databases, positions, places, options.tamper or QUICK))
    first = [position for position in positions if position != "order"]
    runs = list(itertools.product(databases, positions, places, [""]))
    for some_places, scripts in ((places[:1], LIKELY), (places[:1], TAMPERS), (places, LIKELY), (places, TAMPERS)):
        for some_positions in (first, positions):
            runs += [(d, at, p, t) for t, d, at, p in itertools.product(scripts, databases, some_positions, some_places)]
    # With SQLite sqlmap does not find a column to sort by in a part or a header, with or without the firewall.
    return [run for run in dict.fromkeys(runs) if run[:2] != ("sqlite", "order") or run[2] not in ("multipart", "header")]


class Runs:
    """The sites, and results by "module-and-rules profile database position place scripts" in a file."""

    def __init__(self, options, stack):
        self.options, self.stack, self.sites, self.proven = options, stack, {}, set()
        self.path = options.results
        # Of another module, other rules or another profile no result counts.
        tried = hashlib.sha256((BIN / "libQivIpsIIs.so").read_bytes())
        for file in sorted(file for folder in ("badcode", "keywords", "library", "settings") for file in (ROOT / "rules" / folder).iterdir()):
            tried.update(file.read_bytes())
        self.under = (tried.hexdigest()[:12], options.profile)
        self.results = json.loads(self.path.read_text()) if self.path and self.path.is_file() else {}

    def run(self, database, at, place, tamper):
        """Its result, or None when it would prove nothing."""
        if database not in self.sites:
            self.sites[database] = self.stack.enter_context(Site(database, self.options.profile))
        site = self.sites[database]
        if (database, at, place) not in self.proven:
            found, output = sqlmap(site.direct, place, at, "", database, at != "order")
            if not found:
                print(output[-3000:], file=sys.stderr)
                print(f"try_sqlmap: {database} {at} {place}: nothing succeeds without the firewall", file=sys.stderr)
                return None
            self.proven.add((database, at, place))
        start = time.monotonic()
        found, output = sqlmap(site.direct if self.options.direct else site.guarded, place, at, tamper, database,
                               self.options.quick)
        said = "SUCCEEDED" if found else "too long" if output.endswith(LATE) else "stopped"
        if found and self.options.keep:
            self.options.keep.mkdir(parents=True, exist_ok=True)
            name = f"{database}-{at}-{place}-{tamper.strip('-') or 'plain'}.txt"
            (self.options.keep / name).write_text(output, encoding="utf-8")
        return {"result": said, "found": found, "seconds": round(time.monotonic() - start)}

    def key(self, run):
        return " ".join(self.under + run)

    def keep(self, run, result):
        self.results[self.key(run)] = result
        if self.path:
            self.path.parent.mkdir(parents=True, exist_ok=True)
            beside = self.path.with_suffix(".new")
            beside.write_text(json.dumps(self.results, indent=0))
            beside.replace(self.path)


def show(run, result):
    database, at, place, tamper = run
    print(f"{result['result']:10}{database:8}{at:8}{place:10}{tamper or '-':40}{'; '.join(result['found'])}", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--database", choices=["sqlite", "mariadb"], action="append", help="both when not given")
    parser.add_argument("--quick", action="store_true", help="a few scripts, the query and a form, lowest level, nothing kept")
    parser.add_argument("--tamper", action="append", help="these scripts only")
    parser.add_argument("--place", choices=PLACES, action="append")
    parser.add_argument("--at", choices=["number", "text", "order"], action="append")
    parser.add_argument("--profile", default="default")
    parser.add_argument("--direct", action="store_true", help="without the firewall: which scripts leave an attack an attack")
    parser.add_argument("--minutes", type=float, help="begin no run after that")
    parser.add_argument("--results", type=pathlib.Path, default=ROOT / "build/clients/sqlmap.json",
                        help="file of the results; remove it to run all again (default: %(default)s)")
    parser.add_argument("--show", action="store_true", help="run nothing, print the results")
    parser.add_argument("--keep", type=pathlib.Path, help="folder for the whole outputs of runs that succeeded")
    options = parser.parse_args()
    if options.quick or options.direct:
        options.results = None
    end = time.monotonic() + 60 * options.minutes if options.minutes else float("inf")
    with contextlib.ExitStack() as stack:
        runs, tried, void = Runs(options, stack), [], 0
        for run in plan(options):
            result = runs.results.get(runs.key(run))
            if not result:
                if options.show or time.monotonic() > end:
                    continue
                result = runs.run(*run)
                if result is None:
                    void += 1
                    continue
                runs.keep(run, result)
            show(run, result)
            tried.append(result)
        if not options.direct and runs.sites and not any(site.log() for site in runs.sites.values()):
            print("try_sqlmap: the firewall blocked nothing at all: was it in the way?", file=sys.stderr)
            return 2
    counts = collections.Counter(result["result"] for result in tried)
    print(f"{counts['SUCCEEDED']} of {len(tried)} runs succeeded, {counts['too long']} took longer than {RUN_SECONDS} s")
    return 1 if counts["SUCCEEDED"] else 0 if tried and not void else 2


if __name__ == "__main__":
    sys.exit(main())
