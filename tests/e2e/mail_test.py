"""Mail by the real servers, with the configuration that is shipped: who gets in, what arrives, what waits, what is billed."""
import glob
import imaplib
import os
import poplib
import re
import smtplib
import socketserver
import ssl
import subprocess
import threading
import time
from email.message import EmailMessage

import panel
from panel import PanelTest, settings, shell, text, write

USERS = panel.PANEL + "/data/users"
MAIL = "/etc/virtual"
DRIVER = panel.BUILD + "/account_driver"
SHARE = panel.PANEL + "/share/mail"
FAR = 2525
KEPT = "/var/tmp/mail_servers.tar"

PUT_IN_PLACE = """
for place in main acl router transport auth retry; do install -m 644 {share}/exim4/$place/* /etc/exim4/conf.d/$place/; done
sed -i "s/^dc_eximconfig_configtype=.*/dc_eximconfig_configtype='internet'/; s/^dc_use_split_config=.*/dc_use_split_config='true'/
s/^dc_localdelivery=.*/dc_localdelivery='maildir_home'/; s/^dc_local_interfaces=.*/dc_local_interfaces='127.0.0.1'/" /etc/exim4/update-exim4.conf.conf
echo 'MAIN_HOST_LOOKUP = !*' >/etc/exim4/conf.d/main/000_localmacros
[ -e /etc/exim4/exim.key ] || openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=panel -keyout /etc/exim4/exim.key -out /etc/exim4/exim.crt 2>/dev/null
cp /etc/exim4/exim.crt /etc/dovecot/private/dovecot.pem; cp /etc/exim4/exim.key /etc/dovecot/private/dovecot.key
chown root:Debian-exim /etc/exim4/exim.*; chmod 640 /etc/exim4/exim.*
usermod -aG mail Debian-exim
install -d -m 2770 -o Debian-exim -g mail /var/spool/exim
echo "far.example: 127.0.0.9::{far}" >/etc/exim4/hubbed_hosts
update-exim4.conf
install -m 644 {share}/dovecot/99-zorvane.conf /etc/dovecot/conf.d/
sed -i 's/^!include auth-system.conf.ext/#&/' /etc/dovecot/conf.d/10-auth.conf
# Failures are answered at once here: there are many.
printf 'auth_failure_delay = 0\nlog_path = /var/log/dovecot.log\nservice anvil {{\n unix_listener anvil-auth-penalty {{\n mode = 0\n }}\n}}\n' >/etc/dovecot/conf.d/99-test.conf
rm -f /var/spool/exim/blocked*
rm -rf /var/spool/exim4/input/* /var/spool/exim4/msglog/* /var/spool/exim4/db/* /var/log/exim4/*
""".format(share=SHARE, far=FAR)


class Far(socketserver.StreamRequestHandler):
    """Another mail server, which takes everything."""
    taken = []
    closed = False

    def handle(self):
        if Far.closed:
            self.wfile.write(b"421 later\r\n")
            return
        self.wfile.write(b"220 far ESMTP\r\n")
        lines, body = [], False
        for line in self.rfile:
            if body:
                lines.append(line.decode("latin-1"))
                if line == b".\r\n":
                    Far.taken.append("".join(lines))
                    body = False
                    self.wfile.write(b"250 ok\r\n")
                continue
            word = line[:4].upper()
            body = word == b"DATA"
            lines = [] if body else lines
            self.wfile.write({b"DATA": b"354 go\r\n", b"QUIT": b"221 bye\r\n"}.get(word, b"250 ok\r\n"))
            if word == b"QUIT":
                return


class MailTest(PanelTest):
    @classmethod
    def setUpClass(cls):
        """What the servers are set up with comes back as it was: other tests have them too."""
        shell("tar -C /etc -cpf {0} exim4 dovecot".format(KEPT))
        cls.addClassCleanup(shell, "rm -rf /etc/exim4 /etc/dovecot; tar -C /etc -xpf {0}; rm {0}; update-exim4.conf".format(KEPT))

    def setUp(self):
        super().setUp()
        shell("pkill -x exim4; pkill -x dovecot; true")
        self.administrator()
        for name in ("bob", "ann"):
            shell("pkill -KILL -u %s; userdel -rf %s; true" % (name, name), stderr=subprocess.DEVNULL)
            panel.panel_do("addAccount", name, "user", "boss", name + ".example", name + "2.example")
            shell("echo %s:right | chpasswd; chown -R mail:mail %s; chmod -R u=rwX,g=rwX,o= %s/*" % (name, MAIL, MAIL))
        self.hash = subprocess.check_output(["openssl", "passwd", "-6", "right"], encoding="ascii").strip()
        for name in ("bob", "ann"):
            self.mailboxes(name, name + ".example", "info", "sales")
        write(MAIL + "/domains", "".join("%s: %s\n" % (n, n) for n in ("bob.example", "bob2.example", "ann.example")) + "pointer.example: bob.example\n", "mail", 0o640)
        shell(PUT_IN_PLACE)
        self.serve("dovecot -F", 143)
        self.serve("exim4 -bdf", 25)
        server = socketserver.ThreadingTCPServer(("127.0.0.9", FAR), Far)
        server.daemon_threads = True
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        Far.taken.clear()
        Far.closed = False

    def mailboxes(self, account, domain, *names, quota=""):
        uid, gid = shell("id -u %s; id -g %s" % (account, account), capture_output=True, encoding="ascii").stdout.split()
        lines = ["%s:{CRYPT}%s:%s:%s::/home/%s/imap/%s/%s::%s\n" % (name, self.hash, uid, gid, account, domain, name, quota) for name in names]
        panel.append("%s/%s/passwd" % (MAIL, domain), "".join(lines))
        shell("chown mail:mail {0}; chmod 640 {0}".format("%s/%s/passwd" % (MAIL, domain)))

    def serve(self, command, port):
        process = subprocess.Popen(command.split(), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        for _ in range(100):
            try:
                return smtplib.socket.create_connection(("127.0.0.1", port)).close()
            except OSError:
                time.sleep(0.1)
        raise AssertionError(command + " does not come up")

    @staticmethod
    def message(sender, to, subject="hello", body="text\n", **headers):
        message = EmailMessage()
        message["From"], message["To"], message["Subject"] = sender, to, subject
        for name, value in headers.items():
            message[name.replace("_", "-")] = value
        message.set_content(body)
        return message

    def send(self, *to, sender="someone@far.example", login=None, password="right", **words):
        """Sends a message as another server would, or as somebody who logs in; what the refusals say, by recipient."""
        with smtplib.SMTP("127.0.0.1", 587 if login else 25, timeout=60, source_address=("127.0.0.5", 0)) as smtp:
            try:
                if login:
                    smtp.starttls(context=ssl._create_unverified_context())
                    smtp.login(login, password)
                refused = smtp.send_message(self.message(sender, to[0], **words), sender, to)
            except smtplib.SMTPRecipientsRefused as error:
                refused = error.recipients
            except smtplib.SMTPResponseException as error:
                refused = {one: (error.smtp_code, error.smtp_error) for one in to}
        return {name: "%d %s" % (code, why.decode()) for name, (code, why) in refused.items()}

    @staticmethod
    def box(place):
        return [text(path) for path in sorted(glob.glob("/home/%s/Maildir/[cn]*/*" % place))]

    def until(self, wanted, what, seconds=60):
        """Waits for the servers; what is never there is a failure."""
        for _ in range(seconds * 10):
            found = what()
            if found == wanted:
                return
            time.sleep(0.1)
        self.assertEqual(found, wanted, text("/var/log/exim4/mainlog") + text("/var/log/exim4/paniclog"))

    @staticmethod
    def imap(name, password="right"):
        """The number of messages in the inbox; None for who is not let in."""
        connection = imaplib.IMAP4("127.0.0.1")
        try:
            connection.starttls(ssl._create_unverified_context())
            connection.login(name, password)
            return int(connection.select()[1][0])
        except imaplib.IMAP4.error as error:
            assert "AUTHENTICATIONFAILED" in str(error), error
            return None
        finally:
            connection.shutdown()

    @staticmethod
    def pop(name, password="right"):
        connection = poplib.POP3("127.0.0.1")
        try:
            connection.stls(ssl._create_unverified_context())
            connection.user(name)
            connection.pass_(password)
            return len(connection.list()[1])
        except poplib.error_proto as error:
            assert "[AUTH]" in str(error), error
            return None
        finally:
            connection.close()

    def account(self, *words):
        subprocess.run([DRIVER, *words], check=True)

    def run_queue(self):
        shell("exim4 -qf")


class Doors(MailTest):
    def test_mail_arrives_and_is_billed(self):
        write(MAIL + "/bob.example/aliases", "bob: bob\nteam: info, sales@bob.example, x@far.example\n*: :fail:\n", "mail", 0o640)
        write(MAIL + "/ann.example/aliases", "*: info\n", "mail", 0o640)
        places = ("bob/imap/bob.example/info", "bob/imap/bob.example/sales", "bob", "ann/imap/ann.example/info")
        self.assertEqual(self.send("info@bob.example", "bob@bob.example", "team@pointer.example", "whoever@ann.example"), {})
        self.until([2, 1, 1, 1, 1], lambda: [len(self.box(place)) for place in places] + [len(Far.taken)])
        self.assertEqual({(panel.owner(path), panel.mode(path)) for path in glob.glob("/home/bob/imap/*/*/Maildir/new/*")}, {("bob", 0o600)})
        refused = self.send("nobody@bob.example", "info@bob2.example", "x@elsewhere.example", "root@zvadmin", "y@bob.zorvane-held.invalid")
        self.assertEqual([why[:3] for why in refused.values()], ["550"] * 5, refused)
        # Who logs in may send anywhere.
        self.assertEqual(self.send("x@far.example", "z@far.example", "info@ann.example", login="info@bob.example", sender="info@bob.example"), {})
        self.assertEqual(self.send("x@far.example", login="bob", sender="bob@bob.example"), {})
        shell("printf 'Subject: script\n\n' | setpriv --reuid=bob --regid=bob --init-groups exim4 x+y@far.example")
        self.until([4, 2], lambda: [len(Far.taken), len(self.box(places[3]))])
        for name in ("info@bob.example", "info@pointer.example", "bob"):
            self.assertEqual((self.imap(name), self.pop(name)), {"info@bob.example": (2, 2), "bob": (1, 1)}.get(name, (None, None)), name)
        for name, password in (("info@bob.example", "wrong"), ("bob", "wrong"), ("root@..", "right"), ("root", "right"), ("info@", "right"), ("info@/../bob.example", "right")):
            self.assertEqual(self.imap(name, password), None, name)
        self.assertIn("535", str(self.send("x@far.example", login="info@bob.example", password="wrong")))
        self.assertRegex(text("/var/log/exim4/mainlog"), r"login authenticator failed for .*\(set_id=info@bob.example\)|plain authenticator failed for .*\(set_id=")
        lines = sorted(line.split("=", 1)[1] for line in text(MAIL + "/usage/bob.bytes").splitlines())
        self.assertEqual(sorted(re.sub(r"&id=[^&]*&time=\d{10}&", " ", line) for line in lines),
                         ["type=email&method=incoming email=bob%40bob.example"] + ["type=email&method=incoming email=info%40bob.example"] * 2
                         + ["type=email&method=incoming email=sales%40bob.example", "type=email&method=outgoing email=bob",
                            "type=email&method=outgoing email=bob%40panel.example.test", "type=email&method=outgoing email=info%40bob.example"])
        self.queue("action=tally&value=all")
        self.run_program()
        usage = panel.record(USERS + "/bob/user.usage")
        self.assertEqual((usage["email_deliveries_incoming"], usage["email_deliveries_outgoing"], usage["nemails"]), ("1", "3", "2"), lines)
        self.assertGreater(float(usage["bandwidth"]), 0)

    def test_what_files_of_the_mail_user_may_not_do(self):
        """Targets, owners, homes and names that lead elsewhere: nothing is run, nothing written as somebody else."""
        write("/tmp/list", "x@far.example\n")
        write(MAIL + "/bob.example/aliases", "pipe: |/usr/bin/touch /tmp/piped\nquoted: \"|/usr/bin/touch /tmp/piped\"\nfile: /tmp/filed\nlist: :include:/tmp/list\n"
              "both: info, /tmp/filed\nout: x@far.example\nfolder: /tmp/foldered/\n*: |/usr/bin/touch /tmp/piped\n", "mail", 0o640)
        panel.append(MAIL + "/bob.example/passwd", "../up:%s:0:0::/root::\n.hid:%s:0:0::/root::\nrooty:%s:0:0::/root::\n" % ((self.hash,) * 3))
        panel.append(MAIL + "/domainowners", "root.example: root\nmail.example: mail\nnone.example: ../bob\n")
        panel.append(MAIL + "/domains", "root.example: root.example\nmail.example: mail.example\nnone.example: none.example\nodd.example: ../virtual/bob.example\n")
        for domain in ("root.example", "mail.example", "none.example"):
            shell("install -d -o mail -g mail -m 2770 %s/%s" % (MAIL, domain))
            write("%s/%s/passwd" % (MAIL, domain), "info:%s:0:0::/root::\n" % self.hash, "mail", 0o640)
        names = ("pipe", "quoted", "file", "list", "both", "folder", "whatever", "../up", ".hid", "a/b", "|x", "x" * 255, "\xfc")
        whole = [name + "@bob.example" for name in names[:-1]] + ["info@root.example", "root@root.example", "info@mail.example", "mail@mail.example", "info@none.example", "out@odd.example"]
        for name in whole:
            self.assertIn(self.send(name).get(name, "taken")[:1], ("4", "5"), name)
        self.assertEqual(self.send("info@bob.example", "sales@bob.example"), {}, "the others are none the worse")
        # A home that only the file claims is nobody's; and who is shut out of his own home by a link is not let through it.
        self.assertEqual(self.send("rooty@bob.example"), {})
        self.assertIsNone(self.imap("rooty@bob.example"))
        shell("rm -rf /home/ann/imap; ln -s /root/planted /home/ann/imap; mkdir -m 755 /root/planted")
        self.send("info@ann.example")
        self.until(1, lambda: len(self.box("bob/imap/bob.example/rooty")))
        self.until(True, lambda: "failed to create directory" in text("/var/log/exim4/mainlog") or "Permission denied" in text("/var/log/exim4/mainlog"))
        # A filter that points at another place of the account's.
        write(MAIL + "/ann.example/filter", "# Exim filter\nsave /home/ann/domains/ finish\n", "mail", 0o640)
        self.send("ann@ann.example")
        self.until(True, lambda: "T=zorvane_mailbox_folder defer" in text("/var/log/exim4/mainlog"))
        self.assertEqual(sorted(os.listdir("/home/ann/domains")), ["ann.example", "ann2.example"])
        self.assertEqual([path for path in ("/tmp/piped", "/tmp/filed", "/tmp/foldered", "/root/Maildir", "/root/imap", "/var/mail/Maildir") if os.path.exists(path)]
                         + os.listdir("/root/planted"), [])

    def test_limits(self):
        write(MAIL + "/limit", "3\n", "mail", 0o640)
        self.mailboxes("bob", "bob.example", "small", quota="userdb_quota_rule=*:bytes=20000")
        words = {"login": "info@bob.example", "sender": "info@bob.example"}
        self.assertEqual(self.send("x@far.example", "y@far.example", **words), {})
        self.assertEqual(list(self.send("x@far.example", "y@far.example", **words)), ["y@far.example"], "one of the account's mailboxes is as good as another")
        self.assertIn("550", str(self.send("x@far.example", **{**words, "login": "bob"})))
        self.assertNotEqual(subprocess.run(["setpriv", "--reuid=bob", "--regid=bob", "--init-groups", "exim4", "x@far.example"], input=b"\n", check=False).returncode, 0)
        write(MAIL + "/limit_bob", "0\n", "mail", 0o640)
        self.assertEqual(self.send("x@far.example", **words), {})
        self.assertEqual(self.send("info@bob.example"), {}, "what comes in is not counted")
        # Blocked: a mailbox, and the folder that a script sends from.
        write("/var/spool/exim/blocked_authenticated_users", "info@bob.example: 1795394713\n", "mail", 0o660)
        write("/var/spool/exim/blocked_script_paths", "/home/bob/domains: 1795394713\n", "mail", 0o660)
        self.assertIn("550", str(self.send("x@far.example", **words)))
        self.assertEqual(self.send("x@far.example", **{**words, "login": "sales@bob.example"}), {})
        for place, status in (("/home/bob/domains", 1), ("/home/bob", 0)):
            outcome = subprocess.run(["setpriv", "--reuid=bob", "--regid=bob", "--init-groups", "exim4", "x@far.example"], input=b"\n", cwd=place, check=False)
            self.assertEqual(outcome.returncode, status, place)
        # A full mailbox.
        self.assertEqual(self.send("small@bob.example", body="x" * 70 * 200), {})
        self.until(1, lambda: len(self.box("bob/imap/bob.example/small")))
        self.send("small@bob.example", body="x" * 70 * 200)
        self.until(True, lambda: "quota" in text("/var/log/exim4/mainlog"))
        self.assertEqual(self.imap("small@bob.example"), 1)
        with imaplib.IMAP4("127.0.0.1") as connection:
            connection.starttls(ssl._create_unverified_context())
            connection.login("small@bob.example", "right")
            self.assertRegex(str(connection.getquotaroot("INBOX")), r"STORAGE 15 20")

    def test_answers(self):
        write(MAIL + "/bob.example/reply/info.msg", "I am away.\n", "mail", 0o640)
        self.send("info@bob.example", sender="ann@far.example", subject="are you there?")
        self.until(1, lambda: len(Far.taken))
        self.assertIn("I am away.", Far.taken[0])
        self.assertIn("Subject: Re: are you there?", Far.taken[0])
        self.assertIn("Auto-Submitted: auto-replied", Far.taken[0])
        for words in ({"sender": "ann@far.example"}, {"sender": "x@far.example", "Precedence": "bulk"}, {"sender": "x@far.example", "List_Id": "<l>"},
                      {"sender": "x@far.example", "Auto_Submitted": "auto-replied"}, {"sender": "no-reply@far.example"}):
            self.assertEqual(self.send("info@bob.example", **words), {})
        self.until(6, lambda: len(self.box("bob/imap/bob.example/info")))
        self.assertEqual(len(Far.taken), 1, "once a day, and only to people")


class Suspension(MailTest):
    def test_suspended_and_released(self):
        words = {"login": "info@bob.example", "sender": "info@bob.example"}
        self.send("info@bob.example", "bob@bob.example")
        self.until([1, 1], lambda: [len(self.box("bob/imap/bob.example/info")), len(self.box("bob"))])
        # Mail of bob's and of ann's that the other server does not take yet.
        Far.closed = True
        self.assertEqual(self.send("x@far.example", "info@ann.example", **words), {})
        self.assertEqual(self.send("x@far.example", login="info@ann.example", sender="info@ann.example"), {})
        self.until(1, lambda: len(self.box("ann/imap/ann.example/info")))
        self.until(2, lambda: text("/var/log/exim4/mainlog").count("far.example R=") and int(subprocess.check_output(["exim4", "-bpc"])))
        self.account("suspend", "bob", "test")
        Far.closed = False
        self.run_queue()
        self.until(1, lambda: len(Far.taken))
        self.assertIn("info@ann.example", Far.taken[0])
        # Dovecot looks at the file once a second.
        for name in ("info@bob.example", "bob"):
            self.until((None, None), lambda name=name: (self.imap(name), self.pop(name)))
        self.assertIn("535", str(self.send("x@far.example", **words)))
        refused = self.send("info@bob.example", "bob@bob.example", "info@pointer.example", "info@ann.example")
        self.assertEqual([why[:3] for why in refused.values()], ["550"] * 3, refused)
        # A process of his that is left: what it sends waits, and holds nobody else's mail to the same place.
        shell("printf 'Subject: left\n\n' | setpriv --reuid=bob --regid=bob --clear-groups exim4 x@far.example info@ann.example")
        self.run_queue()
        self.assertEqual(self.send("x@far.example", "info@ann.example", login="info@ann.example", sender="info@ann.example"), {})
        self.until([2, 3], lambda: [len(Far.taken), len(self.box("ann/imap/ann.example/info"))])
        self.account("activate", "bob")
        self.assertEqual(text(MAIL + "/suspended"), "")
        shell("exim4 -q")
        self.until([4, 4, 0], lambda: [len(Far.taken), len(self.box("ann/imap/ann.example/info")), int(subprocess.check_output(["exim4", "-bpc"]))])
        self.assertEqual(self.send("info@bob.example"), {})
        self.assertEqual(self.send("x@far.example", **words), {})
        self.until([2, 5], lambda: [len(self.box("bob/imap/bob.example/info")), len(Far.taken)])
        self.assertEqual((self.imap("info@bob.example"), self.pop("bob")), (2, 1))
        # One domain alone, and a panel that goes on taking mail.
        settings(allow_incoming_email_on_suspend=1)
        self.account("suspendDomain", "bob", "bob.example", "test")
        self.assertEqual(text(MAIL + "/suspended"), "bob.example: accept\n")
        self.assertEqual(self.send("info@bob.example"), {})
        self.until(3, lambda: len(self.box("bob/imap/bob.example/info")))
        self.until((None, 1), lambda: (self.imap("info@bob.example"), self.imap("bob")))
        # A setting that was changed meanwhile; an account whose domain stays suspended.
        settings(allow_incoming_email_on_suspend=0)
        self.queue("action=rewrite&value=email_passwd&user=bob")
        self.run_program()
        self.assertIn("550", str(self.send("info@bob.example")))
        self.account("suspend", "bob", "test")
        self.account("activate", "bob")
        self.until((None, "bob.example: refuse\n"), lambda: (self.imap("info@bob.example"), text(MAIL + "/suspended")))
        self.account("activateDomain", "bob", "bob.example")
        self.until((3, ""), lambda: (self.imap("info@bob.example"), text(MAIL + "/suspended")))


class Filters(MailTest):
    def setUp(self):
        super().setUp()
        self.filter = MAIL + "/bob.example/filter"
        self.record = USERS + "/bob/domains/bob.example.filter"

    def rewrite(self, line="action=rewrite&value=filter", **values):
        if values:
            write(self.record, "".join("%s=%s\n" % pair for pair in sorted(values.items())), "zvadmin", 0o600)
        self.queue(line)
        self.run_program()

    def sorted_in(self, wanted):
        """Mail of every kind: what is in the inbox then and what in the folder, by subject."""
        shell("rm -rf /home/bob/imap/bob.example/info")
        for subject, stars, sender in (("plain", "", "x"), ("spam", "*" * 6, "x"), ("bad", "*" * 20, "x"), ("A Lottery!", "", "x"), ("from", "", "win-lottery"),
                                       ("big", "", "x"), ("last", "****", "x")):
            body = "x" * 1000 * 1100 if subject == "big" else "text\n"
            self.assertEqual(self.send("info@bob.example", sender=sender + "@far.example", subject=subject, body=body, **({"X_Spam_Level": stars} if stars else {})), {})
        found = lambda: [sorted(re.search("^Subject: (.*)$", mail, re.M).group(1) for mail in self.box("bob/imap/bob.example/info" + folder)) for folder in ("", "/Maildir/.Junk")]
        self.box = lambda place: [text(path) for path in glob.glob("/home/%s/[cn]*/*" % (place if "Maildir" in place else place + "/Maildir"))]
        self.until(wanted, found)

    def test_filters(self):
        self.rewrite(words="lottery, no.such word", max_size=1)
        self.sorted_in([["bad", "last", "plain", "spam"], []])
        self.assertEqual((panel.owner(self.filter), panel.mode(self.filter)), ("mail", 0o640))
        # The defaults come beside what is there; they are the domain's that is named.
        self.rewrite("action=defaultspam&domain=bob.example&username=bob")
        self.assertEqual(panel.record(self.record), {"words": "lottery, no.such word", "max_size": "1", "spam": "ON", "spam_score": "5", "spam_action": "folder", "high_score": "15"})
        self.sorted_in([["last", "plain"], ["spam"]])
        self.assertEqual((self.imap("info@bob.example"), panel.owner("/home/bob/imap/bob.example/info/Maildir/.Junk")), (2, "bob"))
        self.assertFalse(os.path.exists(MAIL + "/bob2.example/filter"))
        before = os.stat(self.filter).st_ino
        for domain, user in (("ann.example", "bob"), ("bob.example", "nobody"), ("../x", "bob"), ("bob.example", "../bob")):
            self.rewrite("action=defaultspam&domain=%s&username=%s" % (domain, user))
        self.assertEqual(os.stat(self.filter).st_ino, before)
        for words in ("Error with default spam for ../x: ", "ann.example isn't in %s/bob/domains.list for default spam.  Username: bob" % USERS,
                      "Unable to read %s/nobody/domains.list under user nobody for default spam: " % USERS):
            self.assertLogged(words)
        # All accounts; what somebody has chosen stays.
        self.rewrite(spam="ON", spam_score=3, spam_action="drop", high_score=0)
        shell("sed -i /^spam=/d %s/bob/user.conf" % USERS)
        self.rewrite("action=addoptions")
        self.assertEqual(panel.record(self.record)["spam_score"] + panel.record(USERS + "/ann/domains/ann2.example.filter")["spam_score"], "35")
        self.assertEqual(panel.record(USERS + "/bob/user.conf")["spam"], "ON")
        self.sorted_in([["A Lottery!", "big", "from", "plain"], []])
        # Without the feature there is no filter left; one that somebody else wrote is not touched.
        write(MAIL + "/ann.example/filter", "# Exim filter\n", "mail", 0o640)
        shell("sed -i s/^spam=.*/spam=OFF/ %s/*/user.conf" % USERS)
        self.rewrite()
        self.assertFalse(os.path.exists(self.filter))
        self.assertEqual(text(MAIL + "/ann.example/filter"), "# Exim filter\n")

    def test_what_is_refused(self):
        self.rewrite(spam="ON", spam_score=5, spam_action="drop")
        good = text(self.filter)
        for key, value in (("words", 'x" then pipe /bin/sh endif if "'), ("words", "${run{/bin/id}}"), ("words", "x%0Afinish"), ("words", "w" * 101), ("words", "w," * 300),
                           ("max_size", "1M"), ("max_size", "-1"), ("spam_score", "99999999999999999999"), ("spam_score", "51"), ("spam_action", "/etc/passwd")):
            self.rewrite(**{"spam": "ON", "spam_score": 4, key: value})
            self.assertEqual(text(self.filter), good, (key, value))
            self.assertLogged("The mail filters of bob.example: %s '" % key)
        # A template that Exim cannot read changes nothing; a good one wins over ours.
        custom = panel.PANEL + "/data/templates/custom"
        shell("install -d -o zvadmin %s; printf '# Exim filter\\n|*if ACTION=\"folder\"|\\nif $bogus frobs then\\n|*endif|\\n' >%s/mail_filter.txt; chown zvadmin %s/*" % ((custom,) * 3))
        self.rewrite(spam="ON", spam_score=4, spam_action="drop")
        self.assertEqual(text(self.filter), good)
        self.assertLogged("mail_filter.txt: ")
        write(custom + "/mail_filter.txt", "# Exim filter\n# |DOMAIN|\nseen finish\n", "zvadmin", 0o644)
        # A filter that is a link to somebody else's is replaced, and his stays.
        write(MAIL + "/ann.example/filter", "# Exim filter\n# Written by the panel\n", "mail", 0o640)
        os.unlink(self.filter)
        os.symlink(MAIL + "/ann.example/filter", self.filter)
        self.rewrite("action=rewrite&value=filter&user=bob")
        self.assertEqual((text(self.filter), os.path.islink(self.filter)), ("# Exim filter\n# bob.example\nseen finish\n", False))
        self.assertEqual(text(MAIL + "/ann.example/filter"), "# Exim filter\n# Written by the panel\n")
        self.assertEqual([name for name in os.listdir(panel.ADMIN + "/state") if "sample" in name], [])


class Records(PanelTest):
    def test_password_files_and_tables(self):
        """What is an account's is set right from its records; nobody else's, and what is no mailbox, by no byte."""
        for name in ("bob", "ann"):
            panel.panel_do("addAccount", name, "user", "root", name + ".example")
        ids = shell("echo -n $(id -u bob):$(id -g bob)", capture_output=True, encoding="ascii").stdout
        odd = "../up:$6$x:0:0::/root::\n.hid:$6$x:0:0::/root::\na b:$6$x:1:1::/x::\nnone\nempty::1:1::/x::\n#c:$6$x\nlong:$6$x:1:1::/%s::\n" % ("x" * 5000)
        write(MAIL + "/bob.example/passwd", odd + "a:!{CRYPT}$6$x:0:0::/root::userdb_quota_rule=*:bytes=5000\nb:$6$x:1:1::/root::userdb_quota_rule=*:bytes=-1 home=/\n"
              "c:$6$x:%s::/home/bob/imap/bob.example/c::\nd:$6$x" % ids, "mail", 0o640)
        anns = text(MAIL + "/ann.example/passwd")
        write(USERS + "/bob/domains/bob.example.pointers", "alias.example\nother.example=redirect\nann.example\ntaken.example\n..\n", "zvadmin", 0o600)
        write(MAIL + "/domains", "ann.example: ann.example\ntaken.example: ann.example\nold.example: bob.example\n", "mail", 0o640)
        write(MAIL + "/suspended", "bob: refuse\nann: refuse\n", "mail", 0o640)
        self.queue("action=rewrite&value=email_passwd&user=bob")
        self.run_program()
        line = "%s:" + ids + "::/home/bob/imap/bob.example/%s::%s\n"
        wanted = odd + line % ("a:!{CRYPT}$6$x", "a", "userdb_quota_rule=*:bytes=5000") + "".join(line % (name + ":$6$x", name, "") for name in "bcd")
        self.assertEqual(text(MAIL + "/bob.example/passwd").rstrip("\n"), wanted.rstrip("\n"))
        self.assertEqual((panel.owner(MAIL + "/bob.example/passwd"), panel.mode(MAIL + "/bob.example/passwd")), ("mail", 0o640))
        self.assertEqual(text(MAIL + "/domains"), "ann.example: ann.example\ntaken.example: ann.example\nalias.example: bob.example\nbob.example: bob.example\n")
        self.assertEqual((text(MAIL + "/suspended"), text(MAIL + "/ann.example/passwd")), ("ann: refuse\n", anns))
        self.assertLogged("bob.example: '../up' in its password file is no mailbox, and is left alone")
        # Of all accounts, with limits for those that have none; what is right stays the same file.
        settings(add_userdb_quota=1, default_pop_quota=2)
        tables = []
        for _ in range(3):
            self.queue("action=rewrite&value=email_passwd")
            self.run_program()
            tables.append((os.stat(MAIL + "/domains").st_ino, "taken.example: bob.example" in text(MAIL + "/domains")))
        self.assertEqual([taken for _, taken in tables], [False, True, True], "what leads elsewhere does so until its owner lets it go")
        self.assertEqual(tables[1], tables[2])
        self.assertEqual((text(MAIL + "/bob.example/passwd").count("bytes=2097152"), text(MAIL + "/suspended")), (3, ""))
        # A password file that is a link, or somebody else's folder, is not followed.
        shell("cp {0}/bob.example/passwd /root/canary; ln -sf /root/canary {0}/ann.example/passwd; chown -h mail {0}/ann.example/passwd".format(MAIL))
        canary = text("/root/canary")
        self.queue("action=rewrite&value=email_passwd&user=ann")
        self.run_program()
        self.assertEqual(text("/root/canary"), canary)


if __name__ == "__main__":
    panel.main()
