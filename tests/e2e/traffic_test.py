"""Traffic of home directories and FTP servers, from the logs to the accounts' tally files."""
import glob
import os
import re
import shutil

import panel
from panel import ADMIN, PanelTest, append, mode, owner, settings, text, write

SAMPLES = os.path.join(panel.ROOT, "tests/fixtures/traffic")
HOME_LOG = "/var/log/httpd/homedir.log"
PRO_LOG = "/var/log/proftpd/192.0.2.1.bytes"
PURE_LOG = "/var/log/pureftpd.log"


class TrafficTest(PanelTest):
    def setUp(self):
        super().setUp()
        panel.shell("rm -rf /var/log/httpd /var/log/proftpd %s*; mkdir -p /var/log/httpd /var/log/proftpd" % PURE_LOG)
        for account in ("bob", "ann"):
            panel.panel_do("addAccount", account, "user", "root", account + ".example")
        write("/etc/virtual/domainowners", "example.com: ann\nother.example: bob\n")

    def account(self, name, file="bandwidth.tally"):
        return "%s/data/users/%s/%s" % (panel.PANEL, name, file)

    def billed(self, name, kind, file="bandwidth.tally"):
        """The bytes of each line of that kind."""
        lines = text(self.account(name, file)).splitlines()
        found = [re.fullmatch(r"(\d+)=type=(\w+)&time=\d{10}", line) for line in lines]
        self.assertNotIn(None, found, lines)
        return [int(match[1]) for match in found if match[2] == kind]

    def assertSurvivesKills(self, operation, lay, check):
        """Whatever step a run is killed at, the next one finds everything once."""
        for step in range(400):
            panel.shell("rm -rf %s* %s* %s/state %s" % (HOME_LOG, PURE_LOG, ADMIN, self.account("*")))
            lay(step)
            self.drive(operation, fail="*:kill:%d" % step, status=None)
            came_through = self.status == 0
            # What it had locked; others would wait a minute.
            panel.shell("rm -f %s*.lock %s.lock /etc/virtual/*.lock %s %s/state/traffic/*.lock"
                        % (PURE_LOG, HOME_LOG, self.account("*", "*.lock"), ADMIN))
            check(step)
            if came_through:
                break
        self.assertTrue(came_through and step > 20, step)


class HomeDirectories(TrafficTest):
    def tally(self, **more):
        self.queue("action=bandwidth&value=homedir")
        return self.run_program(**more)

    def test_log_becomes_lines(self):
        self.tally()
        self.assertLogged(HOME_LOG + " doesn't exist for ~username bandwidth parsing.")
        os.mkdir(HOME_LOG)
        self.tally()
        self.assertLogged("Unable to open %s for ~username bandwidth parsing" % HOME_LOG)
        os.rmdir(HOME_LOG)
        write(HOME_LOG, '512 "GET /~bob/ HTTP/1.1"\n7 /~ann\n100 /~bob/x\n- /~bob/\n9 /none/\n5 /~nobody1/\n8 /~bob')
        self.tally()
        self.assertEqual((self.billed("bob", "homedir"), self.billed("ann", "homedir")), ([612], [7]))
        self.assertEqual((mode(self.account("bob")), owner(self.account("bob"))), (0o600, "zvadmin"))
        self.assertEqual((text(HOME_LOG), text(HOME_LOG + ".1")[-7:]), ("", "8 /~bob"))
        self.tally()
        append(HOME_LOG, "1 /~bob/\n")
        self.tally()
        self.assertEqual(self.billed("bob", "homedir"), [612, 1])
        self.assertEqual(glob.glob(self.account("nobody1", "")), [])

    def test_log_that_its_server_keeps_open(self):
        for keep in (5, 1, 0):
            settings(logs_to_keep=keep)
            panel.shell("rm -rf %s* %s" % (HOME_LOG, self.account("bob")))
            with open(HOME_LOG, "a", encoding="latin-1") as server:
                for _ in range(3):
                    server.write("512 /~bob/\n")
                    server.flush()
                    self.tally()
                    self.assertEqual(text(HOME_LOG), "")
            self.assertEqual(self.billed("bob", "homedir"), [512] * 3, keep)

    def test_killed_on_the_way(self):
        def lay(step):
            settings(logs_to_keep=1 if step % 2 else 5)
            write(HOME_LOG, "512 /~bob/\n7 /~ann/\n")

        def check(step):
            append(HOME_LOG, "3 /~ann/\n")
            self.drive("parseHomeDirBandwidth")
            self.assertEqual((sum(self.billed("bob", "homedir")), sum(self.billed("ann", "homedir"))), (512, 10), step)
        self.assertSurvivesKills("parseHomeDirBandwidth", lay, check)

    def test_log_that_cannot_be_rotated(self):
        write(HOME_LOG, "512 /~bob/\n")
        os.link(HOME_LOG, HOME_LOG + ".other")
        for more in ("", "1 /~bob/\n", ""):
            append(HOME_LOG, more)
            self.tally()
        self.assertEqual(self.billed("bob", "homedir"), [512, 1])


class FtpServers(TrafficTest):
    def collect(self):
        self.drive("collectFtpTraffic")

    def total(self, name):
        return int(self.drive("getFtpTotal", name))

    def test_proftpd_to_accounts(self):
        shutil.copy(SAMPLES + "/proftpd.bytes", PRO_LOG)
        write("/var/log/proftpd/192.0.2.2.bytes", "STOR 10 192.0.2.9 1795394713 bob\nRETR 5 192.0.2.9 1795394713 x@none.example\n")
        self.collect()
        self.assertEqual((self.total("bob"), self.total("ann"), self.total("none")), (73036 + 10, 3918156, 0))
        append(PRO_LOG, "STOR 7 192.0.2.9 1795394714 x@Other.Example\nSTOR 9")
        self.collect()
        self.collect()
        self.assertEqual((self.total("bob"), self.total("ann")), (73036 + 17, 3918156))
        self.assertEqual(text(PRO_LOG)[-6:], "STOR 9")

    def test_rotated_by_others(self):
        settings(pureftp=1)
        line = '127.0.0.1 - bob [23/Nov/2026:00:41:59 -0000] "PUT /home/bob/%s" 200 %d\n'
        for step, rotate in enumerate(("mv {0} {0}.1; : > {0}", "cp {0} {0}.1; : > {0}", "rm {0}")):
            append(PURE_LOG, line % ("before", 1000) * 50)
            self.collect()
            append(PURE_LOG, line % ("late", 100))
            if step == 2:
                self.collect()
            panel.shell(rotate.format(PURE_LOG))
            append(PURE_LOG, line % ("after", 10))
            self.collect()
            self.collect()
            self.assertEqual(sum(self.billed("bob", "ftp")), 50110 * (step + 1))

    def test_working_copy_waits_for_its_writer(self):
        settings(pureftp=1, incremental_ftp=0)
        shutil.copy(SAMPLES + "/pureftpd.clf", PURE_LOG)
        copy = PURE_LOG + ".copy"
        with open(PURE_LOG, "a", encoding="ascii") as writer:
            self.collect()
            self.assertTrue(os.path.exists(copy) and not os.path.exists(PURE_LOG))
            writer.write('127.0.0.1 - bob [x] "GET /a" 200 11\n')
            writer.flush()
            append(PURE_LOG, '127.0.0.1 - bob [x] "GET /b" 200 13\n')
            self.collect()
            self.assertTrue(os.path.exists(copy))
            self.assertEqual(self.billed("bob", "ftp"), [8507, 24])
        for _ in range(3):
            self.collect()
        self.assertEqual((self.billed("bob", "ftp"), self.billed("ann", "ftp")), ([8507, 24], [3940661]))
        self.assertEqual(glob.glob(PURE_LOG + "*"), [])

    def test_killed_on_the_way(self):
        def check(step):
            self.collect()
            self.assertEqual((self.billed("bob", "ftp"), self.billed("ann", "ftp")), ([8507], [3940661]), step)
        settings(pureftp=1, incremental_ftp=0)
        self.assertSurvivesKills("collectFtpTraffic", lambda step: shutil.copy(SAMPLES + "/pureftpd.clf", PURE_LOG), check)

    def test_refused_and_locked_logs(self):
        settings(pureftp=1)
        shutil.copy(SAMPLES + "/pureftpd.stats", PURE_LOG)
        self.collect()
        self.assertLogged(PURE_LOG + " is in none of the formats clf, w3c and xferlog")
        self.assertEqual((self.billed("bob", "ftp"), os.path.exists(self.account("victim"))), ([], False))
        # Whose a domain is cannot be told: what it got stays where it is.
        shutil.copy(SAMPLES + "/pureftpd.clf", PURE_LOG)
        write("/etc/virtual/domainowners.lock", "")
        self.drive("collectFtpTraffic", status=1)
        os.unlink("/etc/virtual/domainowners.lock")
        self.collect()
        self.assertEqual(self.billed("ann", "ftp"), [3940661])
        write(PURE_LOG + ".lock", "")
        self.drive("collectFtpTraffic", status=1)
        self.assertLogged("Can't get lock on " + PURE_LOG)
        write(self.account("bob", "ftp.bytes"), "5=type=ftp&time=1\n")
        write(self.account("bob", "ftp.bytes.lock"), "")
        self.assertEqual(self.total("bob"), 0)
        self.assertLogged("Can't get lock on %s for tally of bob" % self.account("bob", "ftp.bytes"))


if __name__ == "__main__":
    panel.main()
