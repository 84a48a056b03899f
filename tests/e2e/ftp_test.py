"""FTP accounts: both real servers let in who may come in, and nobody else, and what they log is billed."""
import ftplib
import io
import os
import pwd
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor

import panel
from panel import PanelTest, settings, shell, text, write

USERS = panel.PANEL + "/data/users"
FTP = "/etc/proftpd.passwd"
HOSTS = "/etc/proftpd/zorvane-hosts.conf"
DATABASE = "/etc/pureftpd.pdb"
OWN = "127.0.0.3"
DRIVER = panel.BUILD + "/account_driver"
GOOD = ("bob", "web@bob.example", "down@bob.example")
# Name, field that is refused, and the line; %(h)s is the hash of "right".
HOSTILE = (("rooty", "uid", "rooty:%(h)s:0:0::/home/bob:"), ("mailer", "uid", "mailer:%(h)s:8:8::/home/bob:"),
           ("grp@bob.example", "gid", "grp@bob.example:%(h)s:%(u)s:0::/home/bob:"),
           ("up@bob.example", "home", "up@bob.example:%(h)s:%(u)s:%(u)s::/home/bob/../../etc:"),
           ("etc@bob.example", "home", "etc@bob.example:%(h)s:%(u)s:%(u)s::/etc:"),
           ("ann@bob.example", "home", "ann@bob.example:%(h)s:%(u)s:%(u)s::/home/ann:"),
           ("link@bob.example", "home", "link@bob.example:%(h)s:%(u)s:%(u)s::/home/bob/link:"),
           ("under@bob.example", "home", "under@bob.example:%(h)s:%(u)s:%(u)s::/home/bob/link/ssl:"),
           ("jail@bob.example", "home", "jail@bob.example:%(h)s:%(u)s:%(u)s::/home/bob/./x:"),
           ("col@bob.example", "form", "col@bob.example:%(h)s:%(u)s:%(u)s::/home/bob:/x:"), ("cut", "form", "cut:%(h)s"),
           ("../bob", "name", "../bob:%(h)s:%(u)s:%(u)s::/home/bob:"), ("a/b", "name", "a/b:%(h)s:%(u)s:%(u)s::/home/bob:"),
           ("ann", "name", "ann:%(h)s:%(u)s:%(u)s::/home/bob:"), ("x@ann.example", "name", "x@ann.example:%(h)s:%(u)s:%(u)s::/home/bob:"),
           ("bob", "name", "bob:$1$x$other:%(u)s:%(u)s::/home/bob:"), ("non@bob.example", "hash", "non@bob.example::%(u)s:%(u)s::/home/bob:"),
           ("odd@bob.example", "hash", "odd@bob.example:$1$a b:%(u)s:%(u)s::/home/bob:"))


def lives(session):
    try:
        return session.voidcmd("NOOP").startswith("2")
    except (EOFError, OSError, ftplib.Error):
        return False


class FtpTest(PanelTest):
    def setUp(self):
        super().setUp()
        shell("rm -f %s* %s %s /var/log/pureftpd.log /var/log/proftpd/*.bytes" % (FTP, HOSTS, DATABASE))
        self.administrator()
        for name in ("bob", "ann"):
            shell("pkill -KILL -u %s; userdel -rf %s; true" % (name, name), stderr=subprocess.DEVNULL)
            panel.panel_do("addAccount", name, "user", "boss", name + ".example", name + "2.example")
        uid, ann = (pwd.getpwnam(name).pw_uid for name in ("bob", "ann"))
        self.values = {"h": subprocess.check_output(["openssl", "passwd", "-6", "right"], encoding="ascii").strip(), "u": uid, "a": ann}
        shell("cd /home/bob; install -d -o bob -g bob down; ln -s /etc link")
        self.put(FTP, "bob:%(h)s:%(u)s:%(u)s::/home/bob:\n#comment\n", "web@bob.example:%(h)s:%(u)s:%(u)s:a comment:/home/bob/domains:\n"
                 "sus@bob.example:!%(h)s:%(u)s:%(u)s::/home/bob:\nlocked@bob.example:!!:%(u)s:%(u)s::/home/bob:\n",
                 *[line + "\n" for _, _, line in HOSTILE], "down@bob.example:%(h)s:%(u)s:%(u)s::/home/bob/down:\n",
                 "in@ann.example:%(h)s:%(a)s:%(a)s::/home/ann:\n")
        settings(ftppasswd=FTP)

    def put(self, path, *lines, user="root"):
        write(path, "".join(lines) % self.values, user, 0o600)

    def rewrite(self, **how):
        self.queue("action=rewrite&value=pureftp_db")
        return self.run_program(**how)

    def serve(self, command):
        """A server, stopped at the end; it is up when it greets."""
        process = subprocess.Popen(["bash", "-c", "exec " + command], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        for _ in range(100):
            try:
                return ftplib.FTP("127.0.0.1", timeout=5).close()
            except OSError:
                time.sleep(0.1)
        raise AssertionError(command + " does not come up")

    def assertShut(self, tries, host="127.0.0.1"):
        """Nobody gets in with these names and passwords: at once, since servers let such clients wait."""
        with ThreadPoolExecutor(8) as pool:
            self.assertEqual(list(pool.map(lambda one: self.gets_in(*one, host=host) and one, tries)), [None] * len(tries))

    @staticmethod
    def gets_in(name, password="right", host="127.0.0.1", upload=0):
        """What he sees at his top when he gets in, else None."""
        with ftplib.FTP(host, timeout=60) as ftp:
            try:
                ftp.login(name, password)
            except ftplib.error_perm as error:
                assert str(error).startswith("530"), error
                return None
            if upload:
                ftp.storbinary("STOR file", io.BytesIO(b"x" * upload))
            try:
                ftp.cwd("/../../..")
            except ftplib.error_perm:
                pass
            return {name for name in ftp.nlst() if not name.startswith(".")}

    def session(self, name, host="127.0.0.1"):
        ftp = ftplib.FTP(host, timeout=60)
        self.addCleanup(ftp.close)
        ftp.login(name, "right")
        return ftp

    def assertDoors(self, hostile):
        """Who may come in does, shut up in his folder; nobody else."""
        self.assertEqual(self.gets_in("bob") - {"link"}, {"domains", "down"})
        self.assertEqual(self.gets_in("web@bob.example", upload=5000), {"bob.example", "bob2.example", "file"})
        self.assertEqual(self.gets_in("down@bob.example", upload=700), {"file"})
        self.assertShut([("bob", "wrong"), ("bob", ""), ("root", "right"), ("/home/bob", "right"), ("sus@bob.example", "right"),
                         ("locked@bob.example", "!!"), *((name, "right") for name in hostile)])

    def assertRefusals(self):
        for name, field, _ in HOSTILE:
            who = "nobody" if name in ("rooty", "mailer", "cut") else "bob"
            self.assertLogged("%s: %s of the FTP account '%s' is refused: " % (who, field, name))
        self.assertNotIn(self.values["h"], self.log())

    def billed(self, name):
        """Bytes of FTP that the tallies so far have billed."""
        self.queue("action=tally&value=all")
        self.run_program()
        return sum(float(line.split("=")[0]) for line in text("%s/%s/bandwidth.tally" % (USERS, name)).splitlines())

    def account(self, *words):
        subprocess.run([DRIVER, *words], check=True)


class PureFtpdTest(FtpTest):
    def setUp(self):
        super().setUp()
        settings(pureftp=1)

    def test_doors_and_bill(self):
        self.put(USERS + "/bob/domains/bob2.example.ftppasswd", "shop:%(h)s:%(u)s:%(u)s::/home/bob/down:\n", user="zvadmin")
        self.rewrite()
        self.assertRefusals()
        self.assertEqual((panel.owner(DATABASE), panel.mode(DATABASE)), ("root", 0o600))
        self.assertNotIn("pureftp_db", os.listdir(panel.ADMIN + "/state"))
        before = panel.state(DATABASE), self.log().count("is refused")
        self.rewrite()
        self.assertEqual(before, (panel.state(DATABASE), self.log().count("is refused")), "nothing had changed")
        for name in ("sus@bob.example", "locked@bob.example", *(name for name, _, _ in HOSTILE)):
            self.assertTrue(name == "bob" or "\0\0\0%c%s" % (len(name), name) not in text(DATABASE), name)
        self.assertIn("\0\0\0\x03bob", text(DATABASE))
        self.serve("pure-ftpd <(grep -v Daemonize %s/share/ftp/pure-ftpd.conf)" % panel.PANEL)
        self.assertDoors(("../bob", "up@bob.example"))
        self.assertEqual(self.gets_in("shop@bob2.example"), {"file"})
        self.assertEqual(self.billed("bob"), 5700)
        # A suspension reaches the database with the next line of the queue. Who comes in until then goes when it does.
        self.account("suspend", "ann", "test")
        self.account("activate", "ann")
        early, staying = self.session("bob"), self.session("in@ann.example")
        self.account("suspend", "bob", "test")
        late = self.session("web@bob.example")
        self.assertEqual((lives(early), lives(late)), (False, True))
        self.assertEqual(text(panel.QUEUE).count("pureftp"), 1, "one for all")
        self.run_program()
        self.assertEqual((lives(late), lives(staying)), (False, True))
        self.assertShut([(name,) for name in (*GOOD, "shop@bob2.example")])
        self.account("activate", "bob")
        self.run_program()
        for name in (*GOOD, "shop@bob2.example"):
            self.assertIsNotNone(self.gets_in(name), name)
        self.assertShut([("sus@bob.example",)])

    def test_a_failure_leaves_the_database(self):
        self.rewrite()
        before = text(DATABASE)
        self.put(FTP, "bob:%(h)s:%(u)s:%(u)s::/home/bob:\n")
        for body in ("echo broken; exit 3\n", "echo broken; exit 3\n", "exit 0\n", "echo none >$2\n"):
            self.stand_in("/usr/bin/pure-pw", body)
            self.rewrite()
            self.assertEqual(text(DATABASE), before)
        said = "Unable to rewrite the FTP password database: /usr/bin/pure-pw: broken"
        told = [message for subject, message in self.notices() if subject == "The FTP password database cannot be changed"]
        self.assertEqual((self.log().count(said), len(told)), (1, 2), "each reason once")
        self.assertLogged("Unable to rewrite the FTP password database: /usr/bin/pure-pw made no database")
        os.rename(FTP, FTP + ".away")
        self.addCleanup(os.unlink, FTP + ".away")
        self.rewrite()
        self.assertLogged("There is no " + FTP)
        self.assertEqual(text(DATABASE), before)


class ProftpdTest(FtpTest):
    def setUp(self):
        super().setUp()
        self.put("/etc/proftpd/conf.d/zorvane.conf", text(panel.PANEL + "/share/ftp/proftpd.conf").replace("192.0.2.1", "127.0.0.1")
                 .replace("%", "%%"))
        self.own = USERS + "/bob/domains/bob.example.ftppasswd"
        self.put(self.own, "bob:%(h)s:%(u)s:%(u)s::/home/bob:\nshop:%(h)s:%(u)s:%(u)s::/home/bob/down:\n"
                 "sus2:!%(h)s:%(u)s:%(u)s::/home/bob:\nother:%(h)s:0:%(u)s::/home/bob:\n", user="zvadmin")
        write(panel.ADMIN + "/ips/" + OWN, "status=owned\nreseller=bob\n", "zvadmin", 0o600)
        shell("echo %s >>%s/ip.list; sed -i s/^ip=.*/ip=%s/ %s/bob/user.conf" % (OWN, panel.ADMIN, OWN, USERS))
        settings(ftpvhosts=HOSTS)
        self.init_script("proftpd", "echo proftpd $1 >>%s" % self.calls)

    status = None

    def convert(self, more="", env=None, status=0):
        # As if it were so much later that a killed run's locks are nobody's.
        shell("rm -rf %s* %s %s.lock %s.lock" % (panel.QUEUE, panel.LOST, FTP, self.own))
        self.queue("action=convert&value=unifiedftp" + more)
        outcome = subprocess.run([panel.PROGRAM], env={**os.environ, **(env or {})}, capture_output=True, check=False)
        self.status = outcome.returncode
        if status is not None:
            self.assertEqual(self.status, status, outcome.stderr)

    def hosts(self):
        return text(USERS + "/bob/proftpd.conf")

    def test_doors_and_bill(self):
        self.rewrite()
        self.assertRefusals()
        self.run_program()
        self.assertIn("proftpd reload", self.service_calls())
        self.assertIn("Include %s/bob/proftpd.conf\n" % USERS, text(HOSTS))
        self.serve("proftpd -n")
        # What ProFTPD reads itself it judges itself: a name or a comment is no matter to it.
        self.assertDoors([name for name, field, _ in HOSTILE if field in ("uid", "home") and "ann" not in name and "under" not in name])
        self.assertEqual(self.gets_in("shop", host=OWN, upload=90), {"file"})
        self.assertShut([("sus2",), ("other",), ("web@bob.example",)], host=OWN)
        self.assertShut([("shop",)])
        self.assertEqual(self.billed("bob"), 5790)
        early, staying = self.session("bob"), self.session("in@ann.example")
        self.account("suspend", "bob", "test")
        self.assertEqual((lives(early), lives(staying)), (False, True))
        self.assertShut([(name,) for name in GOOD])
        self.assertShut([("bob",), ("shop",)], host=OWN)
        self.account("activate", "bob")
        self.assertIsNotNone(self.gets_in("shop", host=OWN))
        self.assertShut([("sus2",)], host=OWN)

    def test_what_proftpd_refuses_is_not_put_in_place(self):
        self.rewrite()
        before = text(HOSTS), self.hosts()
        shell("install -D -o zvadmin /dev/stdin %s/data/templates/custom/ftp_host.txt <<<'Bogus |DOMAIN|'" % panel.PANEL)
        self.rewrite()
        self.assertLogged("bob is left out of the FTP hosts: unknown configuration directive 'Bogus'")
        self.assertEqual((text(HOSTS), self.hosts()), before)
        # An address that is his no more, and what another account claims.
        os.unlink(panel.PANEL + "/data/templates/custom/ftp_host.txt")
        shell("sed -i s/^ip=.*/ip=%s/ %s/ann/user.conf" % (OWN, USERS))
        self.rewrite()
        self.assertLogged("ann: address %s is refused: account bob has it" % OWN)
        self.assertEqual((text(HOSTS), text(USERS + "/ann/proftpd.conf")), (before[0], ""))
        # What cannot be read is not gone.
        address = "%s/ips/%s" % (panel.ADMIN, OWN)
        os.chmod(address, 0)
        self.rewrite()
        self.assertEqual((text(HOSTS), self.hosts()), before)
        os.chmod(address, 0o600)
        shell("sed -i s/owned/shared/ %s/ips/%s" % (panel.ADMIN, OWN))
        self.rewrite()
        self.assertEqual(("Include" in text(HOSTS), self.hosts()), (False, ""))

    def test_conversion(self):
        self.rewrite()
        self.put(self.own, "bob:%(h)s:%(u)s:%(u)s::/home/bob:\nshop:%(h)s:%(u)s:%(u)s::/home/bob/down:\n"
                 "sus2:!%(h)s:%(u)s:%(u)s::/home/bob:\nother:%(h)s:0:%(u)s::/home/bob:\nweb:$1$other:%(u)s:%(u)s::/home/bob:\n", user="zvadmin")
        ann = USERS + "/ann/domains/ann.example.ftppasswd"
        shell("echo ann >%s; chown zvadmin %s" % (ann, ann))
        before = text(FTP), text(self.own)
        self.convert("&simulate=yes")
        self.assertLogged("bob: 3 FTP accounts of bob.example would go to " + FTP, "system")
        self.convert()
        self.assertLogged("unified_ftp_password_file is not set")
        self.assertEqual((text(FTP), text(self.own)), before)
        settings(unified_ftp_password_file=1)
        # Killed anywhere, every entry is in one of the files at least, and the next conversion brings it to its end.
        step, self.status = 0, None
        while self.status != 0:
            write(FTP, before[0], "root", 0o600)
            write(self.own, before[1], "zvadmin", 0o600)
            self.convert(env={"ZVTASKQ_FAIL": "safe_write.*:kill:%d" % step}, status=None)
            step += 1
            names = {line.split(":")[0].split("@")[0] for line in (text(FTP) + text(self.own)).splitlines()}
            self.assertLessEqual({"bob", "shop", "sus2", "other", "web", "down", "locked"}, names, step)
            self.assertTrue(text(FTP).startswith(before[0]), step)
        self.assertGreater(step, 8)
        added = text(FTP)[len(before[0]):]
        self.assertEqual(added % (), "shop@bob.example:%(h)s:%(u)s:%(u)s::/home/bob/down:\nsus2@bob.example:!%(h)s:%(u)s:%(u)s::/home/bob:\n"
                         % self.values)
        self.assertEqual(text(self.own), "other:%(h)s:0:%(u)s::/home/bob:\nweb:$1$other:%(u)s:%(u)s::/home/bob:\n" % self.values)
        self.assertEqual(text(ann), "ann\n", "an account without an address of its own")
        # One that was killed in between: an entry that is in both.
        write(self.own, before[1], "zvadmin", 0o600)
        self.convert()
        self.assertEqual((text(FTP), text(self.own).count("shop")), (before[0] + added, 0))
        self.assertLogged("bob: uid of the FTP account 'other@bob.example' is refused")
        self.assertLogged("bob: name of the FTP account 'web@bob.example' is refused: another of that name is in the file of all")
        self.assertEqual((panel.owner(FTP), panel.mode(FTP), panel.owner(self.own)), ("root", 0o600, "zvadmin"))
        self.run_program()
        self.serve("proftpd -n")
        self.assertEqual(self.gets_in("shop@bob.example", host=OWN), set())
        self.assertIsNotNone(self.gets_in("bob", host=OWN))
        self.assertShut([("shop",), ("sus2@bob.example",)], host=OWN)


if __name__ == "__main__":
    panel.main()
