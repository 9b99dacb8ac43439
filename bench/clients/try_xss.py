#!/usr/bin/env python3
"""Which scripting vectors run in a browser through the firewall: Chromium, a site that prints what it is asked, qivhost.

Every vector of xss_vectors.py is first opened without the firewall and counts only when it runs there; every handler and
link is tried once. Needs the packages of the groups "browser" and "clients" and build/bin (./run.sh --build-only).
Exit code 0: at most --most per cent run through the firewall (script strings: --most-script); 1: more; 2: proves nothing."""
import argparse
import collections
import http.server
import json
import pathlib
import re
import sys
import threading
import urllib.parse

import xss_vectors
from guarded_site import Site

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests/browser"))
from chromium import BROWSER, Chromium  # noqa: E402

RUN_SECONDS = 900
ANSWER_SECONDS = 10
LEAST_VECTORS = 1000
# Says once that the vector ran, then does what a visitor may do: every handler that an element has, every link.
HOOK = """<script>(function () {
  var told = false, id = %s;
  function fired() { if (!told) { told = true; parent.postMessage({id: id, fired: true}, '*'); } return 1; }
  function hook(w) { w.alert = w.confirm = w.prompt = w.print = fired; }
  hook(window); window.hooked = true;
  new MutationObserver(function () {
    for (var i = 0; i < frames.length; ++i) try { hook(frames[i]); } catch (x) {}
  }).observe(document, {childList: true, subtree: true});
  function visit() {
    document.querySelectorAll('*').forEach(function (e) {
      for (var i = 0; i < e.attributes.length; ++i) {
        var name = e.attributes[i].name;
        if (/^on/.test(name)) try { e.dispatchEvent(new Event(name.slice(2))); } catch (x) {}
      }
      if (/^(a|area|math|button|input)$/i.test(e.localName)) {
        var event = new MouseEvent('click', {bubbles: true, cancelable: true});
        try { e.click ? e.click() : e.dispatchEvent(event); } catch (x) {}
      }
      if (e.localName == 'form' && /script/i.test(e.getAttribute('action'))) try { e.submit(); } catch (x) {}
    });
    setTimeout(function () { parent.postMessage({id: id, done: true}, '*'); }, 120);
  }
  setTimeout(visit, 60);
})();</script>
"""
# Opens the vectors in some frames at a time; each ends when its page says so, or in time.
HARNESS = """<!DOCTYPE html><title>vectors</title><body><script>
var list = %s, frames_ = 16, next = 0, open_ = {}, ran = [], left = list.length;
function end(id) {
  var o = open_[id];
  if (!o) return;
  delete open_[id]; clearTimeout(o.timer); o.frame.remove();
  if (!--left) fetch('/result', {method: 'POST', body: JSON.stringify(ran)}); else start();
}
function start() {
  if (next == list.length) return;
  var item = list[next++], frame = document.createElement('iframe'), id = item.id;
  frame.name = 'f' + id;
  frame.sandbox = 'allow-scripts allow-same-origin allow-forms';  // no dialogs, no way out
  open_[id] = {frame: frame, timer: setTimeout(end, %d, id)};
  document.body.appendChild(frame);
  frame.onload = function () {
    if (!open_[id]) return;
    var hooked = true;
    try { hooked = frame.contentWindow.hooked; } catch (x) {}
    clearTimeout(open_[id].timer);
    if (hooked) open_[id].timer = setTimeout(end, 1500, id); else end(id);
  };
  if (item.form === undefined) { frame.src = item.url; return; }
  var form = document.createElement('form'), field = document.createElement('textarea');
  form.action = item.url; form.method = 'post'; form.target = frame.name; form.acceptCharset = 'utf-8';
  field.name = 'q'; field.value = item.form; form.appendChild(field); document.body.appendChild(form); form.submit(); form.remove();
}
window.onmessage = function (m) {
  var id = m.data && m.data.id;
  if (m.data && m.data.fired) { ran.push(id); end(id); } else if (m.data && m.data.done) end(id);
};
for (var i = 0; i < frames_; ++i) start();
</script>"""
FRAME_MILLISECONDS = 4000


def percent_u(text):
    return re.sub("%u([0-9a-fA-F]{4})", lambda m: chr(int(m.group(1), 16)), text)


def site_text(way, query, value):
    """What the site prints for a value: how it reads and changes it on the way."""
    if way == "percent-decoded twice":
        return urllib.parse.unquote(value)
    if way == "as classic ASP":  # drops a "%" that begins no escape, and knows %uXXXX
        return re.sub("%(?![0-9a-fA-F]{2})", "", percent_u(value))
    if way == "the whole query":
        return urllib.parse.unquote_plus(query.split("&", 2)[2])
    if way == "backslash before quotes":
        return value.replace("'", "\\'").replace('"', '\\"')
    return value


def page(context, number, query, value):
    text, way = xss_vectors.CONTEXTS[context]
    printed = site_text(way, query, value)
    before, after = text.replace("{{", "\x00").replace("}}", "\x01").split("{}") if "{}" in text else (text, "")
    if way == "through innerHTML twice":
        script = json.dumps(printed).replace("<", "\\u003c")
        after = f"<script>o.innerHTML = {script}; p.innerHTML = o.innerHTML;</script>"
        printed = ""
    body = (before + printed + after).replace("\x00", "{").replace("\x01", "}")
    return f"<!DOCTYPE html><meta charset=utf-8>{HOOK % number}<body>{body}</body>"


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, *_):
        """A frame that was closed before its page came is no error."""


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *_):
        pass

    def answer(self, text):
        data = text.encode("utf-8", "surrogatepass")
        self.send_response(200)
        self.send_header("Content-Type", "text/html; charset=utf-8")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def do_GET(self):
        path, _, query = self.path.partition("?")
        if path == "/run":
            return self.answer(self.server.harness)
        if path != "/page":
            self.send_response(404)
            self.send_header("Content-Length", "0")
            return self.end_headers()
        self.show(query, urllib.parse.parse_qs(query, keep_blank_values=True))

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0))).decode("utf-8")
        path, _, query = self.path.partition("?")
        if path == "/result":
            self.server.ran = json.loads(body)
            self.server.finished.set()
            return self.answer("")
        self.show(query, {**urllib.parse.parse_qs(query), **urllib.parse.parse_qs(body, keep_blank_values=True)})

    def show(self, query, values):
        self.answer(page(values["c"][0], values["n"][0], query, values.get("q", [""])[0]))


class PrintingSite(Site):
    """A site in this process that prints what it is asked, and qivhost before it."""

    def _start_site(self):
        self.server = Server(("127.0.0.1", 0), Handler)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        return self.server.server_port

    def __exit__(self, *reason):
        super().__exit__(*reason)
        if hasattr(self, "server"):
            self.server.shutdown()

    def ran(self, vectors, origin, place):
        """The numbers of the vectors that ran when the pages came from `origin`."""
        items = []
        for number, (context, value) in vectors.items():
            url = f"{origin}/page?n={number}&c={context}"
            if place == "form" and context != "nameless":
                items.append({"id": number, "url": url, "form": value})
            else:
                name = "" if context == "nameless" else "q="
                items.append({"id": number, "url": f"{url}&{name}{urllib.parse.quote(value, safe='')}"})
        self.server.harness = HARNESS % (json.dumps(items).replace("<", "\\u003c"), FRAME_MILLISECONDS)
        self.server.finished = threading.Event()
        with Chromium("--disable-popup-blocking") as browser:
            browser.open(f"{origin}/run")
            browser.wait("left == 0", RUN_SECONDS)
            if not self.server.finished.wait(ANSWER_SECONDS):
                raise RuntimeError("the browser did not say which vectors ran")
        return set(self.server.ran)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--place", choices=["query", "form"], default="query", help="where the value is sent")
    parser.add_argument("--context", action="append", choices=xss_vectors.CONTEXTS, help="these only")
    parser.add_argument("--profile", default="default")
    parser.add_argument("--list", action="store_true", help="print the vectors that run through the firewall")
    parser.add_argument("--write", metavar="FILE", help="write the vectors that run without the firewall there, one a line")
    parser.add_argument("--most", type=float, default=2.0, help="per cent that may run, script strings aside")
    parser.add_argument("--most-script", type=float, default=8.0, help="per cent of script strings that may run")
    options = parser.parse_args()
    if not BROWSER:
        print("try_xss: no Chromium: cmake/install-packages.sh browser", file=sys.stderr)
        return 2
    chosen = [v for v in xss_vectors.vectors() if not options.context or v[0] in options.context]
    vectors = dict(enumerate(chosen))
    with PrintingSite(profile=options.profile) as site:
        real = site.ran(vectors, site.direct, options.place)
        vectors = {number: vector for number, vector in vectors.items() if number in real}
        through = site.ran(vectors, site.guarded, options.place)
        blocked = bool(site.log())
    if options.write:
        with open(options.write, "w", encoding="utf-8") as file:
            for context, value in vectors.values():
                file.write(json.dumps([context, value]) + "\n")
    counts = collections.Counter(context for context, _ in vectors.values())
    passed = collections.Counter(vectors[number][0] for number in through)
    print(f"{'context':18}{'run':>6}{'through':>9}")
    for context in xss_vectors.CONTEXTS:
        if counts[context]:
            print(f"{context:18}{counts[context]:6}{passed[context]:9}{100 * passed[context] / counts[context]:8.1f} %")
    if options.list:
        for number in sorted(through):
            print(f"{vectors[number][0]:18}{vectors[number][1]!r}")
    worse = False
    for name, strings, most in (("script strings", True, options.most_script), ("all others", False, options.most)):
        kinds = [context for context in counts if (context in xss_vectors.SCRIPT_STRINGS) == strings]
        total, got = sum(counts[c] for c in kinds), sum(passed[c] for c in kinds)
        share = 100 * got / total if total else 0
        worse |= share > most
        print(f"{name}: {got} of {total} run through the firewall, {share:.1f} %")
    if not blocked or (not options.context and len(vectors) < LEAST_VECTORS):
        print(f"try_xss: proves nothing: {len(vectors)} vectors run in this browser, blocked: {blocked}", file=sys.stderr)
        return 2
    return 1 if worse else 0


if __name__ == "__main__":
    sys.exit(main())
