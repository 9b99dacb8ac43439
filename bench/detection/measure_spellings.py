#!/usr/bin/env python3
"""How much of what is detected stays detected when its blanks are spelled otherwise.

    bench/detection/measure_spellings.py -m /tmp/site attacks.txt

Each line's blanks are written in each way that some database takes for a blank, and its letters in each way that some
server takes for letters; of the lines that are blocked as they are, the share that still is, is printed for each place.
The line's last comment keeps its blank ("-- "), and lines without a blank are left out. Needs build/bin/measure_texts.
Exit code 1: a share is below --least."""
import argparse
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
BLANKS = {
    "two blanks": b"  ", "three blanks": b"   ", "tab": b"\t", "CR": b"%0D", "LF": b"%0A", "CR LF": b"%0D%0A",
    "VT": b"\v", "FF": b"\f", "NUL": b"%00", "0xA0": b"\xa0", "0x01": b"\x01", "no-break (UTF-8)": b"\xc2\xa0",
    "/**/": b"/**/", "/*x*/": b"/*x*/", "/*x*/ and blank": b" /*x*/ ", "--x LF": b"--x%0A", "#x LF": b"#x%0A",
    "/*!*/": b"/*!*/",
}


def version_comment(line):
    """Each pair of words in a comment that the database runs."""
    words = line.split(b" ")
    return b" ".join(b"/*!30774" + word + b"*/" if re.fullmatch(rb"[A-Za-z]+", word) else word for word in words)


def full_width(line):
    return b"".join(chr(0xFEE0 + c).encode() if chr(c).isalpha() or c in b"'\"=" else bytes([c]) for c in line)


def overlong(line):
    return b"".join(bytes([0xC0 | c >> 6, 0x80 | c & 63]) if c in b" '\"=" else bytes([c]) for c in line)


def mixed(line):
    kinds = [b"%0A", b"/**/", b"  ", b"\t", b"--q%0A"]
    pieces = BLANK.split(line)
    return b"".join(piece + (kinds[i % len(kinds)] if i + 1 < len(pieces) else b"") for i, piece in enumerate(pieces))


# A blank between two words: not one that makes a comment of "--", nor one at an end.
BLANK = re.compile(rb"(?<=[^ \-#]) (?=[^ ])")
SPELLINGS = {name: (lambda line, blank=blank: BLANK.sub(lambda _: blank, line)) for name, blank in BLANKS.items()}
SPELLINGS.update({"/*!30774word*/": version_comment, "a mix": mixed, "full-width": full_width, "overlong": overlong})


def blocked(tool, module, place, lines):
    """Whether each line is blocked."""
    with tempfile.NamedTemporaryFile(suffix=".txt") as file:
        file.write(b"".join(line + b"\n" for line in lines))
        file.flush()
        out = subprocess.run([tool, "-m", module, "-p", place, "--list", "verdicts", file.name], check=True,
                             capture_output=True).stdout
    return [row.split(b"\t")[3] != b"0" for row in out.splitlines()]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("-m", "--module", required=True, help="module directory, as made by qivctl init")
    parser.add_argument("-p", "--place", default="query,form,json,header")
    parser.add_argument("--least", type=float, default=97, help="per cent")
    parser.add_argument("--misses", metavar="SPELLING", help="list what is lost in this spelling instead, first place")
    parser.add_argument("files", nargs="+")
    options = parser.parse_args()
    tool = str(ROOT / "build/bin/measure_texts")
    lines = [line for path in options.files for line in pathlib.Path(path).read_bytes().split(b"\n")]
    lines = [line for line in lines if BLANK.search(line)]
    places = options.place.split(",")
    plain = {place: blocked(tool, options.module, place, lines) for place in places}
    if not options.misses:
        print(f"{len(lines)} lines; blocked as they are: " + ", ".join(f"{place} {sum(plain[place])}" for place in places))
        print(f"{'spelling':20}" + "".join(f"{place:>10}" for place in places))
    good = True
    for name, spell in SPELLINGS.items():
        if options.misses and name != options.misses:
            continue
        spelled = [spell(line) for line in lines]
        shares = []
        for place in places:
            kept = blocked(tool, options.module, place, spelled)
            if options.misses:
                for line, was, still in zip(spelled, plain[place], kept):
                    if was and not still:
                        sys.stdout.buffer.write(line + b"\n")
                return 0
            shares.append(100 * sum(a and b for a, b in zip(plain[place], kept)) / max(1, sum(plain[place])))
        good = good and min(shares) >= options.least
        print(f"{name:20}" + "".join(f"{share:10.2f}" for share in shares), flush=True)
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
