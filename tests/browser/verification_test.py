#!/usr/bin/env python3
"""The verification pages and the password form in Chromium, as a person uses them; pictures go to build/pages/.
QIV_E2E_BIN names the programs."""
import json
import os
import pathlib
import sys
import time
import unittest
import urllib.parse

ROOT = pathlib.Path(__file__).resolve().parents[2]
os.environ.setdefault("QIV_E2E_BIN", str(ROOT / "build/bin"))
sys.path[:0] = [str(ROOT / "tests/e2e"), str(ROOT / "tests/browser")]
import harness
from chromium import BROWSER, Chromium

PICTURES = ROOT / "build/pages"
LANGUAGES = {"en-US": "One moment, please", "zh-CN": "请稍候"}
OPEN = "Harbour Books"
# What each picture is for, as a person knows it.
MEANINGS = {
    "house": ("where people live", "房子", "人们居住的地方"), "tree": ("what has roots and leaves", "树", "有根有叶的植物"),
    "sun": ("what shines by day", "太阳", "白天在天上发光的东西"),
    "moon": ("what shines in the sky at night", "月亮", "夜晚在天上发光的东西"),
    "car": ("what drives on a road", "汽车", "在马路上行驶的东西"), "fish": ("what lives in water", "鱼", "生活在水里的动物"),
    "key": ("what opens a lock", "钥匙", "用来开锁的东西"), "cup": ("what one drinks from", "杯子", "用来喝水的东西"),
    "umbrella": ("what keeps the rain off", "雨伞", "用来挡雨的东西"), "book": ("what one reads", "书", "用来阅读的东西"),
    "clock": ("what tells the time", "时钟", "用来看时间的东西"), "boat": ("what sails on the sea", "帆船", "在海上航行的东西"),
}


def picture_label(riddle):
    for english, (meaning, chinese, chinese_meaning) in MEANINGS.items():
        if riddle == meaning:
            return english
        if riddle == chinese_meaning:
            return chinese
    raise AssertionError(f"no picture is {riddle!r}")


class Verification(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.browser = Chromium().__enter__()

    @classmethod
    def tearDownClass(cls):
        cls.browser.__exit__()

    def installation(self, language, kind):
        made = harness.Installation(language=language)
        made.edit({"website_attack": {"cc": "1", "cc_lock_freq": "2", "cc_lock_freq_sec": "3600", "cc_lock_time": "10",
                                      "cc_file_type": "html", "cc_verify_type": kind}})
        self.addCleanup(made.remove)
        return made

    def flooded(self, host):
        address = f"http://127.0.0.1:{host.port}/products.html?category=sea"
        for _ in range(4):
            with host.connect() as client:
                client.send(f"GET {address[address.index('/', 8):]} HTTP/1.1\r\nHost: localhost\r\n\r\n")
                client.response()
        self.browser.call("Network.clearBrowserCookies")
        self.browser.open(address)
        return address

    def pictures(self, name):
        for width, height in ((1280, 800), (390, 844)):
            for dark in (False, True):
                self.browser.picture(PICTURES / f"{name}-{width}-{'dark' if dark else 'light'}.png", width, height, dark)

    def act(self, kind, keyboard):
        browser = self.browser
        if kind == "select":
            riddle = browser.value("document.querySelector('#q b').innerText")
            label = picture_label(riddle)
            index = browser.value("[...document.querySelectorAll('.g button')].map(b => b.getAttribute('aria-label'))").index(label)
            if keyboard:
                browser.press(*["Tab"] * (index + 1), "Enter")
            else:
                browser.click(f".g button:nth-child({index + 1})")
        elif kind == "slide":
            if keyboard:
                browser.press("Tab", "End")
            else:
                browser.drag("input[type=range]")
        elif kind == "click":
            browser.press("Tab", "Enter") if keyboard else browser.click("button")

    def test_each_page_opens_for_a_person_and_stays_closed_without(self):
        for language, title in LANGUAGES.items():
            for kind in ("jump", "click", "slide", "select", "cookie"):
                for keyboard in (False, True) if kind not in ("jump", "cookie") else (False,):
                    with self.subTest(kind=kind, language=language, keyboard=keyboard):
                        self.check(language, title, kind, keyboard)

    def check(self, language, title, kind, keyboard):
        installation = self.installation(language, kind)
        with harness.Host(installation, root=ROOT / "docs/demo-site") as host:
            address = self.flooded(host)
            if kind != "cookie":
                self.assertIn(title, self.browser.text())
                if not keyboard:
                    self.pictures(f"verify-{kind}-{language}")
            if kind in ("click", "slide", "select"):
                time.sleep(1)
                self.assertIn(title, self.browser.text(), "it opened without an action")
            self.act(kind, keyboard)
            self.browser.wait(f"document.body && document.body.innerText.includes({json.dumps(OPEN)})", 20)
            self.assertEqual(self.browser.value("location.href"), address)

    def test_a_browser_that_refuses_cookies_is_told_and_does_not_loop(self):
        installation = self.installation("en-US", "cookie")
        with harness.Host(installation, root=ROOT / "docs/demo-site") as host:
            refusal = self.browser.call("Page.addScriptToEvaluateOnNewDocument",
                                        source="Object.defineProperty(document, 'cookie', {get: () => '', set: () => {}})")
            self.addCleanup(self.browser.call, "Page.removeScriptToEvaluateOnNewDocument", **refusal)
            self.flooded(host)
            self.browser.wait("document.body.innerText.includes('refuses cookies')", 10)
            self.browser.picture(PICTURES / "verify-cookie-refused-390-dark.png", 390, 844, True)

    def test_the_password_opens_a_blocked_page(self):
        for language in LANGUAGES:
            installation = harness.Installation(language=language, shipped_page=True)
            self.addCleanup(installation.remove)
            installation.edit({"website_response": {"passwd": "1", "passwd_key": "open sesame"}})
            with self.subTest(language=language), harness.Host(installation, root=ROOT / "docs/demo-site") as host:
                self.browser.call("Network.clearBrowserCookies")
                self.browser.open(f"http://127.0.0.1:{host.port}/products.html?category="
                                  + urllib.parse.quote("1' union select 1,2,3--"))
                self.browser.wait("!!document.querySelector('input[type=password]')")
                self.pictures(f"password-{language}")
                self.browser.click("input[type=password]")
                self.browser.press(*"open sesame", "Enter")
                self.browser.wait(f"document.body && document.body.innerText.includes({json.dumps(OPEN)})", 20)


if __name__ == "__main__":
    if not BROWSER:
        sys.exit("no Chromium: cmake/install-packages.sh browser")
    unittest.main()
