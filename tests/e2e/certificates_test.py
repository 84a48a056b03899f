"""Certificates: asked for at a real authority, whose questions the real web servers answer, renewed, and watched."""
import json
import os
import re
import subprocess
import unittest
from urllib.parse import parse_qs, urlencode

import panel
from panel import record, settings, shell, text, write
from web_test import ADDRESS, APACHE_COMMAND, USERS, WebTest

NOTES = panel.ADMIN + "/state/certificates"
LINE = "action=rewrite&value=letsencrypt"
AUTHORITY = "/tmp/authority"
OLD = """set -e; cd {0}; rm -f index.txt*; touch index.txt; echo {serial} > serial
printf '[ca]\\ndefault_ca=c\\n[c]\\ndatabase={0}/index.txt\\nserial={0}/serial\\nnew_certs_dir={0}\\npolicy=p\\ndefault_md=sha256\\n[p]\\nCN=supplied\\n' > ca.conf
openssl req -new -key {1}.key -subj /CN=old -out old.csr
openssl ca -batch -notext -config ca.conf -selfsign -keyfile {1}.key -in old.csr -startdate {from_} -enddate 20991231000000Z -out {1}.cert 2>/dev/null
chown zvadmin: {1}.cert; chmod 600 {1}.cert
"""


class CertificatesTest(WebTest):
    def setUp(self):
        super().setUp()
        shell("rm -rf %s; mkdir -m 755 %s" % (AUTHORITY, AUTHORITY))
        panel.panel_do("addDomain", "ann", "silent.example")
        names = ["ann.example", "www.ann.example", "bob.example", "shop.bob.example", "mail.bob.example", "bobby.example", "www.bobby.example",
                 "bob2.example", "www.bob2.example"]
        kept = text("/etc/hosts")
        self.addCleanup(write, "/etc/hosts", kept)
        write("/etc/hosts", kept + "".join("%s %s\n" % (ADDRESS, name) for name in names))
        shell("cd %s && openssl req -x509 -newkey rsa:2048 -nodes -days 9 -subj /CN=localhost -addext subjectAltName=DNS:localhost "
              "-keyout key.pem -out cert.pem 2>/dev/null" % AUTHORITY)
        write(AUTHORITY + "/config.json", json.dumps({"pebble": {
            "listenAddress": "127.0.0.1:14000", "managementListenAddress": "127.0.0.1:15000", "certificate": AUTHORITY + "/cert.pem",
            "privateKey": AUTHORITY + "/key.pem", "httpPort": 80, "tlsPort": 5001}}))
        write("/etc/dehydrated/conf.d/authority.sh", 'CA="https://localhost:14000/dir"\nCURL_OPTS="--cacert %s/cert.pem"\n' % AUTHORITY)
        environment = {**os.environ, "PEBBLE_VA_NOSLEEP": "1", "PEBBLE_WFE_NONCEREJECT": "0", "PEBBLE_AUTHZREUSE": "0"}
        with open(AUTHORITY + "/log", "w", encoding="ascii") as log:
            self.authority = subprocess.Popen(["pebble", "-config", AUTHORITY + "/config.json"], stdout=log, stderr=log, env=environment)
        self.addCleanup(self.authority.wait)
        self.addCleanup(self.authority.terminate)
        root = "curl -sf --cacert {0}/cert.pem https://localhost:15000/roots/0 -o {0}/root.pem".format(AUTHORITY)
        self.until(lambda: subprocess.run(["bash", "-c", root], check=False).returncode == 0)
        settings(letsencrypt=1, enable_ssl_sni=1)

    def wish(self, user, domain, content=""):
        self.domain(user, domain + ".letsencrypt", content)

    def stem(self, user, domain):
        return "%s/%s/domains/%s" % (USERS, user, domain)

    def trusted(self, name):
        """Whether a client that trusts the authority takes what is served, and the status of its answer."""
        return subprocess.run(["curl", "-s", "-m", "10", "--cacert", AUTHORITY + "/root.pem", "--resolve", "%s:443:%s" % (name, ADDRESS), "-o", "/dev/null",
                               "-w", "%{http_code}", "https://%s/" % name], capture_output=True, encoding="ascii", check=False).stdout

    def note(self, domain):
        return dict(pair.split("=") for pair in record(NOTES).get(domain, "=").split("&"))

    def ask_for_all(self):
        self.wish("ann", "ann.example")
        self.wish("ann", "silent.example")
        self.wish("bob", "bob.example", "names=shop:mail:../x\n")
        self.wish("bob", "bob2.example")
        self.rewrite(LINE)
        self.run_program()
        self.assertLogged("bob bob.example: name '../x' of its certificate is refused")

    def check_first(self):
        self.reload(lambda: self.trusted("ann.example") == "200")
        self.assertEqual([self.trusted(name) for name in ("www.ann.example", "shop.bob.example", "bobby.example", "bob2.example")],
                         ["200", "200", "200", "503"], self.log())
        names = shell("openssl x509 -noout -ext subjectAltName -in %s.cert" % self.stem("bob", "bob.example"), capture_output=True).stdout.decode()
        self.assertEqual(sorted(names.split("\n")[1].replace("DNS:", "").replace(",", "").split()),
                         ["bob.example", "bobby.example", "mail.bob.example", "shop.bob.example", "www.bobby.example"])
        self.assertEqual((panel.owner(self.stem("ann", "ann.example.key")), panel.mode(self.stem("ann", "ann.example.key"))), ("zvadmin", 0o600))
        self.assertEqual((panel.owner(panel.PANEL + "/data/acme/challenges"), os.listdir(panel.PANEL + "/data/acme/challenges")), ("zvacme", []))
        self.assertEqual((self.note("silent.example")["failures"], len(self.notices())), ("1", 1), self.notices())
        self.assertIn("ann silent.example: no certificate, attempt 1: Get \"http://", self.notices()[0][1])


class Nginx(CertificatesTest):
    def test_asked_for_renewed_and_kept(self):
        self.nginx()
        self.ask_for_all()
        self.check_first()
        ann = self.stem("ann", "ann.example")
        first = text(ann + ".cert")

        # What is young stays, what failed waits, and nothing is said twice.
        self.rewrite(LINE)
        self.assertEqual((text(ann + ".cert"), len(self.note("silent.example")["asked"].split(",")), len(self.notices())), (first, 1, 1))
        # Who orders it by name does not wait.
        self.rewrite(LINE + "&domain=silent.example")
        self.assertEqual((self.note("silent.example")["failures"], len(self.notices())), ("2", 2))

        # An old one is renewed, but not more often than a week allows, and not by what is no answer to the question.
        left = panel.PANEL + "/data/acme/challenges/left"
        write(left, "", "zvacme")
        os.utime(left, (0, 0))
        self.make_old("ann", "ann.example")
        settings(letsencrypt_max_requests_per_week=1)
        self.rewrite(LINE)
        self.assertIn("ann ann.example: asked for 1 times this week", self.notices()[-1][1])
        self.assertEqual(text(ann + ".cert"), self.old)
        settings(letsencrypt_max_requests_per_week=20, letsencrypt_renewal_success_notice=1)
        client = text("/usr/bin/dehydrated")
        shell("cat {1}.cert {1}.cacert > {0}/bobs; chmod 644 {0}/bobs".format(AUTHORITY, self.stem("bob", "bob.example")))
        self.stand_in("/usr/bin/dehydrated", "cat %s/bobs\n" % AUTHORITY)
        self.rewrite(LINE + "&domain=ann.example")
        self.assertIn("ann ann.example: no certificate, attempt 1: the key cannot be used", self.notices()[-1][1])
        self.assertEqual(text(ann + ".cert"), self.old)
        write("/usr/bin/dehydrated", client, "root", 0o755)
        self.rewrite(LINE + "&domain=ann.example")
        self.assertNotIn(text(ann + ".cert"), (first, self.old), self.log())
        self.assertIn("Certificate renewed: ann.example", self.notices()[-1][0])
        self.assertNotIn("failures", self.note("ann.example"))
        self.assertFalse(os.path.exists(left))

        # A certificate that somebody put there himself is his.
        self.make_old("bob", "bob.example", issued=False)
        self.rewrite(LINE)
        self.assertEqual(text(self.stem("bob", "bob.example") + ".cert"), self.old)

        # An authority that cannot be asked is nobody's fault, and told once.
        self.make_old("ann", "ann.example")
        self.authority.terminate()
        before = len(self.notices())
        for _ in range(2):
            self.rewrite(LINE)
        self.assertEqual((len(self.notices()), self.note("ann.example").get("failures")), (before + 1, None))
        self.assertIn("No certificates can be asked for: Problem connecting to server", self.notices()[-1][1])

    def make_old(self, user, domain, issued=True):
        """Puts a certificate of the year before last there, as if it was the one that was issued."""
        stem = self.stem(user, domain)
        self.serial = getattr(self, "serial", 10) + 1
        shell(OLD.format(AUTHORITY, stem, from_="20240101000000Z", serial=self.serial))
        self.old = text(stem + ".cert")
        if issued:
            mark = 14695981039346656037
            for byte in self.old.encode():
                mark = (mark ^ byte) * 1099511628211 % 2**64
            self.domain(user, domain + ".issued", re.sub("(?<=certificate=).*", "%016x" % mark, text(stem + ".issued")))


class Apache(CertificatesTest):
    def test_answers_everywhere(self):
        self.server_certificate("/etc/apache2/server.crt", "/etc/apache2/server.key")
        self.apache(apachecert="/etc/apache2/server.crt", apachekey="/etc/apache2/server.key")
        self.serve(APACHE_COMMAND, "/run/apache2/apache2.pid")
        self.ask_for_all()
        self.check_first()



class Watched(WebTest):
    def test_ends_are_told_once(self):
        settings(nginx_cert="/etc/nginx/watched.crt", carootcert="/etc/nginx/watched.crt")
        self.server_certificate("/etc/nginx/watched.crt", "/etc/nginx/watched.key")
        self.certificate("ann", "ann.example")
        self.domain("bob", "bob.example.cert", "nonsense\n")
        self.certificate("cy", "cy.example")
        # One that the helper dies on spoils no other.
        self.domain("bob", "bob2.example.cert", "deadly\n")
        helper = panel.PANEL + "/libexec/zvcert"
        self.stand_in(helper, "while read -r line; do case $line in *deadly*) kill -SEGV $$;; esac; echo \"$line\" | %s.kept; done\n" % helper)
        for _ in range(2):
            self.rewrite("action=tally&value=all")
            told = [body for subject, body in self.notices() if subject == "Certificates that want attention"]
            self.assertEqual(len(told), 1, self.log())
        for want in ("the server's nginx_cert: the certificate ends on 20", "the server's carootcert: the certificate ends on 20",
                     "bob bob2.example: the certificate cannot be read: whoever reads it breaks off", "cy cy.example: the certificate ends on 20", "ann ann.example: the certificate ends on 20",
                     "bob bob.example: the certificate cannot be read: "):
            self.assertIn(want, told[0])


class Helper(unittest.TestCase):
    def ask(self, **request):
        answer = subprocess.run([panel.BUILD + "/zvcert"], input=urlencode(request) + "\n", capture_output=True, encoding="ascii", check=True)
        return {key: value for key, (value,) in parse_qs(answer.stdout.strip()).items()}

    def test_what_was_asked_for(self):
        shell("rm -rf {0}; mkdir {0}; cd {0}; for ca in one two; do openssl req -x509 -newkey rsa:2048 -nodes -days 9 -subj /CN=$ca -keyout $ca.key "
              "-out $ca.pem 2>/dev/null; done".format(AUTHORITY))
        made = self.ask(order="bob.example:www.bob.example")
        write(AUTHORITY + "/request", made["request"])

        def signed(names, days=9, chain="one"):
            shell("cd %s; openssl x509 -req -in request -CA one.pem -CAkey one.key -days %d -out signed -extfile <(echo subjectAltName=%s) 2>/dev/null"
                  % (AUTHORITY, days, names))
            return text(AUTHORITY + "/signed") + text("%s/%s.pem" % (AUTHORITY, chain))
        both = "DNS:bob.example,DNS:www.bob.example"
        # Another authority of the same name and key number, which has not signed it.
        shell("cd %s; openssl req -x509 -key two.key -days 9 -subj /CN=one -out false.pem -addext \"subjectKeyIdentifier=$(openssl x509 -in one.pem "
              "-noout -ext subjectKeyIdentifier | tail -1 | tr -d ' ')\"" % AUTHORITY)
        for want, pem, key in (("", signed(both), made["key"]), ("it is not for www.bob.example", signed("DNS:bob.example"), made["key"]),
                               ("it is not valid now", signed(both, days=-1), made["key"]),
                               ("the chain is that of another certificate", signed(both, chain="two"), made["key"]),
                               ("its chain has not signed it", signed(both, chain="false"), made["key"]),
                               ("the key cannot be used: key values mismatch", signed(both), self.ask(order="bob.example")["key"])):
            self.assertEqual(self.ask(pem=pem + key, names="bob.example:www.bob.example").get("error", ""), want)
        self.assertEqual(self.ask(order="bob.example,DNS:ann.example")["result"], "failed")


if __name__ == "__main__":
    panel.main()
