"""An editor's and administrator's work with the applications, in Chromium; what is stopped on the way is noted."""
import contextlib
import json
import shlex
import subprocess
import time

from application_site import PASSWORD, USER
from guarded_site import BIN

FETCH = """(async () => {
  const fields = %s, way = %s, headers = %s;
  let body;
  if (way == 'form') { body = new URLSearchParams(); for (const [n, v] of fields) body.append(n, v); }
  else if (way == 'multipart') {
    body = new FormData();
    for (const [n, v, name, type] of fields)
      name === undefined ? body.append(n, v) : body.append(n, new Blob([Uint8Array.from(atob(v), c => c.charCodeAt(0))], {type}), name);
  } else if (way == 'json') { body = JSON.stringify(fields); headers['Content-Type'] = 'application/json'; }
  else if (way) { body = fields; headers['Content-Type'] = way; }
  const answer = await fetch(%s, {method: way ? 'POST' : 'GET', headers, body, credentials: 'same-origin'});
  return {status: answer.status, text: (await answer.text()).slice(0, %d)};
})()"""
NOTE_BYTES = 200000
MOST_EXEMPTIONS = 12
RELOAD_SECONDS = 6  # a changed file is seen within that


class Failed(Exception):
    """The application did not do what it was asked."""


@contextlib.contextmanager
def noted(errors):
    """Adds to `errors` why an action failed."""
    try:
        yield
    except (AssertionError, RuntimeError, TypeError, ValueError, Failed) as caught:
        errors.append(" ".join(str(caught).split())[:300])


class Attack:
    def __init__(self, application, name, act):
        self.application, self.name, self.act = application, name, act
        self.first, self.exemptions, self.passes, self.done = None, [], False, False


class Visits:
    """Actions by application: [application, name, events, error]. `pause` seconds before each, as long as a person would take at least."""

    def __init__(self, browser, site, pause=0.0):
        self.browser, self.site, self.pause = browser, site, pause
        self.actions, self.attacks, self.application = [], [], ""
        self.seen = len(site.log())

    def stopped(self):
        """What was stopped since the last call."""
        events = self.site.log()[self.seen:]
        self.seen += len(events)
        return [event for event in events if event.get("action") == "block"]

    @contextlib.contextmanager
    def action(self, name):
        time.sleep(self.pause)
        errors = []
        with noted(errors):
            yield
        self.actions.append((self.application, name, self.stopped(), errors[0] if errors else None))

    def attack(self, name, act):
        """A text that is an injection itself, so it may be stopped. `act` is done again when exemptions are in force."""
        self.attacks.append(Attack(self.application, name, act))

    def exempt_attacks(self):
        """Does the attacks that are left, with the exemptions that are proposed for each, until they pass or none is new."""
        left = [attack for attack in self.attacks if not attack.done]
        for _ in range(MOST_EXEMPTIONS):
            for attack in left:
                time.sleep(self.pause)
                self.stopped()
                errors = []
                with noted(errors):
                    attack.act()
                events = self.stopped()
                attack.first = attack.first or (events[0] if events else None)
                attack.passes = not events and not errors
                attack.done = attack.passes or not events or not self._exempt(events[0], attack.exemptions)
            left = [attack for attack in left if not attack.done]
            if not left:
                break
            time.sleep(RELOAD_SECONDS)

    def _exempt(self, event, exemptions):
        """Follows the tool's proposal; False when it proposes nothing new."""
        said = subprocess.run([str(BIN / "qivctl"), "exempt", "--from-event", event["event_id"], "--config",
                               str(self.site.folder / "module")],
                              capture_output=True, text=True, check=False).stdout
        proposed = [line.strip() for line in said.splitlines() if line.strip().startswith("qivctl exempt add")]
        new = [line for line in proposed if line.split(" --remark")[0] not in exemptions]
        if new:  # another attack may have brought it already
            subprocess.run([str(BIN / "qivctl"), *shlex.split(new[0])[1:]], check=False, capture_output=True)
            exemptions.append(new[0].split(" --remark")[0])
        return bool(new)

    def open(self, path, ready="document.readyState == 'complete'"):
        self.browser.open(self.site.guarded + path)
        self.browser.wait(ready, 30)

    def look(self, path, ready="document.readyState == 'complete'"):
        """An action of its own: the page opens."""
        with self.action("open " + path):
            self.open(path, ready)

    def send(self, path, fields=None, way="form", headers=None, least=200, most=399):
        """A request as the page in the browser would send it; its text. `way`: form, multipart, json, a type, or "" for GET."""
        pairs = list(fields.items()) if isinstance(fields, dict) and way in ("form", "multipart") else fields
        answer = self.browser.value(FETCH % (json.dumps(pairs), json.dumps(way), json.dumps(headers or {}), json.dumps(path),
                                             NOTE_BYTES))
        if not answer or not least <= answer.get("status", 0) <= most:
            raise Failed(f"{path}: {str(answer)[:300]}")
        return answer["text"]

    def get(self, path, **options):
        return self.send(path, way="", **options)

    def submit_form(self, selector, button, changes=None):
        """Presses the button of the page's own form, and waits for the next page."""
        for field, text in (changes or {}).items():
            self.browser.type(field, text)
        self.browser.value("window.left = true")
        self.browser.wait(f"!document.querySelector({json.dumps(f'{selector} {button}')}).disabled", 30)
        self.browser.click(f"{selector} {button}")
        self.browser.wait("!window.left && document.readyState == 'complete'", 30)

    def log_in(self, path, user, password, button, ready):
        with self.action("log in"):
            self.open(path)
            self.browser.type(user, USER)
            self.browser.type(password, PASSWORD)
            self.browser.click(button)
            self.browser.wait(ready, 30)
