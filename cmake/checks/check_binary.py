#!/usr/bin/env python3
"""check_binary.py FILE...: what a built file exports and imports.

The module (QivIpsIIs.dll, libQivIpsIIs.so) must export RegisterModule and nothing else. A Windows file may import only
from the DLLs below, which are part of every Windows Server since 2012 (so no run-time of ours, no api-ms-win-crt-*), and must tell our version in its properties."""
import pathlib
import re
import subprocess
import sys

WINDOWS_DLLS = {"advapi32.dll", "kernel32.dll", "msvcrt.dll", "mswsock.dll", "ntdll.dll", "shell32.dll", "user32.dll",
                "winhttp.dll", "ws2_32.dll"}
# What every ELF shared object built here may define for its neighbours beside the entry point.
ELF_HARMLESS = {"_init", "_fini", "_edata", "_end", "__bss_start"}
ELF_LIBRARIES = re.compile(r"(?:libstdc\+\+|libm|libgcc_s|libc|libpthread|libdl|librt|ld-linux-x86-64)\.so\.\d+")
EXPECTED = {"RegisterModule"}
ROOT = pathlib.Path(__file__).resolve().parents[2]


def windows_tables(listing):
    """(exported names, imported DLL names) from `objdump -p` of a PE file."""
    imports = {name.lower() for name in re.findall(r"^\s*DLL Name: (\S+)", listing, flags=re.M)}
    table = re.search(r"\[Ordinal/Name Pointer\] Table.*?\n(.*?)\n\s*\n", listing + "\n\n", flags=re.S)
    exports = set(re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+(?:[0-9a-f]+\s+)?)?(\S+)", table.group(1), flags=re.M)) \
        if table else set()
    return exports, imports


def version_faults(name, content, version):
    """Of the version resource; `content` is the whole file."""
    key = "ProductVersion\0".encode("utf-16-le")
    at = content.find(key) + len(key)
    told = content[at:at + 64].decode("utf-16-le", "replace").strip("\0").split("\0")[0] if at >= len(key) else "nothing"
    return [] if told == version else [f"{name}: its properties tell {told} as its version instead of {version}"]


def windows_faults(name, listing):
    exports, imports = windows_tables(listing)
    faults = [f"{name}: imports {dll}, which a Windows server need not have" for dll in sorted(imports - WINDOWS_DLLS)]
    if not imports:
        faults.append(f"{name}: no import table found")
    expected = EXPECTED if name.lower().endswith(".dll") else set()
    if exports != expected:
        faults.append(f"{name}: exports {sorted(exports) or 'nothing'} instead of {sorted(expected) or 'nothing'}")
    return faults


def elf_faults(name, symbols, dynamic):
    """From `nm -D --defined-only` and `readelf -d`."""
    exports = {line.split()[-1].split("@")[0] for line in symbols.splitlines() if line.strip()} - ELF_HARMLESS
    faults = []
    if exports != EXPECTED:
        faults.append(f"{name}: exports {sorted(exports)[:10] or 'nothing'} instead of {sorted(EXPECTED)}")
    for library in re.findall(r"\(NEEDED\).*\[(.+?)\]", dynamic):
        if not ELF_LIBRARIES.fullmatch(library) and not library.startswith(("libasan", "libubsan", "libtsan")):
            faults.append(f"{name}: needs {library}")
    return faults


def faults_of(path):
    def run(*command):
        return subprocess.run(command, check=True, capture_output=True, text=True).stdout
    if path.suffix in (".dll", ".exe"):
        version = re.search(r'kVersion\[\] = "([^"]+)"', (ROOT / "base/version.h").read_text())[1]
        return windows_faults(path.name, run("x86_64-w64-mingw32-objdump", "-p", str(path))) + \
            version_faults(path.name, path.read_bytes(), version)
    return elf_faults(path.name, run("nm", "-D", "--defined-only", str(path)), run("readelf", "-d", str(path)))


def main(names):
    if not names:
        print(__doc__)
        return 2
    faults = []
    for name in names:
        path = pathlib.Path(name)
        faults += faults_of(path) if path.is_file() else [f"{name}: not built"]
    for fault in faults:
        print(f"binary: {fault}")
    if not faults:
        print(f"binary: {len(names)} checked, no fault")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
