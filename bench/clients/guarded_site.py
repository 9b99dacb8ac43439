"""A site behind the firewall for real clients: an injectable page in PHP over SQLite or MariaDB, qivhost before it.

Everything listens on 127.0.0.1, lives in one temporary folder and ends with the context."""
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
BIN = ROOT / "build/bin"
PAGE = pathlib.Path(__file__).with_name("injectable.php")
GOODS = [("apple", "fruit", 3), ("pear", "fruit", 4), ("rye bread", "bakery", 5), ("ink", "office", 9)]
SECRETS = [("admin", "5f4dcc3b5aa765d61d8327deb882cf99"), ("eve", "Tr0ub4dor&3")]
SCHEMA = ["CREATE TABLE goods (id INTEGER, name VARCHAR(40), tag VARCHAR(40), price INTEGER)",
          "CREATE TABLE users (name VARCHAR(40), password VARCHAR(60))"]
START_SECONDS = 60


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Site:
    """`database` is "sqlite" or "mariadb"; `profile` one of the shipped ones. Locks are off: what is tried is whether a
    request is seen, not whether its sender is remembered."""

    def __init__(self, database="sqlite", profile="default"):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="qiv-clients-"))
        self.database, self.profile, self.children = database, profile, []
        self.guarded_port = free_port()
        self.guarded = f"http://127.0.0.1:{self.guarded_port}"

    def __enter__(self):
        signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))  # so that nothing outlives a run that is ended
        try:
            port = self._start_site()
            self.direct = f"http://127.0.0.1:{port}"
            self._wait(lambda: self._answers(port))
            self._install()
            self._start(str(BIN / "qivhost"), "--module", str(self.folder / "module/libQivIpsIIs.so"), "--listen",
                        f"127.0.0.1:{self.guarded_port}", "--upstream", self.direct, "--quiet")
            self._wait(lambda: self._answers(self.guarded_port))
            return self
        except BaseException:
            self.__exit__()
            raise

    def __exit__(self, *_):
        # PHP's workers outlive it: each child is ended with all that it started.
        for signal_number in (signal.SIGTERM, signal.SIGKILL):
            for child in reversed(self.children):
                try:
                    os.killpg(child.pid, signal_number)
                    child.wait(20)
                except (ProcessLookupError, subprocess.TimeoutExpired):
                    pass
        shutil.rmtree(self.folder, ignore_errors=True)

    def log(self):
        """The events so far."""
        path = self.folder / "module/debug/_log.log"
        return [json.loads(line) for line in path.read_text(encoding="utf-8").splitlines()] if path.is_file() else []

    def _start_site(self):
        """The port of the site itself."""
        environment = dict(os.environ, DATABASE=self._start_database(), PHP_CLI_SERVER_WORKERS="4")
        site = self.folder / "site"
        site.mkdir()
        shutil.copy(PAGE, site / "index.php")
        port = free_port()
        self._start("php", "-d", "variables_order=EGPCS", "-S", f"127.0.0.1:{port}", "-t", str(site), env=environment)
        return port

    def _start(self, *command, **options):
        log = open(self.folder / f"{pathlib.Path(command[0]).name}.log", "ab")
        child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True,
                                 **options)
        self.children.append(child)
        return child

    def _wait(self, ready):
        end = time.monotonic() + START_SECONDS
        while not ready():
            if time.monotonic() > end or any(child.poll() is not None for child in self.children):
                logs = "\n".join(path.read_text(errors="replace")[-500:] for path in self.folder.glob("*.log"))
                raise RuntimeError(f"the site did not start:\n{logs}")
            time.sleep(0.1)

    @staticmethod
    def _answers(port):
        try:
            socket.create_connection(("127.0.0.1", port), 1).close()
            return True
        except OSError:
            return False

    def _start_database(self):
        statements = SCHEMA + [f"INSERT INTO goods VALUES ({i}, '{n}', '{t}', {p})" for i, (n, t, p) in enumerate(GOODS, 1)]
        statements += [f"INSERT INTO users VALUES ('{name}', '{password}')" for name, password in SECRETS]
        script = ";\n".join(statements) + ";\n"
        if self.database == "sqlite":
            import sqlite3
            connection = sqlite3.connect(self.folder / "shop.db")
            connection.executescript(script)
            connection.close()
            return f"sqlite:{self.folder / 'shop.db'}"
        return f"mysql:unix_socket={self._start_mariadb('CREATE DATABASE shop; USE shop;' + script)};dbname=shop"

    def _start_mariadb(self, script):
        """The socket of a database server that has run the script; `root` needs no password."""
        data, address = self.folder / "data", self.folder / "mysqld.sock"
        options = ["--no-defaults", f"--datadir={data}", f"--socket={address}", f"--tmpdir={self.folder}"]
        # The server does not run as root; it gets a folder of its own.
        if os.geteuid() == 0:
            shutil.chown(self.folder, "mysql")
            self.folder.chmod(0o755)
            options.append("--user=mysql")
        made = subprocess.run(["mariadb-install-db", *options, "--auth-root-authentication-method=normal"], check=False,
                              capture_output=True, text=True)
        if made.returncode != 0:
            raise RuntimeError(f"mariadb-install-db: {made.stdout[-500:]} {made.stderr[-500:]}")
        self._start("mariadbd", *options, "--skip-networking", f"--pid-file={self.folder / 'mysqld.pid'}")
        client = ["mariadb", "--no-defaults", f"--socket={address}", "-uroot"]
        self._wait(lambda: subprocess.run([*client, "-e", "SELECT 1"], capture_output=True).returncode == 0)
        subprocess.run(client, input=script, text=True, check=True)
        return address

    def _install(self):
        module = self.folder / "module"
        (module / "debug").mkdir(parents=True)
        shutil.copy(BIN / "libQivIpsIIs.so", module)
        qivctl = str(BIN / "qivctl")
        subprocess.run([qivctl, "init", str(module), "--profile", self.profile, "--rules", str(ROOT / "rules")], check=True,
                       stdout=subprocess.DEVNULL)
        settings = module / "settings.json"
        text = json.loads(settings.read_text(encoding="utf-8"))
        text["website_response"]["lock"] = "0"
        for mode in ("get_mode", "post_mode", "header_mode"):
            text["website_sql"][mode] = "0"
        settings.write_text(json.dumps(text, ensure_ascii=False), encoding="utf-8")
        subprocess.run([qivctl, "pack", str(settings), "-o", str(module / "config/_config.db")], check=True,
                       stdout=subprocess.DEVNULL)
