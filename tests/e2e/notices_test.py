"""Messages to people: queue lines in, tickets, lists and e-mails out."""
import email
import email.policy
import glob
import os
import time

import panel
from panel import ADMIN, PanelTest, mode, owner, record, settings, shell, text, write

TICKETS = panel.PANEL + "/data/tickets"
USERS = panel.PANEL + "/data/users"
SENDMAIL = "/usr/sbin/sendmail"
SENT = "/var/tmp/sent"
RECORDER = """
exec >>{0}/$$
id -un; id -gn; echo "$*"; pwd; env | sort | tr '\\n' ' '; echo; cat
{1}
"""


def mail_of(path):
    """Who sent it and how, and the message, of what the recorder noted."""
    with open(path, "rb") as file:
        user, group, arguments, folder, environment, message = file.read().split(b"\n", 5)
    return (user, group, arguments, folder), environment.decode(), email.message_from_bytes(message, policy=email.policy.default)


class Notices(PanelTest):
    def setUp(self):
        super().setUp()
        shell("rm -rf {0}; install -d -m 1777 {0}".format(SENT))
        self.record_mail()
        panel.panel_do("addAccount", "boss", "admin", "root", "boss.example")
        write(ADMIN + "/next_ticket.number", "41\n", "zvadmin", 0o600)

    def record_mail(self, then="exit 0"):
        self.stand_in(SENDMAIL, RECORDER.format(SENT, then))

    def sent(self):
        return sorted(glob.glob(SENT + "/*"))

    def notify(self, subject="Disk%20replaced", message="The%20second%20disk%20is%20new."):
        self.queue("action=notify&value=admin&subject=%s&message=%s" % (subject, message))

    def tickets(self):
        return sorted(os.path.relpath(path, TICKETS) for path in glob.glob(TICKETS + "/*/*/*"))

    def account(self, name, **values):
        path = "%s/%s/user.conf" % (USERS, name)
        write(path, "".join("%s=%s\n" % pair for pair in {**record(path), **values}.items()), "zvadmin", 0o600)


class Messages(Notices):
    def test_stored_announced_and_sent(self):
        self.notify()
        self.run_program()
        self.assertEqual(text(ADMIN + "/next_ticket.number"), "42\n")
        self.assertEqual(text(TICKETS + "/000/041/001.msg"), "The second disk is new.")
        self.assertEqual(text(TICKETS + "/000/041/001.conf"), "from=zvadmin\nname=Message System\npriority=30\nstatus=open\n"
                         "subject=Disk replaced\ntype=message\nuser=multiple\n")
        self.assertEqual(text(ADMIN + "/tickets.list"), "000000041=type=message&new=yes\n")
        for path, want in [("/000", 0o700), ("/000/041", 0o700), ("/000/041/001.msg", 0o600), ("/000/041/001.conf", 0o600)]:
            self.assertEqual((mode(TICKETS + path), owner(TICKETS + path)), (want, "zvadmin"), path)
        self.assertEqual(len(self.sent()), 1)
        run, environment, message = mail_of(self.sent()[0])
        self.assertEqual(run, (b"zvadmin", b"zvadmin", b"-t", b"/"))
        self.assertNotIn("ZVTASKQ", environment)
        server = "panel.example.test"
        self.assertEqual([message["From"], message["To"], message["Subject"]],
                         ["Message System <zvadmin@%s>" % server, "boss@boss.example", "Disk replaced"])
        self.assertEqual(message.get_content(), "The second disk is new.\n")
        self.assertLess(abs(message["Date"].datetime.timestamp() - time.time()), 60)
        self.assertRegex(message["Message-ID"], r"^<\d+\.[a-z0-9]{24}@%s>$" % server)
        self.assertEqual([line for line in self.log().splitlines() if "setrlimit" not in line], [])

    def test_who_gets_a_copy(self):
        for values, want in [
            ({"email_on_message": "no"}, 0), ({"email": ""}, 0), ({"email": "a@a.example, b@b.example"}, 2),
            ({"email": "x y@a.example,a@a.example%0ABcc: b@b.example"}, 0),
        ]:
            self.setUp()
            self.account("boss", **values)
            self.notify()
            self.run_program()
            self.assertEqual(len(self.sent()), want, values)
            self.assertEqual(text(ADMIN + "/tickets.list"), "000000041=type=message&new=yes\n", values)

    def test_names_that_the_settings_allow(self):
        panel.panel_do("addAccount", "2Boss", "admin", "root", "boss.example")
        for upper, want in ((0, ["boss@boss.example"]), (1, ["2Boss@boss.example", "boss@boss.example"])):
            settings(allow_upper_case_username=upper, allow_numeric_username=1)
            self.notify()
            self.run_program()
            self.assertEqual(sorted(mail_of(mail)[2]["To"] for mail in self.sent()[-len(want):]), want)
        self.assertLogged("Ticket::deliverMessage::Can't read 2Boss: it cannot be the name of an account", times=1)

    def test_mail_program_fails(self):
        for then, tries, told, logged in [("echo refused >&2; exit 1", 4, 4, "returned 1: refused"),
                                          (None, 0, 1, "returned 127, no more are sent in this run")]:
            self.setUp()
            panel.panel_do("addAccount", "chief", "admin", "root", "chief.example")
            self.record_mail(then or "")
            if then is None:
                os.unlink(SENDMAIL)
            self.notify()
            self.notify("Again")
            self.run_program()
            self.assertEqual(len(self.sent()), tries)
            self.assertLogged("Unable to send an e-mail to ", times=told)
            self.assertLogged("Unable to send an e-mail to boss@boss.example: /usr/sbin/sendmail " + logged)
            self.assertEqual(text(ADMIN + "/tickets.list").count("new=yes"), 2)

    def test_planted_links(self):
        canary = "/var/tmp/canary"
        write(canary, "60\n", "zvadmin", 0o600)
        os.mkdir("/var/tmp/elsewhere")
        self.addCleanup(shell, "rm -rf /var/tmp/elsewhere /var/tmp/canary")
        for name in ["admin/next_ticket.number", "admin/tickets.list", "admin/tickets.list.temp", "admin/next_ticket.number.temp"]:
            shell("ln -sfn %s %s/data/%s" % (canary, panel.PANEL, name))
        shell("install -d -o zvadmin -g zvadmin -m 700 {0}/000; ln -s /var/tmp/elsewhere {0}/000/060; "
              "chown -h zvadmin:zvadmin {1}/*.number {1}/*.temp {1}/tickets.list".format(TICKETS, ADMIN))
        self.notify()
        self.run_program()
        self.assertEqual((text(canary), os.listdir("/var/tmp/elsewhere")), ("60\n", []))
        self.assertLogged("Can't open file %s/next_ticket.number" % ADMIN)
        self.assertLogged("Ticket::deliverMessage::Can't read %s/tickets.list: " % ADMIN)
        self.assertEqual(self.tickets(), ["000/061/001.conf", "000/061/001.msg"])
        shell("rm -rf {0}/000; ln -s /var/tmp/elsewhere {0}/000".format(TICKETS))
        self.notify()
        self.run_program()
        self.assertEqual(os.listdir("/var/tmp/elsewhere"), [])
        self.assertLogged("Ticket::writeTicket: Can't create directory: %s/000/062: " % TICKETS)


class ServiceNotices(Notices):
    def test_one_notice_an_hour(self):
        for name in ("exim", "named"):
            self.service(name, comes_up=False)
        self.watch(exim="ON", named="ON")
        self.run_program()
        self.assertEqual(self.tickets(), ["000/041/001.conf", "000/041/001.msg"])
        self.assertIn("subject=The service 'exim' on server panel.example.test is currently down\n",
                      text(TICKETS + "/000/041/001.conf"))
        self.assertEqual(text(TICKETS + "/000/041/001.msg"), "This message has been automatically generated notifying you that "
                         "the service exim is currently down.")
        self.assertEqual((owner(ADMIN + "/admin.conf"), mode(ADMIN + "/admin.conf")), ("nobody", 0o600))
        self.assertAlmostEqual(int(record(ADMIN + "/admin.conf")["service_email_last_sent"]), time.time(), delta=60)
        # A general notice is never held back.
        self.notify()
        self.watch(exim="ON")
        self.run_program()
        self.assertEqual(len(self.tickets()), 4)
        self.assertIn("subject=Disk replaced\n", text(TICKETS + "/000/042/001.conf"))


class RealMail(Notices):
    """Through Debian's own mail server, to mailboxes of this machine."""

    def setUp(self):
        super().setUp()
        self.assertTrue(os.path.exists("/usr/sbin/exim4"), "needs exim4")
        shell("ln -sf exim4 {0}; rm -f /var/mail/*; sed -i \"s/^dc_eximconfig_configtype=.*/dc_eximconfig_configtype='local'/; "
              "s/^dc_localdelivery=.*/dc_localdelivery='mail_spool'/; s/^dc_use_split_config=.*/dc_use_split_config='false'/\" "
              "/etc/exim4/update-exim4.conf.conf; update-exim4.conf; service exim4 start; "
              "until exim4 -bt boss@localhost >/dev/null; do sleep 0.2; done".format(SENDMAIL))
        self.addCleanup(shell, "service exim4 stop")
        self.account("boss", email="boss@localhost")

    def test_a_message_arrives(self):
        panel.panel_do("addAccount", "eve", "user", "boss", "eve.example")
        self.notify("Gr%C3%BC%C3%9Fe%0D%0ABcc:%20eve@localhost%0AX-Odd:%20" + "x" * 80,
                    "a%0A.%0AFrom%20b%0A%20%20c%20%0A%E2%82%AC%20%3D%201%0A" + "long%20" * 50)
        self.run_program()
        deadline = time.time() + 30
        while not text("/var/mail/boss") and time.time() < deadline:
            time.sleep(0.2)
        self.assertTrue(text("/var/mail/boss"), text("/var/log/exim4/mainlog"))
        with open("/var/mail/boss", "rb") as file:
            message = email.message_from_bytes(file.read().split(b"\n", 1)[1], policy=email.policy.default)
        self.assertEqual(message["Subject"], "Gr\u00fc\u00dfe  Bcc: eve@localhost X-Odd: " + "x" * 80)
        self.assertEqual((message["Bcc"], message["X-Odd"]), (None, None))
        # With the mailbox's own empty line.
        self.assertEqual(message.get_content(), "a\n.\nFrom b\n  c \n\u20ac = 1\n" + "long " * 50 + "\n\n")
        self.assertIn("subject=Gr\xc3\xbc\xc3\x9fe  Bcc: eve@localhost X-Odd: ", text(TICKETS + "/000/041/001.conf"))
        self.assertIn("from zvadmin by", message["Received"])
        self.assertEqual(message["Auto-Submitted"], "auto-generated")
        self.assertEqual(message.defects, [])
        time.sleep(1)
        self.assertEqual(os.listdir("/var/mail"), ["boss"])


if __name__ == "__main__":
    panel.main()
