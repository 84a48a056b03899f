"""The tally over a server of accounts: every figure is worked out again here, by other means."""
import glob
import os
import subprocess
import sys
import time

import panel
from panel import ADMIN, PANEL, PanelTest, settings, text, write

sys.path.insert(0, os.path.join(panel.ROOT, "dev/lib"))
import server as generated  # pylint: disable=wrong-import-position

USERS = PANEL + "/data/users"
MEGABYTE = 1048576


def record(path):
    return dict(line.split("=", 1) for line in text(path).splitlines() if "=" in line)


def usage(name, kind="user"):
    return record(f"{USERS}/{name}/{kind}.usage")


def put(path, **pairs):
    """Changes pairs of a record of the panel's."""
    found = {**record(path), **pairs}
    write(path, "".join(f"{name}={value}\n" for name, value in sorted(found.items())), "zvadmin", 0o600)


def disk_of(uid):
    """What a system account takes below /home, as find reckons it: bytes, files."""
    blocks = subprocess.run(["find", "/home", "-uid", str(uid), "-printf", "%b\n"], capture_output=True, check=True).stdout.split()
    return sum(map(int, blocks)) * 512, len(blocks)


class TallyTest(PanelTest):
    accounts = 6

    def setUp(self):
        super().setUp()
        tables = {path: text(path) for path in ("/etc/passwd", "/etc/group", "/etc/shadow")}
        for path, content in tables.items():
            self.addCleanup(write, path, content)
        panel.shell("rm -rf /var/log/httpd /home/u0* /home/r0*; mkdir -p /var/log/httpd/domains")
        settings(apachelogdir=generated.WEB_LOGS, quota_partition="/home", disable_quota=1, webalizer=0, php_mail_log=0, user_warning_thresh_disk=80,
                 user_warning_thresh_inode=80)
        self.server = generated.Server(self.accounts)
        self.server.lay()

    def tally(self, line="action=tally&value=all", **more):
        self.queue(line)
        out = self.run_program(**more)
        return out

    def messages(self, account):
        """Subject and body of each message in the account's list."""
        path = ADMIN + "/tickets.list" if account == "admin" else f"{USERS}/{account}/tickets.list"
        found = []
        for line in text(path).splitlines():
            folder = f"{PANEL}/data/tickets/{int(line[:9]) // 1000:03}/{int(line[:9]):03}"
            found.append((record(folder + "/001.conf")["subject"], text(folder + "/001.msg")))
        return found

    def assertBandwidth(self, name, wanted, kind="user"):
        self.assertAlmostEqual(float(usage(name, kind)["bandwidth"]), wanted / MEGABYTE, 5, name)


class Figures(TallyTest):
    accounts = 200

    def test_every_figure_at_every_scope(self):
        server = self.server
        server.make_homes()
        served = server.serve()
        disk, files = {}, {}
        for i, user in enumerate(server.users):
            disk[user], files[user] = disk_of(generated.FIRST_ID + i)
        self.tally()
        for user in server.users:
            found = usage(user)
            self.assertBandwidth(user, served[user])
            self.assertAlmostEqual(float(found["quota"]), disk[user] / MEGABYTE, 5, user)
            self.assertEqual([found[key] for key in ("inode", "vdomains", "nsubdomains", "nemails")], [str(files[user]), "2", "2", "0"])
        for reseller in server.resellers:
            found, users = usage(reseller, "reseller"), server.of(reseller)
            self.assertBandwidth(reseller, sum(served[user] for user in users), "reseller")
            self.assertAlmostEqual(float(found["quota"]), sum(disk[user] for user in users) / MEGABYTE, 3)
            self.assertEqual([found[key] for key in ("nusers", "vdomains")], [str(len(users)), str(2 * len(users))])
        found = record(ADMIN + "/admin.usage")
        self.assertAlmostEqual(float(found["bandwidth"]), sum(served.values()) / MEGABYTE, 3)
        self.assertEqual([found[key] for key in ("nusers", "inode")], ["200", str(sum(files.values()))])
        self.assertGreater(int(found["last_tally"]), 1_700_000_000)
        self.assertEqual(glob.glob(generated.WEB_LOGS + "/*.bytes*") + glob.glob(USERS + "/*/ZorvaneUsage.bytes*"), [])
        allocated = record(ADMIN + "/admin.allocation")
        self.assertEqual((allocated["bandwidth"], allocated["mysql"]), ("2048000", "1000"))
        for line in ("Tally All Begin", "Tally Reseller r000 Complete", "Tally User u00007 Begin: mask 32767", "Tally All Complete"):
            self.assertLogged(line, "system", times=1)
        self.scopes_and_masks(served, disk)

    def scopes_and_masks(self, served, disk):
        """The second half: what each mask leaves alone, at the other scopes."""
        server, user, other = self.server, "u00003", "u00060"
        more = server.serve([user, other])
        before = usage(other)
        self.tally(f"action=quotatally&type=user&value={user}")
        self.assertBandwidth(user, served[user])
        os.unlink(f"/home/{user}/file0")
        self.tally(f"action=bandwidthtally&type=user&value={user}")
        self.assertBandwidth(user, served[user] + more[user])
        self.assertAlmostEqual(float(usage(user)["quota"]), disk[user] / MEGABYTE, 5)
        self.tally(f"action=quotatally&type=reseller&value={server.resellers[0]}")
        self.assertAlmostEqual(float(usage(user)["quota"]), disk_of(generated.FIRST_ID + 3)[0] / MEGABYTE, 5)
        self.assertEqual(usage(other), before)
        self.tally("action=bandwidthtally&value=all")
        self.assertBandwidth(other, served[other] + more[other])
        self.assertBandwidth(server.resellers[1], sum(served[name] for name in server.of(server.resellers[1])) + more[other], "reseller")

    def test_a_killed_tally_bills_every_byte_once(self):
        served = self.server.serve()
        for skip in (40, 400, 2000, 4000, 9000):
            self.tally("action=bandwidthtally&value=all", env={"ZVTASKQ_FAIL": f"byte_logs.*:kill:{skip}"}, status=None)
            panel.shell("find /usr/local/zorvane /run -name '*.lock' -delete; rm -f /run/zvtaskq.pid")
        more = self.server.serve(self.server.users[:20])
        self.tally("action=bandwidthtally&value=all")
        for user in self.server.users:
            self.assertBandwidth(user, served[user] + more.get(user, 0))
        domains = sum(float(record(path)["bandwidth"]) for path in glob.glob(USERS + "/u00000/domains/*.usage"))
        self.assertLessEqual(domains, (served["u00000"] + more["u00000"]) / MEGABYTE)
        self.assertEqual(glob.glob(generated.WEB_LOGS + "/*.bytes*") + glob.glob(USERS + "/*/ZorvaneUsage.bytes*"), [])


class Accounts(TallyTest):
    def test_damaged_accounts_are_named_and_skipped(self):
        server, owner = self.server, self.server.owner
        folder = lambda user, file="": f"{USERS}/{user}/{file}"
        served = server.serve()
        reseller = server.resellers[0]
        write(folder(reseller, "users.list"), "\n".join(server.users + ["ghost"]) + "\n", "zvadmin", 0o600)
        server.manager("r001", "reseller", "admin", ["u00000"])
        write(ADMIN + "/reseller.list", "r000\nr001\n", "zvadmin", 0o600)
        server.account("nobodys", "user", reseller)
        write("/tmp/elsewhere", "username=u00001\nusertype=user\n")
        os.unlink(folder("u00001", "user.conf"))
        os.symlink("/tmp/elsewhere", folder("u00001", "user.conf"))
        os.chown(folder("u00001", "user.conf"), owner.pw_uid, owner.pw_gid, follow_symlinks=False)
        write(folder("u00002", "user.conf"), "")
        os.truncate(folder("u00003", "user.conf"), 100 * MEGABYTE)
        put(folder("u00004", "user.conf"), bandwidth="-5", quota="ten", inode="93000000000000000000")
        write(folder("u00004", "domains.list"), "u00004-0.example\nu00004-1.example\nu00005-0.example\n../x\n", "zvadmin", 0o600)
        fifo = generated.WEB_LOGS + "/u00005-1.example.bytes"
        os.unlink(fifo)
        os.mkfifo(fifo)
        self.tally()
        for words in ("Unable to read user ghost's data files: ", "r001/users.list: account u00000 is in the list of",
                      "nobodys: account nobodys is in nobody's list", "Unable to read user u00001's data files: ",
                      "Unable to read user u00002's data files: ", "Unable to read user u00003's data files: ",
                      "u00004/user.conf: bandwidth=-5 of account u00004 is no limit", "u00004/domains.list: ../x is no domain",
                      "u00004/domains.list: the domain u00005-0.example of account u00004 belongs to u00005",
                      fifo + " of account u00005 is no plain file"):
            self.assertLogged(words)
        for user in ("u00000", "u00004"):
            self.assertBandwidth(user, served[user])
        self.assertEqual(usage(reseller, "reseller")["nusers"], "3")
        self.assertEqual(usage("r001", "reseller")["nusers"], "0")
        self.assertEqual(usage("u00001").get("vdomains"), None)
        self.assertLogged("Tally All Complete", "system", times=1)

    def test_a_script_forbids_the_tally(self):
        self.server.serve()
        before = {path: text(path) for path in glob.glob(USERS + "/*/*.usage") + [ADMIN + "/admin.usage"]}
        write(PANEL + "/scripts/custom/tally_pre.sh", "#!/bin/sh\necho not tonight\nexit 1\n", mode=0o700)
        self.tally()
        self.assertLogged("Tally::tallyHo: Pre script output: not tonight")
        self.assertEqual({path: text(path) for path in before}, before)
        self.assertEqual(len(glob.glob(generated.WEB_LOGS + "/*.bytes")), len(self.server.users) * 4)

    def test_a_busy_account_counts_as_before(self):
        served = self.server.serve()
        put(f"{USERS}/u00001/user.usage", bandwidth="7.5", vdomains="9")
        os.makedirs(ADMIN + "/state/accounts", exist_ok=True)
        panel.shell("chown -R zvadmin:zvadmin %s/state; chmod 700 %s/state %s/state/accounts" % (ADMIN, ADMIN, ADMIN))
        lock = subprocess.Popen(["flock", ADMIN + "/state/accounts/u00001", "sleep", "20"])
        self.addCleanup(lock.kill)
        self.tally()
        self.assertLogged("Account u00001 is busy", times=1)
        self.assertEqual(usage("u00001")["bandwidth"], "7.5")
        self.assertBandwidth("r000", sum(served[user] for user in self.server.users if user != "u00001") + 7.5 * MEGABYTE, "reseller")

    def test_halt_ends_it_between_two_accounts(self):
        self.server.serve()
        write(PANEL + "/scripts/custom/tally_user_post.sh", "#!/bin/sh\nsleep 1\n", mode=0o700)
        self.queue("action=tally&value=all")
        run = self.start()
        panel.shell("for i in $(seq 200); do grep -q 'Tally User u00001 Begin' %s/system.log && break; sleep 0.05; done" % panel.LOGS)
        folder = f"{ADMIN}/task_queue_processes/{run.pid}"
        self.assertIn("tally of u00001, 2 of 6\n", text(folder + "/level_tracker"))
        write(folder + "/instructions", "action=stop\nvalue=tally\n", "zvadmin", 0o600)
        run.send_signal(12)
        run.wait()
        self.assertLogged("Currently processing: tally of u0000")
        self.assertNotIn("Tally User u00005 Begin", self.log("system"))
        self.assertEqual(record(ADMIN + "/admin.usage"), {})


class Limits(TallyTest):
    def month(self, user, megabytes):
        """A month's traffic, in the account's tally file."""
        write(f"{USERS}/{user}/bandwidth.tally", f"{megabytes * MEGABYTE}=type=other&time={int(time.time())}\n", "zvadmin", 0o600)

    def limit(self, user, **limits):
        put(f"{USERS}/{user}/user.conf", **limits)

    def test_warnings_are_sent_once(self):
        for user, limits in (("u00000", {"bandwidth": "100"}), ("u00001", {"bandwidth": "0"}), ("u00002", {"bandwidth": "unlimited"}),
                             ("u00003", {"bandwidth": "100", "account": "OFF"}), ("u00004", {"bandwidth": "40", "additional_bandwidth": "100"})):
            self.limit(user, **limits)
            self.month(user, 85)
        put(f"{USERS}/r000/reseller.conf", bandwidth="500")
        for _ in range(2):
            self.tally()
        subject, body = self.messages("u00000")[0]
        self.assertEqual(subject, "User u00000 has used up 85.0% of the bandwidth and 0.0% of the disk space")
        self.assertIn("85.00 of 100.00 megabytes", body)
        self.assertEqual([len(self.messages(f"u0000{i}")) for i in range(6)], [1, 0, 0, 0, 0, 0])
        self.assertEqual(record(USERS + "/u00000/user.conf")["sentwarning"], "yes")
        self.assertNotIn("sentwarning", record(USERS + "/u00003/user.conf"))
        self.assertLogged("Account u00003 is OFF.  Overusage notice will not be sent: 'User u00003 has used up", times=2)
        self.assertEqual([subject for subject, _ in self.messages("r000")].count("Reseller r000 has used up 85.0% of the bandwidth"), 1)
        self.tally("action=reset&type=user&value=u00000")
        self.assertNotIn("sentwarning", record(USERS + "/u00000/user.conf"))
        os.unlink(PANEL + "/data/templates/user_limit.txt")
        self.month("u00000", 95)
        self.tally()
        subject, body = self.messages("u00000")[1]
        self.assertEqual(subject, "User u00000 has used up 95.0% of their bandwidth and 0.0% of their allocated disk space")
        self.assertIn("Automated Message Generated by Zorvane", body)

    def test_suspension_release_and_reset(self):
        for user, more in (("u00000", {}), ("u00001", {"suspend_at_limit": "OFF"}), ("u00002", {"account": "OFF", "suspended": "yes", "suspended_reason": "spam"})):
            self.limit(user, bandwidth="10", **more)
            self.month(user, 11)
        put(f"{USERS}/u00003/domains/u00003-0.example.conf", bandwidth="1")
        with open(generated.WEB_LOGS + "/u00003-0.example.bytes", "a", encoding="ascii") as log:
            log.write(f"{2 * MEGABYTE}\n")
        state = lambda user: tuple(record(f"{USERS}/{user}/user.conf").get(key) for key in ("suspended", "suspended_reason"))
        self.tally()
        self.assertEqual(state("u00000"), ("yes", "bandwidth"))
        self.assertEqual(state("u00001")[0], "no")
        self.assertLogged("User u00000 has been suspended: bw used: 11.000000, bw limit: 10", "system", times=1)
        self.assertIn("User u00000 has been suspended", [subject for subject, _ in self.messages("admin")])
        domain = f"{USERS}/u00003/domains/u00003-0.example"
        self.assertEqual(record(domain + ".conf")["suspended_reason"], "domain_bandwidth")
        self.limit("u00000", bandwidth="20")
        self.limit("u00002", bandwidth="20")
        self.tally()
        self.assertEqual(state("u00000")[0], "no")
        self.assertEqual(state("u00002"), ("yes", "spam"))
        self.assertLogged("User u00000 has been unsuspended: bw used: 11.000000, bw limit: 20", "system", times=1)
        self.limit("u00000", bandwidth="10")
        self.tally()
        self.assertEqual(state("u00000")[0], "yes")
        served = self.server.serve(["u00004"])
        self.tally("action=reset&value=all")
        self.assertEqual((state("u00000")[0], record(domain + ".conf")["suspended"], record(domain + ".usage")["bandwidth"]), ("no", "no", "0"))
        self.assertEqual((usage("u00000")["bandwidth"], record(ADMIN + "/admin.usage")["bandwidth"]), ("0", "0"))
        self.assertEqual(len(glob.glob(USERS + "/u00000/bandwidth.tally.20*")), 1)
        self.assertIn("action=tally&value=all", text(panel.QUEUE))
        self.assertTrue(os.path.exists(generated.WEB_LOGS + "/u00004-0.example.bytes"))
        self.run_program()
        self.assertEqual(usage("u00000")["bandwidth"], "0.000000")
        self.assertBandwidth("u00004", served["u00004"])
        # A clean one keeps no history, and no tally follows it.
        history = lambda: {path: text(path) for path in glob.glob(USERS + "/*/*.tally.20*")}
        kept = history()
        self.month("u00000", 11)
        self.tally()
        self.assertEqual(state("u00000"), ("yes", "bandwidth"))
        os.unlink(panel.QUEUE)
        self.tally("action=cleanreset&value=all")
        self.assertLogged("Clean Reset All has finished", times=1)
        self.assertEqual((state("u00000"), usage("u00000")["bandwidth"], history()), (("no", None), "0", kept))
        self.assertFalse(os.path.exists(USERS + "/u00000/bandwidth.tally"))
        self.assertNotIn("tally", text(panel.QUEUE))

    def test_disk_limit_suspends_where_the_administrator_wants_it(self):
        self.server.make_homes()
        self.limit("u00000", quota="1")
        write("/home/u00000/big", "x" * 3 * MEGABYTE)
        os.chown("/home/u00000/big", generated.FIRST_ID, generated.FIRST_ID)
        suspended = lambda: record(USERS + "/u00000/user.conf")["suspended"]
        self.tally()
        self.assertEqual(suspended(), "no")
        settings(disk_usage_suspend=1)
        self.tally()
        self.assertEqual(suspended(), "yes")
        self.assertTrue(any(line.startswith("u00000:!$6$") for line in text("/etc/shadow").splitlines()))
        os.unlink("/home/u00000/big")
        self.tally()
        self.assertEqual(suspended(), "no")
        self.assertTrue(any(line.startswith("u00000:$6$") for line in text("/etc/shadow").splitlines()))

    def test_outgoing_mail_of_yesterday(self):
        now = time.localtime()
        if now.tm_mday == 1:
            self.skipTest("the first of a month has no yesterday")
        noon = int(time.mktime((now.tm_year, now.tm_mon, now.tm_mday - 1, 12, 0, 0, 0, 0, -1)))
        for user, mails in (("u00000", 5), ("u00001", 5), ("u00002", 5)):
            write(f"{USERS}/{user}/bandwidth.tally", "".join(f"9=type=email&method=outgoing&id={i}&time={noon}&email=x@example.com\n" for i in range(mails)), "zvadmin", 0o600)
        write("/etc/virtual/limit", "5\n")
        write("/etc/virtual/limit_u00001", "6\n")
        write("/etc/virtual/limit_u00002", "0\n")
        self.tally()
        words = "Warning: 5 emails have been sent yesterday by "
        for log in ("system", "security", "errortaskq"):
            self.assertLogged(words + "u00000", log, times=1)
            self.assertLogged(words, log, times=1)
        self.assertEqual([subject for subject, _ in self.messages("admin")], [words + "u00000"])
        self.assertIn("because the 5 email threshold was passed", self.messages("r000")[0][1])


if __name__ == "__main__":
    panel.main()
