#!/usr/bin/env python3
"""What a person sees: block pages and the site behind the firewall in headless Chromium. QIV_E2E_BIN names the programs."""
import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
import urllib.parse

ROOT = pathlib.Path(__file__).resolve().parents[2]
os.environ.setdefault("QIV_E2E_BIN", str(ROOT / "build/bin"))
sys.path.insert(0, str(ROOT / "tests/e2e"))
sys.path.insert(0, str(ROOT / "tests/browser"))
import harness
from chromium import Chromium

BROWSER = shutil.which("chromium") or shutil.which("chromium-browser")
# A script that runs leaves this word in the document, in two pieces so that its own text does not count.
RUN_MARK = "document.documentElement.setAttribute('data-ran', 'ya'+'s')"
BROWSER_SECONDS = 60
ATTACKS = {
    "sql": "/products.html?id=" + urllib.parse.quote("1' union select name,password from users--"),
    "script": "/search.html?q=" + urllib.parse.quote(f"<script>{RUN_MARK}</script>"),
    "event": "/search.html?q=" + urllib.parse.quote(f'"><img src=x onerror="{RUN_MARK}">'),
    "path": "/" + urllib.parse.quote(f"<svg onload={RUN_MARK}>") + "?id=" + urllib.parse.quote("1' or '1'='1"),
}


class Browser:
    """Chromium with a profile of its own that leaves with the `with` block."""

    def __enter__(self):
        self.profile = tempfile.mkdtemp(prefix="qiv-browser-")
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.profile, ignore_errors=True)

    def document(self, url):
        """The document two seconds later. A page that stops its own loading never counts as loaded, hence the time."""
        # Into a file and as a group of its own: helpers of a browser that hangs would hold a pipe open.
        with tempfile.TemporaryFile() as output:
            process = subprocess.Popen(
                [BROWSER, "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-extensions",
                 "--disable-background-networking", f"--user-data-dir={self.profile}", "--timeout=2000",
                 "--dump-dom", url], stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.DEVNULL, start_new_session=True)
            try:
                process.wait(BROWSER_SECONDS)
            finally:
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(process.pid, signal.SIGKILL)
                process.wait()
            output.seek(0)
            return output.read().decode("utf-8")


class Pages(unittest.TestCase):
    def check_language(self, language, chinese):
        installation = harness.Installation(language=language, shipped_page=True)
        try:
            with harness.Host(installation, root=ROOT / "docs/demo-site") as host, Browser() as browser:
                document = browser.document(f"http://127.0.0.1:{host.port}{ATTACKS['event']}")
                self.assertRegex(document, "<code>[0-9a-f]{16}</code>")
                self.assertIn(f'<html lang="{language}">', document)
                self.assertEqual("本次访问已被拦截" in document, chinese, document)
                self.assertNotIn("\ufffd", document)
            # The page that repeats what it was asked.
            installation.edit({"website_response": {"ret_type": "2"}})
            with harness.Host(installation, root=ROOT / "docs/demo-site") as host, Browser() as browser:
                address = f"http://127.0.0.1:{host.port}"
                self.assertIn("Harbour Books", browser.document(address + "/products.html?category=sea"))
                for name, target in ATTACKS.items():
                    with self.subTest(attack=name, language=language):
                        document = browser.document(address + target)
                        self.assertNotIn("Harbour Books", document)
                        self.assertNotIn('data-ran="yas"', document, "a script of the request ran")
                        self.assertIn("127.0.0.1", document)
                        self.assertEqual(bool(re.search("[\u4e00-\u9fff]", document)), chinese, document)
                        self.assertNotIn("\ufffd", document, "bytes that the page's charset does not know")
        finally:
            installation.remove()

    def test_english(self):
        self.check_language("en-US", chinese=False)

    def test_chinese(self):
        self.check_language("zh-CN", chinese=True)


class Report(unittest.TestCase):
    def test_nothing_of_the_log_runs_and_the_filter_finds_it(self):
        with tempfile.TemporaryDirectory(prefix="qiv-report-") as folder:
            module, page = pathlib.Path(folder) / "m", pathlib.Path(folder) / "page.html"
            (module / "config").mkdir(parents=True)
            (module / "debug").mkdir()
            lines = [{"time": "2026-05-01T08:00:00.000Z", "event_id": f"{number:016x}", "client": text, "method": "GET", "url": text,
                      "check": "url" if number % 2 else "injection", "rule": text, "reason": text, "action": action}
                     for number, text in enumerate([*map(urllib.parse.unquote, ATTACKS.values()), "/fish"])
                     for action in ("block", "would block")]
            (module / "debug/_log.log").write_text("".join(json.dumps(line) + "\n" for line in lines), "utf-8")
            subprocess.run([os.environ["QIV_E2E_BIN"] + "/qivctl", "report", module, "-o", page], check=True,
                           stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
            shown = "Array.from(document.querySelectorAll('.events > li')).filter(e => e.offsetHeight > 0).length"
            with Chromium("--lang=zh-CN") as browser:
                browser.open(page.as_uri())
                browser.wait(f"{shown} === {len(lines)}")
                browser.value("document.getElementById('en').click()")
                self.assertIn("What the firewall did", browser.text())
                self.assertNotIn("防火墙报告", browser.text())
                browser.value("document.getElementById('text').focus()")
                browser.press("f", "i", "s", "h")
                browser.wait(f"{shown} === 2")
                browser.press("Tab", "Tab", "b")  # the list of actions, by keyboard
                browser.wait(f"{shown} === 1")
                self.assertEqual(browser.value("document.getElementById('shown').textContent"), f"1 / {len(lines)}")
                self.assertIsNone(browser.value("document.documentElement.getAttribute('data-ran')"))
                self.assertEqual(browser.value("document.querySelectorAll('img, script').length"), 1)
                for width in (390, 1280):
                    for dark in (False, True):
                        browser.picture(ROOT / f"build/pages/report-{width}-{'dark' if dark else 'light'}.png", width, 900, dark)
                browser.call("Emulation.setDeviceMetricsOverride", width=390, height=900, deviceScaleFactor=1, mobile=True)
                self.assertLessEqual(browser.value("document.documentElement.scrollWidth"), 390)


if __name__ == "__main__":
    if not BROWSER:
        sys.exit("no Chromium: cmake/install-packages.sh browser")
    unittest.main()
