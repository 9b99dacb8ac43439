"""qivhost over loopback sockets: framing, static files, the reverse proxy, clients that misbehave, and its end.

Nothing here depends on how fast the machine is: what must happen is waited for, with generous limits."""
import contextlib
import hashlib
import os
import pathlib
import re
import resource
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "e2e"))
import harness  # pylint: disable=wrong-import-position
from harness import LIMIT, WINE, Upstream, native, read_request, serve_forever  # pylint: disable=wrong-import-position

MODULE = os.environ["QIV_HOSTILE_MODULE"]
LARGE = 104857601


class Host(harness.HostProcess):
    """A host with the module that misbehaves."""
    stop_signal = signal.SIGINT

    def __init__(self, *arguments, module=True):
        super().__init__(*(["--module", native(MODULE)] if module else []), *arguments)

    def stop(self):
        code = super().stop()
        assert code == 0, (code, self.output)

    def ask(self, text, head=False):
        with self.connect() as client:
            client.send(text)
            return client.response(head)

    def get(self, target, *headers, method="GET"):
        lines = [f"{method} {target} HTTP/1.1", "Host: h", "Connection: close", *headers]
        return self.ask("\r\n".join(lines) + "\r\n\r\n", head=method == "HEAD")

    def peak_memory(self):
        """Kilobytes; 0 where it cannot be told."""
        if WINE:
            return 0
        return int(re.search(r"VmHWM:\s+(\d+)", pathlib.Path(f"/proc/{self.process.pid}/status").read_text())[1])


def before_the_cut(exchange):
    """The result of an exchange with a host that cuts off who is silent for a second, which a client on a busy machine may be:
    then it is tried again."""
    for _ in range(20):
        with contextlib.suppress(EOFError, ConnectionError):
            return exchange()
    return exchange()


def allow_files(count):
    """Lets this process, and those that it starts, have so many files and sockets open."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if hard != resource.RLIM_INFINITY and hard < count:
        raise unittest.SkipTest(f"needs {count} open files, and the system allows {hard}: raise the limit (ulimit -Hn)")
    if soft != resource.RLIM_INFINITY and soft < count:
        resource.setrlimit(resource.RLIMIT_NOFILE, (count, hard))


class StaticSite(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        base = pathlib.Path(cls.folder.name)
        (base / "secret.txt").write_text("SECRET")
        cls.root = base / "site"
        for folder in ("sub", "bare", ".git", ".well-known"):
            (cls.root / folder).mkdir(parents=True)
        for name, text in {"index.html": "<h1>home</h1>", "sub/default.htm": "sub", "a b.txt": "0123456789",
                           "empty.bin": "", "style.css": "b{}", "page.php": "<?php", ".git/config": "SECRET",
                           ".well-known/x.txt": "known"}.items():
            (cls.root / name).write_text(text)
        cls.host = Host("--root", native(cls.root), "--threads", "8", "--quiet")

    @classmethod
    def tearDownClass(cls):
        with cls.host:
            pass
        assert cls.host.output[1:] == ["factory terminated", "global terminated"], cls.host.output
        cls.folder.cleanup()

    def test_files_types_and_default_documents(self):
        for target, status, content_type, body in (
                ("/", 200, "text/html; charset=utf-8", b"<h1>home</h1>"),
                ("/index.html?x=1", 200, "text/html; charset=utf-8", b"<h1>home</h1>"),
                ("/sub/", 200, "text/html; charset=utf-8", b"sub"),
                ("/a%20b.txt", 200, "text/plain; charset=utf-8", b"0123456789"),
                ("/style.css", 200, "text/css; charset=utf-8", b"b{}"),
                ("/empty.bin", 200, "application/octet-stream", b""),
                ("/.well-known/x.txt", 200, "text/plain; charset=utf-8", b"known"),
                ("http://other/style.css", 200, "text/css; charset=utf-8", b"b{}")):
            response = self.host.get(target)
            with self.subTest(target):
                self.assertEqual((response.status, response.header("Content-Type"), response.body),
                                 (status, content_type, body))
                self.assertEqual(response.header("X-Module"), "here")
                self.assertIsNone(response.header("Server"))
        self.assertEqual(self.host.get("/bare/").status, 403)
        moved = self.host.get("/sub?a=1")
        self.assertEqual((moved.status, moved.header("Location")), (301, "/sub/?a=1"))
        self.assertEqual(self.host.get("//sub").header("Location"), "/sub/")

    def test_nothing_outside_the_site_is_served(self):
        for target in ("/../secret.txt", "/%2e%2e/secret.txt", "/sub/../../secret.txt", "/..%2fsecret.txt",
                       "/..%5csecret.txt", "/..\\secret.txt", "/sub/..%c0%af..%c0%afsecret.txt", "/%252e%252e/secret.txt",
                       "/....//secret.txt", "/.git/config", "/sub/%2e%2e/.git/config", "/index.html::$DATA", "/page.php",
                       "/page.PHP", "/index.html.", "/index.html%20", "/con", "/nul.txt", "/secret.txt", "/C:/secret.txt",
                       "/%00", "/index.html%00.txt"):
            response = self.host.get(target)
            with self.subTest(target):
                self.assertIn(response.status, (400, 404))
                self.assertNotIn(b"SECRET", response.body)
                self.assertNotIn(b"<?php", response.body)

    def test_ranges(self):
        for value, status, body in (("bytes=0-0", 206, b"0"), ("bytes=2-4", 206, b"234"), ("bytes=8-", 206, b"89"),
                                    ("bytes=-3", 206, b"789"), ("bytes=-99", 206, b"0123456789"),
                                    ("bytes=5-99", 206, b"56789"), ("bytes=10-", 416, None), ("bytes=-0", 416, None),
                                    ("bytes=4-2", 200, b"0123456789"), ("bytes=1-2,4-5", 200, b"0123456789"),
                                    ("bytes=x-", 200, b"0123456789"), ("lines=1-2", 200, b"0123456789"),
                                    ("bytes=99999999999999999999-", 200, b"0123456789")):
            response = self.host.get("/a%20b.txt", "Range: " + value)
            with self.subTest(value):
                self.assertEqual(response.status, status)
                if body is not None:
                    self.assertEqual(response.body, body)
        part = self.host.get("/a%20b.txt", "Range: bytes=2-4")
        self.assertEqual((part.header("Content-Range"), part.header("Content-Length")), ("bytes 2-4/10", "3"))
        self.assertEqual(self.host.get("/a%20b.txt", "Range: bytes=10-").header("Content-Range"), "bytes */10")

    def test_conditions(self):
        whole = self.host.get("/style.css")
        tag, date = whole.header("ETag"), whole.header("Last-Modified")
        for headers, status in (([f"If-None-Match: {tag}"], 304), ([f'If-None-Match: "x", W/{tag}'], 304),
                                (["If-None-Match: *"], 304), (['If-None-Match: "x"'], 200),
                                (['If-None-Match: "x"', f"If-Modified-Since: {date}"], 200),
                                ([f"If-Modified-Since: {date}"], 304),
                                (["If-Modified-Since: Thu, 01 Jan 1970 00:00:00 GMT"], 200),
                                (["If-Modified-Since: nonsense"], 200), (['If-Match: "x"'], 412),
                                ([f"If-Match: {tag}"], 200),
                                (["If-Unmodified-Since: Thu, 01 Jan 1970 00:00:00 GMT"], 412),
                                ([f"If-Range: {tag}", "Range: bytes=0-1"], 206),
                                (['If-Range: "x"', "Range: bytes=0-1"], 200),
                                ([f"If-Range: {date}", "Range: bytes=0-1"], 206)):
            with self.subTest(headers):
                response = self.host.get("/style.css", *headers)
                self.assertEqual(response.status, status)
                if status == 304:
                    self.assertEqual((response.header("ETag"), response.header("Content-Type")), (tag, None))

    def test_methods(self):
        head = self.host.get("/style.css", method="HEAD")
        self.assertEqual((head.status, head.header("Content-Length"), head.body), (200, "3", b""))
        post = self.host.ask("POST / HTTP/1.1\r\nHost: h\r\nConnection: close\r\nContent-Length: 3\r\n\r\na=1")
        self.assertEqual((post.status, post.header("Allow")), (405, "GET, HEAD, OPTIONS"))
        self.assertEqual(self.host.get("*", method="OPTIONS").status, 200)

    def test_pipelined_requests_are_answered_in_order(self):
        with self.host.connect() as client:
            client.send("GET /style.css HTTP/1.1\r\nHost: h\r\n\r\n"
                        "POST /x HTTP/1.1\r\nHost: h\r\nContent-Length: 5\r\n\r\nGET /"
                        "POST /y HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nGET\r\n0\r\nA: b\r\n\r\n\r\n"
                        "HEAD / HTTP/1.1\r\nHost: h\r\n\r\n"
                        "GET /nothing HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\nGET / HTTP/1.1\r\nHost: h\r\n\r\n")
            self.assertEqual([client.response(head=i == 3).status for i in range(5)], [200, 405, 405, 200, 404])
            self.assertTrue(client.closed())

    def test_a_request_in_single_bytes(self):
        with self.host.connect() as client:
            for byte in b"POST /q HTTP/1.1\r\nHost: h\r\nX-Do: read\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab\r\n0\r\n\r\n":
                client.send(bytes([byte]))
            self.assertEqual(client.response().status, 405)

    def test_old_clients(self):
        for text, connection in (("GET / HTTP/1.0\r\n\r\n", "close"),
                                 ("GET / HTTP/1.0\r\nConnection: keep-alive\r\n\r\n", "keep-alive"),
                                 ("GET / HTTP/1.1\r\nHost: h\r\n\r\n", None)):
            with self.subTest(text), self.host.connect() as client:
                client.send(text)
                response = client.response()
                self.assertEqual((response.status, response.header("Connection")), (200, connection))
                if connection == "close":
                    self.assertTrue(client.closed())
                else:
                    client.send(text)
                    self.assertEqual(client.response().status, 200)

    def test_refused_requests_end_the_connection(self):
        follow = "GET /style.css HTTP/1.1\r\nHost: h\r\n\r\n"
        for text, status in (("GET / HTTP/3.0\r\nHost: h\r\n\r\n", 505), ("GET /%zz HTTP/1.1\r\nHost: h\r\n\r\n", 400),
                             ("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nab", 400),
                             ("A" * 20000, 400)):
            with self.subTest(text[:70]), self.host.connect() as client:
                client.send(text + follow)
                response = client.response()
                self.assertEqual((response.status, response.header("Connection"), response.header("X-Module")),
                                 (status, "close", None))
                self.assertTrue(client.closed(), "the rest must not be taken for a request")

    def test_length_and_coding_together_end_the_connection(self):
        with self.host.connect() as client:
            client.send("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 4\r\nTransfer-Encoding: chunked\r\n\r\n"
                        "0\r\n\r\nGET /style.css HTTP/1.1\r\nHost: h\r\n\r\n")
            response = client.response()
            self.assertEqual((response.status, response.header("Connection")), (405, "close"))
            self.assertTrue(client.closed())

    def test_malformed_chunks_are_a_lost_client(self):
        with self.host.connect() as client:
            client.send("POST / HTTP/1.1\r\nHost: h\r\nX-Do: read\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n")
            response = client.response()
            self.assertEqual((response.status, response.body), (400, b"client lost"))
            self.assertTrue(client.closed())

    def test_continue_goes_out_when_the_body_is_wanted(self):
        ask = "POST / HTTP/1.1\r\nHost: h\r\nExpect: 100-continue\r\nContent-Length: 2\r\nX-Do: {}\r\n\r\n"
        with self.host.connect() as client:
            client.send(ask.format("read"))
            self.assertEqual(client.response().status, 100)
            client.send("ab")
            self.assertEqual(client.response().status, 405)
            client.send(ask.format("read") + "ab")  # who does not wait is not told to go on
            self.assertIn(client.response().status, (100, 405))
        with self.host.connect() as client:
            client.send(ask.format("block"))
            response = client.response()
            self.assertEqual((response.status, response.header("Connection")), (403, "close"))

    def test_early_answer_to_a_large_upload_is_seen(self):
        for action in ("block", "read-some"):
            with self.subTest(action), self.host.connect() as client:
                client.send(f"POST / HTTP/1.1\r\nHost: h\r\nX-Do: {action}\r\nContent-Length: 20000000\r\n\r\n")
                piece = bytes(100000)
                for _ in range(200):
                    client.send(piece)
                response = client.response()
                self.assertEqual((response.status, response.header("Connection")), (403, "close"))
                self.assertIn(response.body, (b"blocked", b"seen enough"))
        with self.host.connect() as client:  # a short one is skipped and the connection kept
            client.send("POST / HTTP/1.1\r\nHost: h\r\nX-Do: block\r\nContent-Length: 3\r\n\r\nabc"
                        "GET / HTTP/1.1\r\nHost: h\r\n\r\n")
            self.assertEqual([client.response().status for _ in range(2)], [403, 200])

    def test_waiting_modules_and_resets(self):
        with self.host.connect() as client:
            client.send("GET / HTTP/1.1\r\nHost: h\r\nX-Do: pending\r\n\r\n")
            self.assertEqual(client.response().body, b"later")
            client.send("GET / HTTP/1.1\r\nHost: h\r\nX-Do: reset\r\n\r\n")
            self.assertTrue(client.closed())

    def test_stalled_uploads_leave_the_others_alone(self):
        with contextlib.ExitStack() as stack:
            stalled = [stack.enter_context(self.host.connect()) for _ in range(7)]
            for client in stalled:
                client.send("POST / HTTP/1.1\r\nHost: h\r\nX-Do: read\r\nContent-Length: 4\r\n\r\nab")
            idle = [stack.enter_context(self.host.connect()) for _ in range(50)]
            for client in idle:
                client.send("GET / HT")  # an unfinished head holds no thread
            for _ in range(20):
                self.assertEqual(self.host.get("/").status, 200)
            for client in stalled:
                client.send("cd")
                self.assertEqual(client.response().status, 405)
            for client in idle:
                client.send("TP/1.1\r\nHost: h\r\n\r\n")
                self.assertEqual(client.response().status, 200)


class Lifetime(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        (pathlib.Path(self.folder.name) / "index.html").write_text("home")
        self.addCleanup(self.folder.cleanup)

    def test_silent_clients_are_cut_off(self):
        with Host("--root", native(self.folder.name), "--timeout", "1", "--quiet") as host:
            for text in ("", "GET / HTT"):
                with self.subTest(text), host.connect() as client:
                    client.send(text)
                    self.assertTrue(client.closed())
            def answered():
                with host.connect() as client:
                    client.send("GET / HTTP/1.1\r\nHost: h\r\n\r\n")
                    return client.response().status, client.closed()
            self.assertEqual(before_the_cut(answered), (200, True))
            def half_sent():
                with host.connect() as client:
                    client.send("POST / HTTP/1.1\r\nHost: h\r\nX-Do: read\r\nContent-Length: 4\r\n\r\nab")
                    return client.response().body
            self.assertEqual(before_the_cut(half_sent), b"client lost")

    def test_stop_finishes_what_runs(self):
        with Host("--root", native(self.folder.name)) as host:
            with host.connect() as busy, host.connect() as idle:
                idle.send("GET /%E4?<x> HTTP/1.1\r\nHost: h\r\n\r\n")
                self.assertEqual(idle.response().status, 404)
                busy.send("POST / HTTP/1.1\r\nHost: h\r\nX-Do: read\r\nExpect: 100-continue\r\nContent-Length: 4\r\n\r\n")
                self.assertEqual(busy.response().status, 100)
                host.process.send_signal(signal.SIGINT if WINE else signal.SIGTERM)
                self.assertTrue(idle.closed())
                self.assertIsNone(host.process.poll())
                try:  # Refused, or dropped where the system had already taken it in.
                    with host.connect() as late:
                        self.assertTrue(late.closed())
                except OSError:
                    pass
                busy.send("abcd")
                response = busy.response()
                self.assertEqual(response.status, 405)
                self.assertTrue(busy.closed())
                host.process.wait(LIMIT)
        self.assertEqual(host.output[-2:], ["factory terminated", "global terminated"])
        self.assertTrue(any("GET /%E4?<x> 404" in line for line in host.output), host.output)

    @unittest.skipIf(WINE, "one Ctrl-C is all that can be sent there")
    def test_a_second_signal_ends_at_once(self):
        with contextlib.ExitStack() as stack:
            host = Host("--root", self.folder.name, "--threads", "1", "--waiting-threads", "1")
            stack.callback(host.process.kill)
            for _ in range(4):
                client = stack.enter_context(host.connect())
                client.send("POST / HTTP/1.1\r\nHost: h\r\nX-Do: read\r\nExpect: 100-continue\r\nContent-Length: 4\r\n\r\n")
            self.assertEqual(client.response().status, 100)
            host.process.send_signal(signal.SIGTERM)
            with contextlib.suppress(OSError):
                while not host.connect().closed():  # it listens no more: the first one was taken
                    pass
            host.process.send_signal(signal.SIGTERM)
            self.assertEqual(host.process.wait(LIMIT), 130)

    def test_slow_clients_leave_the_others_alone(self):
        """By hand with QIV_SLOW_CLIENTS=2000: says what plain requests take without and with so many."""
        count = int(os.environ.get("QIV_SLOW_CLIENTS", 60))
        by_hand = count > 60
        allow_files(count + 200)
        data = os.urandom(6 << 20)
        (pathlib.Path(self.folder.name) / "large.bin").write_bytes(data)
        post = "POST / HTTP/1.1\r\nHost: h\r\nX-Do: read\r\n{}\r\n\r\n"
        # What each kind sends first, what it dribbles, how it ends, and the answers.
        kinds = (("GET / HTTP/1.1\r\nHost: h\r\nX: ", "abcdefgh", "\r\n\r\n", [200]),
                 (post.format("Content-Length: 10") + "ab", "cdefghij", "", [405]),
                 (post.format("Transfer-Encoding: chunked") + "a\r\nab", "cdefghij", "\r\n0\r\n\r\n", [405]),
                 (post.format("Content-Length: 90008") + "x" * 60000, "cdefghij", "x" * 30000, [405]),
                 ("GET /large.bin HTTP/1.1\r\nHost: h\r\n\r\n" * 2, "", "", [200, 200]),
                 ("GARBAGE\r\n\r\n", "bytes on", "", [400]))
        few = [] if by_hand else ["--threads", "4", "--waiting-threads", "4"]
        with Host("--root", native(self.folder.name), *few, "--quiet") as host, contextlib.ExitStack() as stack:
            def ask(when):
                taken = []
                for _ in range(200 if by_hand else 10):
                    began = time.monotonic()
                    self.assertEqual(host.get("/").status, 200)
                    taken.append((time.monotonic() - began) * 1000)
                taken.sort()
                print(f"{when}: a plain request takes {taken[len(taken) // 2]:.2f} ms (median), "
                      f"{taken[len(taken) * 99 // 100 - 1]:.2f} ms (99 %), {taken[-1]:.2f} ms (most)", file=sys.stderr)
            def send(text):
                for i, client in enumerate(slow):
                    with contextlib.suppress(ConnectionError):  # answered and closed, or cut off in favour of another
                        client.send(text(kinds[i % len(kinds)]))
            ask("no slow client")
            slow = [stack.enter_context(host.connect()) for _ in range(count)]
            send(lambda kind: kind[0])
            ask(f"{count} have come")
            for i in range(8):
                send(lambda kind: kind[1][i:i + 1])  # pylint: disable=cell-var-from-loop
                if by_hand:
                    ask(f"{i + 1} bytes more")
                    time.sleep(1)
            ask("nothing more")
            send(lambda kind: kind[2])
            for i, client in enumerate(slow):
                statuses = kinds[i % len(kinds)][3]
                try:
                    responses = [client.response() for _ in statuses]
                except EOFError:
                    # Those that hold threads go when others have waited long enough for one; so many wait by hand only.
                    self.assertIn(405, statuses)
                    self.assertTrue(by_hand or i < 30)
                    continue
                with self.subTest(i):
                    self.assertEqual([response.status for response in responses], statuses)
                    self.assertTrue(len(statuses) == 1 or all(response.body == data for response in responses))

    def test_dribbling_clients_are_cut_off(self):
        """They are never silent for long, but what they move in a second is too little."""
        (pathlib.Path(self.folder.name) / "large.bin").write_bytes(bytes(40 << 20))
        post = "POST / HTTP/1.1\r\nHost: h\r\nX-Do: {}\r\nContent-Length: 99999\r\n\r\n"
        with Host("--root", native(self.folder.name), "--timeout", "2", "--min-rate", "1000000", "--quiet") as host:
            for start in ("GET / HTTP/1.1\r\nHost: h\r\nX: ", post.format("read"), post.format(""), "GARBAGE\r\n\r\n",
                          "GET /large.bin HTTP/1.1\r\nHost: h\r\n\r\n"):
                with self.subTest(start), host.connect() as client:
                    client.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
                    client.send(start)
                    deadline = time.monotonic() + LIMIT
                    with contextlib.suppress(ConnectionError):
                        while time.monotonic() < deadline:
                            if "large" in start:
                                if not client.socket.recv(500):
                                    break
                            else:
                                client.send("a")
                            time.sleep(0.1)
                    self.assertLess(time.monotonic(), deadline, "still connected")

    def test_wrong_options_are_explained(self):
        root = native(self.folder.name)
        listen = ["--listen", "127.0.0.1:0"]
        for arguments, words in (([], "--listen is required"), (listen, "--root or --upstream is required"),
                                 ([*listen, "--root", root, "--upstream", "http://x"], "--root excludes --upstream"),
                                 (["--listen", "here:0", "--root", root], "numeric address"),
                                 (["--listen", "127.0.0.1:99999", "--root", root], "ADDRESS:PORT"),
                                 ([*listen, "--upstream", "https://x"], "http://HOST:PORT"),
                                 ([*listen, "--upstream", "http://x/path"], "http://HOST:PORT"),
                                 ([*listen, "--root", root, "--threads", "0"], "--threads"),
                                 ([*listen, "--root", root, "--timeout", "x"], "--timeout"),
                                 ([*listen, "--root", root, "--root", root], "--root"),
                                 (["--listen"], "--listen"), (["--nothing"], "unknown option \"--nothing\""),
                                 ([*listen, "--root", root, "--nothing=1"], "unknown option \"--nothing\""),
                                 ([*listen, "--root", root + "/no"], "/no: cannot be served: "),
                                 ([*listen, "--root", root, "--module", "missing.so"], "missing.so: cannot be loaded: "),
                                 (["--listen", "192.0.2.77:1", "--root", root], "192.0.2.77:1: cannot listen: ")):
            with self.subTest(arguments):
                result = subprocess.run(harness.command("qivhost", *arguments), capture_output=True, timeout=LIMIT, check=False)
                self.assertEqual(result.returncode, 2)
                self.assertIn(words, result.stderr.decode())
        for option, text in (("--help", rb"--upstream"), ("--version", rb"^qivhost \d+\.\d+\.\d+\s*$")):
            result = subprocess.run(harness.command("qivhost", option), capture_output=True, timeout=LIMIT, check=True)
            self.assertRegex(result.stdout, text)


class Proxy(unittest.TestCase):
    @contextlib.contextmanager
    def proxy(self, handle, *arguments):
        with Upstream(handle) as upstream:
            with Host("--upstream", f"http://127.0.0.1:{upstream.port}", "--threads", "16", "--quiet", *arguments) as host:
                host.upstream = upstream
                yield host

    def test_headers_pass_without_those_of_the_hop(self):
        seen = []
        def answer(line, headers, _):
            seen.append((line, headers))
            return "ok"
        with self.proxy(serve_forever(answer)) as host:
            host.get("/p%41?q=%00", "Connection: X-Hop", "X-Hop: 1", "TE: trailers", "Keep-Alive: 5", "X-End: to end",
                     "Cookie: a=1", "Cookie: b=2", "Upgrade: h2c")
            host.get("http://other:9/abs?q")
            # A client's list may not take away what frames the request: the body would become the next one.
            host.ask("PUT / HTTP/1.1\r\nHost: h\r\nConnection: close, content-length, Host\r\nContent-Length: 26\r\n\r\n"
                     "GET /smuggled HTTP/1.1\r\n\r\n")
        line, headers = seen[0]
        self.assertEqual(line, "GET /p%41?q=%00 HTTP/1.1")
        self.assertEqual(headers, {"host": "h", "x-end": "to end", "cookie": "a=1; b=2", "x-forwarded-for": "127.0.0.1",
                                   "x-forwarded-proto": "http"})
        self.assertEqual(seen[1][0], "GET /abs?q HTTP/1.1")
        self.assertEqual([(line, headers.get("host"), headers.get("content-length")) for line, headers in seen[2:]],
                         [("PUT / HTTP/1.1", "h", "26")])
        claims = ("X-Forwarded-For: 1.2.3.4", "X-Forwarded-Proto: https", "X-Real-IP: 1.2.3.4", "Connection: X-Forwarded-For")
        for option, expected in (((), ("127.0.0.1", "http", None)),
                                 (("--trust-forwarded",), ("1.2.3.4, 127.0.0.1", "https", "1.2.3.4"))):
            seen.clear()
            with self.subTest(option), self.proxy(serve_forever(answer), *option) as host:
                host.get("/", *claims)
                self.assertEqual(tuple(map(seen[0][1].get, ("x-forwarded-for", "x-forwarded-proto", "x-real-ip"))), expected)

    def test_upgraded_connections_are_tunnels(self):
        ended = threading.Event()
        def handle(client, _):
            line, headers, _ = read_request(client)
            if headers.get("upgrade") != "websocket" and "unasked" not in line:
                return client.send("HTTP/1.1 426 No\r\nContent-Length: 0\r\n\r\n")
            client.send("HTTP/1.1 101 Switching Protocols\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nX: 1\r\n\r\nearly")
            while client.buffer or client.more():
                client.send(client.buffer)
                client.buffer = b""
            return ended.set()
        ask = "GET / HTTP/1.1\r\nHost: h\r\nConnection: keep-alive, Upgrade\r\nUpgrade: websocket\r\n\r\n"
        large = bytes(range(256)) * 1000
        with self.proxy(handle) as host, contextlib.ExitStack() as stack:
            for _ in range(18):  # more than there are threads
                client = stack.enter_context(host.connect())
                client.send(ask + "first")
                response = client.response()
                self.assertEqual((response.status, response.header("Upgrade"), response.header("Connection")),
                                 (101, "websocket", "Upgrade"))
                self.assertEqual((response.header("X"), response.header("X-Module")), ("1", "here"))
                self.assertEqual(client.take(10), b"earlyfirst")
                writer = threading.Thread(target=client.send, args=(large,))
                writer.start()
                self.assertEqual(client.take(len(large)), large)
                writer.join()
            client.socket.shutdown(socket.SHUT_WR)
            self.assertTrue(client.closed())
            self.assertTrue(ended.wait(LIMIT))
            self.assertEqual((host.get("/").status, host.get("/unasked").status), (426, 502))
        with self.proxy(handle, "--timeout", "1") as host, host.connect() as client:
            client.send(ask)
            self.assertTrue(client.closed() or b"101" in client.buffer)  # without traffic it ends

    def test_bodies_arrive_byte_for_byte_in_little_memory(self):
        answer = lambda _line, headers, body: f"{body[0]} {body[1]} {headers.get('transfer-encoding')}"
        piece = bytes(range(256)) * 4096
        with self.proxy(serve_forever(answer)) as host:
            before = host.peak_memory()
            for chunked, action, size in ((False, "", LARGE), (True, "", LARGE), (True, "read", 3000001), (False, "read", 70000),
                                          (False, "", 0), (True, "read", 0), (False, "read", 1)):
                digest, left = hashlib.sha256(), size
                with self.subTest(chunked=chunked, action=action, size=size), host.connect() as client:
                    framing = "Transfer-Encoding: chunked" if chunked else f"Content-Length: {size}"
                    client.send(f"POST /up HTTP/1.1\r\nHost: h\r\nX-Do: {action}\r\n{framing}\r\n\r\n")
                    while left:
                        data = piece[:min(left, len(piece))]
                        digest.update(data)
                        client.send(b"%x\r\n%s\r\n" % (len(data), data) if chunked else data)
                        left -= len(data)
                    if chunked:
                        client.send("0\r\n\r\n")
                    text = client.response().body.decode()
                    self.assertEqual(text, f"{size} {digest.hexdigest()} {'chunked' if chunked else None}")
            self.assertLess(host.peak_memory() - before, 64 * 1024, "kilobytes")

    def test_large_responses_stream(self):
        piece = bytes(range(256)) * 256
        def handle(client, _):
            chunked = "chunked" in read_request(client)[0]
            client.send("HTTP/1.1 200 OK\r\n" + ("Transfer-Encoding: chunked" if chunked else f"Content-Length: {LARGE}") +
                        "\r\n\r\n")
            left = LARGE
            while left:
                data = piece[:min(left, len(piece))]
                client.send(b"%x\r\n%s\r\n" % (len(data), data) if chunked else data)
                left -= len(data)
            if chunked:
                client.send("0\r\n\r\n")
        expected = hashlib.sha256(piece * (LARGE // len(piece)) + piece[:LARGE % len(piece)]).hexdigest()
        with self.proxy(handle) as host:
            before = host.peak_memory()
            for target in ("/length", "/chunked"):
                with self.subTest(target), host.connect() as client:
                    client.send(f"GET {target} HTTP/1.1\r\nHost: h\r\n\r\n")
                    _, headers = client.head()
                    digest, left = hashlib.sha256(), LARGE
                    self.assertEqual(("Content-Length", str(LARGE)) in headers, target == "/length")
                    if target == "/length":
                        while left and (data := client.take(min(left, 65536))):
                            digest.update(data)
                            left -= len(data)
                    else:
                        while data := client.chunk():
                            digest.update(data)
                    self.assertEqual(digest.hexdigest(), expected)
            self.assertLess(host.peak_memory() - before, 64 * 1024, "kilobytes")

    def test_pieces_pass_as_they_come(self):
        went_on = threading.Event()
        def handle(client, _):
            read_request(client)
            client.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n")
            self.assertTrue(went_on.wait(LIMIT))
            client.send("6\r\nsecond\r\n0\r\n\r\n")
        with self.proxy(handle) as host, host.connect() as client:
            client.send("GET / HTTP/1.1\r\nHost: h\r\n\r\n")
            client.head()
            self.assertEqual(client.chunk(), b"first")  # before the upstream has sent the rest
            went_on.set()
            self.assertEqual(client.chunk(), b"second")

    def test_responses_of_every_framing(self):
        answers = {
            "/length": "HTTP/1.1 200 OK\r\nContent-Length: 4\r\nX: 1\r\n\r\nbody",
            "/close": "HTTP/1.0 200 OK\r\n\r\nbody",
            "/chunked": "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4;x\r\nbody\r\n0\r\nT: 1\r\n\r\n",
            "/interim": "HTTP/1.1 103 Hints\r\nX: 1\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody",
            "/cookies": "HTTP/1.1 200 OK\r\nSet-Cookie: a=1\r\nSet-Cookie: b=2\r\nServer: up\r\nContent-Length: 4\r\n\r\nbody",
            "/404": "HTTP/1.1 404 Gone Away\r\nContent-Length: 4\r\n\r\nbody",
            "/204": "HTTP/1.1 204 No Content\r\n\r\n",
            "/304": "HTTP/1.1 304 Not Modified\r\nETag: \"x\"\r\n\r\n",
        }
        def handle(client, _):
            client.send(answers[read_request(client)[0].split(" ")[1]])
        with self.proxy(handle) as host:
            for target in answers:
                response = host.get(target)
                with self.subTest(target):
                    expected = int(target[1:]) if target[1:].isdigit() else 200
                    body = b"" if expected in (204, 304) else b"body"
                    self.assertEqual((response.status, response.body, response.whole), (expected, body, True))
                    if target == "/cookies":
                        self.assertEqual([v for k, v in response.headers if k == "Set-Cookie"], ["a=1", "b=2"])
                        self.assertIsNone(response.header("Server"))
            head = host.get("/length", method="HEAD")
            self.assertEqual((head.header("Content-Length"), head.body), ("4", b""))

    def test_bad_upstreams(self):
        def handle(client, _):
            target = read_request(client)[0].split(" ")[1]
            if target == "/nonsense":
                client.send("220 mail.example ESMTP\r\n\r\n")
            elif target == "/short":
                client.send("HTTP/1.1 200 OK\r\nContent-Length: 400000\r\n\r\n" + "x" * 300000)
            elif target == "/silent":
                client.closed()
            elif target == "/chunk":
                client.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\nzz\r\n")
        with self.proxy(handle, "--timeout", "1") as host:
            self.assertEqual(before_the_cut(lambda: host.get("/silent")).status, 504)
        with self.proxy(handle) as host:
            self.assertEqual(host.get("/nothing").status, 502)
            self.assertEqual(host.get("/nonsense").status, 502)
            for target in ("/short", "/chunk"):
                with self.subTest(target):
                    with contextlib.suppress(EOFError):  # reset before the head was read
                        response = host.get(target)
                        self.assertTrue(response.status == 502 or not response.whole)
        closed = socket.create_server(("127.0.0.1", 0))
        port = closed.getsockname()[1]
        closed.close()
        with Host("--upstream", f"http://127.0.0.1:{port}", "--quiet") as host:
            response = host.get("/")
            self.assertEqual((response.status, response.header("X-Module")), (502, "here"))

    def test_upstream_connections_are_kept_and_stale_ones_replaced(self):
        def handle(client, number):
            for _ in range(2 if number == 1 else 100):
                body = f"{number} {read_request(client)[0].split(' ')[0]}"
                client.send(f"HTTP/1.1 200 OK\r\nContent-Length: {len(body)}\r\n\r\n{body}")
        with self.proxy(handle) as host:
            self.assertEqual([host.get("/").body for _ in range(2)], [b"1 GET"] * 2)
            for _ in range(20):  # the first connection is closed by now, or just being closed
                self.assertIn(host.get("/").body, (b"2 GET", b"3 GET"))
            with host.connect() as client:  # what cannot be sent twice takes none that may be dead
                before = host.upstream.connections
                client.send("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 1\r\n\r\nx")
                self.assertEqual(client.response().body, b"%d POST" % (before + 1))

    def test_an_answer_before_the_body_is_read_comes_through(self):
        def handle(client, _):
            while client.line():
                pass
            client.send("HTTP/1.1 413 Too Large\r\nContent-Length: 3\r\nConnection: close\r\n\r\nbig")
            client.socket.shutdown(socket.SHUT_WR)
            client.closed()
        with self.proxy(handle) as host, host.connect() as client:
            client.send("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 3000000\r\n\r\n")
            client.send(bytes(3000000))
            response = client.response()
            self.assertEqual((response.status, response.body), (413, b"big"))

    def test_clients_that_leave_end_the_upstream_request(self):
        ends = {"/waiting": threading.Event(), "/upload": threading.Event(), "/download": threading.Event()}
        def handle(client, _):
            target = client.line().split(" ")[1]
            while client.line():
                pass
            try:
                if target == "/download":
                    client.send("HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\n")
                    while True:
                        client.send(bytes(65536))
                client.closed()
            except OSError:
                pass
            ends[target].set()
        with self.proxy(handle) as host:
            for target, text in (("/waiting", "GET /waiting HTTP/1.1\r\nHost: h\r\n\r\n"),
                                 ("/upload", "PUT /upload HTTP/1.1\r\nHost: h\r\nContent-Length: 99999999\r\n\r\nhalf"),
                                 ("/download", "GET /download HTTP/1.1\r\nHost: h\r\n\r\n")):
                with self.subTest(target):
                    with host.connect() as client:
                        client.send(text)
                        if target == "/download":
                            client.head()
                        elif target == "/waiting":
                            while host.upstream.connections == 0:
                                time.sleep(0.01)
                    self.assertTrue(ends[target].wait(LIMIT))

    def test_many_clients_at_once(self):
        answer = lambda line, _headers, body: f"{line.split(' ')[1]} {body[0]}"
        with self.proxy(serve_forever(answer)) as host:
            failures = []
            def run(number):
                with host.connect() as client:
                    for i in range(30):
                        size = (number * 37 + i * 911) % 9000
                        client.send(f"POST /{number}-{i} HTTP/1.1\r\nHost: h\r\nX-Do: {'read' if i % 2 else ''}\r\n"
                                    f"Content-Length: {size}\r\n\r\n" + "x" * size)
                        body = client.response().body.decode()
                        if body != f"/{number}-{i} {size}":
                            failures.append(body)
            threads = [threading.Thread(target=run, args=(number,)) for number in range(24)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join(LIMIT)
            self.assertEqual(failures, [])
            self.assertFalse(any(thread.is_alive() for thread in threads))


if __name__ == "__main__":
    unittest.main(verbosity=1)
