"""What the end-to-end tests share: starting the host and an upstream, raw requests over a socket, installations."""
import contextlib
import hashlib
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
WINE = os.environ.get("QIV_E2E_WINE") == "1"
BIN = pathlib.Path(os.environ.get("QIV_E2E_BIN", SOURCE / ("build/windows/bin" if WINE else "build/dev/bin")))
SUFFIX = ".exe" if WINE else ""
MODULE = "QivIpsIIs.dll" if WINE else "libQivIpsIIs.so"
START_SECONDS = 120 if WINE else 30
STOP_SECONDS = 60
LIMIT = 120  # seconds for what must happen, on a busy machine


def native(path):
    """The path as the programs under test read it."""
    return "Z:" + str(path).replace("/", "\\") if WINE else str(path)


def command(program, *arguments):
    return ([str(SOURCE / "cmake/run-in-wine.sh")] if WINE else []) + [str(BIN / (program + SUFFIX)), *map(str, arguments)]


def run(program, *arguments, check=True, **options):
    result = subprocess.run(command(program, *arguments), capture_output=True, timeout=120, **options)
    if check and result.returncode != 0:
        raise AssertionError(f"{program} {arguments}: exit {result.returncode}\n{result.stderr.decode(errors='replace')}")
    return result


class Installation:
    """A module directory of its own: a copy of the module file, config/ and debug/."""

    def __init__(self, language=None, profile=None, configured=True, shipped_page=False):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="qiv-e2e-"))
        self.module = self.directory / MODULE
        self.replace_module()
        self.config_file = self.directory / "config" / "_config.db"
        self.settings = self.directory / "settings.json"
        self.log = self.directory / "debug" / "_log.log"
        if configured:
            options = (["--language", language] if language else []) + (["--profile", profile] if profile else [])
            run("qivctl", "init", native(self.directory), *options, "--rules", native(SOURCE / "rules"))
            # The built-in page with details: the shipped one tells a client nothing that a test could look for.
            if not shipped_page:
                self.edit({"website_response": {"ret_type": "2"}})

    def replace_module(self):
        """Renamed into place: writing into a file that a process has mapped takes the code from under it."""
        beside = shutil.copy(BIN / MODULE, self.directory / (MODULE + ".new"))
        os.replace(beside, self.module)

    def edit(self, changes):
        """`changes`: per section the members to set."""
        settings = json.loads(self.settings.read_text("utf-8"))
        for section, members in changes.items():
            settings[section].update(members)
        self.settings.write_text(json.dumps(settings, ensure_ascii=False), "utf-8")
        self.pack()

    def pack(self, settings=None):
        run("qivctl", "pack", native(settings or self.settings), "-o", native(self.config_file))

    def remove(self):
        shutil.rmtree(self.directory, ignore_errors=True)


class Response:
    def __init__(self, status, headers, body, whole):
        self.status, self.headers, self.body, self.whole = status, headers, body, whole

    def header(self, name):
        return ", ".join(value for key, value in self.headers if key.lower() == name.lower()) or None


class Client:
    """One side of a raw connection."""

    def __init__(self, connection):
        connection.settimeout(LIMIT)
        self.socket, self.buffer = connection, b""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, data):
        self.socket.sendall(data if isinstance(data, (bytes, bytearray)) else data.encode("latin-1"))

    def more(self):
        try:
            data = self.socket.recv(65536)
        except ConnectionError:
            data = b""
        self.buffer += data
        return bool(data)

    def line(self):
        while b"\r\n" not in self.buffer:
            if not self.more():
                raise EOFError(self.buffer)
        line, self.buffer = self.buffer.split(b"\r\n", 1)
        return line.decode("latin-1")

    def take(self, size):
        while len(self.buffer) < size and self.more():
            pass
        data, self.buffer = self.buffer[:size], self.buffer[size:]
        return data

    def head(self):
        status = int(self.line().split(" ")[1])
        headers = []
        while line := self.line():
            headers.append(tuple(line.split(": ", 1)))
        return status, headers

    def chunk(self):
        size = int(self.line(), 16)
        data = self.take(size)
        if self.line() != "":
            raise EOFError
        return data

    def response(self, head=False):
        status, headers = self.head()
        response = Response(status, headers, b"", True)
        if head or status < 200 or status in (204, 304):
            return response
        try:
            if response.header("Transfer-Encoding") == "chunked":
                while data := self.chunk():
                    response.body += data
            elif response.header("Content-Length") is not None:
                length = int(response.header("Content-Length"))
                response.body = self.take(length)
                response.whole = len(response.body) == length
            else:
                while self.more():
                    pass
                response.body, self.buffer = self.buffer, b""
        except EOFError:
            response.whole = False
        return response

    def closed(self):
        """Waits for the end of the connection; True when nothing more came."""
        before = self.buffer
        while self.more():
            pass
        return self.buffer == before


class HostProcess:
    """A running qivhost that listens on a free port; leaves with the `with` block."""
    stop_signal = signal.SIGTERM

    def __init__(self, *arguments, address="127.0.0.1"):
        self.address = address
        listen = f"[{address}]:0" if ":" in address else f"{address}:0"
        self.process = subprocess.Popen(command("qivhost", "--listen", listen, *arguments), stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        timer = threading.Timer(START_SECONDS, self.process.kill)
        timer.start()
        self.output = []
        for line in self.process.stdout:
            self.output.append(line.decode(errors="replace").strip())
            if "listening on " in self.output[-1]:
                break
        timer.cancel()
        if not self.output or "listening on " not in self.output[-1]:
            raise AssertionError(f"the host did not start: {self.output}")
        self.port = int(self.output[-1].rsplit(":", 1)[1])
        self.reader = threading.Thread(target=self._drain, daemon=True)
        self.reader.start()

    def connect(self):
        return Client(socket.create_connection((self.address, self.port), timeout=LIMIT))

    def _drain(self):
        for line in self.process.stdout:
            self.output.append(line.decode(errors="replace").strip())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def stop(self):
        if self.process.poll() is None:
            self.process.send_signal(self.stop_signal)
            try:
                self.process.wait(STOP_SECONDS)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
                raise AssertionError(f"the host did not stop on {self.stop_signal.name}")
        self.reader.join(STOP_SECONDS)
        self.process.stdout.close()
        return self.process.returncode


class Host(HostProcess):
    """A host with an installed module before a folder or an upstream."""

    def __init__(self, installation, root=None, upstream=None, threads=32, extra=(), address="127.0.0.1"):
        source = ["--root", native(root)] if root else ["--upstream", f"http://127.0.0.1:{upstream}"]
        super().__init__("--module", native(installation.module), *source, "--threads", threads, *extra, address=address)

    def get(self, target, headers=None):
        return self.request("GET", target, headers=headers)

    def request(self, method, target, body=None, headers=None):
        fields = {"Host": f"h:{self.port}", **(headers or {})}
        if body is not None:
            fields["Content-Length"] = len(body)
        head = "".join(f"{name}: {value}\r\n" for name, value in fields.items())
        with self.connect() as client:
            client.send(f"{method} {target} HTTP/1.1\r\n{head}\r\n")
            client.send(body or b"")
            response = client.response(head=method == "HEAD")
        assert response.whole, (response.status, response.headers)
        by_name = {}
        for name, value in response.headers:
            by_name.setdefault(name.lower(), []).append(value)
        return response.status, by_name, response.body

    def raw(self, data):
        """Sends bytes as they stand; the status code and the body of the first response."""
        with self.connect() as client:
            client.send(data)
            response = client.response()
            return response.status, response.body


class Service:
    """A running `qivctl service`; leaves with the `with` block."""

    def __init__(self, installation):
        self.process = subprocess.Popen(command("qivctl", "service", "--config", native(installation.directory)),
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        line = self.process.stdout.readline().decode(errors="replace")
        if not line.startswith("serving "):
            raise AssertionError(f"the service did not start: {line}")
        self.drain = threading.Thread(target=self.process.stdout.read, daemon=True)
        self.drain.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.drain.join()
        self.process.stdout.close()


def read_request(client):
    """Request line, headers and body as an upstream sees them. The body is given as (size, digest)."""
    line = client.line()
    headers = {}
    while text := client.line():
        name, value = text.split(": ", 1) if ": " in text else (text.rstrip(":"), "")
        headers[name.lower()] = value
    digest, size = hashlib.sha256(), 0
    if headers.get("transfer-encoding") == "chunked":
        while data := client.chunk():
            digest.update(data)
            size += len(data)
    else:
        left = int(headers.get("content-length", 0))
        while left:
            data = client.take(min(left, 65536))
            if not data:
                raise EOFError("body cut")
            digest.update(data)
            size += len(data)
            left -= len(data)
    return line, headers, (size, digest.hexdigest())


def serve_forever(answer):
    """An upstream that answers every request of a connection with answer(line, headers, body)."""
    def handle(client, _):
        with contextlib.suppress(EOFError):
            while True:
                body = answer(*read_request(client))
                client.send(f"HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: {len(body)}\r\n\r\n{body}")
    return handle


class Upstream:
    """A server whose connections are handled by a function of (Client, number of connection); without one an application that
    answers every request with the size and the digest of the body it received."""

    def __init__(self, handle=None):
        self.handle = handle or serve_forever(self._digest)
        self.requests = []  # of the application: (line, headers, (size, digest))
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.connections = 0
        self.failures = []
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self.listener.accept()
                connection.settimeout(LIMIT)
                self.connections += 1
                threading.Thread(target=self._serve, args=(connection, self.connections), daemon=True).start()

    def _serve(self, connection, number):
        try:
            self.handle(Client(connection), number)
        except Exception as error:  # pylint: disable=broad-except
            self.failures.append(error)
        finally:
            connection.close()

    def _digest(self, line, headers, body):
        self.requests.append((line, headers, body))
        return f"{body[0]} {body[1]}"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.listener.close()


class ProxiedTest(unittest.TestCase):
    """Tests with the module before an application."""
    @classmethod
    def install(cls):
        return Installation()

    @classmethod
    def setUpClass(cls):
        cls.installation = cls.install()
        cls.upstream = Upstream()
        cls.host = Host(cls.installation, upstream=cls.upstream.port)

    @classmethod
    def tearDownClass(cls):
        cls.host.stop()
        cls.upstream.__exit__()
        cls.installation.remove()


@contextlib.contextmanager
def site():
    """A folder with one page."""
    with tempfile.TemporaryDirectory(prefix="qiv-site-") as folder:
        (pathlib.Path(folder) / "index.html").write_text("<!DOCTYPE html><title>Site</title><p>Welcome</p>\n")
        yield pathlib.Path(folder)


def wait_until(condition, seconds, what):
    deadline = time.monotonic() + seconds
    while not (value := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f"not within {seconds} s: {what}")
        time.sleep(0.05)
    return value
