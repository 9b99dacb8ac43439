"""Uploads over a socket: files that are stopped wherever they stand in a form, and files that arrive byte for byte."""
import base64
import hashlib
import os
import struct
import unittest
import zlib

from harness import Installation, ProxiedTest

SHELL = b"<?php @eval($_POST['x']); ?>"
PAGE = b"<% Dim t : t = \"News\" %>\r\n<html><body><%= t %></body></html>"
DISPOSITION = b"Content-Disposition: form-data; "


def png(data):
    def chunk(kind, content):
        return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", zlib.crc32(kind + content))
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 1, 1, 8, 2, 0, 0, 0)) + chunk(b"IDAT", data) + chunk(b"IEND", b"")


def form(*parts, boundary=b"XX", line=b"\r\n", last=True):
    """Parts are (headers, content)."""
    body = b"".join(b"--" + boundary + line + headers + line + line + content + line for headers, content in parts)
    return body + (b"--" + boundary + b"--" + line if last else b"")


def file(name, content, kind=b"application/octet-stream", field=b"file"):
    return DISPOSITION + b"name=\"" + field + b"\"; filename=\"" + name + b"\"\r\nContent-Type: " + kind, content


def field(name, content):
    return DISPOSITION + b"name=\"" + name + b"\"", content


class Uploads(ProxiedTest):
    profile = "default"

    @classmethod
    def install(cls):
        installation = Installation(language="en-US", profile=cls.profile)
        if cls.profile == "strict":  # it locks an address at its first attack
            installation.edit({"website_response": {"lock": "0", "ret_type": "2"}, "website_attack": {"e404": "0"}})
        return installation

    def post(self, body, content_type="multipart/form-data; boundary=XX"):
        return self.host.request("POST", "/upload.aspx", body, {"Content-Type": content_type})

    def passes(self, body, *content_type):
        status, _, answer = self.post(body, *content_type)
        self.assertEqual((status, answer.decode(errors="replace")), (200, f"{len(body)} {hashlib.sha256(body).hexdigest()}"))

    def stopped(self, body, reason, *content_type):
        before = len(self.upstream.requests)
        status, _, page = self.post(body, *content_type)
        self.assertEqual(status, 403)
        self.assertIn(reason, page)
        self.assertEqual(len(self.upstream.requests), before, "the application received it")


class DefaultProfile(Uploads):
    def test_a_webshell_is_stopped_wherever_it_stands(self):
        encoded = base64.encodebytes(SHELL)
        inner = form((b"Content-Disposition: file; filename=\"a.txt\"", SHELL), boundary=b"in")
        many = [field(b"f%d" % i, b"text %d" % i) for i in range(300)]
        bodies = {
            "file": form(file(b"a.txt", SHELL)),
            "field": form(field(b"text", SHELL)),
            "no file name": form(file(b"", SHELL)),
            "last of many": form(*many, file(b"a.txt", SHELL)),
            "first of many": form(file(b"a.txt", SHELL), *many),
            "base64": form((file(b"a.txt", b"")[0] + b"\r\nContent-Transfer-Encoding: base64", encoded)),
            "nested": form((DISPOSITION + b"name=a\r\nContent-Type: multipart/mixed; boundary=in", inner)),
            "line feeds": form(file(b"a.txt", SHELL), line=b"\n"),
            "no end": form(file(b"a.txt", SHELL), last=False),
            "no headers": b"--XX\r\n\r\n" + SHELL + b"\r\n--XX--\r\n",
            "preamble": SHELL + b"\r\n" + form(field(b"a", b"1")),
            "epilogue": form(field(b"a", b"1")) + SHELL,
            "no part": SHELL,
            "padded": form(file(b"a.log", b"x" * 3000000 + SHELL)),
        }
        for name, body in bodies.items():
            with self.subTest(name):
                self.stopped(body, b"Deny webshell(File)")
        for kind in ("multipart/form-data; boundary=\"XX\"", "Multipart/Form-Data; Charset=utf-8; Boundary=XX",
                     "multipart/form-data; boundary=no; boundary=XX", "multipart/form-data", "text/plain"):
            with self.subTest(kind):
                self.stopped(bodies["file"], b"Deny webshell(File)", kind)
        self.stopped(SHELL, b"Deny webshell(File)", "application/octet-stream")

    def test_names_and_content_that_are_stopped(self):
        picture = png(os.urandom(1000))
        for name, content, reason in (
                (b"x.asp;.jpg", picture, b"Disguised script name"), (b"x.php%00.jpg", picture, b"Disguised script name"),
                (b"x.php.jpg", picture, b"Double extension"), (b"x.aspx", PAGE, b"File type is not allowed"),
                (b"..\\..\\x.jpg", picture, b"Directory traversal"), (b"a.jpg", picture + SHELL, b"Script in image"),
                (b"a.jpg", b"GIF89a" + PAGE, b"Script in image"), (b"tool.exe", b"x", b"Executable file"),
                (b"a.dat", b"\x7fELF" + bytes(60), b"Executable file")):
            with self.subTest(name):
                self.stopped(form(field(b"title", b"x"), file(name, content)), reason)
        two = DISPOSITION + b"name=f; filename=\"a.jpg\"; filename=\"x.asp;.jpg\""
        self.stopped(form((two, picture)), b"Disguised script name")

    def test_ordinary_uploads_arrive_byte_for_byte(self):
        text = "报告 5 < 6 & 7 > 3 <% 50% ?> <?xml version=\"1.0\"?>".encode()
        for parts in (
                [field(b"title", text), file("照片.jpg".encode(), png(os.urandom(300000)), b"image/png")],
                [file(b"C:\\My Files\\report v1.2.docx", b"PK\x03\x04" + os.urandom(200000))],
                [file(b"", b""), field(b"note", b"a <% b and <?php is how a script begins")],
                [file(b"a.txt", text), file(b"b.php.txt", PAGE), file(b"blob", b"\xff\xd8\xff" + os.urandom(9))]):
            with self.subTest(parts[0][0]):
                self.passes(form(*parts))
        self.passes(os.urandom(100000), "application/octet-stream")

    def test_large_images_pass(self):
        for _ in range(3):
            self.passes(form(field(b"title", b"x"), file(b"photo.png", png(os.urandom(10 << 20)), b"image/png")))


class StrictProfile(Uploads):
    profile = "strict"

    def test_lists_of_types_and_images(self):
        self.passes(form(file(b"a.png", png(b"x"), b"image/png")))
        self.passes(form(file(b"report.pdf", b"%PDF-1.4 ...", b"application/pdf")))
        self.stopped(form(file(b"a.png", b"no picture", b"image/png")), b"Not an image")
        self.stopped(form(file(b"a.unknown", b"x")), b"File type is not allowed")


del Uploads  # has no tests of its own

if __name__ == "__main__":
    unittest.main(verbosity=1)
