"""A changed configuration takes effect by itself, under load, and a broken one turns protection off."""
import json
import threading
import time
import unittest

from harness import Host, Installation, site, wait_until

ATTACK = "/?id=1+union+select+1,2+from+users"
CLIENTS = 16
EFFECT_SECONDS = 30  # an upper bound for a busy machine; the module looks every 2 seconds


class Reload(unittest.TestCase):
    def setUp(self):
        self.installation = Installation(language="en-US")
        self.addCleanup(self.installation.remove)

    def edit(self, change):
        settings = json.loads(self.installation.settings.read_text("utf-8"))
        change(settings)
        self.installation.settings.write_text(json.dumps(settings, ensure_ascii=False), "utf-8")
        self.installation.pack()

    def set_title(self, status):
        self.edit(lambda settings: settings["website_response"].update(ret_status=str(status)))

    def test_change_under_load(self):
        with site() as root, Host(self.installation, root=root) as host:
            stop, failures, counts = threading.Event(), [], []

            def client():
                count = 0
                try:
                    with host.connect() as connection:
                        while not stop.is_set():
                            attack = count % 4 == 3
                            connection.send(f"GET {ATTACK if attack else '/'} HTTP/1.1\r\nHost: h\r\n\r\n")
                            status = connection.response().status
                            if status not in ((403, 404, 500) if attack else (200,)):
                                failures.append(status)
                            count += 1
                except (OSError, EOFError) as error:
                    failures.append(repr(error))
                finally:
                    counts.append(count)

            threads = [threading.Thread(target=client) for _ in range(CLIENTS)]
            for thread in threads:
                thread.start()
            try:
                for status in (404, 500, 403):
                    self.set_title(status)
                    changed = time.monotonic()
                    wait_until(lambda: host.get(ATTACK)[0] == status, EFFECT_SECONDS, f"status {status}")
                    print(f"status {status} after {time.monotonic() - changed:.2f} s")
            finally:
                stop.set()
                for thread in threads:
                    thread.join()
            self.assertEqual(failures, [])
            self.assertEqual(len(counts), CLIENTS)
            self.assertTrue(all(counts), counts)

    def test_broken_file_turns_protection_off_and_a_good_one_on(self):
        with site() as root, Host(self.installation, root=root) as host:
            self.assertEqual(host.get(ATTACK)[0], 403)
            good = self.installation.config_file.read_bytes()
            for broken in (b"", b"x", good[: len(good) // 2], b"\xff" * 5000, good.replace(b"_websiteconfigpart", b"_other")):
                self.installation.config_file.write_bytes(broken)
                wait_until(lambda: host.get(ATTACK)[0] == 200, EFFECT_SECONDS, f"off after {broken[:20]}")
                self.installation.config_file.write_bytes(good)
                wait_until(lambda: host.get(ATTACK)[0] == 403, EFFECT_SECONDS, "on again")
            self.installation.config_file.unlink()
            wait_until(lambda: host.get(ATTACK)[0] == 200, EFFECT_SECONDS, "off without a file")


if __name__ == "__main__":
    unittest.main(verbosity=1)
