"""Rows about accounts and addresses: counts, swaps, the mail server's tables, links, the access group, options."""
import grp
import os
import pwd
import socket
import stat
import subprocess

import panel
from panel import ADMIN, PanelTest, settings, shell, text, write

USERS = panel.PANEL + "/data/users"
MAIL = "/etc/virtual"
SERVER, OLD, NEW, SPARE = "192.0.2.10", "192.0.2.20", "192.0.2.30", "2001:db8::5"
PEOPLE = {"alice": ("alice.example", "alice2.example"), "bob": ("bob.example",), "carol": ("carol.example",)}


def record(path):
    return dict(line.split("=", 1) for line in text(path).splitlines())


def conf(user, **values):
    path = "%s/%s/user.conf" % (USERS, user)
    pairs = {**record(path), **values}
    put(path, "".join("%s=%s\n" % pair for pair in pairs.items() if pair[1] is not None))


def put(path, content, user="zvadmin"):
    if os.path.lexists(path):
        os.unlink(path)
    write(path, content, user, 0o600)


def ip_record(address, **values):
    put("%s/ips/%s" % (ADMIN, address), "".join("%s=%s\n" % pair for pair in values.items()))


def ips():
    return {name: record("%s/ips/%s" % (ADMIN, name)) for name in os.listdir(ADMIN + "/ips") if ".lock" not in name}


def table(name):
    return dict(line.rsplit(": ", 1) for line in text("%s/%s" % (MAIL, name)).splitlines())


class RowsTest(PanelTest):
    maxDiff = None

    def setUp(self):
        super().setUp()
        for user, domains in PEOPLE.items():
            shell("userdel -rf %s 2>/dev/null; groupdel %s 2>/dev/null; rm -rf /home/%s; :" % (user, user, user))
            panel.panel_do("addAccount", user, "user", "boss", *domains)
        put(ADMIN + "/ip.list", "".join(a + "\n" for a in (SERVER, OLD, NEW, SPARE)))
        for address in (OLD, NEW, SPARE):
            ip_record(address, status="free", netmask="255.255.255.0")

    def line(self, line, **more):
        self.queue(line)
        self.run_program(**more)

    def test_what_is_no_list_stops_every_row_and_changes_nothing(self):
        link = lambda path: (os.symlink("/etc/hostname", path), os.lchown(path, 65534, 65534))
        for make in (link, os.mkfifo, lambda path: put(path, OLD + "\n", "nobody")):
            os.unlink(ADMIN + "/ip.list")
            make(ADMIN + "/ip.list")
            before = ips()
            for row in ("rewrite&value=helo_data", "rewrite&value=ipcount", "ipswap&value=linked_ips"):
                self.line("action=" + row)
            self.assertEqual((ips(), os.path.exists(MAIL + "/helo_data")), (before, False))
        self.assertLogged("ip.list: readFile error: ", times=9)

    def test_counts_who_uses_an_address(self):
        put(ADMIN + "/ip.list", "".join(a + "\n" for a in (SERVER, OLD, NEW, SPARE, "../ips/x")))
        conf("alice", ip=OLD)
        put(USERS + "/alice/ip.list", "%s\n%s\n" % (OLD, NEW))
        put(USERS + "/bob/user.conf", "")
        put("%s/ips/%s" % (ADMIN, SPARE), "status=free\nusers=0\n")
        put("%s/ips/%s" % (ADMIN, NEW), "users=7\n", "nobody")
        untouched = os.stat("%s/ips/%s" % (ADMIN, SPARE)).st_ino
        self.line("action=rewrite&value=ipcount")
        self.assertEqual({a: r.get("users") for a, r in ips().items()}, {SERVER: "2", OLD: "1", NEW: "7", SPARE: "0"})
        self.assertEqual(os.stat("%s/ips/%s" % (ADMIN, SPARE)).st_ino, untouched)
        for words in ("bob/user.conf is empty", "ip.list: ../ips/x is no address", "ips/" + NEW):
            self.assertLogged(words, times=1)

    def lay_linked(self):
        ip_record(OLD, status="owned", reseller="boss", netmask="255.255.255.0", users=2, linked=NEW + "," + SPARE)
        ip_record(NEW, status="free", netmask="255.255.255.128", ns="ns1.example", linked=OLD)
        ip_record(SPARE, status="free", linked=OLD)
        conf("alice", ip=OLD)
        put(USERS + "/alice/ip.list", "%s\n%s\n" % (OLD, SERVER))
        put(USERS + "/alice/domains/alice2.example.conf", "domain=alice2.example\nip=%s\n" % OLD)
        conf("bob", ip=NEW)
        put(USERS + "/bob/ip.list", "%s\n%s\n" % (NEW, OLD))

    def swapped(self):
        return (ips(), [record("%s/%s/user.conf" % (USERS, u))["ip"] for u in sorted(PEOPLE)],
                [text("%s/%s/ip.list" % (USERS, u)) for u in sorted(PEOPLE)],
                record(USERS + "/alice/domains/alice2.example.conf")["ip"])

    def test_linked_addresses_change_places_however_often_it_is_cut_short(self):
        want = ({SERVER: {"status": "server", "netmask": "255.255.255.0"},
                 NEW: {"status": "owned", "reseller": "boss", "netmask": "255.255.255.128", "ns": "ns1.example", "users": "2",
                       "linked": OLD + "," + SPARE},
                 OLD: {"status": "free", "netmask": "255.255.255.0", "linked": NEW}, SPARE: {"status": "free", "linked": NEW}},
                [NEW, OLD, SERVER], ["%s\n%s\n" % (NEW, SERVER), "%s\n%s\n" % (NEW, OLD), SERVER + "\n"], NEW)
        killed, planned = 0, 0
        for step in range(0, 4000, 3):
            self.lay_linked()
            shell("rm -rf %s/state %s" % (ADMIN, panel.QUEUE))
            self.queue("action=ipswap&value=linked_ips")
            status = subprocess.run([panel.PROGRAM], env={**os.environ, "ZVTASKQ_FAIL": "*:kill:%d" % step}, check=False).returncode
            if status == 0:
                break
            killed += 1
            # What was queued for later is not for this test, and a lock that is left behind counts a minute.
            shell("find %s %s -name '*.lock' -delete; rm -f %s* /run/zvtaskq.pid" % (panel.PANEL, MAIL, panel.QUEUE))
            changed, pending = ips()[OLD]["status"] == "free", os.path.exists(ADMIN + "/state/ip_swap")
            planned += pending
            if not changed or pending:
                self.line("action=ipswap&value=linked_ips")
            self.assertEqual(self.swapped(), want, step)
            self.assertFalse(os.path.exists(ADMIN + "/state/ip_swap"))
        self.assertEqual(self.swapped(), want)
        self.assertTrue(killed > 50 and planned > 20, (killed, planned))
        for what in ("httpd", "ips", "domainips", "helo_data"):
            self.assertIn("action=rewrite&value=" + what.replace("_", "%5F"), text(panel.QUEUE))
        self.assertIn("update%5Fserial=yes&value=named", text(panel.QUEUE))
        self.assertLogged("Unable to swap %s with %s" % (SPARE, OLD))
        self.assertLogged("Unable to swap " + NEW, times=0)
        # Of a swap that was cut short, what somebody else has changed since stays.
        put(ADMIN + "/state/ip_swap", "carol\tuser.conf\tip\t%s\t%s\nbob\tuser.conf\tip\t%s\t%s\n" % (OLD, NEW, OLD, SPARE))
        self.line("action=ipswap&value=linked_ips")
        self.assertEqual(self.swapped()[1], [NEW, SPARE, SERVER])

    def test_domain_addresses(self):
        conf("alice", ip=OLD)
        put(USERS + "/alice/domains/alice2.example.conf", "domain=alice2.example\nip=%s\n" % NEW)
        put(USERS + "/alice/domains/alice2.example.pointers", "alias.example\nbob.example=redirect\nred.example=redirect\n")
        conf("bob", ip="here")
        os.unlink(USERS + "/carol/domains/carol.example.conf")
        write(MAIL + "/domainips", "gone.example: 192.0.2.99\nbob.example: 192.0.2.77\n", "mail", 0o644)
        settings(domainips_default_ip=1)
        self.line("action=rewrite&value=domainips")
        want = {"*": SERVER, "alice.example": OLD, "alice2.example": NEW, "alias.example": NEW, "red.example": NEW,
                "bob.example": "192.0.2.77"}
        self.assertEqual(table("domainips"), want)
        self.assertLogged("'here' is not a valid IP from %s/bob/user.conf" % USERS, times=1)
        self.assertLogged("carol.example of carol: ", times=1)
        before = os.stat(MAIL + "/domainips")
        self.assertEqual((before.st_uid, stat.S_IMODE(before.st_mode)), (pwd.getpwnam("mail").pw_uid, 0o644))
        self.line("action=rewrite&value=domainips")
        self.assertEqual(os.stat(MAIL + "/domainips").st_ino, before.st_ino)
        conf("bob", ip=SPARE)
        self.queue("action=rewrite&value=domainips&domain=nobodys.example")
        self.line("action=rewrite&value=domainips&domain=bob.example")
        self.assertEqual(table("domainips"), {**want, "bob.example": SPARE})
        self.assertLogged("Cannot find nobodys.example in %s/domainowners" % MAIL, times=1)

    def test_greetings(self):
        hosts, resolver = text("/etc/hosts"), text("/etc/resolv.conf")
        self.addCleanup(write, "/etc/hosts", hosts)
        self.addCleanup(write, "/etc/resolv.conf", resolver)
        write("/etc/hosts", hosts + "%s mail.bob.example\n%s v6.bob.example\n" % (OLD, SPARE))
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
            silent.bind(("127.0.0.1", 53))
            write("/etc/resolv.conf", "nameserver 127.0.0.1\n")
            put(ADMIN + "/ip.list", "".join(a + "\n" for a in (SERVER, OLD, "192.0.2.88", SPARE)))
            write(MAIL + "/helo_data", "192.0.2.88: was.example\n192.0.2.99: gone.example\n", "mail", 0o640)
            settings(servername="panel.example")
            self.line("action=rewrite&value=helo_data")
        self.assertEqual(table("helo_data"), {SERVER: "panel.example", OLD: "mail.bob.example", '"%s"' % SPARE: "v6.bob.example",
                                              "192.0.2.88": "was.example"})
        self.assertLogged("No answer about the names of 1 of 4 addresses", times=1)

    def test_links_to_the_pages(self):
        def link(user, name="public_html"):
            return os.readlink("/home/%s/%s" % (user, name))
        os.symlink("./domains/other.example/public_html", "/home/alice/public_html")
        os.makedirs("/home/bob/public_html")
        write("/home/bob/public_html/index.html", "mine")
        os.rmdir("/home/carol/domains/carol.example/public_html")
        os.rmdir("/home/carol/domains/carol.example")
        os.symlink("/etc", "/home/carol/domains/carol.example")
        self.line("action=rewrite&value=links")
        self.assertEqual(link("alice"), "./domains/alice.example/public_html")
        self.assertEqual(link("alice", "domains/alice2.example/private_html"), "./public_html")
        self.assertEqual(os.lstat("/home/alice/public_html").st_uid, pwd.getpwnam("alice").pw_uid)
        self.assertEqual(text("/home/bob/public_html/index.html"), "mine")
        self.assertFalse(os.path.lexists("/home/carol/public_html") or os.path.lexists("/etc/private_html"))
        self.assertLogged("Unable to link the web pages in /home/bob: public_html: Directory not empty", times=1)
        self.assertLogged("Unable to link the web pages in /home/carol", times=2)
        os.unlink("/home/bob/public_html/index.html")
        shell("mv /home/carol /home/elsewhere; ln -s elsewhere /home/carol; chown -h carol: /home/carol")
        self.addCleanup(shell, "rm -rf /home/elsewhere")
        settings(old_public_html_link=1)
        self.line("action=rewrite&value=links")
        self.assertEqual([link("alice"), link("bob")], ["/home/%s/domains/%s.example/public_html" % (u, u) for u in ("alice", "bob")])
        self.assertLogged("the home of carol, /home/carol, cannot be used", times=1)

    def test_the_access_group(self):
        self.line("action=rewrite&value=secure_access_group")
        self.assertLogged("Unable to rewrite secure_access_group.  It's not set in the zorvane.conf", times=1)
        shell("groupadd -f servers; rm -rf /srv/canary; install -m 640 -D /dev/null /srv/canary/file; chown -R alice: /srv/canary")
        settings(secure_access_group="servers")
        pages = "/home/alice/domains/alice.example/public_html"
        os.symlink("/srv/canary", pages + "/out")
        shell("cd /home/alice && install -o alice -g alice -m 2664 /dev/null {0}/open && install -o alice -g mail -m 660 /dev/null "
              "{0}/shared && install -o alice -g alice -m 640 /dev/null private && install -o root -g alice -m 640 /dev/null {0}/roots"
              .format(pages))
        shell("mkdir /home/bob/domains/x; chown -R bob: /home/bob; rm -rf /home/carol; ln -s /srv/canary /home/carol")
        mover = subprocess.Popen(["setpriv", "--reuid=bob", "--clear-groups", "bash", "-c",
                                  "cd /home/bob/domains; while :; do mv x y; mv bob.example x; mv y bob.example; done 2>/dev/null"])
        self.addCleanup(mover.wait)
        self.addCleanup(mover.kill)
        self.line("action=rewrite&value=secure_access_group")

        def seen(path):
            what = os.lstat(path)
            return grp.getgrgid(what.st_gid).gr_name, stat.S_IMODE(what.st_mode)
        self.assertEqual([seen(p) for p in ("/home/alice", pages, pages + "/open", pages + "/shared", pages + "/roots",
                                            "/home/alice/private", "/srv/canary/file", "/home/bob")],
                         [("servers", 0o710), ("servers", 0o711), ("servers", 0o644), ("mail", 0o660), ("alice", 0o640),
                          ("alice", 0o640), ("alice", 0o640), ("servers", 0o710)])
        self.assertLogged("the home of carol, /home/carol, cannot be used", times=1)
        for service in ("httpd", "exim", "proftpd", "zorvane"):
            self.assertIn("action=%s&value=restart" % service, text(panel.QUEUE))

    def test_the_list_of_domains_and_its_owners(self):
        put(USERS + "/alice/domains.list", "alice.example\nalice2.example\nbob.example\nghost.example\nnew.example\n")
        put(USERS + "/alice/domains/new.example.conf", "domain=new.example\n")
        put(USERS + "/alice/domains/back.example.conf", "domain=back.example\n")
        write(MAIL + "/domainowners", "alice.example: alice\nalice2.example: dave\nback.example: alice\nbob.example: bob\n"
              "carol.example: carol\nempty.example: alice\n", "mail", 0o644)
        self.line("action=confirm&type=domains.list&user=alice")
        self.assertEqual(text(USERS + "/alice/domains.list").split(),
                         ["alice.example", "alice2.example", "back.example", "ghost.example", "new.example"])
        self.assertEqual(table("domainowners"), {"alice.example": "alice", "alice2.example": "alice", "back.example": "alice",
                                                 "bob.example": "bob", "carol.example": "carol", "empty.example": "alice",
                                                 "new.example": "alice"})
        self.assertLogged("/alice/domains.list: ", times=4)
        self.assertLogged("bob.example belongs to bob, and is taken out", times=1)
        self.line("action=confirm&type=domains.list&user=../alice")
        self.assertLogged("for ../alice: there is no such account", times=1)

    def test_features_that_a_record_does_not_know(self):
        conf("alice", spam="OFF", inode="5", cron=None)
        conf("bob", inode=None)
        put(USERS + "/carol/user.conf", "x=" + "y" * 5_000_000 + "\n")
        self.line("action=addoptions")
        on = dict.fromkeys(("cron", "sysinfo", "catchall", "login_keys"), "ON")
        for user, want in (("alice", {**on, "spam": "OFF", "inode": "5"}), ("bob", {**on, "spam": "ON", "inode": "unlimited"})):
            self.assertLessEqual(want.items(), record("%s/%s/user.conf" % (USERS, user)).items())
        self.assertLogged("carol/user.conf for reading.<br>File too large", times=2)
        put(USERS + "/carol/user.conf", "username=carol\n")
        self.line("action=addoptions")
        self.assertEqual(record(USERS + "/carol/user.conf")["spam"], "ON")


if __name__ == "__main__":
    panel.main()
