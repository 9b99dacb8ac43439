#!/usr/bin/env python3
"""Starts ./run.sh as a person would and tries the requests it prints, word for word: first in English, then in Chinese."""
import pathlib
import re
import signal
import socket
import subprocess
import threading
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
START_SECONDS = 600  # it may have to build first


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def heed_interrupts():
    """What was started in the background of a script ignores SIGINT, and so would its children."""
    signal.signal(signal.SIGINT, signal.SIG_DFL)


class Demo:
    """A running ./run.sh; what it printed up to "Ctrl-C stops it." is in `text`."""

    def __init__(self, *options, folder=ROOT):
        self.port = free_port()
        self.process = subprocess.Popen([str(ROOT / "run.sh"), "--port", str(self.port), *options], cwd=folder,
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, start_new_session=True,
                                        preexec_fn=heed_interrupts)
        timer = threading.Timer(START_SECONDS, self.process.kill)
        timer.start()
        self.text = ""
        for line in self.process.stdout:
            self.text += line
            if line.startswith("Ctrl-C"):
                break
        timer.cancel()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGINT)
        self.process.communicate(timeout=30)

    def requests(self):
        """The printed requests: (what should happen, curl line)."""
        return re.findall(r"^  (passes|blocked)\s+(curl .*)$", self.text, re.M)


def answer(curl_line):
    """Status line and body of a printed request."""
    result = subprocess.run(["bash", "-c", curl_line + " -sS --max-time 30"], capture_output=True, check=True)
    head, _, body = result.stdout.partition(b"\r\n\r\n")
    return int(head.split(b" ", 2)[1]), head.decode("latin-1"), body


class RunScript(unittest.TestCase):
    def check(self, *options, words):
        with Demo(*options) as demo:
            self.assertEqual([outcome for outcome, _ in demo.requests()], ["passes", "blocked", "blocked", "blocked"], demo.text)
            for outcome, line in demo.requests():
                status, head, body = answer(line)
                charset = (re.search(r"charset=([\w-]+)", head, re.I) or [None, "utf-8"])[1]
                page = body.decode(charset)
                if outcome == "passes":
                    self.assertEqual(status, 200, line)
                    self.assertIn("Harbour Books", page, line)
                else:
                    self.assertGreaterEqual(status, 400, line)
                    self.assertNotIn("Harbour Books", page, line)
                    number = re.search(r"X-Qiv-Event: ([0-9a-f]{16})\r", head)
                    self.assertTrue(number and number[1] in page, head)
                    self.assertEqual(bool(re.search("[\u4e00-\u9fff]", page)), words == "zh", page[:500])
            log = ROOT / "build/demo/debug/_log.log"
            self.assertTrue(log.is_file(), "run.sh says that the log is there")
            port = demo.port
            service = subprocess.run(["pgrep", "-s", str(demo.process.pid), "-x", "qivctl"], capture_output=True, check=False)
            self.assertTrue(service.stdout, "the service runs beside the host")
        self.assertEqual(demo.process.returncode, 0)
        left = subprocess.run(["pgrep", "-s", str(demo.process.pid)], capture_output=True, check=False)
        self.assertEqual(left.stdout, b"", "something outlived run.sh")
        with socket.socket() as probe:
            self.assertNotEqual(probe.connect_ex(("127.0.0.1", port)), 0, "the host outlived run.sh")

    def test_english_then_chinese(self):
        self.check("--fresh", "--language", "en-US", words="en")
        marker = ROOT / "build/demo/config/_config.db"
        before = marker.stat().st_mtime_ns
        self.check(words="en")
        self.assertEqual(marker.stat().st_mtime_ns, before, "a second start keeps the configuration")
        self.check("--language", "zh-CN", words="zh")
        self.check("--language", "en-US", words="en")

    def test_a_second_one_leaves_the_first_alone(self):
        kept = [ROOT / "build/demo" / name for name in ("config/_config.db", "settings.json")]

        def works(demo):
            codes = [answer(line)[0] for _, line in demo.requests()]
            self.assertEqual([code < 400 for code in codes], [True, False, False, False], demo.text)

        def second(*options):
            return subprocess.run(["./run.sh", *options], cwd=ROOT, capture_output=True, text=True, check=False, timeout=START_SECONDS)

        with Demo(folder=ROOT / "docs") as first:
            works(first)
            host_log = ROOT / "build/demo/host.log"
            before = [(path.read_bytes(), path.stat().st_mtime_ns) for path in kept]
            said = host_log.read_text()
            taken = second("--port", str(first.port), "--fresh")
            self.assertEqual(taken.returncode, 1)
            self.assertIn(f"127.0.0.1:{first.port} already", taken.stderr)
            self.assertIn("a running demo uses", second("--port", str(free_port()), "--fresh").stderr)
            with Demo() as beside:
                works(beside)
                works(first)
            works(first)
            self.assertEqual([(path.read_bytes(), path.stat().st_mtime_ns) for path in kept], before)
            self.assertEqual(host_log.read_text()[:len(said)], said)
            # What it printed can be typed where it was started.
            lists = re.search(r"^Who is locked out: +(.*?)   ", first.text, re.M)[1]
            subprocess.run(["bash", "-c", lists], cwd=ROOT / "docs", check=True, capture_output=True)

    def test_wrong_options_are_refused(self):
        for options in (["--language", "fr"], ["--port", "x"], ["--port", "655350"], ["--port"], ["--nonsense"]):
            result = subprocess.run(["./run.sh", *options], cwd=ROOT, capture_output=True, check=False, timeout=60)
            self.assertEqual(result.returncode, 2, options)


if __name__ == "__main__":
    unittest.main()
