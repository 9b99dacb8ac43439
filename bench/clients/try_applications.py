#!/usr/bin/env python3
"""WordPress, phpMyAdmin, DokuWiki and a static site behind the firewall, used in Chromium as an editor and administrator would.

Needs the packages of the groups "clients", "applications" and "browser" and build/bin (./run.sh --build-only).
Prints the actions, what was stopped with check, rule and text, and whether the exemption that qivctl proposes opens it.
Exit code 0: only texts that are injections themselves were stopped, and their exemptions open them; 1: not so; 2: proves nothing."""
import argparse
import collections
import sys

import application_site
import posts
import sample_files
from guarded_site import ROOT
from visit_others import visit_dokuwiki, visit_phpmyadmin, visit_static
from visit_wordpress import visit_wordpress
from visits import Visits

sys.path.insert(0, str(ROOT / "tests/browser"))
from chromium import BROWSER, Chromium

# Seconds between two actions: a person is no flood.
PAUSE = {"default": 0, "strict": 1.0}
VISITS = {"wordpress": visit_wordpress, "phpmyadmin": visit_phpmyadmin, "dokuwiki": visit_dokuwiki, "static": visit_static}


def visit_all(profile, names, limit):
    texts = posts.posts()[:limit]
    with application_site.ApplicationSite(profile=profile) as site, Chromium() as browser:
        visits = Visits(browser, site, PAUSE[profile])
        files = sample_files.make(site.folder / "files", texts)
        for name in names:
            with visits.action("the visit to its end"):
                VISITS[name](visits, texts, files)
            tell([action for action in visits.actions if action[0] == visits.application])
            visits.exempt_attacks()
    return visits


def tell(actions):
    for application, name, events, error in actions:
        for event in events:
            print(f"STOPPED {application}: {name}: {event['check']} {event['rule'] or '-'} {event['method']} {event['url'][:90]}: {event['detail'][:300]!r}")
        if error and not events:
            print(f"FAILED  {application}: {name}: {error}", flush=True)


def report(profile, visits):
    """Whether only attacks were stopped, and their exemptions let them pass; None when nothing was stopped at all: the firewall was not
    in the way."""
    counts = collections.defaultdict(lambda: [0, 0, 0, 0, 0])
    for application, _, events, error in visits.actions:
        for column, true in enumerate((True, events, error and not events)):
            counts[application][column] += bool(true)
    for attack in visits.attacks:
        counts[attack.application][3] += bool(attack.first)
        counts[attack.application][4] += not attack.passes
        if attack.first:
            print(f"{'exempt' if attack.passes else 'CLOSED':8}{attack.application}: {attack.name}: {attack.first['check']} {attack.first['rule'] or '-'}")
            for line in attack.exemptions:
                print(f"            {line.split(' --config')[0]}")
    print(f"{profile:12}{'actions':>9}{'stopped':>9}{'failed':>9}{'injections stopped':>20}{'not opened':>12}")
    for application, (actions, stopped, failed, attacks, closed) in counts.items():
        print(f"{application:12}{actions:9}{stopped:9}{failed:9}{attacks:20}{closed:12}", flush=True)
    if not any(numbers[column] for numbers in counts.values() for column in (1, 3)):
        return None
    return not any(numbers[column] for numbers in counts.values() for column in (1, 2, 4))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--profile", choices=["default", "strict"], action="append", help="both when not given")
    parser.add_argument("--application", choices=VISITS, action="append", help="these only")
    parser.add_argument("--posts", type=int, default=None, help="so many of the posts only")
    options = parser.parse_args()
    if not BROWSER or application_site.missing():
        print("try_applications: missing: cmake/install-packages.sh clients applications browser", file=sys.stderr)
        return 2
    good = [report(profile, visit_all(profile, options.application or list(VISITS), options.posts))
            for profile in options.profile or ["default", "strict"]]
    if None in good:
        print("try_applications: nothing was stopped at all: was the firewall in the way?", file=sys.stderr)
        return 2
    return 0 if all(good) else 1


if __name__ == "__main__":
    sys.exit(main())
