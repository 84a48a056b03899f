"""The brute-force monitor from outside: real log lines in, counts, notices, scripts and blocked addresses out."""
import os
import re
import subprocess
import time
import unittest
import urllib.parse

import panel
from panel import ADMIN, PanelTest, append, mode, owner, record, settings, text, write

FIXTURES = panel.ROOT + "/tests/fixtures/brute/"
SECURE, EXIM, MAIL, WEB = "/var/log/secure", "/var/log/exim/mainlog", "/var/log/maillog", "/var/log/httpd/domains"
STATE, ADDRESSES, USERS = ADMIN + "/brute.conf", ADMIN + "/brute_ip.data", ADMIN + "/brute_user.data"
ENTRIES, SKIPPED = ADMIN + "/brute_log_entries.list", ADMIN + "/brute_skip.list"
SUBJECT = "Brute-Force Attack detected in service log"
SEEN = "/tmp/brute.seen"
# What the fixtures hold of failures from 127.0.0.1, and as many from ::1.
FROM_EACH = {"dovecot1": 10, "exim1": 3, "exim2": 6, "proftpd1": 3, "proftpd2": 1, "proftpd3": 3, "proftpd4": 1, "pure-ftpd1": 5,
             "sshd3": 3, "sshd4": 3, "sshd5": 2}


def failure(address, user="bob", end="\n"):
    return "Nov 23 00:39:29 panel sshd[121]: Failed password for %s from %s port 45486 ssh2%s" % (user, address, end)


def records(path):
    """Name -> pairs of a file of records."""
    return {name: dict(urllib.parse.parse_qsl(value)) for name, value in record(path).items()}


def counts(path):
    """Name -> failures by filter."""
    return {name: {key: int(value) for key, value in pairs.items() if not re.match("(first|last)_", key)}
            for name, pairs in records(path).items()}


class BruteForceTest(PanelTest):
    def setUp(self):
        super().setUp()
        self.administrator()
        panel.shell("rm -rf %s %s %s /var/log/exim %s; mkdir -p /var/log/exim %s" % (SECURE, MAIL, SEEN, WEB, WEB))
        for log in (SECURE, EXIM, MAIL):
            write(log, "", "root", 0o600)
        settings(brute_force_log_scanner=1, ip_brutecount=3, user_brutecount=0)

    def attack(self, *addresses):
        """Three failures from each."""
        append(SECURE, "".join(failure(address) * 3 for address in addresses))
        self.run_program()

    def assertOnlyTold(self, *addresses):
        """Those and no others have been told of."""
        told = {name for name, pairs in records(ADDRESSES).items() if "last_notify" in pairs}
        self.assertEqual(told, set(addresses))


class Scanning(BruteForceTest):
    def test_what_real_daemons_write(self):
        settings(pureftp=1, user_brutecount=7, brute_force_ambiguous_ip="last", brute_force_messages_log="/var/log/messages")
        append(SECURE, text(FIXTURES + "sshd-classic.log") + text(FIXTURES + "proftpd-iso.log"))
        append(EXIM, text(FIXTURES + "exim-mainlog.log"))
        append(MAIL, text(FIXTURES + "dovecot-iso.log"))
        write("/var/log/messages", text(FIXTURES + "pure-ftpd-classic.log"))
        for _ in range(2):
            self.run_program()
            found = counts(ADDRESSES)
            self.assertEqual((found["127.0.0.1"], found["::1"]), (FROM_EACH, FROM_EACH))
            [(subject, body)] = self.notices()
        self.assertTrue(subject.startswith(SUBJECT + " from IP(s) 127.0.0.1, "), subject)
        self.assertIn("::1 on User(s) alice", subject)
        self.assertIn(" & sshd5=", body)
        for path in (STATE, ADDRESSES, USERS, ENTRIES):
            self.assertEqual((owner(path), mode(path)), ("zvadmin", 0o600), path)
        entries = records(ENTRIES).values()
        self.assertEqual(sum(int(one["attempts"]) for one in entries),
                         sum(number for one in found.values() for number in one.values()))
        self.assertIn(text(FIXTURES + "exim-mainlog.log").splitlines()[0], [one["log"] for one in entries])

    def test_suspended_accounts_and_what_attackers_type(self):
        settings(user_brutecount=1, ip_brutecount=0)
        for name in ("carl", "dora"):
            panel.shell("userdel -r %s 2>/dev/null; useradd -p '!hash' %s" % (name, name))
            self.addCleanup(panel.shell, "userdel -r %s 2>/dev/null" % name)
        panel.shell("mkdir -p /etc/virtual/site.example")
        write("/etc/virtual/site.example/passwd", "bob:!x:1\nann:x:1\n", "mail", 0o600)
        self.script("custom/brute_force_notice_user.sh", 'printf "%%s\\n" "$value" >>%s\n' % SEEN)
        dovecot = "Nov 23 00:45:10 panel dovecot: imap-login: Disconnected (auth failed, 1 attempts in 4 secs): user=<%s>, rip=198.51.100.1,\n"
        append(SECURE, "".join(failure("198.51.100.1", name) for name in ("carl", "root", "$(id)", "`id`")))
        # Behind so many, accounts are no longer asked for one by one.
        ghosts = ["ghost%02d" % number for number in range(20)]
        append(SECURE, "".join(failure("198.51.100.2", name) for name in (*ghosts, "dora")))
        append(MAIL, "".join(dovecot % name for name in ("bob@site.example", "ann@site.example", "x@../site.example")))
        self.run_program()
        self.assertEqual(sorted(text(SEEN).splitlines()), ["$(id)", "`id`", "ann@site.example", *ghosts, "root", "x@../site.example"])
        self.assertEqual(counts(ADDRESSES)["198.51.100.1"], {"sshd5": 3, "dovecot1": 2})
        self.assertOnlyTold()
        self.assertLogged("User is suspended.  Exempt from brute force count.", "security", times=1)

    def test_web_logs(self):
        settings(brute_force_scan_apache_logs=2, apachelogdir=WEB, brute_force_apache_log_list_update_interval=0)
        log, line = WEB + "/site.example.log", text(FIXTURES + "wordpress-access.log")
        write(log, line)
        write(WEB + "/site.example.error.log", line)
        for _ in range(2):
            self.run_program()
            self.assertEqual(counts(ADDRESSES), {"127.0.0.1": {"wordpress1": 1}, "::1": {"wordpress1": 1}})
        self.assertIn(log, record(STATE))
        write(log, "")
        settings(brute_force_scan_apache_logs=1)
        self.run_program()
        self.assertNotIn(log, record(STATE))
        write(log, line)
        self.assertIn("Tally::get_apache_logs_from_brute_conf: not loading logs this round", self.run_program("d100"))
        self.assertEqual(counts(ADDRESSES)["::1"], {"wordpress1": 1})


class Deciding(BruteForceTest):
    def names(self, hosts="", getent=None):
        """What the name service says: /etc/hosts, or a program of our own in front of it."""
        before = text("/etc/hosts")
        self.addCleanup(write, "/etc/hosts", before)
        append("/etc/hosts", hosts)
        if getent:
            self.stand_in("/usr/bin/getent", getent)

    def test_skip_list(self):
        write(SKIPPED, "198.51.100.1\n203.0.113.0/24\n2001:db8::/32\nwww.office.example\n*.home.example\n", "zvadmin", 0o600)
        self.names("198.51.100.2 www.office.example\n198.51.100.3 a.b.home.example\n2001:dbf::1 six.home.example\n"
                   "198.51.100.4 home.example\n198.51.100.5 xhome.example\n")
        self.attack("198.51.100.1", "203.0.113.9", "2001:db8:1::2", "198.51.100.2", "198.51.100.3", "2001:dbf::1",
                    "198.51.100.4", "198.51.100.5", "198.51.100.6")
        self.assertOnlyTold("198.51.100.4", "198.51.100.5", "198.51.100.6")

    def test_names_of_an_attacker(self):
        """His reverse zone says what he likes; the domain it names says otherwise, or his server does not answer."""
        write(SKIPPED, "*.office.example\n", "zvadmin", 0o600)
        self.names(getent="""
            echo "$*" >>%s
            case $* in
                'hosts 198.51.100.1') echo '198.51.100.1 www.office.example' ;;
                'ahostsv4 www.office.example') echo '203.0.113.1 STREAM www.office.example' ;;
                'hosts 198.51.100.2') printf '198.51.100.2 -x.office.example \\033[2J.office.example .office.example\\n' ;;
                'hosts 198.51.100.3') yes www.office.example ;;
                *) sleep 600 ;;
            esac\n""" % SEEN)
        start = time.monotonic()
        self.attack(*("198.51.100.%d" % i for i in range(1, 13)))
        self.assertLess(time.monotonic() - start, 60)
        self.assertEqual(len(record(ADDRESSES)), 12)
        self.assertOnlyTold(*record(ADDRESSES))
        self.assertLogged("The skip list's reverse look-ups take too long.", times=1)
        self.assertLess(len(text(SEEN).splitlines()), 20)


class Upkeep(BruteForceTest):
    def test_entries_are_trimmed_with_the_tally(self):
        settings(clear_brute_log_entry_time=1)
        young, old = ("%d0001=attempts=1&ip=198.51.100.1&log=x&time=%d\n" % ((time.time() - age,) * 2) for age in (86300, 86500))
        write(ENTRIES, old + young + old + "half", "zvadmin", 0o600)
        self.queue("action=tally&value=all")
        self.run_program()
        self.assertEqual(text(ENTRIES), young + "half")

    @unittest.skipUnless(os.path.exists("/usr/sbin/nft"), "needs nft")
    def test_blocked_by_the_sample_script_and_unblocked_by_age(self):
        panel.shell("nft flush ruleset; cp {0}/scripts/custom-example/brute_force_notice_ip.sh {0}/scripts/custom/".format(panel.PANEL))
        self.addCleanup(panel.shell, "nft flush ruleset")
        self.attack("198.51.100.1", "2001:db8::1", "192.0.2.10")
        shown = self.shown()
        self.assertEqual(set(shown), {"198.51.100.1", "2001:db8::1"})
        for stamp in shown.values():
            self.assertAlmostEqual(stamp, time.time(), delta=30)
        self.assertLogged("Brute Force error (IP, '192.0.2.10'): Script output: an address of this server itself: 192.0.2.10")
        panel.shell("nft 'add element inet zorvane_bfm blocked4 { 198.51.100.7 comment \"%d\", 198.51.100.8 comment \"%d\" };"
                    " add element inet zorvane_bfm blocked6 { 2001:db8::7 comment \"5\" }'" % (time.time() - 61, time.time() - 30))
        settings(unblock_brute_ip_time=1)
        self.assertIn("Tally::unblock_bfm_ips(): number of IPs to unblock: 2\n", self.run_program("d100"))
        self.assertEqual(set(self.shown()), {"198.51.100.1", "198.51.100.8", "2001:db8::1"})
        self.assertEqual(self.blocking("$(id)", "1.2.3", "abc.de", "127.0.0.1", "198.51.100.9 }; flush ruleset"), 0)
        self.assertEqual(set(self.shown()), {"198.51.100.1", "198.51.100.8", "2001:db8::1"})
        self.script("custom/show_blocked_ips.sh", "exit 3\n")
        self.run_program()
        self.assertLogged("Tally::unblock_bfm_ips error: exit status 3", times=1)

    def shown(self):
        """Address -> when it was blocked."""
        line = subprocess.run([panel.PANEL + "/scripts/show_blocked_ips.sh"], capture_output=True, encoding="ascii", check=True)
        pairs = dict(urllib.parse.parse_qsl(line.stdout.strip()))
        self.assertEqual(pairs.pop("havedata"), "1")
        return {address: int(dict(urllib.parse.parse_qsl(value))["dateblocked"]) for address, value in pairs.items()}

    def blocking(self, *addresses):
        """How many of them block_ip.sh takes."""
        outcomes = [subprocess.run([panel.PANEL + "/scripts/block_ip.sh", one], capture_output=True, check=False) for one in addresses]
        return sum(outcome.returncode == 0 for outcome in outcomes)


if __name__ == "__main__":
    panel.main()
