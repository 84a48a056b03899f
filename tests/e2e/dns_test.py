"""DNS zones: rewritten from the accounts' data, judged and served by the real name server, and by a second one."""
import os
import subprocess
import time

import panel
from panel import ADMIN, PanelTest, settings, shell, text, write

USERS = panel.PANEL + "/data/users"
ZONES = "/var/named"
LIST = "/etc/bind/zorvane-zones.conf"
OWN = "; Records of the account's own, which are kept:\n"
NAMED = """options { directory "%(folder)s"; pid-file none; listen-on port %(port)d { 127.0.0.1; }; listen-on-v6 { none; };
  recursion no; dnssec-validation no; %(options)s };
controls { inet 127.0.0.1 port %(control)d allow { any; } keys { rndc-key; }; };
include "/etc/bind/rndc.key";
%(more)s
"""


def zone(domain):
    return text("%s/%s.db" % (ZONES, domain))


def serial(domain):
    lines = [line for line in zone(domain).splitlines() if "\tSOA\t" in line]
    return int(lines[0].split()[5]) if lines else None


def dig(name, kind="A", port=5301, *more):
    return subprocess.run(["dig", "@127.0.0.1", "-p", str(port), "+short", "+time=2", "+tries=1", *more, name, kind],
                          capture_output=True, encoding="ascii", check=False).stdout.strip()


def eventually(answer, wanted, seconds=20):
    end = time.time() + seconds
    while time.time() < end:
        found = answer()
        if found == wanted or (callable(wanted) and wanted(found)):
            return found
        time.sleep(0.2)
    raise AssertionError("%r, not %r" % (answer(), wanted))


class DnsTest(PanelTest):
    maxDiff = None

    def setUp(self):
        super().setUp()
        shell("rm -rf %s %s; install -d -m 2775 -o zvadmin -g bind %s" % (ZONES, LIST, ZONES))
        settings(ns1="ns1.host.example", ns2="ns2.host.example", dns_spf=1)
        self.administrator()
        panel.panel_do("addAccount", "ann", "user", "boss", "ann.example")
        panel.panel_do("addAccount", "bob", "user", "boss", "bob.example", "bob2.example")
        self.record("bob", "bob.example.subdomains", "shop\n")
        self.record("bob", "bob.example.pointers", "bobby.example\n")

    def record(self, user, name, content):
        write("%s/%s/domains/%s" % (USERS, user, name), content, "zvadmin", 0o600)

    def rewrite(self, *more, **how):
        self.queue("&".join(("action=rewrite&value=named",) + more))
        return self.run_program(**how)

    def own(self, domain, lines):
        with open("%s/%s.db" % (ZONES, domain), "a", encoding="ascii") as file:
            file.write(lines)

    def named(self, name, port, options="", more=""):
        """A name server with a folder of its own; its process."""
        folder = "/var/cache/bind/" + name
        shell("rm -rf {0}; install -d -o bind -g bind {0}".format(folder))
        write(folder + "/named.conf", NAMED % dict(folder=folder, port=port, control=port + 1000, options=options, more=more))
        with open(folder + "/log", "w", encoding="ascii") as log:
            process = subprocess.Popen(["named", "-g", "-u", "bind", "-c", folder + "/named.conf"], stderr=log, stdout=log)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        eventually(lambda: "running" in text(folder + "/log"), True)
        return process

    def reload(self, port=5301):
        shell("rndc -s 127.0.0.1 -p %d -k /etc/bind/rndc.key reload >/dev/null" % (port + 1000))


class ZonesTest(DnsTest):
    def test_zones_are_written_and_served(self):
        self.rewrite()
        self.assertLogged("Named rewritten", "system")
        self.assertIn("action=named&value=reload", text(panel.QUEUE))
        self.named("one", 5301, more='include "%s";' % LIST)
        for name, kind, want in (("shop.bob.example", "A", "192.0.2.10"), ("bobby.example", "MX", "10 mail.bobby.example."),
                                 ("bob.example", "NS", "ns1.host.example.\nns2.host.example."),
                                 ("ann.example", "TXT", '"v=spf1 a mx ip4:192.0.2.10 ~all"')):
            self.assertEqual("\n".join(sorted(dig(name, kind).split("\n"))), want)
        files = {name: os.stat(ZONES + "/" + name) for name in os.listdir(ZONES)}
        before = serial("bob.example")
        self.rewrite()
        self.assertEqual(files, {name: os.stat(ZONES + "/" + name) for name in os.listdir(ZONES)}, "nothing had changed")
        self.own("bob.example", "www 60 IN CNAME elsewhere.example.\nfar IN A 198.51.100.7\n")
        self.rewrite("domain=bob.example")
        self.assertEqual(serial("bob.example"), before + 1)
        self.reload()
        self.assertEqual(dig("www.bob.example", "CNAME"), "elsewhere.example.")
        self.rewrite("update_serial=yes")
        self.assertEqual((serial("bob.example"), serial("ann.example")), (before + 2, before + 1))
        self.assertIn("far\t\tIN\tA\t198.51.100.7\n", zone("bob.example"))
        # What an account has no more goes; what cannot be read stays.
        self.record("bob", "bob.example.pointers", "")
        shell("sed -i /^bob2/d /etc/virtual/domainowners; : > %s/ann/user.conf" % USERS)
        self.rewrite()
        self.assertEqual(sorted(os.listdir(ZONES)), ["ann.example.db", "bob.example.db", "boss.example.db"])
        self.assertNotIn("bobby", text(LIST))
        self.assertIn("ann.example", text(LIST))

    def test_a_broken_zone_is_left_out_and_named(self):
        self.rewrite()
        self.own("bob.example", "far IN CNAME a.\nfar IN A 192.0.2.7\n")
        self.own("bob2.example", "$INCLUDE /etc/shadow\n")
        self.own("ann.example", "new IN A 192.0.2.8\n")
        before = zone("bob.example"), zone("bob2.example")
        self.rewrite()
        self.assertEqual((zone("bob.example"), zone("bob2.example")), before)
        self.assertIn("new\t\tIN\tA\t192.0.2.8", zone("ann.example"))
        self.assertLogged("bob bob.example is left out of the DNS zones: ")
        self.assertLogged("CNAME and other data")
        self.assertLogged("bob bob2.example: /var/named/bob2.example.db is refused: line ")
        subject, words = self.notices()[-1]
        self.assertEqual(subject, "Accounts were left out of the DNS zones")
        self.assertIn("bob bob.example:\n", words)
        self.rewrite()
        self.assertEqual(len(self.notices()), 1, "it was told already")
        write("%s/bob.example.db" % ZONES, before[0].replace("far IN A 192.0.2.7\n", ""), "zvadmin", 0o640)
        self.rewrite()
        self.assertIn("far\t\tIN\tCNAME\ta.", zone("bob.example"))

    def test_a_kill_between_the_renames_leaves_nothing_half(self):
        self.rewrite()
        self.init_script("named", "echo named $1 >>%s" % self.calls)
        before = {name: serial(name) for name in ("ann.example", "bob.example", "bob2.example", "boss.example")}
        for kill in range(1, 4):
            shell(": > %s; : > %s" % (panel.QUEUE, self.calls))
            self.rewrite("update_serial=1", env={"ZVTASKQ_FAIL": "rewrite.rename:kill:%d" % kill}, status=None)
            self.assertEqual(self.service_calls(), [])
            self.run_program()
            before = {name: number + 1 for name, number in before.items()}
            self.assertEqual({name: serial(name) for name in before}, before)
            self.assertEqual(self.service_calls()[:1], ["named reload"])
            self.assertEqual([name for name in os.listdir(ZONES) if not name.endswith(".db")], [])
        self.rewrite("update_serial=1", env={"ZVTASKQ_FAIL": "rewrite.rename:kill:0"}, status=None)
        self.run_program()
        self.assertEqual({name: serial(name) for name in before}, before, "what did not count is taken away")
        self.assertEqual(os.listdir(ADMIN + "/state/rewrites"), ["zones.lock"])


if __name__ == "__main__":
    panel.main()
