#!/usr/bin/env python3
"""Writes rules/library/*.txt and rules/keywords/*.txt from the families below.

A rule word is a literal, so an attack phrase becomes two rules for bodies, which keep the "+" of a form: with blanks and
with "+". Runs of blanks and comments are one blank in the form in which values are judged as well
(engines/injection/sql_squeeze.h).

Run:   rules/generate/generate_rules.py            writes the files
       rules/generate/generate_rules.py --check    exits 1 when the files differ from what it would write
"""

import os
import sys

from budget import KEYWORD_BUDGETS, accidents, detector_accidents
from families import EVENTS, KEYWORDS, LEADING_WORDS, LIMITS, NOT_IN_BODIES, STAR

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

HEADER = "# Written by rules/generate/generate_rules.py; edit rules/generate/families.py instead.\n"

# How the blanks of a phrase may be written.
STYLES = {"plus": "+"}


def styled(text, style):
    """The words of one spelling of a phrase."""
    if style == "blank":
        pass
    else:
        text = text.replace(" ", STYLES[style])
    return [word.replace(STAR, "*") for word in text.split("*") if word]


def escape(word):
    out = []
    for i, c in enumerate(word):
        if c in "%*" or ord(c) < 0x20 or ord(c) == 0x7F or c == "\xa0" or (c == " " and i in (0, len(word) - 1)):
            out.append("%%%02X" % ord(c))
        else:
            out.append(c)
    return "".join(out)


def check_word(word, where):
    """The stored form of the built-in library has no escapes."""
    for mark in ("*", "{#}", "=="):
        if mark in word:
            sys.exit(f"generate_rules: {where}: a word may not hold {mark!r}: {word!r}")
    if not word:
        sys.exit(f"generate_rules: {where}: empty word")


def is_word(c):
    return c.isascii() and (c.isalnum() or c == "_")


def check_first(word, where):
    """The stored form drops line ends at a record's start."""
    if word[:1] in ("\r", "\n"):
        sys.exit(f"generate_rules: {where}: the first word may not begin with a line end: {word!r}")


def is_rare(place, words):
    """Whether a rule stays away from what the place ordinarily holds. A phrase that is long enough for a query may be too
    short for an upload; it is then left out of the bodies' list."""
    return all(accidents(b.model, b.size, words) <= b.each for b in KEYWORD_BUDGETS[place])


def check_sums(place, rules):
    for budget in KEYWORD_BUDGETS[place]:
        total = sum(accidents(budget.model, budget.size, words) for words in rules)
        if total > budget.all:
            sys.exit(f"generate_rules: {place}: {total:.2g} accidental matches in {budget.name}, more than {budget.all}")


def check_detector(cuts, words):
    for budget in KEYWORD_BUDGETS["post"]:
        total = detector_accidents(budget, cuts, words)
        if total > budget.all:
            sys.exit(f"generate_rules: detector: {total:.2g} accidental matches in {budget.name}, more than {budget.all}")


def implies(long, short):
    """Whether a text in which `long` is found as a whole word always has `short` as a whole word too."""
    at = long.find(short)
    while at >= 0:
        end = at + len(short)
        begins = not is_word(short[0]) or at == 0 or not is_word(long[at - 1])
        ends = not is_word(short[-1]) or end == len(long) or not is_word(long[end])
        if begins and ends:
            return True
        at = long.find(short, at + 1)
    return False


def without_implied(rules):
    """Leaves out every rule that never decides because a one-word rule is found wherever it is."""
    single = [words[0] for words, _ in rules if len(words) == 1]
    by_pair = {}
    for word in single:
        by_pair.setdefault(word[:2], []).append(word)
    kept = []
    for words, line in rules:
        heads = {word[i:i + 2] for word in words for i in range(len(word))}
        shorter = (s for head in heads for s in by_pair.get(head, ()))
        if not any(implies(word, s) for s in shorter for word in words if [s] != words):
            kept.append((words, line))
    return kept


def keyword_rules(place):
    """Lines of one keyword file. Identifiers: family number * 1000 + running number of the phrase; all spellings of a
    phrase share it."""
    if unknown := NOT_IN_BODIES - {phrase for family in KEYWORDS for phrase in family["phrases"]}:
        sys.exit(f"generate_rules: NOT_IN_BODIES: no family has {sorted(unknown)}")
    rules = []
    seen = set()
    for family in KEYWORDS:
        if place not in family["places"]:
            continue
        for number, phrase in enumerate(family["phrases"], 1):
            if place == "post" and phrase in NOT_IN_BODIES:
                continue
            shown = " ".join(word.strip() for word in phrase.split("*")).strip().rstrip("= ")
            for style in family["styles"]:
                if place == "get" and "plus" in style:
                    continue  # a query has no "+" any more
                if place == "header" and "plus" in style and "encoded" not in family["styles"]:
                    continue  # worth it for few families: the address in a Referer
                if place != "header" and style == "encoded":
                    continue  # only header values stay encoded
                spelled = styled(phrase, style)
                if tuple(spelled) in seen:
                    continue
                seen.add(tuple(spelled))
                if not is_rare(place, spelled):
                    continue
                identifier = family["number"] * 1000 + number
                line = "\t".join([str(identifier), "*".join(map(escape, spelled)), "-" if spelled == [phrase] else escape(shown.replace(STAR, "*")), family["english"],
                                        family["chinese"]])
                rules.append((spelled, line))
    rules = without_implied(rules)
    check_sums(place, [words for words, _ in rules])
    lines = [line for _, line in rules]
    if len(lines) > LIMITS["keyword_rules"]:
        sys.exit(f"generate_rules: {place}: {len(lines)} rules, more than {LIMITS['keyword_rules']}")
    return lines


def leading_word_rules():
    """Cut words and rule words of the SQL detector."""
    cuts, words = [], []
    seen_cuts, seen_words = set(), set()
    for number, entry in enumerate(LEADING_WORDS["cuts"], 1):
        if entry in seen_cuts:
            sys.exit(f"generate_rules: cut word twice: {entry!r}")
        seen_cuts.add(entry)
        check_word(entry, "cut words")
        check_first(entry, "cut words")
        cuts.append("\t".join([str(LEADING_WORDS["cut_number"] * 1000 + number), escape(entry), "-", "Cut word", "切分词"]))
    for number, (word, shown, english, chinese) in enumerate(LEADING_WORDS["words"], 1):
        if word in seen_words:
            sys.exit(f"generate_rules: rule word twice: {word!r}")
        seen_words.add(word)
        words.append("\t".join([str(LEADING_WORDS["word_number"] * 1000 + number), escape(word), shown, english, chinese]))
    check_detector(LEADING_WORDS["cuts"], [word for word, *_ in LEADING_WORDS["words"]])
    if len(cuts) > LIMITS["cut_words"]:
        sys.exit(f"generate_rules: {len(cuts)} cut words, more than {LIMITS['cut_words']}")
    return words, cuts


def event_rules():
    return ["\t".join([str(EVENTS["number"] * 1000 + i), name, "-", EVENTS["english"], EVENTS["chinese"]])
            for i, name in enumerate(EVENTS["names"], 1)]


def files():
    words, cuts = leading_word_rules()
    return {
        "library/sql_rules.txt": words,
        "library/sql_keys.txt": cuts,
        "library/xss_events.txt": event_rules(),
        "keywords/get.txt": keyword_rules("get"),
        "keywords/post.txt": keyword_rules("post"),
        "keywords/header.txt": keyword_rules("header"),
    }


def main():
    check = sys.argv[1:] == ["--check"]
    if sys.argv[1:] and not check:
        sys.exit(__doc__)
    stale = 0
    for name, lines in files().items():
        text = HEADER + "".join(line + "\n" for line in lines)
        path = os.path.join(ROOT, name)
        if check:
            try:
                with open(path, encoding="utf-8", newline="") as file:
                    same = file.read() == text
            except OSError:
                same = False
            if not same:
                print(f"generate_rules: {path} is stale")
                stale = 1
        else:
            with open(path, "w", encoding="utf-8", newline="\n") as file:
                file.write(text)
            print(f"{name}: {len(lines)}")
    sys.exit(stale)


if __name__ == "__main__":
    main()
