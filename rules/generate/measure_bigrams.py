#!/usr/bin/env python3
"""Writes text_bigrams.txt, the model of ordinary text, from files of ordinary text.

Run:   rules/generate/measure_bigrams.py FILE...
Each file weighs the same, however long it is: prose, form bodies, JSON and interface texts are equally ordinary.
"""

import math
import os
import sys
from collections import Counter

from budget import Text


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    pairs, alone = Counter(), Counter()
    for path in sys.argv[1:]:
        with open(path, "rb") as file:
            data = file.read().decode("latin-1").lower().replace("%0d", "").replace("%0a", "\n")
        data = "".join(c if c in Text.ORDER else "\x80" for c in data if c not in "\r\0")
        weight = 1e6 / len(data)
        for c, n in Counter(data).items():
            alone[c] += n * weight
        for pair, n in Counter(zip(data, data[1:])).items():
            pairs[pair] += n * weight
    total = sum(alone.values())
    share = {c: (alone[c] + 1) / (total + len(Text.ORDER)) for c in Text.ORDER}
    lines = ["# Bits of surprise in quarters, two hexadecimal digits each. Written by measure_bigrams.py.\n"]
    for before in Text.ORDER:
        # A pair that was never seen gets what the byte's own share gives to 20 more bytes.
        seen = sum(pairs[(before, c)] for c in Text.ORDER)
        row = [(pairs[(before, c)] + 20 * share[c]) / (seen + 20) for c in Text.ORDER]
        lines.append("".join("%02x" % min(255, round(-4 * math.log2(p))) for p in row) + "\n")
    lines.append("".join("%02x" % round(-4 * math.log2(share[c])) for c in Text.ORDER) + "\n")
    path = os.path.join(os.path.dirname(os.path.abspath(__file__)), "text_bigrams.txt")
    with open(path, "w", encoding="ascii", newline="\n") as file:
        file.writelines(lines)


if __name__ == "__main__":
    main()
