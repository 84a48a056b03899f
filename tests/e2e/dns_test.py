"""DNS zones: rewritten from the accounts' data, judged and served by the real name server, and by a second one."""
import os
import subprocess
import time
from urllib.parse import unquote

import panel
from panel import ADMIN, PanelTest, settings, shell, text, write

USERS = panel.PANEL + "/data/users"
ZONES = "/var/named"
LIST = "/etc/bind/zorvane-zones.conf"
OWN = "; Records of the account's own, which are kept:\n"
NAMED = """options { directory "%(folder)s"; pid-file none; listen-on port %(port)d { %(address)s; }; listen-on-v6 { none; };
  session-keyfile "%(folder)s/session.key"; recursion no; dnssec-validation no; %(options)s };
controls { inet %(address)s port %(control)d allow { any; } keys { rndc-key; }; };
include "/etc/bind/rndc.key";
%(more)s
"""


def zone(domain):
    return text("%s/%s.db" % (ZONES, domain))


def serial(domain):
    lines = [line for line in zone(domain).splitlines() if "\tSOA\t" in line]
    return int(lines[0].split()[5]) if lines else None


def dig(name, kind="A", port=5301, server="127.0.0.1"):
    return subprocess.run(["dig", "@" + server, "-p", str(port), "+short", "+time=2", "+tries=1", name, kind],
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
        # What the queued reload would start stays in the way of other tests.
        self.init_script("named", "echo named $1 >>%s" % self.calls)
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

    def named(self, name, port, options="", more="", address="127.0.0.1"):
        """A name server with a folder of its own; its process."""
        folder = "/var/cache/bind/" + name
        shell("rm -rf {0}; install -d -o bind -g bind {0}".format(folder))
        write(folder + "/named.conf", NAMED % dict(folder=folder, port=port, control=port + 900, options=options, more=more,
                                                   address=address))
        with open(folder + "/log", "w", encoding="ascii") as log:
            process = subprocess.Popen(["named", "-g", "-u", "bind", "-c", folder + "/named.conf"], stderr=log, stdout=log)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        try:
            eventually(lambda: "running" in text(folder + "/log"), True)
        except AssertionError:
            raise AssertionError(text(folder + "/log")) from None
        return process

    def reload(self, port=5301):
        shell("rndc -s 127.0.0.1 -p %d -k /etc/bind/rndc.key reload >/dev/null" % (port + 900))


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
        files = {name: panel.state(ZONES + "/" + name) for name in os.listdir(ZONES)}
        before = serial("bob.example")
        self.rewrite()
        self.assertEqual(files, {name: panel.state(ZONES + "/" + name) for name in os.listdir(ZONES)}, "nothing had changed")
        self.own("bob.example", "www 60 IN CNAME elsewhere.example.\nfar IN A 198.51.100.7\n")
        self.rewrite("domain=bob.example")
        self.assertEqual(serial("bob.example"), before + 1)
        self.reload()
        self.assertEqual(dig("www.bob.example", "CNAME"), "elsewhere.example.")
        self.rewrite("update_serial=yes")
        self.assertEqual((serial("bob.example"), serial("ann.example")), (before + 2, before + 1))
        self.assertIn("far\t\tIN\tA\t198.51.100.7\n", zone("bob.example"))
        # What an account has no more goes; what cannot be read, or has only lost its owner, stays.
        last = serial("bob2.example")
        self.record("bob", "bob.example.pointers", "")
        shell("sed -i /^bob2/d /etc/virtual/domainowners; : > %s/ann/user.conf" % USERS)
        self.rewrite()
        self.assertEqual(len(os.listdir(ZONES)), 4)
        shell("rm %s/bob/domains/bob2*" % USERS)
        self.rewrite()
        self.assertEqual(sorted(os.listdir(ZONES)), ["ann.example.db", "bob.example.db", "boss.example.db"])
        self.assertNotIn("bobby", text(LIST))
        self.assertIn("ann.example", text(LIST))
        panel.panel_do("addDomain", "bob", "bob2.example")
        self.rewrite("domain=bob2.example")
        self.assertEqual(serial("bob2.example"), last + 1, "a serial never falls")
        self.rewrite("domain=other.example")
        self.assertLogged("Error rewriting named: nobody has the domain other.example")

    def test_a_broken_zone_is_left_out_and_named(self):
        self.rewrite()
        self.own("bob.example", "far IN CNAME a.\nfar IN A 192.0.2.7\n")
        self.own("bob2.example", "$INCLUDE /etc/shadow\n")
        # Who may write to the folder leads nobody out of it.
        shell("echo canary > /etc/canary; cd %s; ln -s /etc/canary ann.example.db.candidate; rm boss.example.db;"
              "ln -s /etc/canary boss.example.db; chown -h bind ann.example.db.candidate boss.example.db" % ZONES)
        self.own("ann.example", "new IN A 192.0.2.8\n")
        self.record("ann", "ann.example.pointers", "anne.example\n")
        panel.panel_do("addDomain", "ann", "ann2.example")
        self.record("ann", "ann2.example.pointers", 'x"; };\n')
        settings(named_checkzone="/usr/bin/named-checkzone")
        before = zone("bob.example"), zone("bob2.example")
        self.rewrite()
        self.assertEqual((zone("bob.example"), zone("bob2.example")), before)
        self.assertIn("new\t\tIN\tA\t192.0.2.8", zone("ann.example"))
        self.assertIn("anne.example", text(LIST))
        self.assertNotIn("ann2.example", text(LIST))
        self.assertLogged("ann ann2.example: pointer 'x\"; };' is refused: it is no domain name")
        self.assertLogged("bob bob.example is left out of the DNS zones: ")
        self.assertLogged("CNAME and other data")
        self.assertLogged("bob bob2.example: /var/named/bob2.example.db is refused: line ")
        self.assertLogged("boss boss.example: /var/named/boss.example.db: Too many levels of symbolic links")
        self.assertEqual((text("/etc/canary"), os.listdir("/etc/bind").count("zorvane-zones.conf.candidate")), ("canary\n", 0))
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


class KeysTest(DnsTest):
    def keys(self):
        return sorted(os.listdir("/etc/virtual/bob.example"))

    def age(self, name, days):
        then = time.time() - days * 86400 - 60
        os.utime("/etc/virtual/bob.example/" + name, (then, then))

    def dkim(self, *more):
        self.queue("&".join(("action=rewrite&value=dkim&domain=bob.example",) + more))
        self.run_program()
        return sorted(line.split("\t")[0] for line in zone("bob.example").splitlines() if "_domainkey" in line)

    def test_dkim(self):
        self.dkim()
        self.assertLogged("dkim is not enabled. Enable dkim=1 if you want to use it.")
        settings(dkim=1)
        self.assertEqual(self.dkim(), ["zv1._domainkey"])
        key = "/etc/virtual/bob.example/dkim.zv1.key"
        self.assertEqual((panel.owner(key), panel.mode(key)), ("mail", 0o640))
        public = shell("openssl pkey -in %s -pubout -outform DER | base64 -w0" % key, capture_output=True).stdout.decode()
        self.named("one", 5301, more='include "%s";' % LIST)
        served = dig("zv1._domainkey.bob.example", "TXT")
        self.assertEqual(served.replace('" "', ""), '"v=DKIM1; k=rsa; p=%s"' % public)
        # A second key is published a day before it signs; the first goes a week after it has signed last.
        selector = "/etc/virtual/bob.example/dkim.selector"
        both = ["zv1._domainkey", "zv2._domainkey"]
        self.assertEqual((self.dkim("rotate=yes"), text(selector)), (both, "zv1\n"))
        self.assertEqual((self.dkim("rotate=yes"), text(selector)), (both, "zv1\n"))
        self.age("dkim.zv2.pub", 1)
        self.assertEqual((self.dkim(), text(selector)), (both, "zv2\n"))
        self.age("dkim.selector", 7)
        self.assertEqual(self.dkim(), ["zv2._domainkey"])
        self.assertNotIn("dkim.zv1.key", self.keys())
        # What is no key does not reach the zone, nor the mail server's user anything by it.
        write("/etc/virtual/bob.example/dkim.zv3.pub", 'x"\n$INCLUDE /etc/shadow\n', "mail", 0o640)
        self.assertEqual(self.dkim(), ["zv2._domainkey"])
        self.assertLogged("dkim.zv3.pub is no key")
        shell("rm -rf /etc/virtual/bob2.example")
        self.queue("action=rewrite&value=dkim")
        self.run_program()
        self.assertLogged("Error creating DKIM files for bob2.example: ")
        self.assertIn("zv1._domainkey", zone("ann.example"))

    def test_dnssec(self):
        self.rewrite()
        settings(dnssec=1)
        # What the name server does not take of any zone is no account's fault, and changes none.
        before = text(LIST)
        self.stand_in("/usr/bin/named-checkconf", """for list; do :; done
            if grep -q dnssec-policy "$list"; then echo "$list: unknown option 'dnssec-policy'"; exit 1; fi
            exec /usr/bin/named-checkconf.kept "$@"\n""")
        self.own("bob.example", "near IN A 192.0.2.8\n")
        self.rewrite()
        self.assertLogged("Error rewriting named: %s.candidate: unknown option 'dnssec-policy'" % LIST)
        self.assertEqual((text(LIST), "is left out" in self.log(), [subject for subject, _ in self.notices()]),
                         (before, False, ["The DNS zones cannot be changed"]))
        os.rename("/usr/bin/named-checkconf.kept", "/usr/bin/named-checkconf")
        shell("cp /usr/bin/named-checkconf /usr/bin/named-checkconf.kept")
        self.rewrite()
        self.named("one", 53, more='include "%s";' % LIST)
        eventually(lambda: dig("bob.example", "DNSKEY", 53).split(" ")[0], "257")
        anchor = dig("bob.example", "DNSKEY", 53).split(" ", 3)
        write("/tmp/anchor", 'trust-anchors { "bob.example" static-key %s %s %s "%s"; };\n' % (
            *anchor[:3], anchor[3].replace(" ", "")))

        def validated():
            return subprocess.run(["delv", "@127.0.0.1", "-a", "/tmp/anchor", "+root=bob.example",
                                   "www.bob.example", "A"], capture_output=True, encoding="ascii", check=False).stdout
        eventually(validated, lambda said: "; fully validated" in said and "192.0.2.10" in said)
        # A change is signed as well, and the served serial may run ahead of the file's.
        self.own("bob.example", "far IN A 192.0.2.7\n")
        self.rewrite()
        self.reload(53)
        eventually(lambda: dig("far.bob.example", "A", 53), "192.0.2.7")
        self.queue("action=rewrite&value=dnssec&domain=bob.example&domain0=no_domain")
        self.run_program()
        self.assertNotIn("Error signing bob.example", self.log())
        self.assertLogged("Error signing no_domain: it is no domain name")
        self.record("bob", "bob.example.pointers", "")
        self.rewrite()
        self.assertEqual([name for name in os.listdir(ZONES) if name.startswith("bobby")], [])


class ClusterTest(DnsTest):
    def setUp(self):
        super().setUp()
        self.key = "/etc/bind/zorvane-cluster.key"
        shell("ip address replace 127.0.0.2/8 dev lo")
        shell("tsig-keygen zorvane-cluster > %s; chown root:bind %s; chmod 640 %s" % (3 * (self.key,)))
        self.addCleanup(os.unlink, self.key)
        settings(cluster=1, remote_dns_retries=1, servername="one.host.example")
        write(ADMIN + "/dns_peers.list", "127.0.0.2\nno address\n", "zvadmin", 0o600)

    def serve(self):
        first = self.named("one", 53, more='include "%s";' % LIST)
        catalog = "zorvane-catalog.one.host.example"
        second = self.named("two", 53, """notify no; catalog-zones { zone "%s" default-primaries { 127.0.0.1 key zorvane-cluster; }
            in-memory no; };""" % catalog, """include "%s"; zone "%s" { type secondary; file "catalog.db";
            primaries { 127.0.0.1 key zorvane-cluster; }; };""" % (self.key, catalog), address="127.0.0.2")
        return first, second

    def sync(self, *more):
        shell(": > %s" % panel.QUEUE)
        self.queue("&".join(("action=sync&type=cluster&value=bob.example",) + more))
        self.run_program()
        return [unquote(line) for line in text(panel.QUEUE).splitlines() if "sync" in line]

    def test_the_peers_follow(self):
        self.rewrite()
        self.assertLogged("no address is no address")
        _, second = self.serve()
        eventually(lambda: dig("shop.bob.example", "A", 53, server="127.0.0.2"), "192.0.2.10")
        self.own("bob.example", "far IN A 192.0.2.7\n")
        panel.panel_do("addAccount", "cy", "user", "boss", "cy.example")
        self.rewrite()
        self.reload(53)
        eventually(lambda: dig("far.bob.example", "A", 53, server="127.0.0.2"), "192.0.2.7")
        eventually(lambda: dig("www.cy.example", "A", 53, server="127.0.0.2"), "192.0.2.10")
        self.assertEqual(dig("far.bob.example", "A", 53, server="127.0.0.1"), "192.0.2.7")
        refused = subprocess.run(["dig", "@127.0.0.1", "bob.example", "AXFR"], capture_output=True, check=False).stdout
        self.assertIn(b"Transfer failed", refused, "without the key nobody gets a zone")
        self.assertEqual(self.sync(), [])
        second.kill()
        second.wait()
        self.assertEqual(self.sync(), ["action=sync&count=1&type=cluster&value=bob.example"])
        self.assertEqual(self.sync("count=1"), [])
        self.assertLogged("The name server 127.0.0.2 does not have the zone of bob.example as it is here")

    def test_who_else_has_a_domain(self):
        for domain, primary in (("else", "ns1.other.example"), ("lost", "ns1.host.example"), ("before", "One.Host.example")):
            write("/tmp/%s.db" % domain, "@ 60 IN SOA %s. h. 7 1 1 1 1\n@ 60 IN NS %s.\n" % (primary, primary), "bind", 0o644)
        second = self.named("two", 53, more="".join('zone "%s.example" { type primary; file "/tmp/%s.db"; };' % (name, name)
                                                    for name in ("else", "lost", "before")), address="127.0.0.2")
        want = {"else": "127.0.0.2", "lost": "", "before": "", "none": "", "www.else": ""}
        self.assertEqual({name: self.held(name + ".example") for name in want}, want)
        second.kill()
        second.wait()
        self.assertEqual(self.held("else.example"), "")
        settings(cluster=0)
        self.assertEqual(self.held("else.example"), "")

    @staticmethod
    def held(domain):
        return subprocess.run([panel.BUILD + "/account_driver", "peerWithOthers", domain], capture_output=True, encoding="ascii",
                              check=True).stdout.strip()

    def test_lines_that_have_no_zone(self):
        self.queue("action=sync&type=cluster&value=gone.example&count=3", "action=sync&type=cluster&value=../x")
        self.run_program()
        self.assertLogged("cluster sync retry number 3 requested on gone.example, but cannot find /var/named/gone.example.db")
        self.script("custom/cluster_email.sh", 'echo "$username $host $request" > /tmp/mailed\n')
        self.queue("action=sync&type=cluster&value=email&username=bob&host=two&request=a%3Db")
        self.run_program()
        self.assertEqual(text("/tmp/mailed"), "bob two a=b\n")


if __name__ == "__main__":
    panel.main()
