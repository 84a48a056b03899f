"""A panel around the installed program: queue lines in, files and logs out.

Everything here works in the sandbox only, on real paths: the tests of one process have the panel to themselves.
"""
import glob
import os
import pwd
import shutil
import stat
import subprocess
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.environ.get("ZVTASKQ_TEST_BUILD", os.path.join(ROOT, "build", "dev"))
PANEL = "/usr/local/zorvane"
PROGRAM = PANEL + "/zvtaskq"
CONF = PANEL + "/conf/zorvane.conf"
ADMIN = PANEL + "/data/admin"
QUEUE = PANEL + "/data/task.queue"
MAIL_QUEUE = "/etc/virtual/mail_task.queue"
LOGS = "/var/log/zorvane"
LOST = ADMIN + "/state/task_queue_lost"


def shell(command, **more):
    return subprocess.run(["bash", "-c", command], cwd=ROOT, check=True, **more)


def panel_do(*words):
    subprocess.run(["bash", "dev/lib/panel.sh", *words], cwd=ROOT, check=True)


def text(path):
    try:
        with open(path, encoding="latin-1") as file:
            return file.read()
    except FileNotFoundError:
        return ""


def write(path, content, user=None, mode=None):
    if os.path.islink(path):  # the mail server's program stands behind sendmail
        os.unlink(path)
    with open(path, "w", encoding="latin-1") as file:
        file.write(content)
    if user:
        entry = pwd.getpwnam(user)
        os.chown(path, entry.pw_uid, entry.pw_gid)
    if mode is not None:
        os.chmod(path, mode)


def append(path, content):
    with open(path, "a", encoding="latin-1") as file:
        file.write(content)


def owner(path):
    return pwd.getpwuid(os.stat(path).st_uid).pw_name


def mode(path):
    return stat.S_IMODE(os.stat(path).st_mode)


def state(path):
    """What changes with a file that is written or replaced, and with its owner and mode; a look at it changes none of that."""
    found = os.stat(path)
    return found.st_ino, found.st_mtime_ns, found.st_ctime_ns


def record(path):
    """Name -> value of a file of pairs."""
    return dict(line.split("=", 1) for line in text(path).splitlines())


def settings(**values):
    """Sets keys of zorvane.conf; None takes a key out."""
    lines = [line for line in text(CONF).splitlines() if line.split("=")[0] not in values]
    lines += ["%s=%s" % pair for pair in values.items() if pair[1] is not None]
    write(CONF, "\n".join(lines) + "\n", "zvadmin", 0o600)


def lost_files():
    return sorted(glob.glob(LOST + "/*"))


INIT_SCRIPT = """#!/bin/sh
### BEGIN INIT INFO
# Provides: {name}
### END INIT INFO
echo "{name} $1" >> {calls}
case "$1" in
  start|restart) {start} ;;
  stop) [ ! -e {pid} ] || kill "$(cat {pid})"; rm -f {pid} ;;
esac
exit {status}
"""


class PanelTest(unittest.TestCase):
    calls = "/var/log/service.calls"

    def setUp(self):
        shell("rm -rf %s %s /etc/virtual %s /run/zvtaskq.pid; : > %s" % (PANEL, LOGS, self.calls, self.calls))
        panel_do("layPanel", BUILD)

    def service(self, name, comes_up=True, status=0):
        """A real init script; its process is a sleep under the service's name."""
        pid = "/run/%s.testpid" % name
        program = "/usr/local/sbin/" + name
        shutil.copy("/bin/sleep", program)
        start = "[ -e {pid} ] || {{ {program} 600 >/dev/null 2>&1 & echo $! > {pid}; }}".format(pid=pid, program=program)
        write("/etc/init.d/" + name, INIT_SCRIPT.format(name=name, calls=self.calls, pid=pid, status=status,
                                                        start=start if comes_up else ":"), mode=0o755)
        self.addCleanup(shell, "/etc/init.d/{0} stop; rm -f /etc/init.d/{0} {1}".format(name, program))

    def init_script(self, name, body):
        """An init script that does just this."""
        write("/etc/init.d/" + name, "#!/bin/sh\n%s\n" % body, mode=0o755)
        self.addCleanup(os.unlink, "/etc/init.d/" + name)

    def script(self, name, body):
        """A script of the panel's own."""
        write("%s/scripts/%s" % (PANEL, name), "#!/bin/sh\n" + body, "root", 0o755)

    def stand_in(self, path, body):
        """A script in a program's place, which comes back at the end."""
        if not os.path.lexists(path + ".kept"):
            os.rename(path, path + ".kept")
            self.addCleanup(os.rename, path + ".kept", path)
        write(path, "#!/bin/sh\n" + body, "root", 0o755)

    @staticmethod
    def log_in(name, caller):
        """Whether the password "secret" lets in, somebody else asking."""
        return subprocess.run(["setpriv", "--reuid=" + caller, "--regid=" + caller, "--clear-groups", "su", name, "-c", "true"], input="secret\n",
                              capture_output=True, encoding="latin-1", check=False).returncode == 0

    def administrator(self):
        """One who gets messages, and no mail."""
        panel_do("addAccount", "boss", "admin", "root", "boss.example")
        self.stand_in("/usr/sbin/sendmail", "cat >/dev/null\n")

    def notices(self):
        """Subject and text of every stored message, the oldest first."""
        bodies = sorted(glob.glob(PANEL + "/data/tickets/**/*.msg", recursive=True))
        return [(record(body[:-4] + ".conf")["subject"], text(body)) for body in bodies]

    def drive(self, *words, status=0, fail="", timeout=120):
        """One operation of usage accounting; what it printed."""
        outcome = subprocess.run([BUILD + "/tally_driver", *words], capture_output=True, encoding="latin-1", check=False,
                                 timeout=timeout, env={**os.environ, "ZVTASKQ_FAIL": fail})
        self.status = outcome.returncode
        if status is not None:
            self.assertEqual(self.status, status, outcome.stdout + outcome.stderr + self.log())
        return outcome.stdout

    def watch(self, **values):
        write(ADMIN + "/services.status", "".join("%s=%s\n" % pair for pair in sorted(values.items())), "zvadmin", 0o600)

    def service_calls(self):
        return text(self.calls).split("\n")[:-1]

    def queue(self, *lines, path=QUEUE):
        append(path, "".join(line + "\n" for line in lines))

    def run_program(self, *arguments, env=None, before="", status=0):
        """Runs the installed program and returns what it printed."""
        outcome = subprocess.run(["bash", "-c", before + 'exec "$0" "$@"', PROGRAM, *arguments], capture_output=True,
                                 encoding="latin-1", stdin=subprocess.DEVNULL, env={**os.environ, **(env or {})}, check=False)
        if status is not None:
            self.assertEqual(outcome.returncode, status, outcome.stdout + outcome.stderr)
        return outcome.stdout

    def start(self):
        """A run beside the test."""
        return subprocess.Popen([PROGRAM], stdout=subprocess.DEVNULL)

    def log(self, name="errortaskq"):
        return text("%s/%s.log" % (LOGS, name))

    def assertLogged(self, wanted, name="errortaskq", times=None):
        lines = [line.split(": ", 1)[-1] for line in self.log(name).split("\n")]
        found = sum(wanted in line for line in lines)
        self.assertTrue(found if times is None else found == times, "%r in %s.log:\n%s" % (wanted, name, self.log(name)))


def main():
    unittest.main(verbosity=1)
