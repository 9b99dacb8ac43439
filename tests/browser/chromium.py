"""Headless Chromium driven as a person would: mouse, keyboard, pictures. Speaks the DevTools protocol over a pipe."""
import base64
import contextlib
import json
import os
import shutil
import signal
import subprocess
import tempfile
import time

BROWSER = shutil.which("chromium") or shutil.which("chromium-browser")
ANSWER_SECONDS = 60
KEYS = {"Tab": 9, "Enter": 13, "End": 35, "ArrowRight": 39, " ": 32}


class Chromium:
    """Leaves with the `with` block, its profile too. `flags`: of the command line, more than the usual ones."""

    def __init__(self, *flags):
        self.flags = flags

    def __enter__(self):
        self.profile = tempfile.mkdtemp(prefix="qiv-browser-")
        ours_in, theirs_out = os.pipe()
        theirs_in, ours_out = os.pipe()

        def connect():  # the browser reads commands from 3 and answers on 4
            low, high = os.dup(theirs_in), os.dup(theirs_out)
            os.dup2(low, 3)
            os.dup2(high, 4)

        self.process = subprocess.Popen(
            [BROWSER, "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-extensions",
             "--disable-background-networking", "--remote-debugging-pipe", f"--user-data-dir={self.profile}",
             *self.flags, "about:blank"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, preexec_fn=connect,
            pass_fds=(3, 4), start_new_session=True)
        os.close(theirs_in)
        os.close(theirs_out)
        self.reader, self.writer = os.fdopen(ours_in, "rb"), os.fdopen(ours_out, "wb", buffering=0)
        self.number, self.session, self.buffer = 0, None, b""
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        self.call("Page.enable")
        return self

    def __exit__(self, *_):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()
        self.reader.close()
        self.writer.close()
        shutil.rmtree(self.profile, ignore_errors=True)

    def call(self, method, **params):
        number = self._send(method, params)
        while True:
            answer = self._message()
            if answer.get("method") == "Page.javascriptDialogOpening":  # "leave this page?", "really delete?": yes
                self._send("Page.handleJavaScriptDialog", {"accept": True})
            if answer.get("id") == number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]

    def _send(self, method, params):
        self.number += 1
        message = {"id": self.number, "method": method, "params": params}
        if self.session:
            message["sessionId"] = self.session
        self.writer.write(json.dumps(message).encode() + b"\0")
        return self.number

    def _message(self):
        while b"\0" not in self.buffer:
            data = self.reader.read1(65536)
            if not data:
                raise EOFError("the browser went away")
            self.buffer += data
        text, self.buffer = self.buffer.split(b"\0", 1)
        return json.loads(text)

    def open(self, url):
        self.call("Page.navigate", url=url)
        self.wait("document.readyState != 'loading' && location.href != 'about:blank'")

    def value(self, script):
        """What the expression is, or what it promises."""
        result = self.call("Runtime.evaluate", expression=script, returnByValue=True, awaitPromise=True)
        return result["result"].get("value")

    def type(self, selector, text):
        """Instead of what the field holds."""
        self.call("Runtime.evaluate", expression=f"(e => (e.focus(), e.select && e.select()))"
                                                 f"(document.querySelector({json.dumps(selector)}))")
        self.call("Input.insertText", text=text)

    def choose_files(self, selector, *paths):
        root = self.call("DOM.getDocument")["root"]["nodeId"]
        node = self.call("DOM.querySelector", nodeId=root, selector=selector)["nodeId"]
        self.call("DOM.setFileInputFiles", files=[str(path) for path in paths], nodeId=node)

    def wait(self, script, seconds=ANSWER_SECONDS):
        """Until the expression is true; a navigation in between may make it fail for a moment."""
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            with contextlib.suppress(RuntimeError):
                if self.value(script):
                    return True
            time.sleep(0.05)
        raise AssertionError(f"never true: {script}\n{self.value('document.documentElement.outerHTML')[:3000]}")

    def text(self):
        return self.value("document.body ? document.body.innerText : ''")

    def click(self, selector):
        place = (f"(e => (e.scrollIntoView({{block: 'center'}}), e = e.getBoundingClientRect(), "
                 f"[e.x + e.width / 2, e.y + e.height / 2]))(document.querySelector({json.dumps(selector)}))")
        now = self.value(place)
        for _ in range(40):  # a page that is still growing moves it
            before = now
            time.sleep(0.05)
            now = self.value(place)
            if now == before:
                break
        x, y = now
        self._mouse("mouseMoved", x, y)
        self._mouse("mousePressed", x, y)
        self._mouse("mouseReleased", x, y)

    def drag(self, selector):
        """From the left end of an element to its right end."""
        x, y, width, height = self.value(f"(r => [r.x, r.y, r.width, r.height])"
                                         f"(document.querySelector({json.dumps(selector)}).getBoundingClientRect())")
        y += height / 2
        self._mouse("mousePressed", x + 8, y)
        for step in range(1, 11):
            self._mouse("mouseMoved", x + 8 + (width + 10) * step / 10, y, held=True)
        self._mouse("mouseReleased", x + width + 18, y)

    def _mouse(self, kind, x, y, held=False):
        moved = kind == "mouseMoved"
        self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="none" if moved and not held else "left",
                  buttons=0 if moved and not held else 1, clickCount=0 if moved else 1)

    def press(self, *keys):
        for key in keys:
            text = {"Enter": "\r", " ": " "}.get(key, key if len(key) == 1 else "")
            for kind in ("keyDown", "keyUp"):
                self.call("Input.dispatchKeyEvent", type=kind, key=key, code=key, text=text if kind == "keyDown" else "",
                          windowsVirtualKeyCode=KEYS.get(key, ord(key) if len(key) == 1 else 0))

    def picture(self, path, width, height, dark):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=width < 500)
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(base64.b64decode(self.call("Page.captureScreenshot", format="png")["data"]))
        self.call("Emulation.clearDeviceMetricsOverride")
