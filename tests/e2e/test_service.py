"""The module and the firewall service together: locks, lists, and lines that are neither lost nor counted twice."""
import json
import re
import socket
import threading
import time
import unittest

from harness import WINE, Host, Installation, Service, native, run, site, wait_until

ATTACK = "/?id=1+union+select+1,2+from+users"
EFFECT_SECONDS = 60  # an upper bound for a busy machine; the service looks 5 times a second, the module every 2 seconds
HOSTS = 1 if WINE else 4  # wine appends in two steps: processes cannot share a file there
ATTACKS = 50 if WINE else 300  # on each host, at least
KILLS = 2 if WINE else 6  # at least


def has_ipv6():
    try:
        with socket.create_server(("::1", 0), family=socket.AF_INET6):
            return True
    except OSError:
        return False


class Lists(unittest.TestCase):
    def setUp(self):
        self.installation = Installation(language="en-US")  # locks act without further settings
        self.addCleanup(self.installation.remove)

    def qivctl(self, name, *arguments, check=True):
        return run("qivctl", name, *arguments, "--config", native(self.installation.directory), check=check)

    def wait_refused(self, host):
        page = wait_until(lambda: (answer := host.get("/"))[0] == 403 and answer[2], EFFECT_SECONDS, "refused")
        self.assertIn(b"IP is in deny list", page)

    def wait_passes(self, host):
        wait_until(lambda: host.get("/")[0] == 200, EFFECT_SECONDS, "passes")

    def lock_after_three(self, address):
        self.installation.edit({"website_response": {"lock": "1", "lock_freq": "3", "lock_freq_sec": "86400",
                                                     "lock_time": "10"}})
        with site() as root, Host(self.installation, root=root, address=address) as host, Service(self.installation):
            self.assertEqual([host.get(ATTACK)[0] for _ in range(2)], [403, 403])
            time.sleep(3)
            self.assertEqual(host.get("/")[0], 200, "two are not enough")
            self.assertEqual(host.get(ATTACK)[0], 403)
            self.wait_refused(host)
            entry, = json.loads(self.qivctl("lists", "--json").stdout)
            client = "::/64" if ":" in address else address
            self.assertEqual((entry["list"], entry["client"], entry["end"] - entry["start"]), ("denylist", client, 600))
            self.assertIn("86400Attacks exceed in seconds3times, trigger cloud blocking rule(Deny SQL", entry["detail"])

            self.qivctl("auth", address)  # a white list goes before the deny list
            self.wait_passes(host)
            self.assertEqual(host.get(ATTACK)[0], 200)
            self.qivctl("auth", address, "--for", "1s")
            self.wait_refused(host)
            self.qivctl("forgive", address)
            self.wait_passes(host)
            self.assertEqual(self.qivctl("forgive", address, check=False).returncode, 1)
            self.qivctl("deny", address, "--for", "5s", "--reason", "by hand")
            self.wait_refused(host)
            self.wait_passes(host)  # when the time is over

    def test_three_attacks_lock_the_client(self):
        self.lock_after_three("127.0.0.1")

    @unittest.skipUnless(has_ipv6(), "no IPv6 on this machine")
    def test_three_attacks_lock_the_client_by_ipv6(self):
        self.lock_after_three("::1")

    def test_a_strict_hit_locks_at_once(self):
        self.installation.edit({"website_sql": {"get_mode": "1"}})
        with site() as root, Host(self.installation, root=root) as host, Service(self.installation):
            self.assertEqual(host.get(ATTACK)[0], 403)
            self.wait_refused(host)
            log = [json.loads(line) for line in self.qivctl("log", "--json").stdout.splitlines()]
            lock, = [line for line in log if line["kind"] == "lock"]
            self.assertTrue(lock["detail"].startswith("Trigger strict blocking mode, automatic blocking(Deny SQL"), lock)
            self.assertEqual(lock["end"] - lock["start"], 720 * 60)


class Lines(unittest.TestCase):
    def test_four_workers_and_a_service_that_is_killed_again_and_again(self):
        installation = Installation(language="en-US")
        self.addCleanup(installation.remove)
        installation.edit({"website_sql": {"get_mode": "0"}})
        stop, kills = threading.Event(), []

        def killer():
            while not stop.is_set():
                with Service(installation):
                    stop.wait(0.05 + len(kills) % 7 * 0.06)
                kills.append(1)

        with site() as root:
            hosts = [Host(installation, root=root, threads=4) for _ in range(HOSTS)]
            try:
                thread = threading.Thread(target=killer)
                thread.start()
                statuses = [[] for _ in hosts]

                def attack(host, seen):
                    while len(seen) < ATTACKS or len(kills) < KILLS:
                        seen.append(host.get(f"{ATTACK}&n={len(seen)}")[0])

                clients = [threading.Thread(target=attack, args=pair) for pair in zip(hosts, statuses)]
                for client in clients:
                    client.start()
                for client in clients:
                    client.join()
                stop.set()
                thread.join()
            finally:
                for host in hosts:
                    host.stop()
        for seen in statuses:
            self.assertEqual(set(seen), {403})
        output = run("qivctl", "service", "--config", native(installation.directory), "--once").stdout.decode()
        total = sum(map(len, statuses))
        self.assertRegex(output, rf"\b0 locks, {total} messages, 0 malformed")
        sums = json.loads((installation.directory / "config" / "_service.json").read_text("utf-8"))["totals"]
        if not WINE:  # there, the end of a host is the end of its process
            self.assertEqual(sum(sums["statistics"].values()), total, sums)
            self.assertEqual(sums["blocks"], {"injection": total})
        shown = run("qivctl", "log", "--config", native(installation.directory), "--json").stdout.splitlines()
        messages = [json.loads(line) for line in shown if b'"msg"' in line]
        numbers = sorted(int(re.search(r"n=(\d+)", line["url"])[1]) for line in messages)
        self.assertEqual(numbers, sorted(n for seen in statuses for n in range(len(seen))))


if __name__ == "__main__":
    unittest.main(verbosity=1)
