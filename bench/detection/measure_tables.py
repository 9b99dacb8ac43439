#!/usr/bin/env python3
"""Prints the tables of docs/tuning.md from folders of text lists: what of each is blocked, in each place and joined to documents.

usage: measure_tables.py LISTS [--bin FOLDER] [--only places|families|joined]...

LISTS holds one text a line in files named as below; those that are missing have no row. Needs qivctl and measure_texts of the
release preset. Minutes, on one processor. Exit code 0; 2: nothing could be measured."""
import argparse
import collections
import os
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
ATTACKS = {"sqli": "SQL injections seen in the wild", "sqli_gen": "SQL injections of tools", "xss": "scripting vectors"}
ORDINARY = {
    "benign_prose_en": "English prose", "benign_prose_zh": "Chinese prose", "benign_search_en": "searches, English",
    "benign_search_zh": "searches, Chinese", "benign_ui_strings": "interface texts", "benign_naughty": "odd strings",
    "benign_csic_values": "form values", "benign_web_values": "parameter values", "benign_form_bodies": "form bodies",
    "benign_json_bodies": "JSON bodies", "benign_tech_prose": "technical prose", "benign_tech_titles_sql": "questions about SQL",
    "benign_fp_list": "known false-alarm texts", "benign_richtext_html": "rich text", "benign_code_generic": "program code",
    "benign_code_html_js": "HTML and script source", "benign_code_sql": "SQL source",
}
HEADERS = {"benign_hdr_user_agent": "user agent headers", "benign_hdr_referer": "referer headers", "benign_hdr_cookie": "cookie headers"}
FAMILIES = {
    "lfi": "paths", "rfi": "remote files", "rce": "commands", "php": "PHP", "ssti": "templates", "generic": "Node and prototypes",
    "java": "Java", "xxe": "XML entities", "ssrf": "inner addresses", "crlf": "header splitting", "nosql": "NoSQL", "ldap": "LDAP",
    "xpath": "XPath", "ssi": "server-side includes", "scanner": "scanners",
}
JOINED = [name for name in ORDINARY if name not in ("benign_naughty", "benign_fp_list") and "_code_" not in name]


class Measurer:
    def __init__(self, lists, programs, folder):
        self.lists, self.programs, self.module = lists, programs, folder
        subprocess.run([programs / "qivctl", "init", folder, "--rules", ROOT / "rules"], check=True, stdout=subprocess.DEVNULL)

    def there(self, names):
        return [name for name in names if (self.lists / f"{name}.txt").is_file()]

    def run(self, names, places, *options):
        """{list: {place: (lines, tuned, held)}}."""
        found = collections.defaultdict(dict)
        if names:
            files = [self.lists / f"{name}.txt" for name in names]
            out = subprocess.run([self.programs / "measure_texts", "-m", self.module, "-p", places, *options, *files], check=True,
                                 capture_output=True, text=True, preexec_fn=lambda: os.nice(10)).stdout
            for words in map(str.split, out.splitlines()):
                if len(words) > 4 and words[0].endswith(".txt"):
                    found[words[0][:-4]][words[1]] = words[2:5]
        return found


def table(head, rows):
    print("\n".join(["", f"| {' | '.join(head)} |", "|" + "---|" * len(head), *(f"| {' | '.join(row)} |" for row in rows)]), flush=True)


def shares(found, place):
    return " / ".join(found[place][1:]) if place in found else ""


def share_of_all(counts):
    """One figure: the lines stand in another text each round, so none are held back."""
    _, tuned, held = map(float, counts)
    return f"{(2 * tuned + held) / 3:.2f}"


def places(measurer):
    columns, all_places = ["query", "form", "json", "header"], {**ATTACKS, **ORDINARY}
    found = measurer.run(measurer.there(all_places), ",".join(columns))
    found.update(measurer.run(measurer.there(HEADERS), "header"))
    table(["texts", "lines", *columns], [[text, next(iter(found[name].values()))[0], *(shares(found[name], p) for p in columns)]
                                         for name, text in {**all_places, **HEADERS}.items() if name in found])


def families(measurer):
    columns = ["query", "form", "json", "cookie", "path"]
    found = measurer.run(measurer.there(FAMILIES), ",".join(columns))
    table(["texts", "lines", *columns], [[text, found[name]["query"][0], *(shares(found[name], p) for p in columns)]
                                         for name, text in FAMILIES.items() if name in found])


def joined(measurer):
    sizes = {"4 KiB": "4096", "64 KiB": "65536"}
    found = {size: measurer.run(measurer.there(JOINED), "form", "--join", bytes_, "--rounds", "30") for size, bytes_ in sizes.items()}
    table(["texts", *sizes], [[ORDINARY[name], *(share_of_all(found[size][name]["form"]) for size in sizes)] for name in measurer.there(JOINED)])


def main():
    tables = {"places": places, "families": families, "joined": joined}
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("lists", type=pathlib.Path)
    parser.add_argument("--bin", type=pathlib.Path, default=ROOT / "build/bin")
    parser.add_argument("--only", choices=tables, action="append")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="qiv-tables-") as folder:
        measurer = Measurer(options.lists, options.bin, folder)
        if not measurer.there({**ATTACKS, **ORDINARY, **HEADERS, **FAMILIES}):
            print(f"measure_tables: {options.lists}: holds none of the lists", file=sys.stderr)
            return 2
        for name in options.only or tables:
            tables[name](measurer)
    return 0


if __name__ == "__main__":
    sys.exit(main())
