"""From the first argument to the exit status."""
import os
import subprocess
import time

import panel
from panel import PanelTest, settings, shell, text, write


class Startup(PanelTest):
    def test_arguments(self):
        usage = ("Usage:\n\t{0}\t\t\t\t\t\t:normal\n\t{0} d\t\t\t\t\t\t:debug level 10\n"
                 "\t{0} d#\t\t\t\t\t\t:debug level # (eg, d20)\n\t{0} --config=/path/to/zorvane.conf\t\t:specify config\n"
                 "\t{0} --custombuild\t\t\t:only scan the task.queue.cb. Skip all other tasks.\n").format(panel.PROGRAM)
        other = "/tmp/other.conf"
        write(other, text(panel.CONF), "zvadmin", 0o600)
        for arguments, want in [
            (["h"], usage), (["help", "-x"], usage), (["xyz", "", "h", "d"], usage),
            (["-x"], "Invalid option: -x\n"), (["xyz", "-"], "Invalid option: -\n"),
            (["--configure"], "Error reading new config: re\n"), (["--config"], "Error reading new config: \n"),
            (["--config=/nowhere"], "Error reading new config: /nowhere\n"),
            (["--config=%s" % other, "--config=/nowhere"], "Error reading new config: /nowhere\n"),
        ]:
            self.assertEqual(self.run_program(*arguments), want, arguments)
        for arguments, level in [(["d"], 10), (["d5x"], 10), (["d20"], 20), (["d0"], 0), (["d3", "d200"], 200)]:
            shown = self.run_program(*arguments)
            self.assertEqual("staring queue\n" in shown, level >= 20, arguments)
            self.assertEqual("pidfile written\n" in shown, level >= 200, arguments)

    def test_custom_build_takes_its_own_queue_alone(self):
        self.queue("value=main")
        self.queue("value=custom", path=panel.QUEUE + ".cb")
        settings(taskqueuecb=panel.QUEUE + ".cb")
        shown = self.run_program("d1000", "--custombuildfoo")
        self.assertIn("Only processing %s.cb\n" % panel.QUEUE, self.run_program("d1000", "--custombuild"))
        self.assertIn("done queue\n", shown)
        self.assertLogged("executeCommand:invalid action: value=custom", times=1)
        self.assertEqual(text(panel.QUEUE), "value=main\n")

    def test_without_configuration(self):
        os.unlink(panel.CONF)
        shown = self.run_program()
        self.assertIn("Unable to read config file. Check the file permissions\n", shown)
        self.assertIn("Unable to read config file. Check to make sure that %s.lock doesn't exist.\n" % panel.CONF, shown)
        write("/tmp/good.conf", "logdir=%s\nserverpath=%s\n" % (panel.LOGS, panel.PANEL), "zvadmin", 0o600)
        self.assertIn("done queue", self.run_program("d20", "--config=/tmp/good.conf"))

    def test_pigz_needs_its_program_and_compression(self):
        for compressed, want in [(1, ""), (0, "backup_gzip is disabled, but pigz is enabled.  Disabling pigz support.\n"),
                                 (1, "Cannot find /usr/local/bin/pigz.  Disabling pigz support. (uid=")]:
            settings(pigz=4, backup_gzip=compressed)
            shown = self.run_program("d1000", "--config=" + panel.CONF)
            self.assertIn(want, shown)
            self.assertEqual(shown.count("pigz support"), len(want) > 0)
            if not compressed:
                os.unlink("/usr/local/bin/pigz")

    def test_not_root(self):
        shell("chmod 711 %s/conf; chmod 644 %s" % (panel.PANEL, panel.CONF))
        shown = subprocess.run(["setpriv", "--reuid=apache", "--clear-groups", panel.PROGRAM], capture_output=True,
                               encoding="latin-1", check=False)
        self.assertEqual((shown.returncode, "zvTaskQ must be run as root\n" in shown.stdout), (1, True), shown)

    def test_pid_file(self):
        seen = "/tmp/pid.seen"
        self.init_script("sshd", "stat -c %a /run/zvtaskq.pid >" + seen)
        self.queue("action=sshd&value=stop")
        for age, told in [(2690, 0), (2710, 1)]:
            write("/run/zvtaskq.pid", "1\n", mode=0o600)
            os.utime("/run/zvtaskq.pid", (time.time() - age,) * 2)
            self.run_program()
            self.assertLogged("ZvTaskQ didn't remove its pid file when it last quit, removing it now...", times=told)
            self.assertFalse(os.path.exists("/run/zvtaskq.pid"))
        self.assertEqual(text(seen), "644\n")
        os.unlink(seen)
        self.queue("action=sshd&value=stop")
        os.mkdir("/run/zvtaskq.pid")
        self.addCleanup(lambda: os.path.isdir("/run/zvtaskq.pid") and os.rmdir("/run/zvtaskq.pid"))
        shown = self.run_program(status=1)
        self.assertIn("Cannot create the pid file: /var/run/zvtaskq.pid uid:0 gid:0 euid:0 egid:0 : Is a directory\n", shown)
        self.assertLogged("Cannot create the pid file: /var/run/zvtaskq.pid uid:0 gid:0 euid:0 egid:0 Is a directory")
        self.assertFalse(os.path.exists(seen))

    def test_streams(self):
        settings(pipe_log="/var/log/zorvane/pipe.log", process_list_debug="1")
        self.watch(absent="ON")
        self.service("absent", comes_up=False)
        # All that a plain run prints: a limit that this machine does not let anybody raise.
        self.assertIn(self.run_program(), ("", "Error with setrlimit: Operation not permitted\n"))
        piped = text("/var/log/zorvane/pipe.log")
        self.assertEqual(os.stat("/var/log/zorvane/pipe.log").st_mode & 0o777, 0o640)
        self.assertIn("absent was found not to be running in the following list:\n\nlistType: 0\n", piped)
        self.assertIn("'/bin/ps aux' output:\n\nUSER", piped)
        settings(pipe_log="/nowhere/pipe.log")
        self.run_program(status=1)
        self.assertLogged("failed to open pipe log /nowhere/pipe.log: No such file or directory")

    def test_nobody_listens(self):
        """A reader of what is printed that goes away takes nothing with it."""
        self.queue("action=rewrite&value=x")
        reader, writer = os.pipe()
        os.close(reader)
        self.assertEqual(subprocess.run([panel.PROGRAM, "d200"], stdout=writer, check=False).returncode, 0)
        os.close(writer)
        self.assertLogged("Unknown rewrite: x")

    def test_nothing_from_outside_matters(self):
        report = "/tmp/child.report"
        self.init_script("sshd", "{ umask; ulimit -Sc; ulimit -Sn; env; ls -l /proc/$$/fd; cat /proc/$$/status; } > %s 2>&1" % report)
        self.queue("action=sshd&value=stop")
        evil = {"LD_PRELOAD_X": "/tmp/x.so", "BASH_ENV": "/tmp/x", "IFS": "x", "TAR_OPTIONS": "--x", "SECRET": "s"}
        self.run_program(env=evil, before="umask 0; trap '' TERM USR1; exec 7</etc/shadow; ulimit -Sc 7; ulimit -Sn 321;")
        seen = text(report)
        for name in evil:
            self.assertNotIn(name + "=", seen)
        # What a service is started with: its files can be read, and the limits are those that the runner found.
        # (One shell counts core files in kilobytes, the other in halves of one.)
        self.assertTrue(seen.startswith("0022\n14\n321\n"), seen)
        self.assertNotIn("shadow", seen)
        self.assertIn("SigIgn:\t0000000000000000", seen)
        self.assertIn("Groups:\t \n", seen)
        self.assertEqual(os.stat(panel.LOGS + "/errortaskq.log").st_mode & 0o777 if self.log() else 0o600, 0o600)


if __name__ == "__main__":
    panel.main()
