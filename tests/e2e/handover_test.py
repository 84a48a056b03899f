"""Nothing lost, nothing twice: writers, overlapping runs, crashes, and files that are no queue."""
import fcntl
import glob
import multiprocessing
import os
import signal
import subprocess
import time

import panel
from panel import ADMIN, LOST, QUEUE, PanelTest, lost_files, settings, text, write

DONE = "executeCommand:invalid action: "


def append_lines(writer, lines, locked):
    """One of the panel's other programs: appends lines, each with an open, a write and a close of its own."""
    for i in range(lines):
        with open(QUEUE, "a", encoding="latin-1") as file:
            if locked:
                fcntl.flock(file, fcntl.LOCK_SH)
            file.write("value=w%d-%d\n" % (writer, i))


def run_in_loop(stop):
    while not stop.is_set():
        subprocess.run([panel.PROGRAM], stdout=subprocess.DEVNULL, check=True)


class HandOver(PanelTest):
    def lost(self):
        return [text(path) for path in lost_files()]

    def done(self):
        return [line.split(DONE, 1)[1] for line in self.log().split("\n") if DONE in line]

    def test_writers_and_overlapping_runs(self):
        writers, lines = (int(os.environ.get("ZVTASKQ_STRESS_" + name, usual)) for name, usual in (("WRITERS", 8), ("LINES", 1500)))
        stop = multiprocessing.Event()
        runners = [multiprocessing.Process(target=run_in_loop, args=(stop,)) for _ in range(3)]
        workers = [multiprocessing.Process(target=append_lines, args=(w, lines, w % 2)) for w in range(writers)]
        for process in runners + workers:
            process.start()
        for process in workers:
            process.join()
        stop.set()
        for process in runners:
            process.join()
            self.assertEqual(process.exitcode, 0)
        self.run_program()
        wanted = sorted("value=w%d-%d" % (w, i) for w in range(writers) for i in range(lines))
        self.assertEqual(sorted(self.done()), wanted)
        self.assertEqual(glob.glob(QUEUE + "*") + lost_files(), [])

    def test_append_that_spans_the_rename(self):
        with open(QUEUE, "a", encoding="latin-1") as slow:
            self.queue("value=early")
            run = self.start()
            while os.path.exists(QUEUE):
                time.sleep(0.001)
            slow.write("value=late\n")
        run.wait()
        self.assertEqual(sorted(self.done()), ["value=early", "value=late"])
        # One that outlasts all patience is heard as long as the file is there.
        with open(QUEUE, "a", encoding="latin-1", buffering=1) as slower:
            self.service("named", comes_up=False)
            self.queue("action=php-fpm56&value=start")
            run = self.start()
            time.sleep(1)
            slower.write("value=later\n")
            run.wait()
        self.assertIn("value=later", self.done())

    def test_leftovers_of_a_crash(self):
        write(QUEUE + ".tmp", "value=old\n")
        self.run_program()
        self.assertEqual(text(QUEUE + ".tmp"), "value=old\n")
        self.queue("value=new")
        self.run_program()
        self.assertEqual(self.done(), ["value=new"])
        self.assertEqual(self.lost(), ["value=old\n"])
        self.assertLogged("left behind by a run that did not end", times=1)

    def test_busy_run_keeps_its_file(self):
        self.service("named", comes_up=False)
        self.init_script("php-fpm56", "sleep 3")
        self.queue("action=php-fpm56&value=stop", "value=first")
        slow = self.start()
        time.sleep(1)
        self.queue("value=second")
        self.run_program()
        self.assertEqual(self.done(), ["value=second"])
        overtaken = glob.glob(os.path.dirname(QUEUE) + "/.task.queue.done/*.busy")
        self.assertEqual([text(path) for path in overtaken], ["action=php-fpm56&value=stop\nvalue=first\n"])
        slow.wait()
        self.assertEqual(self.done(), ["value=second", "value=first"])
        self.assertEqual(glob.glob(QUEUE + "*") + lost_files(), [])

    def test_files_that_are_no_queue(self):
        secret = "/var/secret"
        write(secret, "value=secret\n", mode=0o600)
        for make in [lambda: os.symlink(secret, QUEUE), lambda: os.mkfifo(QUEUE), lambda: os.mknod(QUEUE, 0o20600, os.makedev(1, 5))]:
            self.setUp()
            make()
            self.queue("value=x", path=QUEUE + ".zv")
            self.run_program()
            self.assertLogged("Error reading the tmp Q file", times=1)
            self.assertEqual(self.done(), ["value=x"])
            self.assertEqual(len(lost_files()), 1)
            self.assertFalse(os.path.lexists(QUEUE + ".tmp"))
        self.assertEqual(text(secret), "value=secret\n")
        self.setUp()
        os.mkdir(QUEUE)
        self.queue("value=x", path=QUEUE + ".zv")
        self.run_program()
        self.assertLogged("Error renaming Q file to tmp Q file: Is a directory")
        self.assertEqual(self.done(), ["value=x"])

    def test_squatted_lock_and_folder(self):
        self.queue("value=x")
        write(QUEUE + ".tmp.lock", "")
        self.run_program()
        self.assertLogged("Error reading the tmp Q file")
        self.assertEqual(self.lost(), ["value=x\n"])
        os.unlink(QUEUE + ".tmp.lock")
        # A folder for what was lost that cannot be used: the lines stay beside their queue.
        panel.shell("rm -rf %s/state; touch %s/state" % (ADMIN, ADMIN))
        write(QUEUE + ".tmp", "value=older\n")
        self.queue("value=newer")
        self.run_program()
        self.assertEqual([text(path) for path in glob.glob(QUEUE + ".2*")], ["value=older\n"])

    def test_unwritable_disk(self):
        panel.shell("mount -t tmpfs tmpfs /mnt && echo value=x > /mnt/q && mount -o remount,ro /mnt")
        self.addCleanup(panel.shell, "umount /mnt")
        settings(taskqueue="/mnt/q")
        self.run_program()
        self.assertLogged("Error renaming Q file to tmp Q file: Read-only file system")

    def assertNothingLost(self, lines, step):
        """Every line was carried out, once, or stands in the queue or among what was kept aside."""
        kept = "".join(text(path) for path in glob.glob(QUEUE + "*") + lost_files())
        for line in lines:
            done = line in self.done()
            self.assertTrue(done or line + "\n" in kept, "%s is gone at step %d:\n%s" % (line, step, self.log()))
            self.assertLessEqual(self.done().count(line), 1, "%s twice at step %d" % (line, step))

    def test_killed_at_every_step(self):
        for step in range(400):
            panel.shell("rm -rf %s %s* %s/data/.*.done %s/errortaskq.log" % (LOST, QUEUE, panel.PANEL, panel.LOGS))
            lines = ["value=a%d" % step, "value=m%d" % step, "value=b%d" % step]
            self.queue(*lines)
            outcome = subprocess.run([panel.PROGRAM], stdout=subprocess.DEVNULL, check=False,
                                     env={**os.environ, "ZVTASKQ_FAIL": "*:kill:%d" % step})
            self.assertNothingLost(lines, step)
            # Locks of the dead go stale after a minute.
            panel.shell("find %s -name '*.lock' -delete" % panel.PANEL)
            self.queue("value=next%d" % step)
            self.run_program()
            self.assertNothingLost(lines + ["value=next%d" % step], step)
            if outcome.returncode != -signal.SIGKILL:
                break
        self.assertEqual((outcome.returncode, step > 20), (0, True), step)


class Signals(PanelTest):
    def setUp(self):
        super().setUp()
        self.service("exim", comes_up=False)
        self.watch(exim="ON")

    def test_storm(self):
        run = self.start()
        time.sleep(0.5)
        sent = 0
        while run.poll() is None and sent < 100000:
            for number in (signal.SIGUSR1, signal.SIGUSR2, signal.SIGIO):
                run.send_signal(number)
                sent += 1
        self.assertEqual(run.wait(timeout=60), 0)
        self.assertLogged("Zvtaskq [%d] USR1 signal: Currently processing: doservice(service='exim'" % run.pid)
        self.assertLogged("Zvtaskq [%d] USR2 signal: New Instructions. Currently processing: " % run.pid)
        self.assertLogged("process_new_instruction: Unable to read %s/task_queue_processes/%d/instructions: " % (ADMIN, run.pid))

    def test_instructions(self):
        run = self.start()
        folder = "%s/task_queue_processes/%d" % (ADMIN, run.pid)
        panel.shell("install -d -m 700 -o zvadmin -g zvadmin %s/task_queue_processes %s" % (ADMIN, folder))
        time.sleep(1.1)
        for age, halted in [(3600, 0), (0, 1)]:
            write(folder + "/instructions", "action=stop\nvalue=backup\n", "zvadmin", 0o600)
            os.utime(folder + "/instructions", (time.time() - age,) * 2)
            run.send_signal(signal.SIGUSR2)
            time.sleep(1.2)
            self.assertLogged("USR2 signal: not available in this build: the halt of running backups", times=halted)
        run.wait()


if __name__ == "__main__":
    panel.main()
