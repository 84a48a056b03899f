"""What a tally keeps in order around the accounts: the cached list of all of them, and their own logs."""
import glob
import os
import pwd
import stat
import subprocess
import time
import urllib.parse

import panel
from panel import ADMIN, PANEL, QUEUE, PanelTest, settings, text, write

CACHE = ADMIN + "/show_all_users.cache"
CLOUD = ADMIN + "/cloud.cache"
USERS = PANEL + "/data/users"


def until(condition):
    """What comes to pass in a process of its own, which is not waited for."""
    for _ in range(600):
        if condition():
            return True
        time.sleep(0.1)
    return False


def children():
    """The processes of the program that are left to themselves."""
    found = []
    for folder in glob.glob("/proc/[0-9]*"):
        try:
            if os.readlink(folder + "/exe") == panel.PROGRAM:
                found.append(folder)
        except OSError:
            pass
    return found


class CachedList(PanelTest):
    def setUp(self):
        super().setUp()
        panel.panel_do("addAccount", "resa", "reseller", "root", "resa.example")
        for account in ("bob", "ann"):
            panel.panel_do("addAccount", account, "user", "resa", account + ".example")

    def rebuild(self, more="", **how):
        self.queue("action=cache&value=showallusers" + more)
        return self.carried_out(**how)

    def carried_out(self, **how):
        self.run_program(**how)
        self.assertTrue(until(lambda: not children()))
        return self.listed()

    def listed(self, path=CACHE):
        records = dict(line.split("=", 1) for line in text(path).splitlines())
        return {name: dict(urllib.parse.parse_qsl(record, True)) for name, record in records.items()}

    def record(self, account, file, **values):
        path = "%s/%s/%s" % (USERS, account, file)
        lines = [line for line in text(path).splitlines() if line.split("=")[0] not in values]
        write(path, "\n".join(lines + ["%s=%s" % pair for pair in values.items()]) + "\n", "zvadmin", 0o600)

    def test_records(self):
        panel.panel_do("addDomain", "bob", "b2.example")
        write(USERS + "/bob/domains/bob.example.pointers", "p.example\nr.example=redirect\n", "zvadmin", 0o600)
        self.record("bob", "user.conf", suspended="yes", suspended_reason="bandwidth,quota", quota="unlimited",
                    additional_bandwidth=60, package="custom", original_package="gold & silver", ip="192.0.2.7")
        self.record("bob", "user.usage", bandwidth="12.25", quota="1e3", vdomains=2, email_deliveries_outgoing=4000000)
        self.record("ann", "user.conf", bandwidth="x")
        os.mkdir(USERS + "/Bad.Name")
        write(USERS + "/file", "")
        settings(cloud_cache=1)
        listed = self.rebuild()
        self.assertEqual(sorted(listed), ["ann", "bob", "resa"])
        self.assertEqual(listed["bob"], {
            "bandwidth": "12.25 / 10300", "quota": "1000 / unlimited", "vdomains": "2 / 10", "suspended": "Yes",
            "suspended_reason": "bandwidth<br>quota", "creator": "resa", "default": "bob.example", "ip": "192.0.2.7",
            "ips": "192.0.2.10", "type": "user", "email_deliveries_outgoing": "4000000", "package": "custom",
            "original_package": "gold & silver", "list": "b2.example<br>bob.example", "pointer_p.example": "bob.example",
            "pointer_r.example": "bob.example"})
        self.assertEqual((listed["resa"]["type"], listed["ann"]["package"], listed["ann"]["bandwidth"]),
                         ("reseller", "standard", "0 / unlimited"))
        entry = os.stat(CACHE)
        self.assertEqual((stat.S_IMODE(entry.st_mode), pwd.getpwuid(entry.st_uid).pw_name), (0o600, "zvadmin"))
        self.assertEqual(text(CLOUD), text(CACHE))
        self.assertLogged("Bad username: Bad.Name (check max_username_length=10)", times=1)

    def test_some_accounts_alone(self):
        self.rebuild()
        for account in ("bob", "ann"):
            self.record(account, "user.usage", vdomains=1)
        panel.shell("rm -r %s/resa" % USERS)
        listed = self.rebuild("&select0=bob&select1=none1&select2=x%2Fy&select4=ann")
        self.assertEqual({name: record["vdomains"] for name, record in listed.items()}, {"ann": "0 / 10", "bob": "1 / 10"})
        self.assertLogged("Bad username: x/y (", times=1)
        os.unlink(CACHE)
        self.assertEqual(sorted(self.rebuild("&select0=bob")), ["ann", "bob"])

    def test_lock_and_failures(self):
        write(CACHE + ".lock", "")
        self.rebuild("&select0=bob&add_created_users=1")
        wanted = "Unable to get lock on %s: file is locked by another process.  Will try on the next task.queue" % CACHE
        self.assertLogged(wanted, times=1)
        self.assertFalse(os.path.exists(CACHE))
        queued = dict(urllib.parse.parse_qsl(text(QUEUE).strip()))
        self.assertEqual(queued, {"action": "cache", "value": "showallusers", "add_created_users": "1", "select0": "bob"})
        os.unlink(CACHE + ".lock")
        self.assertEqual((sorted(self.carried_out()), os.path.exists(CACHE + ".lock")), (["ann", "bob", "resa"], False))
        self.assertEqual(sorted(self.rebuild(env={"ZVTASKQ_FAIL": "safe_write.rename:ENOSPC"})), ["ann", "bob", "resa"])
        self.assertLogged("Error writing cache %s: " % CACHE, times=1)

    def test_child_holds_nothing_of_its_run(self):
        self.queue("action=cache&value=showallusers")
        self.run_program()
        (child,) = children()
        pid = int(os.path.basename(child))
        held = lambda: {os.readlink(link) for link in glob.glob(child + "/fd/*")}
        self.assertTrue(until(lambda: os.getsid(pid) == pid and held() == {"/dev/null"}), held())
        self.assertFalse(os.path.exists("/run/zvtaskq.pid"))
        # Another run meanwhile keeps its own pid file, and its child waits its turn.
        write("/run/zvtaskq.pid", "1\n")
        self.assertTrue(until(lambda: not children()))
        self.assertEqual((text("/run/zvtaskq.pid"), sorted(self.listed())), ("1\n", ["ann", "bob", "resa"]))


class OwnLogs(PanelTest):
    php = "/home/bob/.php"
    keys = USERS + "/bob/login_keys"

    def drive(self, operation, status=0):
        outcome = subprocess.run([panel.BUILD + "/tally_driver", operation, "bob"], check=False)
        self.assertEqual(outcome.returncode, status, self.log())

    def test_rotated_and_made_anew(self):
        panel.panel_do("addAccount", "bob", "user", "root")
        panel.shell("rm -rf " + self.php)
        for operation in ("rotatePhpMailLog", "rotateLoginKeyLogs"):
            self.drive(operation)
        panel.shell("install -d -o bob -g bob {0}; install -d -o zvadmin -g zvadmin {1}".format(self.php, self.keys))
        write(self.keys + "/one.key", "", "zvadmin")
        settings(logs_to_keep=3)
        mail_log, key_log = self.php + "/php-mail.log", self.keys + "/one.log"
        for content in ("one", "two", "three", "four"):
            write(mail_log, content, "bob", 0o600)
            write(key_log, content, "zvadmin", 0o600)
            self.drive("rotatePhpMailLog")
            self.drive("rotateLoginKeyLogs")
        self.assertEqual([text(mail_log + end) for end in ("", ".1", ".2", ".3")], ["", "four", "three", ""])
        self.assertEqual(sorted(os.listdir(self.keys)), ["one.key", "one.log.1", "one.log.2"])
        entry = os.stat(mail_log)
        self.assertEqual((stat.S_IMODE(entry.st_mode), pwd.getpwuid(entry.st_uid).pw_name), (0o600, "bob"))
        settings(php_mail_log=0)
        self.drive("rotatePhpMailLog")
        self.assertEqual(text(mail_log + ".1"), "four")

    def test_led_elsewhere(self):
        panel.panel_do("addAccount", "bob", "user", "root")
        panel.shell("rm -rf /root/php; mkdir -m 777 /root/php; echo canary > /root/php/php-mail.log")
        # The last folder is root's: nothing in it may be moved with more than the account's rights.
        for plant in ("rm -rf {0}; ln -s /root/php {0}", "rm -f {0}; mkdir {0}; ln -s /root/php/php-mail.log {0}/php-mail.log",
                      "rm -r {0}; mkdir {0}; touch {0}/php-mail.log"):
            panel.shell(plant.format(self.php))
            self.drive("rotatePhpMailLog", status=1)
            self.assertEqual((os.listdir("/root/php"), text("/root/php/php-mail.log")), (["php-mail.log"], "canary\n"))
        for link in (self.php, self.php + "/php-mail.log"):
            self.assertLogged("Tally::rotate_log_up(%s): is hard or symbolic link" % link)
        self.assertEqual(os.listdir(self.php), ["php-mail.log"])


if __name__ == "__main__":
    panel.main()
