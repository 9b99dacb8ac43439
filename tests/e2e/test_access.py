"""The access protections over a socket: what each stops, its neighbours that pass, and the way through."""
import html
import json
import pathlib
import re
import time
import unittest
import urllib.parse

from harness import Host, Installation, native, run, site

COMMON = {
    "website_attack": {
        "overflow": "1", "overflow_url_maxlen": "500", "overflow_httpheader_maxlen": "3000", "overflow_post_maxsize": "4",
        "overflow_httpheader_rule": "1", "overflow_httpheader_rules": "Accept:100|nonsense", "spider": "1",
        "spider_strict_mode": "1", "spider_deny_spiders": "badbot", "agent": "1"},
    "website_base": {"xforwardedfor": "1", "url": "1", "url_short_filename": "1", "url_bad_filename": "1",
                     "url_script_parserr": "1", "url_dir_list": "1"},
    "website_request": {"type": "1", "types": "get,post,head"},
    "website_protect": {
        "static": "1", "static_urls": "/images/", "static_log": "1", "admin": "1", "admin_urls": "/manage/",
        "admin_white_urls": "/manage/public/", "admin_ips": "203.0.113.0/24", "timelimit": "1",
        "timelimit_limit_urls": "/closed/|/open/", "timelimit_auth_times": "25:00-26:00", "link": "1",
        "link_file_types": "jpg", "link_white_referers": "friend.example|http://near.example|http://part.example/x", "type": "1", "type_file_types": "ini"},
}
# name, what the item must say (None: it passes), request line's method and target, headers, body
REQUESTS = [
    ("plain", None, "GET", "/", {}),
    ("long-url", "Overflow", "GET", "/?" + "x" * 600, {}),
    ("long-headers", "Overflow", "GET", "/", {"Cookie": "a=" + "x" * 3000}),
    ("long-header", "Overflow", "GET", "/", {"Accept": "x" * 101}),
    ("ordinary-header", None, "GET", "/", {"Accept": "x" * 100}),
    ("long-body", "Overflow", "POST", "/", {"Content-Type": "text/plain", "body": "x" * 5000}),
    ("denied-spider", "Spider", "GET", "/", {"User-Agent": "Mozilla/5.0 (BadBot/1.0)"}),
    ("fake-spider", "Spider", "GET", "/", {"User-Agent": "Mozilla/5.0 (compatible; Googlebot/2.1)"}),
    ("other-spider", None, "GET", "/", {"User-Agent": "Mozilla/5.0 (compatible; Yandex/3.0)"}),
    ("proxy", "Proxy", "GET", "/", {"Via": "1.1 somewhere"}),
    ("forged", "URL", "GET", "/", {"X-Forwarded-For": "<b>"}),
    ("method", "Method", "PROPFIND", "/", {}),
    ("traversal", "URL", "GET", "/a/..%255c..%255cb", {}),
    ("sensitive", "URL", "GET", "/.git/config", {}),
    ("script-in-static", "Static", "GET", "/images/x.asp", {}),
    ("script-in-static-spelt", "Static", "GET", "/a/..//IMAGES%2fx.php/y.jpg", {}),
    ("static", None, "GET", "/images/x.png", {}),
    ("admin", "Administration", "GET", "/MANAGE/index.html", {}),
    ("admin-absolute", "Administration", "GET", "http://localhost/manage/", {}),
    ("admin-white", None, "GET", "/manage/public/x.css", {}),
    ("admin-white-left", "URL Protection", "GET", "/manage/public/..%2fx", {}),
    ("closed", "Time", "GET", "/closed/x", {}),
    ("linked", "Hotlink", "GET", "/a.jpg", {"Referer": "http://evil.example/?friend.example"}),
    ("linked-friend", None, "GET", "/a.jpg", {"Referer": "http://www.friend.example/x"}),
    ("linked-near", None, "GET", "/a.jpg", {"Referer": "https://near.example/"}),
    ("linked-alike", "Hotlink", "GET", "/a.jpg", {"Referer": "http://near.example.evil.example/"}),
    ("linked-part", None, "GET", "/a.jpg", {"Referer": "http://part.example/xy"}),
    ("linked-other-part", "Hotlink", "GET", "/a.jpg", {"Referer": "http://part.example/"}),
    ("linked-self", None, "GET", "/a.jpg", {"Referer": "http://localhost/x"}),
    ("linked-none", "Hotlink", "GET", "/a.jpg", {}),
    ("type", "File Type", "GET", "/x/desktop.INI", {}),
]


def raw(method, target, headers):
    headers = dict(headers)
    body = headers.pop("body", "")
    lines = [f"{method} {target} HTTP/1.1", "Host: localhost", *(f"{k}: {v}" for k, v in headers.items())]
    if body:
        lines.append(f"Content-Length: {len(body)}")
    return ("\r\n".join(lines) + "\r\n\r\n" + body).encode("latin-1")


class Access(unittest.TestCase):
    def setUp(self):
        self.installation = Installation(language="en-US")
        self.site = site()
        self.root = self.site.__enter__()

    def tearDown(self):
        self.site.__exit__(None, None, None)
        self.installation.remove()

    def use(self, changes):
        settings = json.loads(self.installation.settings.read_text("utf-8"))
        for section, members in changes.items():
            settings.setdefault(section, {}).update(members)
        settings["ip_sets"] = {"website_attack_all_spiders_ips": "192.0.2.0/24",
                               "website_attack_spiders_all_keys": "googlebot"}
        self.installation.settings.write_text(json.dumps(settings), "utf-8")
        self.installation.pack()

    def fetch(self, host, method, target, **headers):
        with host.connect() as client:
            client.send(raw(method, target, {k.replace("_", "-"): v for k, v in headers.items()}))
            return client.response(head=method == "HEAD")

    def test_each_protection_and_its_neighbours(self):
        self.use(COMMON)
        with Host(self.installation, root=self.root) as host:
            for name, item, method, target, headers in REQUESTS:
                with self.subTest(name):
                    with host.connect() as client:
                        client.send(raw(method, target, headers))
                        response = client.response()
                    found = re.search(rb"Remark: (.*?)<br>", response.body)
                    if item is None:
                        self.assertIsNone(found, response.body)
                    else:
                        self.assertEqual(response.status, 403)
                        self.assertIn(item, found[1].decode() if found else "")
        # What could not be read was told.
        log = self.installation.log.read_text("utf-8")
        self.assertIn("25:00-26:00", log)
        self.assertIn("nonsense", log)
        # The same requests with everything off.
        self.use({section: {key: "0" for key in keys if not key.endswith("s") and keys[key] == "1"}
                  for section, keys in COMMON.items()})
        self.use({"website_request": {"file": "0"}})
        with Host(self.installation, root=self.root) as host:
            for name, _, method, target, headers in REQUESTS:
                with self.subTest(name + "-off"), host.connect() as client:
                    client.send(raw(method, target, headers))
                    self.assertNotIn(b"Remark: ", client.response().body)

    def test_ordinary_urls_pass_the_strict_profile(self):
        strict = Installation(language="en-US", profile="strict")
        self.addCleanup(strict.remove)
        strict.edit({"website_attack": {"cc": "0"}})  # all of them come from one client within a moment
        cases = (pathlib.Path(__file__).parents[1] / "checks/url_cases.txt").read_text("utf-8").splitlines()
        urls = [line.split("\t")[1] for line in cases if line.startswith("none\t")]
        self.assertGreater(len(urls), 500)
        frames = [b"GET %s HTTP/1.1\r\nHost: localhost\r\nUser-Agent: x\r\n\r\n" % url.encode() for url in urls]
        answers = run("qivctl", "check", "--config", native(strict.directory), "--batch", check=False,
                      input=b"".join(b"%%%% %d\n%s\n" % (len(frame), frame) for frame in frames))
        decisions = answers.stdout.decode("utf-8").splitlines()
        self.assertEqual(len(decisions), len(urls), answers.stderr)
        # The server itself refuses some that are not in UTF-8.
        self.assertEqual([pair for pair in zip(urls, decisions) if not pair[1].startswith(("pass", "refused"))], [])
        self.assertLess(sum(decision.startswith("refused") for decision in decisions), 5)

    def flood(self, host, **headers):
        """Asks until a page comes; at most four times."""
        for _ in range(4):
            response = self.fetch(host, "GET", "/a.asp?x=1", **headers)
        return response

    def answer(self, page, answer):
        fields = dict(re.findall(r'name="(qivcctag|qivto)" value="(.*?)"', page))
        query = {name: html.unescape(value) for name, value in fields.items()}
        if answer is not None:
            query["qivanswer"] = answer
        return "/a.asp?" + urllib.parse.urlencode(query)

    def test_verification_opens_for_who_answers(self):
        cases = {"click": None, "slide": "100", "select": "each", "jump": "wait", "cookie": "cookie"}
        for kind, right in cases.items():
            with self.subTest(kind):
                self.use({"website_attack": {"cc": "1", "cc_lock_freq": "3", "cc_lock_time": "10",
                                             "cc_lock_freq_sec": "3600", "cc_verify_type": kind}})
                with Host(self.installation, root=self.root) as host:
                    blocked = self.flood(host)
                    page = blocked.body.decode()
                    self.assertIn("One moment, please", page)
                    self.assertIn("nonce-", blocked.header("Content-Security-Policy"))
                    self.assertIsNone(blocked.header("X-Qiv-Event"))
                    # A forged token, and none.
                    forged = self.answer(page, right).replace("qivcctag=0", "qivcctag=1")
                    self.assertEqual(self.fetch(host, "GET", forged).status, 403)
                    self.assertIn("was not passed on", self.fetch(host, "POST", "/a.asp", body="x=1").body.decode())
                    if right == "cookie":
                        token = re.search(r'name="qivcctag" value="(.*?)"', page)[1]
                        passed = self.fetch(host, "GET", "/a.asp?x=1", Cookie=f"qivcctag={token}")
                    elif right == "each":
                        tries = [self.fetch(host, "GET", self.answer(page, str(i))) for i in range(6)]
                        self.assertEqual(sum(t.status == 302 for t in tries), 1)
                        passed = next(t for t in tries if t.status == 302)
                    else:
                        if right == "wait":
                            self.assertEqual(self.fetch(host, "GET", self.answer(page, None)).status, 403)
                            time.sleep(3)
                        passed = self.fetch(host, "GET", self.answer(page, None if right == "wait" else right))
                    self.assertEqual(passed.status, 302, passed.body)
                    self.assertEqual(passed.header("Location"), "/a.asp?x=1")
                    cookie = passed.header("Set-Cookie").split(";")[0]
                    for _ in range(6):
                        self.assertNotEqual(self.fetch(host, "GET", "/a.asp?x=1", Cookie=cookie).status, 403)
                    self.assertNotEqual(self.fetch(host, "GET", "/a.css").status, 403)
                    # The cookie alone stops helping at ten times the limit.
                    codes = [self.fetch(host, "GET", "/a.asp", Cookie=cookie).status for _ in range(40)]
                    self.assertEqual(codes[-1], 403)
        log = [json.loads(line) for line in self.installation.log.read_text("utf-8").splitlines()]
        self.assertFalse([event for event in log if event.get("check") == "flood"], "a line for each page")
        self.assertTrue([event for event in log if "clients 1" in json.dumps(event)])

    def test_strict_flood_and_404_scans_lock(self):
        self.use({"website_attack": {"cc": "1", "cc_lock_freq": "20", "cc_lock_time": "10", "cc_strict_mode": "1",
                                     "e404": "1", "e404_lock_freq": "5", "e404_lock_time": "10"}})
        with Host(self.installation, root=self.root) as host:
            codes = [self.fetch(host, "GET", "/index.asp").status for _ in range(25)]
            self.assertEqual([code == 403 for code in codes], [False] * 20 + [True] * 5)
        out = self.installation.directory / "config" / "_out.log"
        lines = self.decrypted(out)
        self.assertEqual(len([line for line in lines if line.startswith("denylist") and "Too many requests\t" in line]), 1, lines)
        self.assertEqual(len([line for line in lines if "what is not there" in line]), 1, lines)

    def decrypted(self, path):
        from harness import command
        import subprocess
        result = subprocess.run(command("qivctl", "decrypt"), input=path.read_bytes(), capture_output=True, timeout=60)
        return result.stdout.decode("gbk", "replace").splitlines()

    def test_password_lets_a_blocked_visitor_pass(self):
        self.use({"website_response": {"passwd": "1", "passwd_key": "open sesame"}})
        target = "/?id=1%27+union+select+1,2,3--"
        def form(password, address="127.0.0.1"):
            return {"Content_Type": "application/x-www-form-urlencoded",
                    "body": urllib.parse.urlencode({"secretrkey" + address: password, "Submit": "Submit"})}
        with Host(self.installation, root=self.root) as host:
            self.assertIn(b"secretrkey127.0.0.1", self.fetch(host, "GET", target).body)
            self.assertEqual(self.fetch(host, "POST", target, **form("wrong")).status, 403)
            self.assertEqual(self.fetch(host, "POST", target, **form("open sesame", "10.0.0.9")).status, 403)
            opened = self.fetch(host, "POST", target, **form("open sesame"))
            self.assertEqual((opened.status, opened.header("Location")), (302, target))
            self.assertEqual(self.fetch(host, "POST", "/index.html", **form("open sesame")).status, 302, "the site got it")
            cookie = opened.header("Set-Cookie").split(";")[0]
            self.assertTrue(cookie.startswith("qivrd="))
            self.assertNotEqual(self.fetch(host, "GET", target, Cookie=cookie).status, 403)
            self.assertEqual(self.fetch(host, "GET", target, Cookie=cookie[:-1]).status, 403)
            self.assertEqual(self.fetch(host, "GET", target).status, 403)
            for _ in range(5):
                self.assertEqual(self.fetch(host, "POST", "/", **form("guess")).status, 403)
        lines = self.decrypted(self.installation.directory / "config" / "_out.log")
        self.assertEqual(len([line for line in lines if line.startswith("authlist\tadd\tIIS\t127.0.0.1")]), 2, lines)
        self.assertTrue([line for line in lines if line.startswith("denylist") and "too often" in line], lines)
        text = self.installation.log.read_text("utf-8")
        self.assertNotIn("sesame", text + "\n".join(lines))
        self.assertNotIn("guess", text + "\n".join(lines))


if __name__ == "__main__":
    unittest.main()
