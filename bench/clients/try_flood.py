#!/usr/bin/env python3
"""One client floods a site at full speed (wrk) while another goes on asking: what the flood is answered with, and how much of
its throughput the other keeps.

Needs wrk and build/bin of the release preset (./run.sh --build-only). Everything listens on 127.0.0.1 and ends with the run, some
20 seconds. The two clients are 127.0.0.1 (the flood) and 127.0.0.2. Exit code 0: the flood was answered within a period, and the other
kept at least 0.8 of its throughput; 1: not; 2: the run proves nothing."""
import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
os.environ.setdefault("QIV_E2E_BIN", str(ROOT / "build/bin"))
sys.path.insert(0, str(ROOT / "tests/e2e"))
import harness

LIMIT, PERIOD = 2000, 5
PACE = 0.004  # seconds between two requests of the other client: below the limit, and far below what the site can do


def asker(port, seconds, source="127.0.0.2"):
    """Requests a second that a client gets answered with 200 that asks at a steady pace, and its slowest answer in ms."""
    code = f"""
import http.client, time
client = http.client.HTTPConnection("127.0.0.1", {port}, timeout=30, source_address=("{source}", 0))
end, answered, slowest, due = time.monotonic() + {seconds}, 0, 0.0, time.monotonic()
begin = due
while time.monotonic() < end:
    due = max(due + {PACE}, time.monotonic() - {PACE})
    time.sleep(max(0, due - time.monotonic()))
    asked = time.monotonic()
    client.request("GET", "/page.html")
    answer = client.getresponse()
    answer.read()
    answered += answer.status == 200
    slowest = max(slowest, time.monotonic() - asked)
print(answered / (time.monotonic() - begin), slowest * 1000)
"""
    return subprocess.Popen([sys.executable, "-c", code], stdout=subprocess.PIPE, text=True)


def result_of(process):
    rate, slowest = process.communicate(timeout=120)[0].split()
    return float(rate), float(slowest)


def flood(port, seconds, connections):
    return subprocess.Popen(["wrk", "-t1", f"-c{connections}", f"-d{seconds}s", f"http://127.0.0.1:{port}/page.html"],
                            stdout=subprocess.PIPE, text=True)


def counts(wrk):
    text = wrk.communicate(timeout=120)[0]
    total = int(re.search(r"(\d+) requests in", text)[1])
    refused = re.search(r"Non-2xx or 3xx responses: (\d+)", text)
    return total, int(refused[1]) if refused else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--seconds", type=int, default=6, help="of each part")
    parser.add_argument("--connections", type=int, default=16)
    parser.add_argument("--strict", action="store_true", help="lock instead of showing verification pages")
    options = parser.parse_args()
    if not shutil.which("wrk"):
        print("try_flood.py: wrk is missing: cmake/install-packages.sh clients", file=sys.stderr)
        return 2
    folder = pathlib.Path(tempfile.mkdtemp(prefix="qiv-flood-"))
    installation = harness.Installation(language="en-US")
    try:
        (folder / "page.html").write_text("<html><body>" + "a page " * 300 + "</body></html>")
        installation.edit({"website_attack": {
            "cc": "1", "cc_lock_freq": str(LIMIT), "cc_lock_freq_sec": str(PERIOD), "cc_lock_time": "1", "cc_file_type": "html",
            "cc_verify_type": "click", "cc_strict_mode": "1" if options.strict else "0"}})
        with harness.Host(installation, root=folder, extra=("--quiet",)) as host:
            alone, alone_slowest = result_of(asker(host.port, options.seconds))
            wrk = flood(host.port, options.seconds + 1, options.connections)
            time.sleep(0.5)
            beside, beside_slowest = result_of(asker(host.port, options.seconds))
            total, refused = counts(wrk)
    finally:
        installation.remove()
        shutil.rmtree(folder, ignore_errors=True)
    passed = total - refused
    print(f"flood: {total} requests in {options.seconds + 1} s, {passed} answered with the page, {refused} held off")
    print(f"other client: {alone:.0f} requests a second alone (slowest {alone_slowest:.0f} ms), {beside:.0f} during the flood "
          f"(slowest {beside_slowest:.0f} ms): {beside / max(alone, 1):.2f} of its throughput")
    if total < 5 * LIMIT or alone < 50:
        return 2
    return 0 if passed <= 2 * LIMIT and beside >= 0.8 * alone else 1


if __name__ == "__main__":
    sys.exit(main())
