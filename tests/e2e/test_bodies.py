"""Bodies reach the application byte for byte, whatever their size, coding and content."""
import hashlib
import os
import socket
import unittest

from harness import ProxiedTest

LIMIT = 104857600  # the largest body the module reads


def pattern(size):
    """Bytes that hold no attack and do not repeat within a read piece."""
    block = hashlib.sha256(str(size).encode()).digest() * 513
    return (block * (size // len(block) + 1))[:size]


class Bodies(ProxiedTest):
    def send(self, body, content_type, method="POST"):
        status, _, answer = self.host.request(method, "/", body, {"Content-Type": content_type})
        self.assertEqual(status, 200, answer[:200])
        self.assertEqual(answer.decode(), f"{len(body)} {hashlib.sha256(body).hexdigest()}")

    def test_sizes_round_the_read_pieces(self):
        for size in (0, 1, 15, 4095, 4096, 4097, 8192, 65535, 65536, 1048577):
            with self.subTest(size):
                self.send(pattern(size), "application/octet-stream")

    def test_contents(self):
        contents = {
            "every byte": bytes(range(256)) * 33,
            "zeros": bytes(10000),
            "percent signs": b"%" * 5000 + b"%41%4" * 999,
            "pluses and entities": b"a=+&lt;&amp;&#65;&b=%2B" * 500,
            "gbk": "中文内容测试".encode("gbk") * 2000,
            "utf-8": "中文内容测试".encode() * 2000,
            "line ends": b"\r\n\n\r" * 5000,
            "password form field": b"secretrkey=" + b"x" * 9000,
        }
        for name, body in contents.items():
            for content_type in ("application/x-www-form-urlencoded", "text/plain; charset=utf-8"):
                with self.subTest(name, content_type=content_type):
                    self.send(body, content_type)

    def test_multipart(self):
        image = os.urandom(300000)
        body = (b"--XX\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a.png\"\r\nContent-Type: image/png\r\n\r\n" +
                image + b"\r\n--XX--\r\n")
        self.send(body, "multipart/form-data; boundary=XX")

    def test_other_methods(self):
        for method in ("PUT", "PATCH", "DELETE"):
            self.send(pattern(70000), "application/octet-stream", method)

    def test_chunked(self):
        for sizes in ((), (1,), (4096, 1), (1, 70000, 5), tuple(range(1, 200))):
            body = pattern(sum(sizes))
            data, at = b"", 0
            for size in sizes:
                data += b"%x\r\n%s\r\n" % (size, body[at:at + size])
                at += size
            with self.subTest(sizes[:5]):
                status, answer = self.host.raw(b"POST / HTTP/1.1\r\nHost: x\r\nContent-Type: text/plain\r\n"
                                               b"Transfer-Encoding: chunked\r\n\r\n" + data + b"0\r\n\r\n")
                self.assertEqual((status, answer.decode()), (200, f"{len(body)} {hashlib.sha256(body).hexdigest()}"))

    def test_largest_body_that_is_read_and_one_byte_more(self):
        for size in (LIMIT, LIMIT + 1):
            with self.subTest(size):
                self.send(pattern(size), "application/octet-stream")

    def test_attack_in_a_large_body_is_stopped(self):
        body = b"text=" + pattern(3000000).replace(b"&", b"x").replace(b"'", b"x") + b"&id=1 union select 1,2 from users"
        status, _, page = self.host.request("POST", "/", body, {"Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(status, 403)
        self.assertIn(b"(POST)", page)

    def test_client_that_leaves_in_the_middle(self):
        before = len(self.upstream.requests)
        with socket.create_connection(("127.0.0.1", self.host.port)) as connection:
            connection.sendall(b"POST / HTTP/1.1\r\nHost: x\r\nContent-Type: text/plain\r\nContent-Length: 100000\r\n\r\nabc")
        self.send(pattern(5000), "text/plain")
        self.assertGreater(len(self.upstream.requests), before)


if __name__ == "__main__":
    unittest.main(verbosity=1)
