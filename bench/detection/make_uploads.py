#!/usr/bin/env python3
"""Writes files like those that people upload, from seeds, to see that the rules let them pass.

Run:   bench/detection/make_uploads.py OUT --text FILE... [--seeds 30] [--size 10485760] [--kinds random,zip,...]
Then:  measure_texts -m SITE --whole -p file,raw-body OUT/*
Each kind and seed gives one file of about the given size; the texts give the content of what is compressed.
"""

import argparse
import base64
import gzip
import os
import random
import struct
import zlib


def block(kind, payload):
    return struct.pack(">I", len(payload)) + kind + payload + struct.pack(">I", zlib.crc32(kind + payload))


def stirred(rng, lines, size):
    """Lines of the texts in random order; joined by line feeds."""
    out, length = [], 0
    while length < size:
        line = lines[rng.randrange(len(lines))]
        out.append(line)
        length += len(line) + 1
    return b"\n".join(out)[:size]


def packed(rng, lines, size, level=6):
    """Compressed text: three times as much text as bytes asked for, then cut, as a part of a larger file."""
    out = b""
    while len(out) < size:
        out += zlib.compress(stirred(rng, lines, 4 << 20), level)
    return out[:size]


def png(rng, lines, size):
    """Rows of noise and of gradients, compressed."""
    rows = bytearray()
    packer, data = zlib.compressobj(6), b""
    while len(data) < size:
        base = rng.randrange(256)
        noise = rng.randbytes(3000)
        rows = b"\0" + bytes((base + i // 16 + (noise[i] & 7)) & 255 for i in range(3000)) + b"\1" + noise
        data += packer.compress(rows)
    return (b"\x89PNG\r\n\x1a\n" + block(b"IHDR", struct.pack(">IIBBBBB", 1000, size // 1500, 8, 2, 0, 0, 0))
            + b"".join(block(b"IDAT", data[i:i + 8192]) for i in range(0, size, 8192)) + block(b"IEND", b""))


def jpeg(rng, lines, size):
    """Segments and a scan: random bytes in which 0xFF is stuffed."""
    head = b"\xff\xd8\xff\xe0\0\x10JFIF\0\1\1\0\0H\0H\0\0\xff\xe1" + struct.pack(">H", 600) + b"Exif\0\0" + rng.randbytes(592)
    return head + b"\xff\xda\0\x0c" + rng.randbytes(size).replace(b"\xff", b"\xff\0")[:size] + b"\xff\xd9"


def archive(rng, lines, size):
    """A zip file's local headers with names, and deflated content."""
    out, number = b"", 0
    while len(out) < size:
        text = stirred(rng, lines, 3 << 20)
        packer = zlib.compressobj(6, zlib.DEFLATED, -15)
        content = packer.compress(text) + packer.flush()
        name = b"word/section%d.xml" % number
        number += 1
        out += struct.pack("<IHHHHHIIIHH", 0x04034B50, 20, 0, 8, 0, 0, zlib.crc32(text), len(content), len(text), len(name), 0)
        out += name + content
    return out[:size]


KINDS = {
    "random": lambda rng, lines, size: rng.randbytes(size),
    "zip": archive,
    "gzip": lambda rng, lines, size: gzip.compress(b"", mtime=0)[:10] + packed(rng, lines, size, 9),
    "png": png,
    "jpeg": jpeg,
    "base64": lambda rng, lines, size: base64.encodebytes(rng.randbytes(size * 3 // 4)),
    "base85": lambda rng, lines, size: base64.a85encode(rng.randbytes(size * 4 // 5), wrapcol=76),
    "utf16": lambda rng, lines, size: b"\xff\xfe" + stirred(rng, lines, size // 2).decode("utf-8", "replace").encode("utf-16-le"),
}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("out")
    parser.add_argument("--text", nargs="+", required=True)
    parser.add_argument("--seeds", type=int, default=30)
    parser.add_argument("--size", type=int, default=10 << 20)
    parser.add_argument("--kinds", default=",".join(KINDS))
    options = parser.parse_args()
    lines = []
    for path in options.text:
        with open(path, "rb") as file:
            lines += file.read().splitlines()
    os.makedirs(options.out, exist_ok=True)
    for kind in options.kinds.split(","):
        for seed in range(options.seeds):
            with open(os.path.join(options.out, f"{kind}-{seed}"), "wb") as file:
                file.write(KINDS[kind](random.Random(f"{kind}{seed}"), lines, options.size))


if __name__ == "__main__":
    main()
