#!/usr/bin/env python3
"""Runs sqlmap against an injectable page behind the firewall and says which of its techniques succeed.

Needs the packages of the group "clients" (cmake/install-packages.sh clients) and build/bin (./run.sh --build-only).
Each place is first tried without the firewall: where sqlmap finds nothing there, the run proves nothing and fails.
Exit code 0: no technique succeeded through the firewall; 1: one did; 2: the run proves nothing."""
import argparse
import pathlib
import re
import subprocess
import sys
import tempfile

from guarded_site import Site

BOUNDARY = "----------------------------7f3c2a"
PLACES = {
    "query": ["-u", "{url}/?at={at}&id=1", "-p", "id"],
    "form": ["-u", "{url}/?at={at}", "--data", "id=1&send=1", "-p", "id"],
    "json": ["-u", "{url}/?at={at}", "--data", '{{"id": "1", "page": 2}}', "-p", "id"],
    "cookie": ["-u", "{url}/?at={at}", "--cookie", "id=1", "-p", "id", "--level", "3"],
    "multipart": None,
    "header": None,
}
# What an attacker would try after the plain run; "," joins scripts that work together. Not "--chunked": bodies in chunks
# are not read (docs/tuning.md says what to do about them).
TAMPERS = ["", "space2comment", "space2plus", "space2morecomment", "space2randomblank", "space2hash",
           "space2morehash", "space2dash", "space2mysqldash", "space2mysqlblank", "space2mssqlblank", "multiplespaces",
           "randomcase", "randomcomments", "between", "greatest", "least", "equaltolike", "symboliclogical", "charencode",
           "chardoubleencode", "charunicodeencode", "charunicodeescape", "percentage", "apostrophemask",
           "apostrophenullencode", "appendnullbyte", "base64encode", "commentbeforeparentheses", "concat2concatws",
           "halfversionedmorekeywords", "versionedkeywords", "versionedmorekeywords", "modsecurityversioned",
           "modsecurityzeroversioned", "informationschemacomment", "if2case", "ifnull2ifisnull", "ifnull2casewhenisnull",
           "commalesslimit", "commalessmid", "substring2leftright", "overlongutf8", "overlongutf8more", "unionalltounion",
           "misunion", "dunion", "0eunion", "scientific", "schemasplit", "sleep2getlock", "hex2char", "ord2ascii",
           "unmagicquotes", "decentities", "htmlencode", "hexentities", "escapequotes", "binary", "lowercase", "uppercase",
           "luanginx", "varnish", "xforwardedfor", "bluecoat", "plus2concat", "plus2fnconcat", "equaltorlike",
           "space2comment,randomcase", "between,randomcase,space2comment", "space2randomblank,equaltolike",
           "charencode,space2plus", "versionedkeywords,randomcase", "space2mysqldash,between", "symboliclogical,space2comment",
           "misunion,space2randomblank", "randomcomments,greatest", "schemasplit,space2morecomment", "if2case,multiplespaces",
           "0eunion,randomcase"]
QUICK = ["", "space2comment", "between,randomcase,space2comment"]
RUN_SECONDS = 900


def request_file(place, at, port, folder):
    """A raw request for what no option says."""
    if place == "multipart":
        body = f'--{BOUNDARY}\r\nContent-Disposition: form-data; name="id"\r\n\r\n1*\r\n--{BOUNDARY}--\r\n'
        head = f"Content-Type: multipart/form-data; boundary={BOUNDARY}\r\nContent-Length: {len(body)}\r\n"
        text = f"POST /?at={at} HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\n{head}\r\n{body}"
    else:
        text = f"GET /?at={at}&from=header HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nUser-Agent: 1*\r\n\r\n"
    path = pathlib.Path(folder) / f"{place}.http"
    path.write_bytes(text.encode())
    return ["-r", str(path)]


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
                                  timeout=RUN_SECONDS)
            output = done.stdout + done.stderr
        except subprocess.TimeoutExpired as late:
            output = (late.stdout or b"").decode(errors="replace") + "\nthe time was over\n"
        found = re.findall(r"^ +Type: (.+)$", output, re.M)
        said = re.findall(r"(?:parameter|custom .*?) '[^']+' (?:appears to be|is) '([^']+)' injectable", output)
        if "false positive or unexploitable" in output:
            said = []  # it tried what it had found, and it was nothing
        return sorted(set(found + said)), output


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--database", choices=["sqlite", "mariadb"], action="append", help="both when not given")
    parser.add_argument("--quick", action="store_true", help="a few scripts, the query and a form, lowest level")
    parser.add_argument("--tamper", action="append", help="these scripts only")
    parser.add_argument("--place", choices=PLACES, action="append")
    parser.add_argument("--at", choices=["number", "text", "order"], action="append")
    parser.add_argument("--profile", default="default")
    parser.add_argument("--keep", type=pathlib.Path, help="folder for the whole outputs of runs that succeeded")
    options = parser.parse_args()
    places = options.place or (["query", "form"] if options.quick else list(PLACES))
    tampers = options.tamper or (QUICK if options.quick else TAMPERS)
    succeeded = runs = 0
    for database in options.database or ["sqlite", "mariadb"]:
        with Site(database, options.profile) as site:
            for at in options.at or (["text"] if options.quick else ["number", "text", "order"]):
                for place in places:
                    found, output = sqlmap(site.direct, place, at, "", database, True)
                    if not found:
                        print(output[-3000:], file=sys.stderr)
                        print(f"try_sqlmap: {database} {at} {place}: nothing succeeds without the firewall", file=sys.stderr)
                        return 2
                    for tamper in tampers:
                        found, output = sqlmap(site.guarded, place, at, tamper, database, options.quick)
                        runs += 1
                        succeeded += bool(found)
                        print(f"{'SUCCEEDED' if found else 'stopped':10}{database:8}{at:8}{place:10}{tamper or '-':40}"
                              f"{'; '.join(found)}", flush=True)
                        if found and options.keep:
                            options.keep.mkdir(parents=True, exist_ok=True)
                            name = f"{database}-{at}-{place}-{tamper.strip('-') or 'plain'}.txt"
                            (options.keep / name).write_text(output, encoding="utf-8")
            if not site.log():
                print("try_sqlmap: the firewall blocked nothing at all: was it in the way?", file=sys.stderr)
                return 2
    print(f"{succeeded} of {runs} runs succeeded")
    return 1 if succeeded else 0


if __name__ == "__main__":
    sys.exit(main())
