"""The self-check: what is broken is named once, with what to do; a sound panel gives no notice."""
import fcntl
import os
import subprocess
import time

import panel
from panel import ADMIN, PANEL, PanelTest, settings, shell, text, write

USERS = PANEL + "/data/users"
# Nobody can say here what keeps the clock.
UNKNOWN_CLOCK = {"ZVTASKQ_FAIL": "syscheck.adjtimex:ENOSYS"}
SUBJECT = "A system issue requires your attention"


class SyscheckTest(PanelTest):
    maxDiff = None

    def setUp(self):
        super().setUp()
        self.administrator()
        for name in ("ann", "bob"):
            panel.panel_do("addAccount", name, "user", "boss", name + ".example")

    def check(self):
        self.queue("action=syscheck")
        self.run_program(env=UNKNOWN_CLOCK)
        found = [words for subject, words in self.notices() if subject == SUBJECT]
        shell("rm -rf %s/data/tickets/*" % PANEL)
        self.assertLessEqual(len(found), 1)
        return found[0] if found else ""

    def assertNamed(self, words, *wanted):
        """Each thing in one line of its own, with the remedy."""
        for what, remedy in wanted:
            lines = [line for line in words.splitlines() if what in line]
            self.assertEqual(len(lines), 1, "%r in\n%s" % (what, words))
            self.assertIn(remedy, lines[0])
        self.assertEqual(len([line for line in words.splitlines() if line.startswith("- ")]), len(wanted), words)

    def certificate(self, path, days):
        shell("openssl req -x509 -newkey rsa:2048 -nodes -days %d -subj /CN=x -keyout /dev/null -out %s 2>/dev/null;"
              "chown zvadmin %s" % (days, path, path))

    def age(self, *paths):
        for path in paths:
            os.utime(path, (time.time() - 7200,) * 2, follow_symlinks=False)

    def test_a_sound_panel(self):
        self.certificate(USERS + "/ann/domains/ann.example.cert", 90)
        self.assertEqual(self.check(), "")

    def test_files_settings_and_leftovers(self):
        settings(alow_db_underscore=1, some_old_thing="pass=word", partition_usage_threshold=95, mysql=1, mysqlconf="")
        lost = ADMIN + "/state/task_queue_lost"
        shell("install -d -m 700 -o zvadmin %s %s; chmod 755 %s; chown ann %s/ip.list; rm %s/reseller.list"
              % (ADMIN + "/state", lost, USERS, ADMIN, ADMIN))
        write(USERS + "/ann/domains/ann.example.key", "KEY", "zvadmin", 0o644)
        write(lost + "/old", "action=x\n", "zvadmin")
        write(USERS + "/bob/user.conf.temp", "", "zvadmin")
        write(USERS + "/bob/user.usage.temp", "", "zvadmin")
        write(ADMIN + "/planted.temp", "", "nobody")
        locks = [USERS + "/bob/%s.lock" % name for name in ("held", "left")]
        for lock in locks:
            write(lock, "", "zvadmin")
        self.age(lost + "/old", USERS + "/bob/user.conf.temp", ADMIN + "/planted.temp", *locks)
        holder = open(locks[0], encoding="ascii")
        self.addCleanup(holder.close)
        fcntl.flock(holder, fcntl.LOCK_EX)
        # A mount that is dead: whoever asks there waits.
        self.stand_in("/usr/bin/stat", 'case $* in *"-- /home") exec sleep 600;; esac; exec /usr/bin/stat.kept "$@"\n')
        write(PANEL + "/data/templates/dns_zone.txt", "")
        shell("rm %s/data/templates/web_default.html; umount /home/tmp 2>/dev/null; mount -t tmpfs -o size=400k x /home/tmp;"
              "fallocate -l 396k /home/tmp/full" % PANEL)
        self.addCleanup(shell, "umount /home/tmp")
        words = self.check()
        self.assertNamed(
            words, ("alow_db_underscore", "write allow_db_underscore"), ("some_old_thing", "take it out."),
            (USERS + " belongs", "chmod 711 " + USERS), ("ip.list belongs to ann", "chown zvadmin"),
            ("reseller.list is missing", "install -o zvadmin -m 600"), ("ann.example.key", "chmod 600"),
            ("task_queue_lost/old", "queue again"), ("user.conf.temp", "delete this one"), ("dns_zone.txt", "install"),
            ("web_default.html", "install"), ("/home/tmp is 9", "delete or move"),
            ("the file system of /home does not answer", "mount it anew"), ("bob/left.lock", "delete it"))
        self.assertNotIn("pass", words, "no value of a setting is told")

    def test_accounts_and_certificates(self):
        for name in ("cat", "dan"):
            panel.panel_do("addAccount", name, "user", "boss", name + ".example")
        self.addCleanup(shell, "useradd -m cat; install -d -o bob -g bob -m 711 /home/bob; chown ann /home/ann")
        shell("userdel cat; rm -r /home/cat /home/bob; chown dan /home/ann; rm -r %s/dan; : > %s/ann/user.conf" % (USERS, USERS))
        shell("rm {0}/bob/domains/bob.example.conf; mkdir {0}/bob/ip.list.d; rm {0}/bob/ip.list; mkfifo {0}/bob/ip.list;"
              "chown zvadmin {0}/bob/ip.list".format(USERS))
        self.certificate(USERS + "/ann/domains/ann.example.cert", 5)
        write(USERS + "/cat/domains/cat.example.cert", "nonsense", "zvadmin")
        self.certificate("/etc/site.cert", 1)
        settings(apachecert="/etc/site.cert")
        self.assertNamed(
            self.check(), ("cat has no system account", "restore"), ("the home /home/bob: No such", "install -d -o bob"),
            ("the home /home/ann is not", "chown ann"), ("dan of %s/boss/users.list" % USERS, "take the name out"),
            ("ann/user.conf cannot be read", "backup"), ("bob.example.conf cannot", "backup"), ("bob/ip.list cannot", "backup"),
            ("ann ann.example: the certificate ends within 5 days", "renew"), ("cat cat.example: the certificate cannot be read", "renew"),
            ("the server's apachecert: the certificate ends within 1 days", "renew"))

    def test_many_of_a_kind(self):
        settings(**{"nothing_reads_%02d" % i: 1 for i in range(25)})
        words = self.check()
        self.assertEqual(words.count("nothing_reads_"), 20)
        self.assertTrue(words.endswith("- and 5 more\n"), words)

    def test_services(self):
        self.service("webber", comes_up=False)
        self.watch(webber="ON", idle="OFF")
        shell("install -d /var/log/nginx/domains; cd /var/log/nginx/domains; touch a.log a.error.log a.bytes a.log.1.gz;"
              "cp /bin/sleep /tmp/nginx")
        for limit in (1026, 1027):
            server = subprocess.Popen(["bash", "-c", "ulimit -n %d; exec /tmp/nginx 60" % limit])
            self.addCleanup(server.wait)
            self.addCleanup(server.kill)
            time.sleep(0.3)
            words = self.check()
            wanted = [("webber does not run", "webber=OFF")]
            if limit == 1026:
                wanted.append(("nginx may open 1026 files, and needs 1027", "share/units/nginx.service.d"))
                self.assertIn("LimitNOFILE=", text(PANEL + "/share/units/nginx.service.d/zorvane-open-files.conf"))
            self.assertNamed(words, *wanted)
            server.kill()
            server.wait()


if __name__ == "__main__":
    panel.main()
