"""The mail server's byte files, from its folder to the accounts' tally files, by the stock script."""
import glob
import multiprocessing
import os
import pwd
import re
import stat
import subprocess
import time

import panel
from panel import ADMIN, PANEL, PanelTest, text, write

USAGE = "/etc/virtual/usage"
SCRIPT = PANEL + "/scripts/rotate_email_usage.sh"
STATE = ADMIN + "/state/mail_usage"
MAIL = pwd.getpwnam("mail")


def line(account, number, size=100):
    return "%d=type=email&method=incoming&id=1abc-%d&time=1795394713&email=%s%%40%s.example\n" % (size, number, account, account)


def deliver(account, *lines, path=None):
    """As the mail server does: by name, one write, closed again."""
    file = os.open(path or "%s/%s.bytes" % (USAGE, account), os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o640)
    os.write(file, "".join(lines).encode())
    os.close(file)


def serve(account, count, first):
    os.setgid(MAIL.pw_gid)
    os.setuid(MAIL.pw_uid)
    for number in range(first, first + count):
        deliver(account, line(account, number))
        time.sleep(0.0002)


class MailUsage(PanelTest):
    def setUp(self):
        super().setUp()
        for account in ("bob", "ann"):
            panel.panel_do("addAccount", account, "user", "root", account + ".example")
        panel.panel_do("panelFolder", "2770", "mail:mail", USAGE)

    def tally_file(self, name):
        return "%s/data/users/%s/bandwidth.tally" % (PANEL, name)

    def lines(self, name):
        return text(self.tally_file(name)).splitlines(True)

    def script(self, status=0):
        outcome = subprocess.run([SCRIPT], capture_output=True, encoding="utf-8", env={"serverpath": PANEL}, check=False)
        self.assertEqual(outcome.returncode, status, outcome.stdout + outcome.stderr + self.log())

    def test_each_account_gets_its_lines(self):
        deliver("bob", line("bob", 1), "5=type=tally&time=1\n", line("bob", 2))
        write(self.tally_file("bob"), "7=type=ftp&time=1", "zvadmin", 0o600)
        deliver("ann", line("ann", 1, 7) + "8=type=email&id=" + "x" * 5000 + "\n" + line("ann", 2)[:-1])
        deliver("nobody1", line("nobody1", 1))
        # As a tally runs the script.
        subprocess.run([panel.BUILD + "/tally_driver", "rotate_email_usage"], check=True)
        self.assertEqual(self.lines("bob"), ["7=type=ftp&time=1\n", line("bob", 1), line("bob", 2)])
        self.assertEqual(self.lines("ann"), [line("ann", 1, 7), line("ann", 2)])
        entry = os.stat(self.tally_file("ann"))
        self.assertEqual((stat.S_IMODE(entry.st_mode), pwd.getpwuid(entry.st_uid).pw_name), (0o600, "zvadmin"))
        self.assertEqual(os.listdir(USAGE), ["nobody1.bytes"])
        self.assertLogged(USAGE + ": 1 files belong to no account", times=1)
        for account in ("bob", "ann"):
            self.assertLogged("of account %s: 1 lines are of no e-mail: not entered" % account, times=1)
        self.assertLogged("error executing", times=0)

    def test_beside_a_mail_server(self):
        """Many writers while the script runs again and again: every line once, and in its order."""
        count = 1500
        writers = [multiprocessing.Process(target=serve, args=(account, count, first))
                   for account in ("bob", "ann") for first in (0, count)]
        for writer in writers:
            writer.start()
        while any(writer.is_alive() for writer in writers):
            self.script()
        self.script()
        for account in ("bob", "ann"):
            self.assertEqual(sorted(self.lines(account)), sorted(line(account, n) for n in range(2 * count)))
        self.assertEqual((os.listdir(USAGE), [writer.exitcode for writer in writers]), ([], [0] * 4))

    def test_file_that_is_held(self):
        deliver("bob", line("bob", 1), line("bob", 2)[:20])
        held = os.open(USAGE + "/bob.bytes", os.O_WRONLY | os.O_APPEND)
        self.script()
        self.assertEqual(self.lines("bob"), [line("bob", 1)])
        deliver("bob", line("bob", 3))
        os.write(held, line("bob", 2)[20:].encode())
        os.close(held)
        self.script()
        self.assertEqual((self.lines("bob"), os.listdir(USAGE)), ([line("bob", n) for n in (1, 2, 3)], []))

    def test_tally_file_that_is_locked(self):
        write(self.tally_file("bob") + ".lock", "")
        for number in (1, 2):
            deliver("bob", line("bob", number))
            self.script(status=1)
        self.assertEqual((self.lines("bob"), sorted(os.listdir(USAGE))), ([], ["bob.bytes", "bob.bytes.billing"]))
        os.unlink(self.tally_file("bob") + ".lock")
        self.script()
        self.assertEqual((self.lines("bob"), os.listdir(USAGE)), ([line("bob", 1), line("bob", 2)], []))

    def test_hostile_folder(self):
        write("/root/canary", line("bob", 9))
        plants = ("ln -s /root/canary {0}", "mkfifo {0}", "ln /root/canary {0}", "mkdir {0}")
        for plant in plants:
            for name in ("bob.bytes", "bob.bytes.billing"):
                panel.shell("rm -rf %s/* %s" % (USAGE, self.tally_file("*")))
                write(panel.LOGS + "/errortaskq.log", "", "zvadmin", 0o640)
                panel.shell(plant.format(USAGE + "/" + name))
                deliver("ann", line("ann", 1))
                self.script(status=1)
                self.assertEqual((self.lines("bob"), self.lines("ann")), ([], [line("ann", 1)]), plant)
                self.assertLogged("%s/%s of account bob is no plain file: not entered" % (USAGE, name), times=1)
        self.assertEqual(text("/root/canary"), line("bob", 9))
        panel.shell("rm -rf {0}; ln -s /root {0}".format(USAGE))
        self.script(status=1)
        panel.shell("rm {0}; mkdir {0}; truncate -s 3G {0}/bob.bytes".format(USAGE))
        write(self.tally_file("ann"), "")
        deliver("ann", line("ann", 2))
        self.script()
        self.assertEqual((self.lines("bob"), self.lines("ann")), ([], [line("ann", 2)]))

    def test_killed_on_the_way(self):
        came_through, torn = False, 0
        for step in range(400):
            panel.shell("rm -rf %s/* %s %s/state" % (USAGE, self.tally_file("*"), ADMIN))
            deliver("bob", line("bob", 1, 1000), "x\n", line("bob", 2, 2000))
            deliver("ann", line("ann", 1, 500))
            came_through = self.kill_at(step)
            # What a write that was cut in the middle leaves, and what somebody else then appends to it.
            if "to_bob=" in text(STATE + "/note") and not self.lines("bob"):
                torn += 1
                cut = line("bob", 1, 1000) + line("bob", 2, 2000)[:23] if step % 2 else line("bob", 1, 1000)[:2]
                write(self.tally_file("bob"), cut + "\n9=type=ftp&time=1\n", "zvadmin", 0o600)
            deliver("bob", line("bob", 3, 4000))
            self.script()
            self.script()
            lines = [entry for entry in self.lines("bob") if re.match(r"\d", entry) and "type=ftp" not in entry]
            self.assertEqual((lines, self.lines("ann"), os.listdir(USAGE)),
                             ([line("bob", n, 500 * 2 ** n) for n in (1, 2, 3)], [line("ann", 1, 500)], []), step)
            if came_through:
                break
        self.assertTrue(came_through and step > 20 and torn > 3, (step, torn))

    def kill_at(self, step):
        program = subprocess.run([PANEL + "/libexec/zvmailusage", panel.CONF], capture_output=True, check=False,
                                 env={"ZVTASKQ_FAIL": "*:kill:%d" % step})
        # Others would wait for it a minute.
        for lock in glob.glob(PANEL + "/data/users/*/*.lock"):
            os.unlink(lock)
        return program.returncode == 0


if __name__ == "__main__":
    panel.main()
