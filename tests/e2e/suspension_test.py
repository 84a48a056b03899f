"""Suspending accounts and domains, and giving back what was theirs: real system accounts, cron, password files."""
import contextlib
import glob
import os
import pwd
import signal
import subprocess
import time

import panel
from maria_db import MariaDb
from panel import PanelTest, settings, shell, text, write

DRIVER = panel.BUILD + "/account_driver"
FTP = "/etc/proftpd.passwd"
SHADOW = "/etc/shadow"
BOB = panel.PANEL + "/data/users/bob"
CRON = "1 2 3 4 5 /bin/true # \xe4\n"


def mailboxes(domain):
    return "/etc/virtual/%s/passwd" % domain


def shadow_of(name):
    return next(line for line in text(SHADOW).splitlines() if line.startswith(name + ":"))


class AccountTest(PanelTest):
    def setUp(self):
        super().setUp()
        for name in ("bob", "ann"):
            shell("pkill -KILL -u %s; crontab -u %s -r; userdel -rf %s" % (name, name, name) + "; true", stderr=subprocess.DEVNULL)
            panel.panel_do("addAccount", name, "user", "root", name + ".example", name + "2.example")
            shell("echo %s:secret | chpasswd" % name)
            for domain in (name + ".example", name + "2.example"):
                write(mailboxes(domain), "info:{CRYPT}$6$a:8:8::/x::\r\nold:!$6$b:8:8::/x::\nlocked:!!:8:8::/x::\nnone::8:8::/x::\n#c\nbad\n"
                      "last:$6$c:8:8::/x::", "mail", 0o640)
        uid = pwd.getpwnam("bob").pw_uid
        write(FTP, "bob:$1$x:%d:1::/home/bob:\nguest@bob.example:$1$y:99:99::/h:\nold@bob2.example:!$1$y:99:99::/h:\nuid:$1$z:%d:1::/h:\n"
              "ann:$1$x:1:1::/h:\nbob2:$1$x:1:1::/h:\n" % (uid, uid), "root", 0o640)
        settings(ftppasswd=FTP)
        subprocess.run(["crontab", "-u", "bob", "-"], input=CRON, encoding="latin-1", check=True)

    def drive(self, *words, fail=None, status=0):
        outcome = subprocess.run([DRIVER, *words], capture_output=True, encoding="latin-1", check=False,
                                 env={**os.environ, **({"ZVTASKQ_FAIL": fail} if fail else {})})
        if status is not None:
            self.assertEqual(outcome.returncode, status, (words, outcome.stdout, self.log()))
        return outcome

    def state(self):
        """All that a suspension may touch, and who owns it."""
        files = [FTP, SHADOW] + sorted(glob.glob("/etc/virtual/*/passwd"))
        cron = subprocess.run(["crontab", "-u", "bob", "-l"], capture_output=True, encoding="latin-1", check=False).stdout
        kept = [(path, text(path), *(getattr(os.stat(path), "st_" + what) for what in ("uid", "gid", "mode"))) for path in files]
        return kept + [cron, text(BOB + "/user.conf"), sorted(os.listdir(BOB)), sorted(os.listdir(BOB + "/domains"))]

    def assertStopped(self, note=None):
        self.assertIn(":!$", shadow_of("bob"), note)
        self.assertEqual(shadow_of("bob").split(":")[7], "1", note)
        for path, others in ((FTP, ["ann", "bob2"]), (mailboxes("bob.example"), []), (mailboxes("bob2.example"), [])):
            live = [line.split(":")[0] for line in text(path).splitlines() if ":" in line and line.split(":")[1].strip("!")[:1] in "${"
                    and not line.split(":")[1].startswith("!") and line.split(":")[1]]
            self.assertEqual(live, others, (path, note))
        self.assertEqual(self.state()[-4], "", note)
        self.assertEqual(text(BOB + "/crontab.conf"), CRON, note)
        self.assertIn("suspended=yes\n", text(BOB + "/user.conf"), note)

    def free_locks(self):
        """What a killed work had locked; others would wait a minute."""
        for lock in glob.glob("/etc/*.lock") + glob.glob("/etc/virtual/**/*.lock", recursive=True) + glob.glob(panel.PANEL + "/data/**/*.lock", recursive=True):
            # A process of the run that still lives may have freed its own meanwhile.
            if os.path.basename(lock) != ".pwd.lock":
                with contextlib.suppress(FileNotFoundError):
                    os.unlink(lock)
        for leftover in [FTP + ".temp"] * os.path.exists(FTP + ".temp") + [path for top in ("/etc/virtual", panel.PANEL + "/data")
                                                                         for path in glob.glob(top + "/**/*.temp", recursive=True)]:
            os.unlink(leftover)


class Suspension(AccountTest):
    def settled(self):
        """The state once the records have been written by us."""
        self.drive("suspend", "bob", "x")
        self.drive("activate", "bob")
        os.unlink(panel.QUEUE)
        return self.state()

    def test_cycle(self):
        before = self.state()
        after = self.settled()
        self.assertEqual(after[:-3], before[:-3])
        self.assertEqual(after[-2:], [sorted(before[-2] + ["crontab.conf"]), before[-1]])
        before = after
        self.assertTrue(self.log_in("bob", "ann"))
        panel.panel_do("addLine", BOB + "/domains.list", "ann.example")
        anns = text(mailboxes("ann.example"))
        sleeper = subprocess.Popen(["setpriv", "--reuid=bob", "--regid=bob", "--clear-groups", "sleep", "1000"])
        stubborn = subprocess.Popen(["setpriv", "--reuid=bob", "--regid=bob", "--clear-groups", "bash", "-c",
                                     "trap '' TERM; f() { f & f & wait; }; ulimit -u 60; f"], stderr=subprocess.DEVNULL)
        other = subprocess.Popen(["setpriv", "--reuid=ann", "--regid=ann", "--clear-groups", "sleep", "1000"])
        self.addCleanup(other.wait)
        self.addCleanup(other.kill)
        time.sleep(0.3)
        self.drive("suspendByTally", "bob", "quota")
        self.assertStopped()
        self.assertFalse(self.log_in("bob", "ann"))
        self.assertTrue(self.log_in("ann", "bob"))
        self.assertNotEqual(sleeper.wait(), 0)
        stubborn.wait()
        self.assertEqual(subprocess.run(["pgrep", "-u", "bob"], stdout=subprocess.DEVNULL, check=False).returncode, 1)
        self.assertIsNone(other.poll())
        self.assertEqual(text(panel.QUEUE), "action=rewrite&user=bob&value=httpd\n")
        self.assertEqual(text(mailboxes("ann.example")), anns, "a domain that is another's, whatever the list says")
        # A second reason; then a person's, which the tally does not end.
        self.drive("suspendByTally", "bob", "bandwidth,quota")
        self.drive("suspend", "bob", "abuse")
        self.assertStopped()
        self.assertIn("suspended_reason=quota,bandwidth,abuse\n", text(BOB + "/user.conf"))
        self.assertIn("by a person", self.drive("activateByTally", "bob", status=1).stdout)
        self.drive("dropReasons", "bob", "quota,bandwidth,abuse")
        self.assertStopped()
        self.drive("activate", "bob")
        self.drive("activate", "bob")
        self.assertEqual(self.state(), before)
        self.assertTrue(self.log_in("bob", "ann"))
        # The tally's own ends with its last reason.
        self.drive("suspendByTally", "bob", "quota,bandwidth")
        self.drive("dropReasons", "bob", "bandwidth")
        self.assertStopped()
        self.drive("dropReasons", "bob", "quota")
        self.assertEqual(self.state(), before)

    def test_what_is_not_there(self):
        settings(ftppasswd="/etc/none.passwd")
        shell("rm -rf /etc/virtual/ann.example; rm %s; userdel -f ann" % mailboxes("ann2.example"))
        self.drive("suspend", "ann", "x")
        self.drive("activate", "ann")
        # 9999 stands for an unknown id, and may be somebody's all the same.
        shell("useradd -M -u 9999 ann; echo ann:secret | chpasswd")
        self.drive("suspend", "ann", "x")
        self.assertIn(":!$", shadow_of("ann"))
        shell("userdel -f ann; useradd -M ann")

    def test_killed_at_every_step(self):
        """A suspension killed anywhere is completed by the next, or undone by an activation; so is an activation."""
        before = self.settled()
        for first, then in (("suspend", "suspend"), ("suspend", "activate"), ("activate", "activate"), ("activate", "suspend")):
            step, killed = 0, True
            while killed:
                if first == "activate":
                    self.drive("suspend", "bob", "x")
                outcome = self.drive(*(first, "bob", "x")[:3 if first == "suspend" else 2], fail="*:kill:%d" % step, status=None)
                killed = outcome.returncode == -signal.SIGKILL
                self.free_locks()
                self.drive(*(then, "bob", "x")[:3 if then == "suspend" else 2])
                if then == "suspend":
                    self.assertStopped((first, step))
                    self.drive("activate", "bob")
                self.assertEqual(self.state(), before, (first, then, step))
                step += 3 if os.environ.get("ZVTASKQ_STRESS_KILLS") is None else 1
            self.assertGreater(step, 60)

    def test_failures_are_undone(self):
        before = self.settled()
        big = mailboxes("bob2.example")
        cases = [
            ("huge", lambda: os.truncate(big, 100 << 20), "passwd: File too large"),
            ("many", lambda: write(big, "".join("%d:!a:8:8::/x::\n" % i for i in range(150000)), "mail", 0o640), "more marked passwords"),
            ("link", lambda: (os.unlink(big), os.symlink(SHADOW, big)), "passwd: "),
            ("fifo", lambda: (os.unlink(big), os.mkfifo(big)), "no regular file"),
            ("folder", lambda: shell("rm -r /etc/virtual/bob2.example; ln -s /etc /etc/virtual/bob2.example"), "bob2.example/passwd: "),
            ("usermod", lambda: settings(usermod="/bin/true"), "did not change"),
            ("locked", lambda: (shell("usermod -L bob"), settings(usermod="/bin/true")), "did not change"),
            ("crontab", lambda: shell("mv /usr/bin/crontab /usr/bin/crontab.real; printf '#!/bin/sh\\necho broken; exit 1\\n' > /usr/bin/crontab;"
                                      "chmod 755 /usr/bin/crontab"), "crontab of bob: broken"),
            ("queue", lambda: settings(taskqueue="/nowhere/task.queue"), "Unable to queue"),
            ("hook", lambda: write(panel.PANEL + "/scripts/custom/user_suspend_pre.sh", "#!/bin/sh\necho no $username $reason; exit 1\n", mode=0o755),
             "no bob x"),
        ]
        for name, make, words in cases:
            saved = text(big)
            make()
            said = self.drive("suspend", "bob", "x", status=1).stdout
            self.assertIn(words, said, name)
            self.assertEqual(said.count("<br>"), 1, (name, said))
            shell("usermod -U bob; rm -rf /etc/virtual/bob2.example; install -d -m 700 -o mail -g mail /etc/virtual/bob2.example{,/reply}; "
                  "[ ! -e /usr/bin/crontab.real ] || mv /usr/bin/crontab.real /usr/bin/crontab")
            write(big, saved, "mail", 0o640)
            settings(usermod=None, taskqueue=panel.QUEUE)
            self.assertEqual(self.state(), before, name)

    def test_two_at_once(self):
        before = self.settled()
        both = [subprocess.Popen([DRIVER, "suspendByTally", "bob", reason], stdout=subprocess.DEVNULL) for reason in ("quota", "inode", "bandwidth")]
        self.assertEqual([one.wait() for one in both], [0, 0, 0])
        self.assertStopped()
        self.drive("activate", "bob")
        self.assertEqual(self.state(), before)


class ByTheTally(AccountTest):
    def setUp(self):
        super().setUp()
        panel.panel_do("addAccount", "boss", "admin", "root")
        panel.panel_do("addAccount", "res", "reseller", "boss")
        panel.panel_do("writeRecord", panel.PANEL + "/data/users/res/users.list", "bob")

    def tally(self, database, is_up):
        """A tally, and the run after it, by when the server is there."""
        if not is_up:
            database.stop()
        self.queue("action=tally&value=all")
        self.run_program()
        queued = text(panel.QUEUE)
        if not is_up:
            database.start()
            self.run_program()
        return queued

    def test_over_the_disk_limit(self):
        """All of an account is stopped and given back as it was, and what the database server missed is made up for."""
        database = MariaDb()
        self.addCleanup(lambda: database.stop())
        logins = ["bob", "bob_shop", "bob_old", "ann_x"]
        database.sql("".join("CREATE USER %s@localhost;" % name for name in logins) + "ALTER USER bob_old@localhost ACCOUNT LOCK")
        settings(disk_usage_suspend=1, quota_partition="/home", disable_quota=1)
        write(BOB + "/user.conf", text(BOB + "/user.conf").replace("\nquota=1024\n", "\nquota=1\n"), "zvadmin", 0o600)
        before = self.state()[:-3]
        for is_up in (True, False):
            sleeper = subprocess.Popen(["setpriv", "--reuid=bob", "--regid=bob", "--clear-groups", "sleep", "1000"])
            write("/home/bob/big", "x" * (3 << 20), "bob")
            queued = self.tally(database, is_up)
            self.assertStopped(is_up)
            self.assertFalse(self.log_in("bob", "ann"))
            self.assertNotEqual(sleeper.wait(), 0)
            self.assertEqual(database.let_in(*logins), ["ann_x"])
            self.assertIn("suspended_reason=quota\n", text(BOB + "/user.conf"))
            os.unlink("/home/bob/big")
            self.assertIn("action=rewrite&user=bob&value=httpd\n", queued)
            self.assertIn("action=rewrite&user=bob&value=httpd\n", self.tally(database, is_up))
            self.assertEqual(self.state()[:-3], before, is_up)
            self.assertTrue(self.log_in("bob", "ann"))
            self.assertEqual(database.let_in(*logins), ["bob", "bob_shop", "ann_x"])
            self.assertIn("suspended=no\n", text(BOB + "/user.conf"))
        for word in ("locked", "unlocked"):
            self.assertLogged("The database users of bob are %s when the server answers" % word, times=1)
            self.assertLogged("The database users of bob are %s, as was noted" % word, "system", times=1)


class Domains(AccountTest):
    def test_domains_and_their_account(self):
        """Whatever the order in which a domain and its account are stopped and released, each holds its own."""
        own, other = mailboxes("bob.example"), mailboxes("bob2.example")
        before = {path: text(path) for path in (own, other, SHADOW)}
        domain, account = ("Domain", "bob", "bob.example"), ("", "bob")
        for order in ((("suspend",) + domain, ("suspend",) + account, ("activate",) + domain, ("activate",) + account),
                      (("suspend",) + domain, ("suspend",) + account, ("activate",) + account, ("activate",) + domain),
                      (("suspend",) + account, ("suspend",) + domain, ("activate",) + account, ("activate",) + domain),
                      (("suspend",) + account, ("suspend",) + domain, ("activate",) + domain, ("activate",) + account)):
            held = set()
            for what, kind, *words in order:
                self.drive(what + kind, *words, *([] if (what, kind) == ("activate", "") else ["domain_bandwidth"]))
                (held.add if what == "suspend" else held.discard)(kind)
                self.assertEqual(text(own) == before[own], not held, (order, what, kind))
                self.assertEqual(text(other) == before[other], "" not in held, (order, what, kind))
                self.assertEqual("suspended=yes\n" in text(BOB + "/domains/bob.example.conf"), "Domain" in held)
            self.assertEqual({path: text(path) for path in before}, before, order)

    def test_killed_at_every_step(self):
        before = text(mailboxes("bob.example"))
        for work, words in (("suspendDomain", "yes"), ("activateDomain", "no")):
            step, killed = 0, True
            while killed:
                if work == "activateDomain":
                    self.drive("suspendDomain", "bob", "bob.example", "x")
                killed = self.drive(work, "bob", "bob.example", "x", fail="*:kill:%d" % step, status=None).returncode == -signal.SIGKILL
                self.free_locks()
                self.drive(work, "bob", "bob.example", "x")
                self.assertIn("suspended=%s\n" % words, text(BOB + "/domains/bob.example.conf"))
                self.drive("activateDomain", "bob", "bob.example", "")
                self.assertEqual(text(mailboxes("bob.example")), before, (work, step))
                self.assertEqual(glob.glob(BOB + "/domains/*.suspended"), [])
                step += 1


if __name__ == "__main__":
    panel.main()
