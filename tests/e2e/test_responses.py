"""Responses on their way to the visitor: byte for byte where nothing is changed, of the right length where something is."""
import gzip
import hashlib
import threading
import unittest

from harness import Host, Installation, LIMIT, Upstream, site

MIB = 1 << 20
WORDS = {"website_request": {"ill_block": "1", "ill_block_webout": "1", "ill_block_keys": ["verboten", "禁词"],
                             "ill_block_log": "1", "ill_replace": "1", "ill_replace_webout": "1", "ill_replace_get": "1",
                             "ill_replace_post": "1", "ill_replace_header": "1", "ill_replace_log": "1",
                             "ill_replace_keys": ["darn", "脏话"], "ill_replace_newkey": "**",
                             "ill_replace_white_urls": "/white/"},
         "website_base": {"badcode_webout": "1", "js": "1", "js_urls": "/js/", "js_out_freeurls": "/js/api,/b",
                          "js_out_codes": "<script>f('{{freeurls}}')</script>"}}
LEAKS = {
    "trace": ("500", "text/html", b"<pre>java.lang.NullPointerException\n\tat shop.Cart.add(Cart.java:31)\n</pre>"),
    "json-trace": ("500", "application/json", b'{"stack":"   at Shop.Cart.Add() in C:\\\\shop\\\\Cart.cs:line 31"}'),
    "php": ("200", "text/html", b"<b>Fatal error</b>:  Uncaught Error in <b>/srv/a.php</b> on line <b>3</b>"),
    "listing": ("200", "text/html", b"<html><head><title>Index of /a</title></head><body><h1>Index of /a</h1><pre>"
                b"<a href=\"../\">../</a></pre>"),
    "connection": ("200", "text/plain", b"Data Source=db1;Initial Catalog=shop;User ID=sa;Password=x1"),
    "source": ("200", "text/html", b"<?php\nrequire 'config.php';\n?>"),
}
HARMLESS = {
    "discussed-trace": ("200", "text/html", LEAKS["trace"][2]),
    "quoted-source": ("200", "text/html", LEAKS["source"][2].replace(b"<", b"&lt;")),
    "edited-source": ("200", "application/json", b'{"raw":"<?php\\nrequire \'config.php\';"}'),
    "own-error": ("500", "text/html", b"<h1>Something went wrong</h1>"),
    "picture": ("200", "image/svg+xml", LEAKS["source"][2]),
}


def page(size, seed=b"x"):
    """HTML of that many bytes that does not repeat within a piece."""
    line = b"<p>" + hashlib.sha256(seed).hexdigest().encode() * 100 + b"</p>\n"
    return (b"<!DOCTYPE html>\n" + line * (size // len(line) + 1))[:size]


def head(length=None, status="200", kind="text/html", more=""):
    framing = "Transfer-Encoding: chunked" if length is None else f"Content-Length: {length}"
    return f"HTTP/1.1 {status} S\r\nContent-Type: {kind}\r\n{framing}\r\n{more}\r\n".encode()


def chunked(body, piece):
    pieces = [body[at:at + piece] for at in range(0, len(body), piece)]
    return b"".join(b"%x\r\n%s\r\n" % (len(p), p) for p in pieces) + b"0\r\n\r\n"


class Responses(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.installation = Installation(language="en-US")
        cls.installation.edit(WORDS)
        settings = cls.installation.settings
        settings.write_text(settings.read_text("utf-8").replace("website_path\"", "website_path,website_js\""), "utf-8")
        cls.installation.pack()
        cls.answers, cls.seen, cls.goes_on = {}, [], threading.Event()
        cls.upstream = Upstream(cls._serve)
        cls.proxy = Host(cls.installation, upstream=cls.upstream.port)
        cls.site = site()
        cls.root = cls.site.__enter__()
        cls.static = Host(cls.installation, root=cls.root)

    @classmethod
    def tearDownClass(cls):
        cls.proxy.stop()
        cls.static.stop()
        cls.site.__exit__(None, None, None)
        cls.installation.remove()

    @classmethod
    def _serve(cls, client, _):
        try:
            while True:
                line, headers = client.line(), {}
                while text := client.line():
                    name, value = text.split(": ", 1)
                    headers[name.lower()] = value
                body = client.take(int(headers.get("content-length", 0)))
                cls.seen.append((line, headers, body))
                answer = cls.answers[line.split(" ")[1].split("?")[0]]
                for part in answer if isinstance(answer, list) else [answer]:
                    if part is None:
                        assert cls.goes_on.wait(LIMIT)
                    else:
                        client.send(part)
        except EOFError:
            pass

    def both(self, name, body):
        """The page from a file and from an application: the answers' headers and bodies."""
        file = self.root / name.lstrip("/")
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(body)
        self.answers[name] = head(len(body), more="ETag: \"e\"\r\n") + body
        answers = [host.get(name) for host in (self.static, self.proxy)]
        for status, headers, got in answers:
            self.assertEqual(status, 200)
            self.assertEqual(headers["content-length"], [str(len(got))])
        return [(headers, got) for _, headers, got in answers]

    def test_pages_without_words_pass_byte_for_byte(self):
        for size in (1024, 65536, 262143, 262145, 4 * MIB + 1, 50 * MIB):
            body = page(size)
            with self.subTest(size):
                for headers, got in self.both("/plain.html", body):
                    self.assertTrue(got == body and "etag" in headers)
                if size < 50 * MIB:
                    self.answers["/chunked"] = head() + chunked(body, 70001)
                    self.assertTrue(self.proxy.get("/chunked")[2] == body)

    def test_words_are_replaced_and_the_length_is_right(self):
        for size in (1024, 300000, 6 * MIB):
            for at in (20, size // 3, min(size, 4 * MIB) - 6):
                body = page(size)
                body = body[:at] + b"DARN" + body[at + 4:]
                if size > 4 * MIB:
                    body = body[:-4] + b"darn"  # beyond what is read
                with self.subTest(size, at=at):
                    wanted = body.replace(b"DARN", b"**")
                    for headers, got in self.both("/words.html", body)[:1 if size > 262144 else 2]:
                        self.assertTrue(got == wanted, (len(got), len(wanted)))
                        self.assertNotIn("etag", headers)
        for charset in ("gbk", "utf-8"):
            body = "<p>一脏话二".encode(charset)
            self.answers["/zh"] = head(len(body), kind=f"text/html; charset={charset}") + body
            self.assertEqual(self.proxy.get("/zh")[2], "<p>一**二".encode(charset))
            body = "<p>一禁词".encode(charset)
            self.answers["/zh"] = head(len(body), kind=f"text/html; charset={charset}") + body
            self.assertEqual(self.proxy.get("/zh")[0], 403)

    def test_compressed_partial_and_streamed_responses_are_left_alone(self):
        packed = gzip.compress(b"darn" * 1000)
        self.answers["/gzip"] = head(len(packed), more="Content-Encoding: gzip\r\n") + packed
        self.assertEqual(self.proxy.get("/gzip")[2], packed)
        body = b"<p>darn</p>" + page(1000)
        (self.root / "range.html").write_bytes(body)
        status, headers, got = self.static.request("GET", "/range.html", headers={"Range": "bytes=2-9"})
        self.assertIn((status, got), ((206, body[2:10]), (200, body.replace(b"darn", b"**"))))
        self.answers["/part"] = head(4, status="206", more="Content-Range: bytes 0-3/9\r\n") + b"darn"
        self.assertEqual(self.proxy.get("/part")[2], b"darn")
        self.answers["/white/"] = head(4) + b"darn"
        self.assertEqual(self.proxy.get("/white/")[2], b"darn")

        event = b"data: darn\n\n"
        self.goes_on.clear()
        self.answers["/events"] = [head(kind="text/event-stream") + b"%x\r\n%s\r\n" % (len(event), event), None,
                                   b"%x\r\n%s\r\n0\r\n\r\n" % (len(event), event)]
        with self.proxy.connect() as client:
            client.send("GET /events HTTP/1.1\r\nHost: h\r\n\r\n")
            client.head()
            self.assertEqual(client.chunk(), event)  # before the application sends the next one
            self.goes_on.set()
            self.assertEqual(client.chunk(), event)

    def test_the_script_is_inserted_once_in_pages_of_its_urls(self):
        body = b"<body>" + page(70000)[16:] + b"</body></html>"
        script = b"<script>f(',/js/api,/b,')</script>"
        for _, got in self.both("/js/page.html", body):
            self.assertTrue(got == body.replace(b"</body>", script + b"</body>"), got[-100:])
        for name in ("/page.html", "/js/api/page.html"):
            for _, got in self.both(name, body):
                self.assertTrue(got == body)

    def test_leaks_are_stopped(self):
        for name, (status, kind, body) in {**LEAKS, **HARMLESS}.items():
            with self.subTest(name):
                self.answers["/" + name] = head(len(body), status, kind) + body
                got_status, headers, got = self.proxy.get("/" + name)
                if name in HARMLESS:
                    self.assertEqual((got_status, got), (int(status), body))
                    continue
                self.assertEqual(got_status, 500 if status == "500" else 403)
                self.assertIn(b"Response Leak Protection(Response)", got)
                self.assertNotIn(body, got)
                self.assertEqual(headers["content-type"], ["text/html; charset=utf-8"])

    def test_the_application_gets_the_request_with_words_replaced(self):
        self.answers["/form"] = head(2) + b"ok"
        form = "a=darn&b=%E8%84%8F%E8%AF%9D&c=1".encode()
        for name, value in (("Content-Type", "application/x-www-form-urlencoded"), ("Content-Type", "text/plain")):
            status, _, _ = self.proxy.request("POST", "/form?q=%64arn&r=100%25&s=a+b", form, {name: value, "User-Agent": "darn/1"})
            line, headers, body = self.seen[-1]
            self.assertEqual(status, 200)
            self.assertEqual(line.split(" ")[1], "/form?q=**&r=100%25&s=a+b")
            self.assertEqual(headers["user-agent"], "**/1")
            plain = value == "text/plain"
            self.assertEqual(body, b"a=**&b=%E8%84%8F%E8%AF%9D&c=1" if plain else b"a=**&b=**&c=1")
        self.assertIn("Replace sensitive words(POST[a]),Keywords:darn", self.installation.log.read_text("utf-8"))


if __name__ == "__main__":
    unittest.main(verbosity=1)
