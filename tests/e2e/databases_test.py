"""Databases: what an account may have, asked of the helper by hand, and the locks of suspended accounts."""
import subprocess
from urllib.parse import parse_qsl, urlencode

import panel
from maria_db import LOGIN, MariaDb
from panel import PanelTest, settings, text

HELPER = panel.PANEL + "/libexec/zvdb"


class DatabasesTest(PanelTest):
    maxDiff = None

    def setUp(self):
        super().setUp()
        self.administrator()
        for name in ("bob", "bob_al"):
            panel.panel_do("addAccount", name, "user", "boss", name + ".example")
        self.database = MariaDb()
        self.addCleanup(lambda: self.database.stop())

    def ask(self, command, account="bob", conf=panel.CONF, **pairs):
        """"done", or why not."""
        request = urlencode({"command": command, "account": account, **pairs}) + "\n"
        said = subprocess.run([HELPER, LOGIN, "30", *([conf] if conf else [])], input=request, capture_output=True,
                              encoding="utf-8", check=True).stdout
        answer = dict(parse_qsl(said.splitlines()[-1]))
        return answer.get("error", answer["result"])

    def enter(self, user, password, statement="SELECT 1"):
        """Whether the server lets the user do that."""
        return subprocess.run(["mariadb", "--no-defaults", "-NB", "-S", "/var/lib/maria_test/socket", "-u", user, "-p" + password, "-e", statement],
                              capture_output=True, check=False).returncode == 0


class HelperTest(DatabasesTest):
    def test_names(self):
        refused = "holds what may not be in a name"
        for account, name, want in (
                ("bob", "bob_shop", "done"), ("bob", "bob_shop", "exists"), ("bob", "ann_shop", "does not begin with bob_"),
                ("bob", "bob_", "does not begin"), ("bob", "bob_a_b", refused), ("bob", "bob_x`; DROP", refused),
                ("bob", "bob_%", refused), ("bob", "bob_al_x", "belongs to bob_al"), ("bob_al", "bob_al_x", "done"),
                ("../users", "../users_x", "there is no account"), ("nobody", "nobody_x", "there is no account"),
                ("bob", "bob_" + "x" * 61, "is longer than 64")):
            self.assertIn(want, self.ask("create", account, database=name), name)
        self.assertIn("configuration is not given", self.ask("create", conf="", database="bob_y"))
        settings(allow_db_underscore=1)
        self.assertEqual(self.ask("create", database="bob_a_b"), "done")
        self.assertIn("belongs to bob_al", self.ask("create", database="bob_al_y"))
        settings(allow_db_underscore=0)
        for host, want in (("%", "done"), ("192.0.2.0/255.255.255.0", "done"), ("", "no host"), ("h' OR 1", "no host")):
            self.assertIn(want, self.ask("create", user="bob_u", host=host, password="s"), host)
        self.assertEqual(self.ask("create", user="bob", host="localhost", password="s"), "done")
        self.assertIn("needs a password", self.ask("create", user="bob_v", host="localhost"))

    def test_users_and_grants(self):
        self.database.sql("CREATE DATABASE bobXshop; GRANT SELECT ON bob_shop.* TO stale@localhost IDENTIFIED BY 's'")
        for name in ("bob_shop", "bob_news"):
            self.ask("create", database=name)
        self.assertFalse(self.enter("stale", "s", "USE bob_shop"), "a new database begins without grants")
        who = {"user": "bob_u", "host": "localhost"}
        odd = "p'a\"s\\s%"
        self.assertEqual(self.ask("create", password=odd, **who), "done")
        self.assertFalse(self.enter("bob_u", odd, "USE bob_shop"))
        self.assertEqual(self.ask("grant", database="bob_shop", **who), "done")
        self.assertTrue(self.enter("bob_u", odd, "USE bob_shop; CREATE TABLE t (k INT); CREATE VIEW v AS SELECT * FROM t; DROP VIEW v"))
        self.assertFalse(self.enter("bob_u", odd, "USE bobXshop"), "no sign of a pattern")
        settings(database_extended_user_privileges=0)
        self.assertEqual(self.ask("grant", database="bob_shop", **who), "done")
        self.assertFalse(self.enter("bob_u", odd, "CREATE VIEW bob_shop.v AS SELECT * FROM bob_shop.t"))
        self.assertIn("no privilege that", self.ask("grant", database="bob_shop", privileges="select,file", **who))
        self.assertIn("no privilege that", self.ask("grant", database="bob_shop", privileges="trigger", **who))
        self.assertEqual(self.ask("grant", database="bob_shop", privileges="select", **who), "done")
        self.assertFalse(self.enter("bob_u", odd, "INSERT INTO bob_shop.t VALUES (1)"))
        self.assertIn("belongs to bob_al", self.ask("grant", database="bob_al_x", **who))
        self.assertIn("does not begin with bob_al_", self.ask("grant", "bob_al", database="bob_al_x", **who))
        self.ask("lock", **who)
        self.assertEqual(self.ask("password", hash=self.database.ask("root", "SELECT PASSWORD('new')").strip(), **who), "done")
        self.assertFalse(self.enter("bob_u", "new"), "a new password frees nobody")
        self.ask("unlock", **who)
        self.assertTrue(self.enter("bob_u", "new"))
        self.assertEqual(self.ask("revoke", database="bob_shop", **who), "done")
        self.assertFalse(self.enter("bob_u", "new", "USE bob_shop"))

    def test_rename(self):
        who = {"user": "bob_u", "host": "localhost"}
        self.ask("create", password="s", **who)
        for name in ("bob_shop", "bob_news"):
            self.ask("create", database=name)
            self.ask("grant", database=name, **who)
        self.database.sql("ALTER DATABASE bob_shop CHARACTER SET latin2; USE bob_shop; CREATE TABLE `a``b` (k INT PRIMARY KEY) ENGINE=InnoDB;"
                          "INSERT INTO `a``b` VALUES (7); CREATE TABLE c (k INT, FOREIGN KEY (k) REFERENCES `a``b` (k)) ENGINE=InnoDB;"
                          "CREATE VIEW bob_news.v AS SELECT 1")
        to = {"to_account": "bob_al", "to": "bob_al_shop"}
        self.assertIn("dump it", self.ask("rename", database="bob_news", to_account="bob_al", to="bob_al_news"))
        self.assertIn("does not begin", self.ask("rename", database="bob_shop", to_account="bob_al", to="bob_sho"))
        self.assertIn("no database", self.ask("rename", database="bob_gone", **to))
        self.database.sql("CREATE DATABASE bob_al_shop; CREATE TABLE bob_al_shop.t (k INT)")
        self.assertIn("holds tables", self.ask("rename", database="bob_shop", **to))
        # As a rename that was killed before the tables were moved leaves it.
        self.database.sql("DROP TABLE bob_al_shop.t")
        self.assertEqual(self.ask("rename", database="bob_shop", **to), "done")
        self.assertEqual(self.ask("rename", to_account="bob_al", to="bob_al_u", **who), "done")
        self.assertTrue(self.enter("bob_al_u", "s", "INSERT INTO bob_al_shop.c SELECT k FROM bob_al_shop.`a``b`"))
        self.assertFalse(self.enter("bob_u", "s"))
        left = self.database.ask("root", "SHOW DATABASES LIKE 'bob%'; SELECT Db FROM mysql.db WHERE User LIKE 'bob%' ORDER BY 1")
        self.assertEqual(left, "bob_al_shop\nbob_news\nbob\\\\_al\\\\_shop\nbob\\\\_news\n")


class ConversionTest(DatabasesTest):
    def test_marks_of_an_older_way(self):
        logins = ["bob_shop", "bob_free", "bob_kept", "bob_al_x"]
        self.database.sql("".join("CREATE USER %s@localhost;" % name for name in logins) + "ALTER USER bob_kept@localhost ACCOUNT LOCK;"
                          "SET PASSWORD FOR bob_shop@localhost = PASSWORD('s'); UPDATE mysql.global_priv SET Priv = JSON_SET(Priv, "
                          "'$.authentication_string', CONCAT('!', JSON_VALUE(Priv, '$.authentication_string'))) WHERE User = 'bob_shop';"
                          "FLUSH PRIVILEGES")
        self.assertFalse(self.enter("bob_shop", "s"))
        record = panel.PANEL + "/data/users/bob/user.conf"
        panel.write(record, text(record).replace("suspended=no", "suspended=yes"), "zvadmin", 0o600)
        self.database.stop()
        self.queue("action=convert&value=suspendedmysql")
        self.run_program()
        self.assertLogged("The database users of bob are not converted: ", times=1)
        self.database.start()
        for _ in range(2):
            self.queue("action=convert&value=suspendedmysql")
            self.run_program()
            self.assertEqual(self.database.let_in(*logins), ["bob_al_x"])
        self.assertLogged("The database users of 1 suspended accounts are locked", "system", times=2)
        subprocess.run([panel.BUILD + "/account_driver", "activate", "bob", "person"], check=True)
        self.assertTrue(self.enter("bob_shop", "s"))
        self.assertEqual(self.database.let_in(*logins), ["bob_free", "bob_al_x"])


if __name__ == "__main__":
    panel.main()
