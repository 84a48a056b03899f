"""Queue files and the action table."""
import glob
import os
import time

import panel
from panel import PanelTest, settings, text, write


class Queue(PanelTest):
    def test_reset_runs_first_and_once(self):
        self.queue("action=rewrite&value=early", "action=reset&value=all", "value=%61ll&action=%72eset", "action=rewrite&value=late",
                   "action=reset&type=user&value=bob")
        self.run_program()
        lines = self.log()
        self.assertLogged("Reset All has started", times=2)
        self.assertLess(lines.index("Reset All has started"), lines.index("Unknown rewrite: early"))
        self.assertLogged("Reset all command Received", "system", times=1)
        self.assertLogged("Reset all command : done", "system", times=1)
        self.assertEqual(text(panel.QUEUE), "action=tally&value=all\n" * 2 + "action=tally&type=user&value=bob\n")

    def test_order_of_the_queues(self):
        for path in (panel.QUEUE + ".zv", panel.QUEUE, panel.MAIL_QUEUE, panel.QUEUE + ".cb"):
            self.queue("value=" + path, path=path)
        self.run_program()
        self.assertEqual([line.split("value=")[1] for line in self.log().split("\n") if ":invalid action: " in line],
                         [panel.QUEUE + ".cb", panel.MAIL_QUEUE, panel.QUEUE, panel.QUEUE + ".zv"])

    def test_services_coalesce(self):
        for name in ("named", "exim", "httpd"):
            self.service(name)
        self.queue("action=httpd&value=start", "action=httpd&value=reload", "action=named&value=reload",
                   "action=exim&value=bogus", "action=named&value=restart", "action=rewrite&value=z", "action=named&value=reload")
        self.run_program()
        self.assertEqual(self.service_calls(), ["httpd start", "named restart"])
        self.assertLogged("Invalid action in: action=exim&value=bogus")
        self.assertLogged("named restarted", "system")
        self.assertLess(self.log().index("Unknown rewrite: z"), self.log().index("Invalid action in"))

    def test_service_verbs(self):
        self.service("named")
        self.service("php-fpm56")
        self.service("exim", comes_up=False, status=3)
        self.queue("action=php-fpm56&value=start", "action=named&value=start", "action=pure-ftpd&value=restart",
                   "action=exim&value=start")
        self.run_program()
        self.queue("action=named&value=stop", "action=php-fpm56&value=stop")
        self.run_program()
        # What runs is left alone, what does not is given one restart, what was told to stop is not looked at.
        self.assertEqual(self.service_calls(), ["php-fpm56 start", "exim start", "exim restart", "named start",
                                                "php-fpm56 stop", "named stop"])
        self.assertLogged("Error starting service exim : uid 0 gid 0 : /sbin/service exim start        >/dev/null 2>/dev/null"
                          "                      : returned 3")
        self.assertLogged("exim didn't start properly, re-starting")
        self.assertLogged("named stoped", "system")

    def test_web_server_takes_php_along(self):
        # What the machine has of those servers has no say here.
        settings(service_check=0)
        for name in ("httpd", "nginx", "litespeed", "named", "php-fpm74"):
            self.service(name)
        for name in ("httpd", "nginx", "litespeed", "named"):
            for verb in ("start", "reload", "stop"):
                self.queue("action=%s&value=%s" % (name, verb))
                self.run_program()
        follows = [("start", "graceful"), ("reload", "graceful"), ("stop", "stop")]
        want = ["%s %s" % step for name in ("httpd", "nginx", "litespeed")
                for verb, php in follows for step in ((name, verb), ("php-fpm74", php))]
        self.assertEqual(self.service_calls(), want + ["named start", "named reload", "named stop"])

    def test_a_service_script_that_hangs(self):
        """It is waited for no longer, and lives on with what it started."""
        self.init_script("sshd", "sleep 4; echo over >> " + self.calls)
        self.queue("action=sshd&value=stop", "action=rewrite&value=z")
        self.run_program(env={"ZVTASKQ_FAIL": "service.patience:EIO"})
        self.assertLogged("Time limit of 2 seconds is over: not waiting for pid ", times=1)
        self.assertLogged("Error stoping service sshd : uid 0 gid 0 : /sbin/service sshd stop ", times=1)
        self.assertEqual(self.service_calls(), [])
        panel.shell("for i in $(seq 100); do grep -q over %s && exit 0; sleep 0.1; done; exit 1" % self.calls)

    def test_under_systemd(self):
        panel.panel_do("recordSystemctl", self.calls)
        settings(systemd=1)
        # What the machine itself has of it would follow too.
        panel.shell("rm -f /lib/systemd/system/php*-fpm*.service")
        unit = "/etc/systemd/system/php9.9-fpm.service"
        write(unit, "")
        self.addCleanup(os.unlink, unit)
        self.queue("action=named&value=reload", "action=nginx&value=stop", "action=nginx&value=reload")
        self.run_program()
        # The recorder starts nothing, so the name server is found missing and restarted.
        self.assertEqual(self.service_calls(), ["reload named.service", "restart named.service", "stop nginx.service",
                                                "stop php9.9-fpm.service"])
        self.queue("action=nginx&value=restart")
        self.run_program()
        self.assertEqual(self.service_calls()[4:], ["restart nginx.service", "reload php9.9-fpm.service"] * 2)

    def test_what_a_servers_own_check_refuses(self):
        """A running server is left running; one that is down is started; the words are told once, until it is content."""
        self.administrator()
        check = "/usr/sbin/proftpd"
        write(check, "#!/bin/sh\necho 'Fatal: unknown directive' >&2\nexit 1\n", "root", 0o755)
        self.addCleanup(os.unlink, check)
        self.service("proftpd")
        for verb in ("start", "restart", "reload"):
            self.queue("action=proftpd&value=" + verb)
            self.run_program()
        self.assertEqual(self.service_calls(), ["proftpd start"])
        (subject, words), = self.notices()
        self.assertEqual(subject, "The configuration of proftpd is refused by its own check")
        self.assertIn("Fatal: unknown directive", words)
        for content, calls in (("exit 0", ["proftpd restart"]), ("exit 1", []), ("exit 1", ["proftpd restart"])):
            settings(service_check=0 if content == "exit 1" and calls else None)
            write(check, "#!/bin/sh\n%s\n" % content, "root", 0o755)
            write(self.calls, "")
            self.queue("action=proftpd&value=restart")
            self.run_program()
            self.assertEqual(self.service_calls(), calls)
        self.assertEqual(len(self.notices()), 2)

    def test_services_of_other_names(self):
        settings(service_names="httpd:apache2:apache2, named:bind9:named,x:;touch /tmp/owned:", nginx=1)
        for name in ("bind9", "nginx"):
            self.service(name)
        self.queue("action=named&value=stop")
        self.watch(httpd="ON")
        self.run_program()
        self.assertEqual(self.service_calls(), ["bind9 stop", "nginx start"])
        self.assertLogged("service_names: 'x:;touch /tmp/owned:' is no name:unit:process", times=1)
        self.assertFalse(os.path.exists("/tmp/owned"))

    def test_rewriting_of_follow_up_lines(self):
        for rules, want in [
            ({}, "action=httpd&value=restart\n"),
            ({"graceful_restarts": 1}, "action=httpd&value=graceful\n"),
            ({"graceful_restarts": 1, "systemd": 1}, "action=httpd&value=reload\n"),
            ({"nginx": 1}, "action=nginx&value=reload\n"),
            ({"litespeed": 1}, "action=litespeed&value=reload\n"),
            ({"nginx_proxy": 1}, "action=nginx&value=reload\naction=httpd&value=restart\n"),
        ]:
            self.setUp()
            settings(**rules)
            self.queue("action=confirm&type=httpd.conf&value=x")
            self.run_program()
            self.assertEqual(text(panel.QUEUE), want, rules)
            self.assertEqual(os.stat(panel.QUEUE).st_mode & 0o777, 0o600)

    def test_messages_of_rows(self):
        panel.panel_do("addAccount", "boss", "admin", "root", "boss.example")
        panel.panel_do("addAccount", "bob", "user", "boss", "bob.example")
        panel.panel_do("addAccount", "odd", "alien", "boss", "odd.example")
        for line, want in [
            ("value=x", "executeCommand:invalid action: value=x"),
            ("action=tally&value=x", "executeCommand: can't figure out what to tally for 'action=tally&value=x'"),
            ("action=vacation", "executeCommand: can't figure out what vacation message to do action=vacation"),
            ("action=vacation&type=domain", "executeCommand: can't figure out what vacation message to do action=vacation&type=domain"),
            ("action=vacation&value=one.example", "can't figure out what vacation message to do action=vacation&value=one.example"),
            ("action=vacation&type=domain&value=", "executeCommand: can't figure out what vacation message to do action=vacation"),
            ("action=tally&type=user", "executeCommand: can't figure out what to tally for 'action=tally&type=user'"),
            ("action=reset&type=user", "executeCommand: can't figure out what reset to do action=reset&type=user"),
            ("action=reset&value=x", "executeCommand: can't figure out what reset to do action=reset&value=x"),
            ("action=update&value=x", "executeCommand: can't figure out what update to do action=update&value=x"),
            ("action=backup&type=x", "type='x' is an unknown type for the backup action"),
            ("action=restore&type=x", "type=x is an unknown type for the restore action"),
            ("action=backup&type=user&value=ghost", "Cannot read data for user ghost : Unable to open "),
            ("action=backup&type=user&value=../x", "Cannot read data for user ../x : Invalid user name"),
            ("action=backup&type=reseller&owner=ghost", "Cannot read data for Reseller ghost : "),
            ("action=restore&type=admin&owner=ghost", "Cannot read data for Admin ghost : "),
            ("action=backup&type=sitebackup&value=odd", "SiteBackup: User odd has unknown user type! : "),
            ("action=backup&type=sitebackup&value=bob&select0=database&database_data_aware=0",
             "*** WARNING:  A backup cron was created, that does not contain database_aware=yes"),
            ("action=delete&value=account&requestedby=bob", "Account bob tried to delete some accounts, but does not have"),
            ("action=delete&value=account&requestedby=boss", "Account boss tried to delete some accounts, but did not specify"),
            ("action=delete&value=account&requestedby=boss&select0=nobody1&leave_dns=yes", "Invalid option: 'leave_dns=yes' -> Either"),
            ("action=notify&value=admin&message=x", "Nofity Admin: subject is missing or empty"),
            ("action=notify&value=admin&subject=x", "Nofity Admin: message is missing or empty"),
            ("action=rewrite&value=x", "Unknown rewrite: x"),
            ("action=rewrite&value=dkim", "dkim is not enabled. Enable dkim=1 if you want to use it."),
            ("action=rewrite&value=secure_access_group", "Unable to rewrite secure_access_group.  It's not set"),
            ("action=defaultspam&domain=x.example&username=bob", "x.example isn't in /usr/local/zorvane/data/users/bob/domains.list"),
            ("action=sync&type=cluster&value=x.example&count=3", "cluster sync retry number 3 requested on x.example, but cannot find"),
            ("action=sync&type=cluster&value=../../etc/shadow", "cluster sync retry number 0 requested on ../../etc/shadow"),
            ("action=cleanreset&value=all", "Clean Reset All has finished"),
            ("action=tally&type=user&value=nobody1", "Unable to read user nobody1's data files: "),
        ]:
            write(panel.LOGS + "/errortaskq.log", "", "zvadmin")
            self.queue(line)
            self.run_program()
            self.assertLogged(want)
        write(panel.LOGS + "/errortaskq.log", "", "zvadmin")
        self.queue("action=foo", "action=ipswap", "action=convert&value=unifiedftp&simulate=off",
                   "action=backup&type=sitebackup&value=bob&select0=email&email_data_aware=yes")
        self.run_program()
        self.assertNotIn("foo", self.log())
        self.assertNotIn("email_aware", self.log())
        self.assertLogged("Converting to unified ftp password file", "system", times=1)

    def test_mail_queue(self):
        self.queue("x=1", "action=limit&username=bob", "action=nobody", path=panel.MAIL_QUEUE)
        self.run_program()
        self.assertLogged("execute_mail_commmand:invalid action: x=1")
        self.assertLogged("action=limit&username=bob: not available in this build: ")
        self.assertNotIn("nobody", self.log())
        self.assertFalse(os.path.exists(panel.MAIL_QUEUE))

    def test_no_message_shows_a_password(self):
        panel.panel_do("addAccount", "boss", "admin", "root", "boss.example")
        settings(track_task_queue_processes=2, pipe_log=panel.LOGS + "/pipe.log")
        secret = "&ftp_password=swordfish&ftp%5Fpassword=swordfish"
        rows = ["", "action=tally", "action=update", "action=backup&type=admin&owner=boss", "action=restore&type=x", "action=sync",
                "action=named&value=x", "action=ipswap", "action=vacation", "action=reset", "action=restore&type=admin&owner=boss"]
        self.queue(*[row + secret for row in rows])
        self.queue(secret, "action=limit" + secret, path=panel.MAIL_QUEUE)
        shown = self.run_program("d4000")
        self.assertIn("zvtaskq: command: action=update&ftp_password=&ftp%5Fpassword=\n", shown)
        self.assertIn("Program Location: action=backup&type=admin&owner=boss&ftp_password=", shown)
        self.assertLogged("not available in this build", times=3)
        self.assertNotIn("swordfish", shown + "".join(self.log(name) for name in ("errortaskq", "error", "system", "security")))

    def test_nothing_in_a_line_forges_a_log_line(self):
        self.queue("action=rewrite&value=x%0A2026:01:01-00:00:00: forged%1B%5B31m")
        self.run_program()
        self.assertLogged("Unknown rewrite: x\\x0A2026:01:01-00:00:00: forged\\x1B[31m")


class Monitor(PanelTest):
    def test_watch(self):
        self.service("named")
        self.service("exim", comes_up=False)
        self.service("mysqld")
        self.service("proftpd")
        self.watch(named="on", exim="ON", sshd="OFF", mysqld="off", proftpd="")
        self.run_program()
        self.assertEqual(self.service_calls(), ["exim start", "exim restart", "mysqld start", "named start", "proftpd start"])
        self.assertLogged("service named wasn't running, starting it", times=1)
        self.assertLogged("service exim didn't start, re-starting it", times=1)
        self.assertNotIn("sshd", self.log())
        self.run_program()
        self.assertLogged("service named wasn't running, starting it", times=1)

    def test_each_attempt_is_given_its_time(self):
        """Five seconds after each; and a restart that helped is nothing to tell the administrators of."""
        self.service("named")
        script = text("/etc/init.d/named").replace("$1\" >>", "$1 $(date +%s%N)\" >>").replace("start|restart)", "restart)")
        write("/etc/init.d/named", script, mode=0o755)
        self.watch(named="ON")
        self.run_program()
        end = time.time_ns()
        calls = [line.rsplit(" ", 1) for line in self.service_calls()]
        self.assertEqual([call for call, _ in calls], ["named start", "named restart"])
        started, restarted = (int(when) for _, when in calls)
        self.assertGreaterEqual(restarted - started, 5e9)
        self.assertGreaterEqual(end - restarted, 5e9)
        self.assertEqual(glob.glob(panel.PANEL + "/data/tickets/*/*"), [])

    def test_odd_names_and_missing_record(self):
        write(panel.ADMIN + "/services.status", "a;touch /tmp/owned=ON\n-x=ON\n", "zvadmin", 0o600)
        self.run_program()
        self.assertFalse(os.path.exists("/tmp/owned"))
        self.assertLogged("cannot be the name of a service", times=2)
        os.unlink(panel.ADMIN + "/services.status")
        self.run_program()
        self.assertLogged("Unable to open %s/services.status" % panel.ADMIN)


if __name__ == "__main__":
    panel.main()
