"""A protected site as a visitor meets it: what passes, what is stopped, and with which page."""
import json
import re
import tempfile
import pathlib
import unittest

import cases
from harness import Host, Installation, native, run, site, wait_until

ITEM = {"sql": "SQL Injection Protection", "xss": "XSS Injection Protection"}


class Protection(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.installation = Installation(language="en-US")
        cls.site = site()
        cls.host = Host(cls.installation, root=cls.site.__enter__())

    @classmethod
    def tearDownClass(cls):
        cls.host.stop()
        cls.site.__exit__(None, None, None)
        cls.installation.remove()

    def test_every_case_over_the_socket_and_offline(self):
        all_cases = cases.load()
        with tempfile.TemporaryDirectory() as folder:
            files = []
            for name, _, raw in all_cases:
                files.append(pathlib.Path(folder) / f"{name}.http")
                files[-1].write_bytes(raw)
            offline = run("qivctl", "check", "--config", native(self.installation.directory), "--json",
                          *map(native, files), check=False)
        self.assertEqual(offline.returncode, 1, offline.stderr)
        decisions = [json.loads(line) for line in offline.stdout.splitlines()]
        self.assertEqual(len(decisions), len(all_cases))
        for (name, expected, raw), decision in zip(all_cases, decisions):
            with self.subTest(name):
                status, page = self.host.raw(raw)
                blocked = status == 403 and b"Access denied" in page
                self.assertEqual(blocked, expected != "pass", (status, page[:300]))
                self.assertEqual(decision["decision"] == "blocked", blocked, decision)
                if blocked and expected.startswith("sql"):
                    place = {"get": "GET", "post": "POST", "header": "Header"}[expected.split("-")[1]]
                    self.assertIn(f"{ITEM['sql']}({place})".encode(), page)
                if blocked:
                    for check in ("upload", "webshell"):
                        self.assertEqual(expected == check, decision["check"] == check, decision)
                    note = re.search(rb"Remark: (.*?)<br>", page)[1].decode()
                    self.assertEqual(decision["item"], note)

    def test_one_event_for_each_blocked_request(self):
        # The marker goes into the path: it is in the event's URL and in no other request.
        before = self.installation.log.read_bytes().count(b"/one-event") if self.installation.log.exists() else 0
        self.assertEqual(before, 0)
        for _ in range(3):
            self.assertEqual(self.host.get("/one-event?id=1+union+select+1,2+from+users")[0], 403)
        self.host.get("/one-event?id=1")
        wait_until(self.installation.log.exists, 5, "the log")
        events = [json.loads(line) for line in self.installation.log.read_text("utf-8").splitlines()]
        ours = [event for event in events if "/one-event" in event["url"]]
        self.assertEqual(len(ours), 3)
        self.assertEqual(ours[0]["item"], "SQL Injection Protection(GET)")
        self.assertEqual(ours[0]["client"], "127.0.0.1")

    def test_nothing_of_a_request_reaches_a_page_as_markup(self):
        markup = "%3Cb%3E%22'%3E%3Ci%3E&{{ip}}{{url}}%E4%3Cu%3E"
        for headers in ({}, {"X-Forwarded-For": "<s>'\"{{detail}}"}, {"User-Agent": "<s>\x81' union select 1,2 from t"}):
            status, _, page = self.host.get(f"/{markup}?{markup}=1+union+select+1,2+from+users{markup}", headers)
            self.assertEqual(status, 403)
            for tag in (b"<b>", b"<i>", b"<u>", b"<s>"):
                self.assertNotIn(tag, page.lower())
            self.assertNotIn(b"{{", page)

    def test_server_banner_is_hidden_and_responses_hardened(self):
        _, headers, _ = self.host.get("/")
        self.assertNotIn("x-powered-by", headers)


class Languages(unittest.TestCase):
    def test_chinese_page(self):
        installation = Installation(language="zh-CN")
        self.addCleanup(installation.remove)
        with site() as root, Host(installation, root=root) as host:
            status, headers, page = host.get("/?id=1+union+select+1,2+from+users")
        self.assertEqual(status, 403)
        self.assertIn("utf-8", headers["content-type"][0].lower())
        text = page.decode("utf-8")
        self.assertIn("安全提示：当前访问被拒绝", text)
        self.assertIn("SQL防注入（GET）", text)

    def test_without_configuration_everything_passes(self):
        installation = Installation(configured=False)
        self.addCleanup(installation.remove)
        with site() as root, Host(installation, root=root) as host:
            for name, _, raw in cases.load():
                with self.subTest(name):
                    self.assertNotIn(b"Access denied", host.raw(raw)[1])


if __name__ == "__main__":
    unittest.main(verbosity=1)
