"""How often a rule would be found by accident, in bytes of several kinds and in ordinary text.

An upload is random bytes to a rule, and every rule is sought in all of it. So a rule is accepted only with a proof that
it stays away from there: the expected number of its accidental matches, summed over all rules of a list, has a limit.

A kind of content gives each byte a probability, after lower-casing. For "text" the probability of a byte depends on the
byte before it, by text_bigrams.txt. A word of a rule is expected n * p(word) times in n bytes; a rule of several words
with arbitrary gaps is found at most as often as the product of min(1, n * p(word)) over its words.
"""

import os

LETTERS = "abcdefghijklmnopqrstuvwxyz"
DIGITS = "0123456789"
WORD_BYTES = frozenset(LETTERS + DIGITS + "_")
KIB, MIB = 1024, 1024 * 1024
IMPOSSIBLE = 1e-12  # the probability of a byte that a kind of content does not have


def folded(alphabet):
    """Probabilities of the lower-cased bytes of equally likely bytes."""
    out = {}
    for c in alphabet:
        c = c.lower() if c.isascii() else c
        out[c] = out.get(c, 0.0) + 1.0 / len(alphabet)
    return out


class Even:
    """Independent bytes."""

    def __init__(self, alphabet):
        self.bytes = folded(alphabet)
        self.edge = sum(p for c, p in self.bytes.items() if c not in WORD_BYTES)  # beside a whole word

    def word(self, word):
        p = 1.0
        for c in word:
            p *= self.bytes.get(c, IMPOSSIBLE)
        for end in (word[0], word[-1]):
            if end in WORD_BYTES:
                p *= self.edge
        return p


class Text:
    """Bytes that depend on the byte before, as counted in ordinary texts; see measure_bigrams.py. Each line: the byte
    before, then two hexadecimal digits for each byte of ORDER, the bits of surprise in quarters."""

    ORDER = "\n\t" + "".join(map(chr, range(0x20, 0x7F))) + "\x80"  # "\x80" stands for every byte above ASCII

    def __init__(self):
        path = os.path.join(os.path.dirname(os.path.abspath(__file__)), "text_bigrams.txt")
        self.next = {}
        with open(path, encoding="ascii") as file:
            rows = [line.rstrip("\n") for line in file if not line.startswith("#")]
        for before, row in zip(self.ORDER + "?", rows):
            self.next[before] = {c: 2.0 ** (-int(row[2 * i:2 * i + 2], 16) / 4) for i, c in enumerate(self.ORDER)}
        self.alone = self.next["?"]

    def word(self, word):
        first = word[0]
        if first in WORD_BYTES:
            p = sum(p * self.next[before].get(first, IMPOSSIBLE) for before, p in self.alone.items() if before not in WORD_BYTES)
        else:
            p = self.alone.get(first, IMPOSSIBLE)
        for before, c in zip(word, word[1:]):
            p *= self.next.get(before, {}).get(c, IMPOSSIBLE)
        if word[-1] in WORD_BYTES:
            p *= sum(p for c, p in self.next[word[-1]].items() if c not in WORD_BYTES)
        return p


ANY = "".join(map(chr, range(256)))
BASE64 = LETTERS + LETTERS.upper() + DIGITS + "+/"
ASCII85 = "".join(map(chr, range(33, 118)))  # streams in PDF files
BLANK = " +\t\n\v\f\r"  # to the detector


class Budget:
    def __init__(self, name, model, size, each, total):
        self.name = name
        self.model = model
        self.size = size    # bytes
        self.each = each    # accidental matches of one rule at most
        self.all = total    # of all rules of a list together


_ANY, _BASE64, _ASCII85, _TEXT = Even(ANY), Even(BASE64), Even(ASCII85), Text()
_LINE = [
    Budget("16 KiB of random bytes", _ANY, 16 * KIB, 1e-6, 1e-4),
    Budget("2 KiB of text", _TEXT, 2 * KIB, 1e-5, 1e-3),
]
KEYWORD_BUDGETS = {
    "post": [
        Budget("100 MiB of random bytes", _ANY, 100 * MIB, 1e-5, 1e-3),
        Budget("10 MiB of base64", _BASE64, 10 * MIB, 1e-5, 1e-3),
        Budget("10 MiB of base85", _ASCII85, 10 * MIB, 5e-4, 5e-2),
        Budget("1 MiB of text", _TEXT, MIB, 1e-4, 2e-2),
    ],
    "get": _LINE,
    "header": _LINE,
}


def accidents(model, size, words):
    """The expected number of accidental matches of one rule in `size` bytes."""
    if len(words) == 1:
        return size * model.word(words[0])
    n = 1.0
    for word in words:
        n *= min(1.0, size * model.word(word))
    return n


def detector_accidents(budget, cuts, words):
    """The same for the SQL detector: a rule word with a blank after it, behind a cut word or at a parameter's start."""
    if isinstance(budget.model, Text):
        return budget.size * sum(budget.model.word(start + word + " ") for start in ["&", "="] + list(cuts) for word in words)
    blank = sum(budget.model.bytes.get(c, 0.0) for c in BLANK)
    first = sum(budget.model.bytes.get(c, 0.0) for c in "&=")

    def bare(text):
        p = 1.0
        for c in text:
            p *= budget.model.bytes.get(c, IMPOSSIBLE)
        return p

    return budget.size * (first + sum(map(bare, cuts))) * sum(map(bare, words)) * blank / (1 - blank)
