"""C++ source text for checks that look at code only: comments, texts and raw texts blanked, lines kept."""
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
CODE_SUFFIXES = {".h", ".cpp", ".def", ".inc"}

_TOKEN = re.compile(
    r'//[^\n]*'
    r'|/\*.*?\*/'
    r'|(?P<raw>(?:u8|[uUL])?R"(?P<tag>[^()\\\s]{0,16})\(.*?\)(?P=tag)")'
    r'|(?P<text>(?:u8|[uUL])?"(?:\\.|[^"\\\n])*")'
    r"|(?P<digits>\b[0-9][0-9A-Fa-fxXbB']*)"
    r"|(?P<char>(?:u8|[uUL])?'(?:\\.|[^'\\\n])+')",
    re.S)


def _blank(piece):
    return "".join(c if c == "\n" else " " for c in piece)


def code_only(source, keep_includes=False):
    """`source` with comments and literals replaced by blanks; every line keeps its number and length."""
    def replace(match):
        piece = match.group(0)
        if match.group("digits"):
            return piece  # digit separators are no character literals
        if keep_includes and match.group("text"):
            start = source.rfind("\n", 0, match.start()) + 1
            if re.match(r"\s*#\s*include\s*$", source[start:match.start()]):
                return piece
        return _blank(piece)
    return _TOKEN.sub(replace, source)


def tracked_files(root=ROOT):
    """Paths in the repository, relative to `root`: those that git knows, or every file when this is no checkout."""
    if (root / ".git").exists():
        listing = subprocess.run(["git", "-C", str(root), "ls-files", "--cached", "--others", "--exclude-standard", "-z"],
                                 check=True, capture_output=True).stdout.decode()
        names = [name for name in listing.split("\0") if name]
    else:
        names = [str(path.relative_to(root)) for path in root.rglob("*") if path.is_file()]
    return sorted(pathlib.PurePosixPath(name) for name in names
                  if (root / name).is_file() and not name.startswith("build/"))


def code_files(root=ROOT):
    return [path for path in tracked_files(root) if path.suffix in CODE_SUFFIXES]


def report(title, faults, checked):
    """Prints the faults and returns the exit status; looking at nothing is a fault too."""
    if checked == 0:
        faults = faults + ["nothing to check: is this the right folder?"]
    for fault in faults:
        print(f"{title}: {fault}")
    if not faults:
        print(f"{title}: {checked} checked, no fault")
    return 1 if faults else 0
