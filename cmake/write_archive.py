#!/usr/bin/env python3
"""write_archive.py ARCHIVE.zip FOLDER: packs a folder, with the digest in ARCHIVE.zip.sha256, in the form that `sha256sum -c`
reads. The same files always make the same archive: in the order of their names, without times and owners."""
import hashlib
import pathlib
import sys
import zipfile

TIME = (1980, 1, 1, 0, 0, 0)  # the earliest that the format knows


def main(archive, folder):
    archive, folder = pathlib.Path(archive), pathlib.Path(folder)
    files = sorted(path for path in folder.rglob("*") if path.is_file())
    if not files:
        sys.exit(f"{folder}: no file")
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as packed:
        for path in files:
            entry = zipfile.ZipInfo(str(path.relative_to(folder.parent).as_posix()), TIME)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = 0o644 << 16
            packed.writestr(entry, path.read_bytes())
    digest = hashlib.sha256(archive.read_bytes()).hexdigest()
    archive.with_name(archive.name + ".sha256").write_text(f"{digest}  {archive.name}\n")


if __name__ == "__main__":
    main(*sys.argv[1:])
