"""A protected site as a visitor meets it: what passes, what is stopped, and with which page."""
import http.server
import json
import re
import tempfile
import pathlib
import threading
import unittest

import at_url
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
                    for check in ("upload", "webshell", "file_inclusion", "badcode"):
                        self.assertEqual(expected == check, decision["check"] == check, decision)
                    note = re.search(rb"Remark: (.*?)<br>", page)[1].decode()
                    self.assertEqual(decision["item"], note)

    def test_every_case_at_a_url(self):
        self.assertEqual(at_url.main(f"127.0.0.1:{self.host.port}"), 0)

    def test_one_event_for_each_blocked_request(self):
        # The marker goes into the path: it is in the event's URL and in no other request.
        before = self.installation.log.read_bytes().count(b"/one-event") if self.installation.log.exists() else 0
        self.assertEqual(before, 0)
        for _ in range(3):
            self.assertEqual(self.host.get("/one-event?id=1+union+select+1,2+from+users")[0], 403)
        self.host.get("/one-event?id=1")
        wait_until(self.installation.log.exists, 5, "the log")
        events = [json.loads(line) for line in self.installation.log.read_text("utf-8").splitlines()]
        self.assertRegex(events[0].get("version", ""), r"^\d+\.\d+\.\d+$")
        ours = [event for event in events if "/one-event" in event.get("url", "")]
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


class Responses(unittest.TestCase):
    PAGE = b"<!DOCTYPE html><title>Shop</title><form><input name=q></form><p>Rename, upload or print.</p>\n"
    PANEL = (b"<title>FilesMan</title> Uname: Linux web 5.10 User: 33 Safe mode: OFF<form action='?' method=post>"
             b"<input type='hidden' name=c><input type=file name=f><textarea name=x></textarea></form> drwxr-xr-x "
             b"Rename Chmod Symlink Back connect Bruteforce")
    LARGE = PAGE * (3_000_000 // len(PAGE))

    def test_a_consoles_page_is_replaced_and_ordinary_pages_pass_whole(self):
        installation = Installation()
        self.addCleanup(installation.remove)
        pages = {"page.html": self.PAGE, "large.html": self.LARGE, "panel.html": self.PANEL}
        with site() as root:
            for name, page in pages.items():
                (root / name).write_bytes(page)
            with Host(installation, root=root) as host:
                self.assertEqual(host.get("/page.html")[::2], (200, self.PAGE))
                self.assertEqual(host.get("/large.html")[::2], (200, self.LARGE))
                status, _, page = host.get("/panel.html")
                self.assertEqual((status, b"Access denied" in page, b"FilesMan" in page), (403, True, False))
            installation.edit({"website_base": {"trojan_webout": "0"}})
            with Host(installation, root=root) as host:
                self.assertEqual(host.get("/panel.html")[::2], (200, self.PANEL))

    def test_a_page_in_pieces_passes_whole(self):
        class Pieces(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_GET(self):
                self.send_response(200)
                self.send_header("Content-Type", "text/html")
                self.send_header("Transfer-Encoding", "chunked")
                self.end_headers()
                for at in range(0, len(Responses.LARGE), 70_001):
                    piece = Responses.LARGE[at:at + 70_001]
                    self.wfile.write(b"%x\r\n%s\r\n" % (len(piece), piece))
                self.wfile.write(b"0\r\n\r\n")

            def log_message(self, *_):
                pass

        installation = Installation()
        self.addCleanup(installation.remove)
        with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Pieces) as upstream:
            threading.Thread(target=upstream.serve_forever, daemon=True).start()
            with Host(installation, upstream=upstream.server_port) as host:
                self.assertEqual(host.get("/")[::2], (200, self.LARGE))
            upstream.shutdown()


class Pages(unittest.TestCase):
    def test_a_visitor_quotes_the_number_under_which_the_operator_finds_the_event(self):
        for language, words in (("en-US", "This request was blocked"), ("zh-CN", "本次访问已被拦截")):
            for profile in ("default", "strict"):
                with self.subTest(language=language, profile=profile):
                    self.check_page(Installation(language=language, profile=profile, shipped_page=True), words, language)

    def check_page(self, installation, words, language):
        self.addCleanup(installation.remove)
        with site() as root, Host(installation, root=root) as host:
            status, headers, page = host.get("/?id=1+union+select+1,2+from+users")
        self.assertEqual(status, 403)
        charset = re.fullmatch("text/html; charset=(.*)", headers["content-type"][0])[1]
        text = page.decode(charset)
        self.assertIn(f'<meta charset="{charset}">', text)
        self.assertIn(f'lang="{language}"', text)
        self.assertIn(words, text)
        for detail in ("union", "SQL", "127.0.0.1", "{{"):
            self.assertNotIn(detail, text)
        number = re.search("<code>([0-9a-f]{16})</code>", text)[1]
        self.assertEqual(headers["x-qiv-event"], [number])
        shown = run("qivctl", "event", number, "--config", native(installation.directory), "--json").stdout
        self.assertIn("union", json.loads(shown)["url"])


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
