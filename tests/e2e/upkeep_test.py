"""Upkeep from outside: clean-ups, the host name, load and partitions, vacations, block lists."""
import contextlib
import os
import pwd
import threading
import time

import panel
from panel import ADMIN, LOGS, PANEL, PanelTest, append, mode, owner, record, settings, shell, text, write

TEMPLATES = PANEL + "/data/templates"
MAIL = "/etc/virtual"
SPOOL = "/var/spool/exim"
BLOCKED = {0: SPOOL + "/blocked_authenticated_users", 1: SPOOL + "/blocked_script_paths"}
HISTORY = ADMIN + "/login.hist"
REQUESTS = ADMIN + "/lost_password_request.txt"
BLACKLIST = ADMIN + "/ip_blacklist"
SETTINGS = ADMIN + "/admin.conf"


def ago(seconds):
    return int(time.time()) - seconds


def day(offset, edge):
    """The window edge that many days from now."""
    when = time.localtime(time.time() + offset * 86400)
    return "{0}year={1}&{0}month={2}&{0}day={3}&{0}time={4:02}:{5:02}".format(edge, *when[:5])


def window(start, end):
    return day(start, "start") + "&" + day(end, "end")


@contextlib.contextmanager
def locked(path):
    """As the panel's other programs change a record."""
    while True:
        try:
            os.close(os.open(path + ".lock", os.O_CREAT | os.O_EXCL, 0o600))
            break
        except FileExistsError:
            time.sleep(0.0005)
    yield
    os.unlink(path + ".lock")
    time.sleep(0.002)


def add_entries(path):
    for i in range(150):
        with locked(path):
            append(path, "new%d=date=%d\nold%d=date=1\n" % (i, time.time(), i))


def extend_vacations(path, dates, extended):
    for _ in range(60):
        with locked(path):
            lines = text(path).splitlines()
            old = next((n for n, line in enumerate(lines) if not line.endswith(dates)), None)
            if old is None:
                continue
            extended.append(lines[old].split(":")[0])
            lines[old] = extended[-1] + ":" + dates
            write(path, "".join(line + "\n" for line in lines))


class UpkeepTest(PanelTest):
    def setUp(self):
        super().setUp()
        self.administrator()

    def forget(self):
        shell("rm -rf %s/data/tickets/* %s/errortaskq.log" % (PANEL, LOGS))

    def assertQuiet(self):
        """No error but that of a machine that lets nobody have as many open files."""
        self.assertEqual([line for line in self.log().splitlines() if "setrlimit" not in line], [])


class Cleanups(UpkeepTest):
    def test_what_is_written_and_what_cannot_be(self):
        settings(bruteforce=1, clear_blacklist_ip_time=1, lost_password=1)
        files = {HISTORY: "zvadmin", REQUESTS: "zvadmin", BLACKLIST: "root"}
        os.unlink(HISTORY)
        self.run_program()
        self.assertLogged("Unable to read %s: Unable to open %s for reading." % (HISTORY, HISTORY), times=1)
        for path, user in files.items():
            write(path, "a=1\nb=2\n", user, 0o600)
        self.run_program(env={"ZVTASKQ_FAIL": "safe_write.fsync:ENOSPC"})
        self.assertLogged("Unable to write %s: Error writing %s.  Disk might be full." % (HISTORY, HISTORY))
        self.assertLogged("Unable to write %s : Error writing %s.  Disk might be full." % (REQUESTS, REQUESTS))
        self.assertLogged("Error writing %s to remove blacklisted IPs: Error writing %s." % (BLACKLIST, BLACKLIST))
        for path in files:
            self.assertEqual(text(path), "a=1\nb=2\n")
        self.assertIn("Removing b from the " + BLACKLIST, self.run_program("d200"))
        self.assertEqual({path: owner(path) for path in files if text(path) == ""}, files)
        os.mkfifo(BLACKLIST + "2")
        settings(ip_blacklist=BLACKLIST + "2")
        self.assertIn("Unable to read %s2 to clear blacklisted IPs: " % BLACKLIST, self.run_program("d200"))

    def test_planted_links_and_what_is_switched_off(self):
        settings(bruteforce=1, clear_blacklist_ip_time=1, lost_password=1)
        write("/var/canary", "a=1\n", "root", 0o600)
        nobody = pwd.getpwnam("nobody").pw_uid
        os.symlink("/var/canary", BLACKLIST)
        os.lchown(BLACKLIST, nobody, nobody)
        self.run_program()
        self.assertEqual(text("/var/canary"), "a=1\n")
        os.unlink(BLACKLIST)
        for off in ({"bruteforce": 0}, {"clear_blacklist_ip_time": 0}, {}):
            settings(**{"bruteforce": 1, "clear_blacklist_ip_time": 1, "lost_password": 0, **off})
            if not off:
                write(PANEL + "/conf/demo", "")
            write(BLACKLIST, "a=1\n", "root", 0o600)
            write(REQUESTS, "a=1\n", "zvadmin", 0o600)
            self.run_program()
            self.assertEqual(text(BLACKLIST) + text(REQUESTS), "a=1\n" * 2, off)

    def test_an_entry_added_meanwhile_is_kept(self):
        """Others of the panel add entries under the lock while passes run."""
        write(HISTORY, "", "zvadmin", 0o600)
        adder = threading.Thread(target=add_entries, args=(HISTORY,))
        adder.start()
        while adder.is_alive():
            self.run_program()
        self.run_program()
        left = text(HISTORY).splitlines()
        self.assertEqual(sum(line.startswith("new") for line in left), 150)
        self.assertFalse([line for line in left if line.startswith("old")])


class HostName(UpkeepTest):
    def tally(self, action="tally"):
        self.queue("action=%s&value=all" % action)
        self.forget()
        self.run_program()
        os.path.exists(panel.QUEUE) and os.unlink(panel.QUEUE)
        return self.notices()

    def name_it(self, name, address):
        shell("hostname {0}; printf '127.0.0.1 localhost\\n{1} {0}\\n' >/etc/hosts".format(name, address))
        self.addCleanup(shell, "hostname panel.example.test; printf '127.0.0.1 localhost\\n192.0.2.10 "
                                     "panel.example.test panel\\n' >/etc/hosts")

    def test_findings(self):
        self.assertEqual(self.tally(), [])
        settings(servername="other.example")
        [(subject, body)] = self.tally("quotatally")
        self.assertEqual(subject, "This is e-mail notification to warn you that your hostname is setup improperly on your system.")
        self.assertTrue(body.startswith("Your hostname, panel.example.test, and the servername you have set in Zorvane, "
                                        "other.example, do not match.  It is"), body)
        self.assertTrue(body.endswith("script via ssh to change your hostname\n\n"), body)

        settings(servername="loop.example.test")
        self.name_it("loop.example.test", "198.51.100.1")
        self.assertEqual(self.tally(), [])
        self.name_it("loop.example.test", "127.0.0.1")
        for addresses in (text(ADMIN + "/ip.list"), ""):
            write(ADMIN + "/ip.list", addresses, "zvadmin", 0o600)
            [(_, body)] = self.tally("bandwidthtally")
            self.assertTrue(body.startswith("loop.example.test, resolves to 127.0.0.1.  Please make sure that your hostname "
                                            "resolves to your server ip (192.0.2.10) or else your email"), body)
            self.assertIn("\n\nSolution:\n\nCreate an A record for your hostname (loop.example.test.) in your DNS control "
                          "panel. Point the hostname to your server's main IP address.  Also check /etc/hosts", body)
        settings(ethernet_dev="none0")
        [(_, body)] = self.tally()
        self.assertEqual(body, "Unable to determine the server's ip.  Please make sure that the proper ethernet device has "
                               "been set in the zorvane.conf file: eg: ethernet_dev=eth0\n\n")

    def test_a_command_that_says_nothing_or_hangs(self):
        for script in ("exit 1\n", "sleep 600\n"):
            self.stand_in("/bin/hostname", script)
            [(_, body)] = self.tally()
            self.assertTrue(body.startswith("Cannot find your hostname using the command '/bin/hostname --fqdn'. Please check"))
            self.assertIn("use 127.0.0.1Unable to resolve your hostname, .  This will cause major issues", body)


class Load(UpkeepTest):
    def setUp(self):
        super().setUp()
        deadline = time.monotonic() + 30
        while os.getloadavg()[0] < 0.01 and time.monotonic() < deadline:
            pass
        settings(check_load="0.001", check_load_minute=1)

    def test_stock_notice_scripts_and_interval(self):
        self.script("custom/load_spike_notice_pre.sh", "echo busy, come back; exit 2\n")
        self.run_program()
        self.assertLogged("Tally::check_system_load: Pre script output: busy, come back", times=1)
        self.assertEqual((self.notices(), record(SETTINGS).get("load_limit_last_sent")), ([], None))
        self.script("custom/load_spike_notice_pre.sh", "exit 0\n")
        self.script("custom/load_spike_notice_post.sh", "exit 5\n")
        self.run_program()
        self.assertLogged("Tally::check_system_load: Post script output: exit status 5", times=1)
        [(subject, body)] = self.notices()
        self.assertRegex(subject, r"\AWarning: The 1 Minute Load Average is [0-9.]+\Z")
        self.assertRegex(body, r"The 1 minute load average is [0-9.]+\. You are told when it is above 0\.001\.")
        self.assertIn("PID USER", body)
        self.assertNotIn("|", body)
        self.assertAlmostEqual(int(record(SETTINGS)["load_limit_last_sent"]), time.time(), delta=30)
        self.assertEqual((owner(SETTINGS), record(SETTINGS)["service_email_active"]), ("nobody", "yes"))
        self.run_program()
        self.assertEqual(len(self.notices()), 1)

    def test_odd_settings_and_files(self):
        settings(load_top_string="printf '|FOOTER|\\n'; seq 2 40; sleep 60")
        os.makedirs(TEMPLATES + "/custom", exist_ok=True)
        write(TEMPLATES + "/custom/load_check_message.txt", "ours:\n|TOP|")
        self.run_program()
        [(_, body)] = self.notices()
        self.assertEqual(body, "ours:\n!FOOTER!\n" + "".join("%d\n" % i for i in range(2, 31)))

        self.forget()
        shell("rm -r %s/custom %s/load_check_message.txt; sed -i /load_limit/d %s" % (TEMPLATES, TEMPLATES, SETTINGS))
        shell("chown nobody:nogroup " + SETTINGS)
        settings(load_top_string="true")
        self.run_program()
        self.assertLogged("Error while sending load limit warning: Unable to open %s/load_check_message.txt" % TEMPLATES)
        self.assertEqual([body for _, body in self.notices()], [""])
        os.unlink(SETTINGS)
        self.run_program()
        self.assertLogged("Tally::check_system_load: Unable to read %s : Unable to open" % SETTINGS)


class Partitions(UpkeepTest):
    MOUNT = "/mnt/a long name, with blanks and 100% odd"

    def setUp(self):
        super().setUp()
        os.makedirs(self.MOUNT, exist_ok=True)
        shell("mount -t tmpfs -o size=400k '%s' '%s'" % ("a very long device name " * 4, self.MOUNT))
        self.addCleanup(shell, "umount '%s'" % self.MOUNT)
        write(TEMPLATES + "/partition_check.list", self.MOUNT + "\n/nowhere\n")
        settings(check_partitions=1)

    def fill(self, percent):
        with open(self.MOUNT + "/file", "wb") as file:
            file.write(b"x" * (4096 * percent))

    def test_threshold_and_a_day(self):
        self.fill(94)
        self.run_program()
        self.assertEqual(self.notices(), [])
        self.fill(95)
        self.run_program()
        [(subject, body)] = self.notices()
        self.assertEqual(subject, "Warning: a partition is used to 95% or more")
        self.assertIn("\n95%% - %s\n" % self.MOUNT, body)
        self.assertNotIn("nowhere", body)
        self.run_program()
        self.assertEqual(len(self.notices()), 1)
        self.assertAlmostEqual(int(record(SETTINGS)["quota_thresh_last_check"]), time.time(), delta=30)
        os.makedirs(TEMPLATES + "/custom", exist_ok=True)
        write(TEMPLATES + "/custom/partition_check.list", "/nowhere\n")
        write(SETTINGS, "", "nobody", 0o600)
        self.run_program()
        self.assertEqual(len(self.notices()), 1)
        self.assertQuiet()
        # Every time with the full tally, and then alone.
        settings(check_partitions=2)
        os.unlink(TEMPLATES + "/custom/partition_check.list")
        for line, wanted in ((), 1), (("action=tally&value=all",), 2), (("action=tally&value=all",), 3):
            self.queue(*line)
            self.run_program()
            self.assertEqual(len(self.notices()), wanted)

    def test_failures(self):
        self.fill(100)
        for script in ("echo nothing\n", "sleep 600\n"):
            self.forget()
            self.stand_in("/bin/df", script)
            shell("rm -rf %s/state/marks" % ADMIN)
            self.run_program()
            self.assertLogged("unable to get the disk usage with the df command to check the disk usage", times=1)
        shell("cp /bin/df.kept /bin/df")
        os.unlink(SETTINGS)
        self.run_program()
        self.assertLogged("Unable to read %s : Unable to open" % SETTINGS)
        os.unlink(TEMPLATES + "/partition_check.list")
        self.run_program()
        self.assertLogged("Unable to read %s/partition_check.list : Unable to open" % TEMPLATES)
        write(PANEL + "/conf/demo", "")
        self.forget()
        self.assertNotIn("Checking partition usage", self.run_program("d35"))
        os.unlink(PANEL + "/conf/demo")
        self.assertIn("Checking partition usage", self.run_program("d30"))


class Vacations(UpkeepTest):
    def box(self, domain, name, dates, *suffixes):
        folder = "%s/%s" % (MAIL, domain)
        if not os.path.isdir(folder):
            panel.panel_do("addDomain", "boss", domain)
        append(folder + "/vacation.conf", "%s:%s\n" % (name, dates))
        shell("chown mail:mail %s/vacation.conf; chmod 640 %s/vacation.conf" % (folder, folder))
        for suffix in suffixes:
            write("%s/reply/%s%s" % (folder, name, suffix), name + suffix, "mail", 0o600)

    def texts(self, domain, name):
        base = "%s/%s/reply/%s" % (MAIL, domain, name)
        return text(base + ".msg"), text(base + ".msg_off")

    def test_all_domains_and_one(self):
        self.box("one.example", "open", window(-1, 1), ".msg_off")
        self.box("one.example", "ahead", window(1, 2), ".msg")
        self.box("one.example", "over", window(-2, -1), ".msg", ".msg_off")
        self.box("two.example", "open", window(-1, 1), ".msg_off", ".msg")
        self.box("two.example", "off", window(-1, 1), ".msg_off")
        for unseen in ("majordomo", "unlisted.example"):
            self.box(unseen, "open", window(-1, 1), ".msg_off")
        shell("sed -i /unlisted/d %s/domainowners" % MAIL)
        self.queue("action=vacation&type=domain&value=two.example", "action=vacation&type=domain&value=unlisted.example")
        self.run_program()
        self.assertEqual(self.texts("two.example", "off"), ("off.msg_off", ""))
        self.assertEqual(self.texts("one.example", "open"), ("", "open.msg_off"))
        self.queue("action=vacation&value=all")
        shown = self.run_program("d2000")
        self.assertRegex(shown, r"checking over@one\.example\. active=1 curTime=\d+ stime=\d+ etime=\d+")
        self.assertEqual(self.texts("one.example", "open"), ("open.msg_off", ""))
        self.assertEqual(self.texts("one.example", "ahead"), ("", "ahead.msg"))
        self.assertEqual(self.texts("one.example", "over"), ("", ""))
        for unseen in ("majordomo", "unlisted.example"):
            self.assertEqual(self.texts(unseen, "open"), ("", "open.msg_off"))
        kept = MAIL + "/one.example/vacation.conf"
        self.assertEqual([line.split(":")[0] for line in text(kept).splitlines()], ["ahead", "open"])
        self.assertEqual((owner(kept), mode(kept)), ("mail", 0o640))
        self.assertQuiet()

    def test_words(self):
        self.box("two.example", "late", window(-2, -1), ".msg")
        os.unlink(MAIL + "/two.example/vacation.conf")
        os.symlink("/etc/shadow", MAIL + "/two.example/vacation.conf")
        self.queue("action=vacation&value=all")
        self.run_program()
        self.assertLogged("Can't read %s/two.example/vacation.conf" % MAIL)
        os.unlink(MAIL + "/domainowners")
        self.queue("action=vacation&value=all")
        self.run_program()
        self.assertLogged("Can't read %s/domainowners" % MAIL)

    def test_extended_meanwhile(self):
        """Mailboxes whose vacation somebody extends while the run is at their domain keep their entry and their text."""
        for i in range(400):
            self.box("one.example", "box%d" % i, window(-2, -1), ".msg")
        kept = MAIL + "/one.example/vacation.conf"
        self.queue("action=vacation&value=all")
        extended = []
        extender = threading.Thread(target=extend_vacations, args=(kept, window(-2, 9), extended))
        extender.start()
        self.run_program()
        extender.join()
        left = [line.split(":")[0] for line in text(kept).splitlines()]
        self.assertEqual(sorted(left), sorted(extended))
        for name in extended:
            self.assertEqual(self.texts("one.example", name), (name + ".msg", ""), name)

    def test_five_thousand_domains(self):
        def tree(first, count):
            names = ["d%d.example" % i for i in range(first, first + count)]
            append(MAIL + "/domainowners", "".join(name + ": boss\n" for name in names))
            for name in names:
                os.makedirs("%s/%s/reply" % (MAIL, name))
                write("%s/%s/vacation.conf" % (MAIL, name), "".join("box%d:%s\n" % (i, window(-1, 1)) for i in range(2)))
                write("%s/%s/reply/box1.msg_off" % (MAIL, name), "")
            shell("chown -R mail:mail " + MAIL)

        def run():  # The bytes that a run read, and its calls to read them: what a busy machine does not change.
            self.queue("action=vacation&value=all")
            process = self.start()
            os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT)
            counts = dict(line.split(": ") for line in text("/proc/%d/io" % process.pid).splitlines())
            self.assertEqual(process.wait(), 0)
            return int(counts["rchar"]), int(counts["syscr"])
        tree(0, 2500)
        run()
        half = run()
        tree(2500, 2500)
        run()
        self.assertEqual(sum(os.path.exists("%s/d%d.example/reply/box1.msg" % (MAIL, i)) for i in range(5000)), 5000)
        for whole, part in zip(run(), half):
            self.assertLess(whole, 2.5 * part)


class BlockLists(UpkeepTest):
    def setUp(self):
        super().setUp()
        shell("rm -rf {0}; install -d -m 755 -o mail -g mail {0}".format(SPOOL))
        settings(block_cracking_unblock=2, block_cracking_unblock_minutes=60)

    def put(self, which, content):
        write(BLOCKED[which], content, "mail", 0o640)

    def test_both_lists(self):
        self.put(0, "eve:%d\nyoung: %d\never:0\nbare\n" % (ago(3700), ago(3500)))
        self.put(1, "/home/eve/public_html: %d\n" % ago(3700))
        self.run_program()
        self.assertRegex(text(BLOCKED[0]), r"\Abare:\never:0\nyoung: \d+\n\Z")
        self.assertEqual(text(BLOCKED[1]), "")
        self.assertEqual((owner(BLOCKED[0]), mode(BLOCKED[0])), ("mail", 0o640))
        for who in ("account 'eve'", "script path '/home/eve/public_html'"):
            self.assertLogged("BlockCracking: %s has been removed from the block list due to age." % who, "system", times=1)

    def test_failures(self):
        self.assertIn("Email::check_block_cracking_auto_unblock: Unable to read %s: Unable to open" % BLOCKED[0],
                      self.run_program("d3000"))
        self.put(0, "eve:1\n")
        self.put(1, "/home/eve/x:1\n")
        self.run_program(env={"ZVTASKQ_FAIL": "safe_write.fsync:ENOSPC"})
        for which, kind in ((0, "account"), (1, "script path")):
            self.assertLogged("Email::check_block_cracking_auto_unblock: unable to write %s: " % BLOCKED[which], times=1)
            self.assertLogged("Email::check_block_cracking_auto_unblock: this means the the %ss removed are not actually "
                              "removed." % kind, times=1)
            self.assertNotEqual(text(BLOCKED[which]), "")
        os.unlink(BLOCKED[0])
        os.symlink("/etc/passwd", BLOCKED[0])
        os.lchown(BLOCKED[0], pwd.getpwnam("mail").pw_uid, -1)
        before = text("/etc/passwd")
        self.run_program()
        self.assertEqual(text("/etc/passwd"), before)
        for off in ("settings", "demo"):
            self.put(1, "x:1\n")
            settings(block_cracking_unblock=1 if off == "settings" else 2)
            if off == "demo":
                write(PANEL + "/conf/demo", "")
            self.run_program()
            self.assertEqual(text(BLOCKED[1]), "x:1\n", off)


class PanelLogs(PanelTest):
    def test_large_ones_once_a_day_and_with_the_tally(self):
        settings(log_rotate_size=1, logs_to_keep=3, check_load=0)
        large, log = "x" * (1024 * 1024 + 1), LOGS + "/system.log"
        for line, want in [(None, [0, 1, 0, 0]), (None, [1, 1, 0, 0]), ("action=quotatally&value=all", [1, 1, 0, 0]),
                           ("action=tally&value=all", [0, 1, 1, 0])]:
            write(log, large, "zvadmin", 0o600)
            if line:
                self.queue(line)
            self.run_program()
            self.assertEqual([len(text(log + end)) > 1024 * 1024 for end in ("", ".1", ".2", ".3")], [n > 0 for n in want], line)


if __name__ == "__main__":
    panel.main()
