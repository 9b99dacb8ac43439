#!/usr/bin/env python3
"""Runs wapiti against pages with one fault each (vulnerable.php), without the firewall and through it.

Needs the packages of the group "clients" and build/bin (./run.sh --build-only). Takes some minutes.
Exit code 0: nothing of what this protection is there for was found through the firewall; 1: some was; 2: the run proves nothing."""
import argparse
import collections
import json
import os
import pathlib
import shutil
import subprocess
import sys

from guarded_site import Site, free_port

PAGE = pathlib.Path(__file__).with_name("vulnerable.php")
MODULES = ["sql", "blindsql", "xss", "permanentxss", "exec", "file", "xxe", "ssrf", "crlf", "redirect", "csrf", "htaccess",
           "shellshock"]
# What wapiti calls what this protection is there for; the others are counted only.
GUARDED = ["SQL Injection", "Blind SQL Injection", "Cross Site Scripting", "Command execution", "Path Traversal", "XML External Entity",
           "Server Side Request Forgery", "CRLF Injection", "Htaccess Bypass"]
RUN_SECONDS = 1800


class VulnerableSite(Site):
    def _start_site(self):
        site, book = self.folder / "site", self.folder / "book"
        for folder in (site, book):
            folder.mkdir()
        shutil.copy(PAGE, site / "index.php")
        environment = dict(os.environ, DATABASE=self._start_database(), PHP_CLI_SERVER_WORKERS="4", BOOK=str(book))
        port = free_port()
        self._start("php", "-S", f"127.0.0.1:{port}", "-t", str(site), env=environment)
        return port


def scan(site, url, modules):
    """Findings by their name: [method path parameter]."""
    (site.folder / "book/book.html").unlink(missing_ok=True)
    report, store = site.folder / "wapiti.json", site.folder / "wapiti"
    subprocess.run(["wapiti", "-u", url + "/", "-m", ",".join(modules), "-f", "json", "-o", str(report), "--flush-session",
                    "--no-bugreport",
                    "--store-session", str(store), "--store-config", str(store), "-v", "0", "--max-attack-time", "120", "-t",
                    "10"],
                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=RUN_SECONDS,
                   preexec_fn=lambda: os.nice(10), env=dict(os.environ, HOME=str(site.folder)), check=True)
    found = json.loads(report.read_text())["vulnerabilities"]
    return {name: [f"{one['parameter']}: {one['http_request'][:600]!r}" for one in list_] for name,
            list_ in found.items() if list_}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--database", choices=["sqlite", "mariadb"], default="mariadb")
    parser.add_argument("--profile", default="default")
    parser.add_argument("--module", choices=MODULES, action="append", help="these only")
    options = parser.parse_args()
    with VulnerableSite(options.database, options.profile) as site:
        direct = scan(site, site.direct, options.module or MODULES)
        guarded = scan(site, site.guarded, options.module or MODULES)
        blocked = collections.Counter(event["check"] for event in site.log() if event.get("action") == "block")
    print(f"{'found by wapiti':40}{'without':>9}{'through':>9}")
    for name in sorted({*direct, *guarded}):
        print(f"{name:40}{len(direct.get(name, [])):9}{len(guarded.get(name, [])):9}")
    print("blocked requests:", dict(blocked))
    through = [f"{name}: {one}" for name in GUARDED for one in guarded.get(name, [])]
    for one in through:
        print("FOUND", one)
    if not blocked or not any(name in direct for name in GUARDED):
        print("try_wapiti: nothing was found without the firewall, or nothing was blocked: proves nothing", file=sys.stderr)
        return 2
    return 1 if through else 0


if __name__ == "__main__":
    sys.exit(main())
