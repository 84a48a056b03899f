"""A database server of the test's own, which the panel knows, and the log-ins at it."""
import subprocess
import time

import panel

FOLDER = "/var/lib/maria_test"
SOCKET = FOLDER + "/socket"
LOGIN = panel.PANEL + "/conf/mysql.conf"
OPTIONS = ["--no-defaults", "--user=mysql", "--datadir=%s/data" % FOLDER, "--innodb-log-file-size=4M"]


class MariaDb:
    def __init__(self):
        panel.shell("rm -rf %s; install -d -o mysql %s" % (FOLDER, FOLDER))
        subprocess.run(["mariadb-install-db", *OPTIONS, "--auth-root-authentication-method=normal", "--skip-test-db"],
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        panel.write(LOGIN, "user=panel\npasswd=secret\nsocket=%s\n" % SOCKET, "zvadmin", 0o600)
        panel.settings(mysql=1, mysqlconf=LOGIN)
        self.process = None
        self.start()
        self.sql("CREATE USER panel@localhost IDENTIFIED BY 'secret'; GRANT ALL ON *.* TO panel@localhost WITH GRANT OPTION")

    def start(self):
        self.process = subprocess.Popen(["mariadbd", *OPTIONS, "--skip-networking", "--socket=" + SOCKET], stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        while self.ask("root", "SELECT 1") != "1\n":
            assert self.process.poll() is None
            time.sleep(0.05)

    def stop(self):
        self.process.terminate()
        self.process.wait()

    def sql(self, statements):
        assert self.ask("root", statements) is not None, statements

    @staticmethod
    def ask(user, statements):
        """What the client prints; None when the server does not let him in or does not like them."""
        said = subprocess.run(["mariadb", "--no-defaults", "-NB", "-S", SOCKET, "-u", user, "-e", statements], capture_output=True,
                              encoding="utf-8", check=False)
        return said.stdout if said.returncode == 0 else None

    def let_in(self, *users):
        return [user for user in users if self.ask(user, "SELECT 1") == "1\n"]
