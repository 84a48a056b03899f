"""Making and deleting accounts, and their quotas: system accounts, homes, mail, lists, records."""
import glob
import grp
import os
import pwd
import signal
import subprocess
import time
import urllib.parse

import panel
from panel import ADMIN, QUEUE, settings, shell, text, write
from suspension_test import DRIVER, FTP, AccountTest

USERS = panel.PANEL + "/data/users"
OWNERS = "/etc/virtual/domainowners"
NEW = {"username": "eve", "usertype": "user", "creator": "res", "domain": "eve.example", "ip": "192.0.2.20", "quota": "100", "bandwidth": "1000",
       "inode": "unlimited", "email": "eve@example.com", "uquota": "50"}

UNLIMITED = [key + "=unlimited" for key in "bandwidth inode vdomains nsubdomains nemails nemailf nemailml nemailr mysql domainptr ftp".split()]
ALLOCATION = USERS + "/res/reseller.allocation"


def snapshot():
    """All that accounts leave on a server, but for passwords' dates and what logs and queues say."""
    found = {}
    for top in ("/home", "/etc/virtual", USERS, ADMIN, "/var/spool/mail", FTP, "/etc/passwd", "/etc/group"):
        for path in [top] + [os.path.join(folder, name) for folder, folders, files in os.walk(top) for name in folders + files]:
            what = os.lstat(path)
            if not any(part in path for part in (ALLOCATION, "/state", "task_queue", ".lock", "ticket", ".zvtaskq-deleted")):
                found[path] = (what.st_mode, what.st_uid, what.st_gid, text(path) if os.path.isfile(path) else "")
    return found


def wait_for(condition):
    for _ in range(600):
        if condition():
            return
        time.sleep(0.05)
    raise AssertionError("nothing came of it")


class ManagedTest(AccountTest):
    def setUp(self):
        for name in ("eve", "res", "adm"):
            shell("pkill -KILL -u {0}; userdel -rf {0}; groupdel {0}; rm -rf /home/{0}; true".format(name), stderr=subprocess.DEVNULL)
        super().setUp()
        panel.panel_do("addAccount", "res", "reseller", "adm", "res.example")
        panel.panel_do("addAccount", "adm", "admin", "root", "adm.example")
        panel.panel_do("writeRecord", USERS + "/res/users.list", "bob")
        panel.panel_do("writeRecord", USERS + "/res/reseller.conf", "quota=1000", *UNLIMITED)
        panel.panel_do("writeRecord", ALLOCATION, "quota=500")
        panel.panel_do("writeRecord", ADMIN + "/ip.list", "192.0.2.10", "192.0.2.20")
        panel.panel_do("writeRecord", ADMIN + "/ips/192.0.2.20", "status=free", "reseller=res")
        panel.panel_do("writeRecord", USERS + "/bob/user.conf", *(text(USERS + "/bob/user.conf").replace("creator=root", "creator=res").splitlines()))

    def assertSame(self, now, before, note=None):
        self.assertEqual({path: (before.get(path), now.get(path)) for path in {*before, *now} if before.get(path) != now.get(path)}, {}, note)

    def create(self, fail=None, status=0, **more):
        return self.drive("create", urllib.parse.urlencode({**NEW, **more}), "$6$salt$hash", fail=fail, status=status)

    def settle(self):
        """Programs that a killed work had started end on their own."""
        wait_for(lambda: not any(subprocess.run(["pgrep", "-x", name], stdout=subprocess.DEVNULL, check=False).returncode == 0
                                 for name in ("useradd", "userdel", "usermod", "groupdel", "chpasswd")))
        self.free_locks()


class Quotas(ManagedTest):
    def test_row(self):
        calls = "/tmp/setquota.calls"
        script = '#!/bin/sh\n{ echo "$@"; [ "$1" = -x ] || cat; } >>%s\n%s\n'
        write("/usr/local/sbin/setquota", script % (calls, ":"), mode=0o755)
        settings(setquota="/usr/local/sbin/setquota", xfs_quota="/usr/local/sbin/setquota")
        panel.panel_do("writeRecord", USERS + "/res/user.conf", "username=res", "quota=unlimited", "inode=7")
        row = "action=rewrite&value=quota"
        sets = {"adm": "1048576 1153434 100000 110001", "ann": "1048576 1153434 100000 110001", "bob": "1048576 1153434 100000 110001",
                "res": "0 0 7 8"}
        batch = "".join("%s %s\n" % pair for pair in sorted(sets.items()))
        for name, line, conf, want in (
                ("one", row + "&user=bob", {}, "-u -b /home\nbob %s\n" % sets["bob"]),
                ("all", row, {"ext_quota_partitions": "/:/var", "hard_quota_multiplier": "1.1"},
                 "".join("-u -b %s\n%s" % (place, batch) for place in ("/home", "/", "/var"))),
                ("off", row, {"disable_quota": 1, "ext_quota_partitions": None}, ""),
                ("xfs", row + "&user=res", {"disable_quota": 0, "use_xfs_quota": 1, "inode": 0},
                 "-x -c limit -u bsoft=0k bhard=0k isoft=0 ihard=0 res /home\n")):
            write(calls, "")
            settings(**conf)
            self.queue(line)
            self.run_program()
            self.assertEqual(text(calls), want, name)
            self.assertEqual(text(QUEUE), "action=cache&value=showallusers\n", name)
            os.unlink(QUEUE)
        self.assertNotIn("quota", self.log())
        # What fails for one of many is told of that one, and done for the others.
        settings(use_xfs_quota=0, inode=1)
        write("/usr/local/sbin/setquota", "#!/bin/sh\ngrep '^bob ' && exit 1\nexit 0\n", mode=0o755)
        shell("userdel -f ann")
        self.queue(row, row + "&user=nobody1")
        self.run_program()
        self.assertLogged("Error setting quota to 1024 (inodes=100000) for user bob : /usr/local/sbin/setquota: bob 1048576 1153434 100000 110001", times=1)
        self.assertLogged("Error setting quota to 1024 (inodes=100000) for user ann : there is no such system account", times=1)
        self.assertLogged("Error setting quota", times=2)
        self.assertLogged("Unable to read account nobody1", times=1)
        shell("useradd -M ann")


class Deletion(ManagedTest):
    def setUp(self):
        super().setUp()
        for path in ("/var/spool/mail/bob", "/etc/virtual/limit_bob"):
            write(path, "x", "mail")
        self.others = self.without_bob()

    def without_bob(self):
        def others(line):
            return not line.startswith(("bob:", "guest@bob", "old@bob2", "uid:", "bob.example", "bob2.example")) and line != "bob"
        return {path: (*what[:3], [line for line in what[3].split("\n") if others(line)]) for path, what in snapshot().items()
                if "/bob" not in path and "limit_bob" not in path and not path.startswith(("/var/spool/mail", ADMIN + "/ips/", ADMIN + "/show_all"))}

    def delete(self, requester, *names, more=""):
        self.queue("action=delete&value=account&requestedby=%s%s%s" % (requester, "".join("&select%d=%s" % pair for pair in enumerate(names)), more))
        self.run_program()
        return "\n".join(text(path) for path in glob.glob(panel.PANEL + "/data/tickets/**/*.*", recursive=True))

    def assertGone(self, note=None):
        self.assertEqual([path for path in snapshot() if "/bob" in path and "/home/bob" not in path], [], note)
        self.assertFalse(os.path.lexists("/home/bob"), note)
        self.assertEqual([line for path in (FTP, OWNERS, "/etc/passwd", "/etc/group", USERS + "/res/users.list") for line in text(path).splitlines()
                          if line.startswith(("bob:", "uid:", "bob.", "bob2.", "guest@bob")) or line == "bob"], [], note)
        self.assertSame(self.without_bob(), self.others, note)

    def test_row(self):
        said = self.delete("res", "ann", "res", "adm", "../bob", more="&leave_dns=yes")
        self.assertLogged("Invalid option: 'leave_dns=yes' -> Either the clustering is not on, or this is not an Admin account (res)")
        self.assertIn("Error while deleting Users", said)
        self.assertIn("ann is no user of res", said)
        self.assertSame(self.without_bob(), self.others)
        self.delete("adm", "adm", "res")
        self.assertIn("adm is the last administrator", self.log())
        self.assertIn("Reseller res still has users", self.log())
        settings(backup_before_delete="/var/backups")
        self.delete("res", "bob")
        self.assertIn("nothing is deleted", self.log())
        settings(backup_before_delete=None)
        os.unlink(QUEUE)
        panel.panel_do("addLine", USERS + "/bob/domains.list", "ann.example")
        shell("install -D -m 600 -o zvadmin /dev/null {0}; echo address=192.0.2.20 > {0}; chown -R zvadmin {1}; chmod 700 {1}".format(
            ADMIN + "/state/creations/bob", ADMIN + "/state"))
        panel.panel_do("writeRecord", ADMIN + "/ips/192.0.2.20", "status=owned")
        shell("mkdir -p {0}; rm -f {0}/*; touch {0}/a1 {0}/a2; chown bob {0}/a1; chown ann {0}/a2".format("/var/spool/cron/atjobs"))
        self.assertIn("Users deleted", self.delete("res", "bob"))
        self.assertGone()
        self.assertEqual((os.listdir("/var/spool/cron/atjobs"), text(ADMIN + "/ips/192.0.2.20")), (["a2"], "status=owned\n"))
        wanted = ["rewrite&user=bob&value=httpd", "rewrite&domain=bob%2Eexample&value=named", "rewrite&domain=bob%32%2Eexample&value=named",
                  "rewrite&value=ipcount", "cache&value=showallusers"]
        self.assertEqual(text(QUEUE), "".join("action=%s\n" % line for line in wanted))

    def test_hostile_homes(self):
        write("/var/canary", "alive", "bob")
        shell("mkdir -p /var/shown && echo shown > /var/shown/file && chown -R bob /var/shown")
        cases = [
            ("link", "mv /home/bob /home/away && ln -s /home/away /home/bob", "is no folder of bob's"),
            ("other's", "chown ann /home/bob", "is no folder of bob's"),
            ("mount", "mkdir /home/bob/in && mount --bind /var/shown /home/bob/in", "something is mounted there"),
            ("links in it", "ln -s /var/canary /home/bob/l && ln -s /var/shown /home/bob/d && mkdir -m 0 /home/bob/closed && "
             "touch /home/bob/closed/x && chown bob /home/bob/closed && mkdir /home/bob/root && touch /home/bob/root/x", ""),
        ]
        for name, make, words in cases:
            shell(make)
            outcome = self.drive("delete", "bob", status=None)
            self.assertEqual(outcome.returncode, 1 if words else 0, (name, outcome.stdout))
            self.assertIn(words, outcome.stdout, name)
            self.assertEqual((text("/var/canary"), text("/var/shown/file")), ("alive", "shown\n"), name)
            if words:
                self.assertIn("system account bob stays", outcome.stdout, name)
                self.assertTrue(os.path.isdir(USERS + "/bob"))
            shell({"link": "rm /home/bob; mv /home/away /home/bob", "other's": "chown bob /home/bob",
                   "mount": "umount /home/.zvtaskq-deleted/*/in; install -d -m 711 -o bob -g bob /home/bob"}.get(name, "true"))
        self.assertGone()

    def test_large_home_and_restless_owner(self):
        settings(background_delete_size=1)
        shell("for i in $(seq 40); do head -c 200000 /dev/zero > /home/bob/f$i; done; chown -R bob /home/bob")
        busy = subprocess.Popen(["setpriv", "--reuid=bob", "--regid=bob", "--clear-groups", "bash", "-c",
                                 "trap '' TERM; while :; do mkdir -p /home/bob/again/x; (:) & done"], stderr=subprocess.DEVNULL)
        self.drive("delete", "bob")
        self.assertNotEqual(busy.wait(), 0)
        wait_for(lambda: os.listdir("/home/.zvtaskq-deleted") == [])
        self.assertGone()

    def test_killed_at_every_step(self):
        made = "/tmp/bob.tar"
        shell("tar -cpf %s /home/bob /etc/virtual /usr/local/zorvane/data /var/spool/mail/bob /etc/passwd /etc/shadow /etc/group /etc/gshadow %s 2>/dev/null"
              % (made, FTP))
        step, killed = 0, True
        while killed:
            shell("rm -rf /etc/virtual /usr/local/zorvane/data; tar -xpf %s -C /" % made)
            killed = self.drive("delete", "bob", fail="*:kill:%d" % step, status=None).returncode == -signal.SIGKILL
            self.settle()
            again = self.drive("delete", "bob", status=None)
            self.assertTrue(again.returncode == 0 or "There is no account bob" in again.stdout, (step, again.stdout))
            wait_for(lambda: not os.path.exists("/home/.zvtaskq-deleted") or os.listdir("/home/.zvtaskq-deleted") == [])
            self.assertGone(step)
            step += 7
        self.assertGreater(step, 150)


class Creation(ManagedTest):
    def test_account(self):
        shell("useradd -M -u 9998 before; groupadd -f -g 9998 before")
        self.addCleanup(shell, "userdel -f before")
        self.create(ssh="ON")
        eve = pwd.getpwnam("eve")
        self.assertNotIn(9999, (eve.pw_uid, eve.pw_gid), "stands for an unknown id")
        self.assertIn("eve:$6$salt$hash:", text("/etc/shadow"))
        self.assertEqual((eve.pw_gecos, grp.getgrnam("eve").gr_gid), ("", eve.pw_gid))
        modes = {"/home/eve": 0o711, "/home/eve/domains/eve.example/public_html": 0o755, USERS + "/eve": 0o711, USERS + "/eve/domains": 0o711,
                 USERS + "/eve/user.conf": 0o600, "/etc/virtual/eve.example": 0o2770, "/etc/virtual/eve.example/passwd": 0o640}
        self.assertEqual({path: os.stat(path).st_mode & 0o7777 for path in modes}, modes)
        self.assertTrue(os.path.exists("/home/eve/.profile"))
        record = text(USERS + "/eve/user.conf")
        for line in ("account=ON", "suspended=no", "quota=100", "ip=192.0.2.20"):
            self.assertIn(line + "\n", record)
        self.assertEqual(text(USERS + "/eve/domains/eve.example.conf"), "bandwidth=unlimited\ndomain=eve.example\nquota=50\nsuspended=no\n")
        self.assertEqual(text(USERS + "/res/users.list"), "bob\neve\n")
        self.assertIn("eve.example: eve\n", text(OWNERS))
        self.assertIn("status=owned\n", text(ADMIN + "/ips/192.0.2.20"))
        self.assertIn("quota=600\n", text(ALLOCATION))
        self.assertIn("action=rewrite&domain=eve%2Eexample&value=named\n", text(QUEUE))
        self.drive("delete", "eve")
        self.assertIn("status=free\n", text(ADMIN + "/ips/192.0.2.20"))
        self.assertIn("quota=500\n", text(ALLOCATION))
        self.create()
        self.create(username="res2", usertype="reseller", creator="adm", domain="res2.example", ip="192.0.2.10")
        self.assertIn("res2\n", text(ADMIN + "/reseller.list"))
        self.drive("delete", "res2")

    def test_refusals(self):
        shell("groupadd -f devs; userdel -f plain; useradd -M plain; true", stderr=subprocess.DEVNULL)
        before = snapshot()
        for words, more in (
                ("Invalid user name", {"username": "../x"}), ("Invalid user name", {"username": "e;id"}), ("is reserved", {"username": "mysql"}),
                ("exists already", {"username": "bob"}), ("system account", {"username": "plain"}), ("group devs", {"username": "devs"}),
                ("is no domain", {"domain": "eve.example/.."}), ("another account's", {"domain": "ann.example"}),
                ("no type", {"usertype": "root"}), ("may not make", {"usertype": "reseller"}), ("may not make", {"creator": "bob"}),
                ("no address 192.0.2.99", {"ip": "192.0.2.99"}), ("is no address", {"ip": "../../x"}),
                ("not enough left of quota", {"quota": "501"}), ("not enough left of quota", {"quota": "unlimited"})):
            self.assertIn(words, self.create(status=1, **more).stdout, more)
            self.assertSame(snapshot(), before, more)
        settings(check_group_on_user_create=0, secure_access_group="devs")
        for name in ("sudo", "devs"):
            self.assertIn("group " + name, self.create(status=1, username=name).stdout)
        settings(check_group_on_user_create=None, secure_access_group=None)
        panel.panel_do("writeRecord", USERS + "/res/reseller.conf", "quota=1000", *UNLIMITED, "oversell=ON")
        write(panel.PANEL + "/scripts/custom/user_create_pre.sh", "#!/bin/sh\necho not $username; exit 3\n", mode=0o755)
        self.assertIn("not eve", self.create(status=1, quota="5000").stdout)
        os.unlink(panel.PANEL + "/scripts/custom/user_create_pre.sh")
        self.create(quota="5000")

    def test_two_at_once(self):
        """What only one can have, one gets."""
        write(panel.PANEL + "/scripts/custom/user_create_pre.sh", "#!/bin/sh\nsleep 1\n", mode=0o755)
        self.addCleanup(shell, "userdel -rf eva; true")
        both = [subprocess.Popen([DRIVER, "create", urllib.parse.urlencode({**NEW, "username": name}), ""], stdout=subprocess.PIPE, encoding="latin-1")
                for name in ("eve", "eva")]
        said = sorted((one.wait(), one.stdout.read()) for one in both)
        self.assertEqual([status for status, _ in said], [0, 1], said)
        self.assertIn("is another account's", said[1][1])

    def test_cut_short_anywhere(self):
        """A step that fails takes the account back; what a killed creation left, the next one clears or completes."""
        self.create()
        self.drive("delete", "eve")
        before = snapshot()
        for key, wrong in (("useradd", "/bin/false"), ("chpasswd", "/bin/false"), ("taskqueue", "/nowhere/queue"), ("emailvirtual", "/etc/virtual2")):
            shell("rm -rf /etc/virtual2; mkdir /etc/virtual2")  # root's own: the mail server cannot make anything there
            settings(**{key: wrong})
            self.create(status=1)
            settings(**{key: {"taskqueue": QUEUE, "emailvirtual": "/etc/virtual"}.get(key)})
            self.assertSame(snapshot(), before, key)
            self.assertFalse(os.listdir(ADMIN + "/state/creations"), key)
        for what in ("EIO", "kill"):
            step, again = 0, True
            while again:
                outcome = self.create(fail="*:%s:%d" % (what, step), status=None)
                again = outcome.returncode != 0
                self.settle()
                if step % 2:
                    write(QUEUE, "")  # the addresses' users are not counted anew
                    self.run_program()
                    self.assertFalse(os.listdir(ADMIN + "/state/creations"), (what, step, self.log()))
                retry = self.create(status=None)
                self.assertTrue(retry.returncode == 0 or "eve exists already" in retry.stdout, (what, step, retry.stdout))
                self.assertFalse(os.listdir(ADMIN + "/state/creations"), (what, step))
                self.assertEqual((pwd.getpwnam("eve").pw_gecos, text(USERS + "/res/users.list")), ("", "bob\neve\n"))
                self.drive("delete", "eve")
                self.assertSame(snapshot(), before, (what, step, outcome.stdout))
                step += 11


if __name__ == "__main__":
    panel.main()
