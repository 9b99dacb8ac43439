"""WordPress, phpMyAdmin, DokuWiki and a static site from Debian's packages behind the firewall, on one address.

Needs the packages of the groups "clients" and "applications". The packages' files are copied, DokuWiki's first configuration and
data with them; nothing of the system is changed."""
import os
import shutil
import subprocess

from guarded_site import ROOT, Site, free_port

USER, PASSWORD = "editor", "Harbour-7-lights!"
PACKAGES = {"blog": "/usr/share/wordpress", "pma": "/usr/share/phpmyadmin", "wiki": "/usr/share/dokuwiki"}
SHOP = ["CREATE TABLE goods (id INT PRIMARY KEY AUTO_INCREMENT, name VARCHAR(80), tag VARCHAR(40), price DECIMAL(8,2), note TEXT)",
        "CREATE TABLE customers (id INT PRIMARY KEY AUTO_INCREMENT, name VARCHAR(80), `order by` VARCHAR(20), joined DATE)"]
WP_CONFIG = """<?php
define('DB_NAME', 'wordpress'); define('DB_USER', '{user}'); define('DB_PASSWORD', '{password}');
define('DB_HOST', 'localhost:{socket}'); define('DB_CHARSET', 'utf8mb4'); define('DB_COLLATE', '');
foreach (['AUTH', 'SECURE_AUTH', 'LOGGED_IN', 'NONCE'] as $name) {{
  define($name . '_KEY', 'k' . $name . '{socket}'); define($name . '_SALT', 's' . $name . '{socket}');
}}
define('WP_HOME', '{origin}/blog'); define('WP_SITEURL', '{origin}/blog');
define('WP_HTTP_BLOCK_EXTERNAL', true); define('DISABLE_WP_CRON', true); define('AUTOMATIC_UPDATER_DISABLED', true);
$table_prefix = 'wp_';
if (!defined('ABSPATH')) define('ABSPATH', __DIR__ . '/');
require_once ABSPATH . 'wp-settings.php';
"""
PMA_CONFIG = """<?php
$cfg['blowfish_secret'] = 'a-secret-of-thirty-two-bytes-xyz';
$cfg['Servers'][1] = ['auth_type' => 'cookie', 'host' => 'localhost', 'socket' => '{socket}'];
$cfg['UploadDir'] = ''; $cfg['SaveDir'] = ''; $cfg['TempDir'] = '{folder}/tmp';
"""
WIKI_LOCAL = """<?php
$conf['title'] = 'Harbour wiki'; $conf['useacl'] = 1; $conf['superuser'] = '@admin'; $conf['savedir'] = '{folder}/wikidata';
$conf['updatecheck'] = 0;
"""


def missing():
    """What must be installed first."""
    return [path for path in PACKAGES.values() if not os.path.isfile(path + "/index.php")]


class ApplicationSite(Site):
    def _start_site(self):
        site = self.folder / "site"
        site.mkdir()
        for name, package in PACKAGES.items():
            # Links lead into the other packages and the system's own data; here they become copies, or nothing.
            subprocess.run(["cp", "-rL", package, str(site / name)], stderr=subprocess.DEVNULL, check=False)
        shutil.copytree(ROOT / "docs/demo-site", site / "static")
        for folder in ("tmp", "wikiconf"):
            (self.folder / folder).mkdir()
        statements = ["CREATE DATABASE wordpress CHARACTER SET utf8mb4", "CREATE DATABASE shop CHARACTER SET utf8mb4",
                      f"CREATE USER '{USER}'@'localhost' IDENTIFIED BY '{PASSWORD}'",
                      f"GRANT ALL ON *.* TO '{USER}'@'localhost' WITH GRANT OPTION", "USE shop", *SHOP]
        statements += [f"INSERT INTO goods (name, tag, price, note) VALUES ('Lamp No. {i}', 'tag {i % 7}', {i}.50, 'it''s nice & bright')"
                       for i in range(1, 120)]
        values = {"user": USER, "password": PASSWORD, "socket": self._start_mariadb(";\n".join(statements)),
                  "origin": self.guarded, "folder": self.folder}
        (site / "blog/wp-config.php").write_text(WP_CONFIG.format(**values))
        vendor = site / "pma/libraries/vendor_config.php"
        text = vendor.read_text().replace("/var/lib/phpmyadmin/tmp/", f"{self.folder}/tmp/")
        vendor.write_text(text.replace("/etc/phpmyadmin/config.inc.php", f"{self.folder}/pma.php"))
        (self.folder / "pma.php").write_text(PMA_CONFIG.format(**values))
        self._set_up_wiki(site / "wiki", values)
        port = free_port()
        self._start("php", "-d", "opcache.enable_cli=1", "-d", "upload_max_filesize=64M", "-d", "post_max_size=64M",
                    "-d", f"session.save_path={self.folder}/tmp", "-d", "memory_limit=256M", "-S", f"127.0.0.1:{port}", "-t",
                    str(site),
                    env=dict(os.environ, PHP_CLI_SERVER_WORKERS="6"))
        return port

    def _set_up_wiki(self, wiki, values):
        configuration = self.folder / "wikiconf"
        subprocess.run(f"cp -rL /etc/dokuwiki/. {configuration}; cp -rL /var/lib/dokuwiki/data {self.folder}/wikidata",
                       shell=True, stderr=subprocess.DEVNULL, check=False)
        (configuration / "local.php").write_text(WIKI_LOCAL.format(**values))
        coded = subprocess.run(["php", "-r", "echo password_hash($argv[1], PASSWORD_BCRYPT);", "--", PASSWORD], check=True,
                               capture_output=True, text=True).stdout
        for name, line in (("users", f"{USER}:{coded}:The Editor:editor@example.org:admin,user"),
                           ("acl", "*\t@ALL\t1\n*\t@user\t8")):
            file = configuration / f"{name}.auth.php"
            file.unlink(missing_ok=True)
            file.write_text(f"# {name}.auth.php\n# <?php exit()?>\n{line}\n")
        preload = wiki / "inc/preload.php"
        preload.write_text(preload.read_text().replace("/etc/dokuwiki/", f"{configuration}/"))
