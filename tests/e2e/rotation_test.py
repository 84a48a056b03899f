"""The logs of real web servers, from their rotation to the account's archives and statistics."""
import collections
import glob
import io
import json
import os
import pwd
import re
import shutil
import subprocess
import tarfile
import time

import panel
from panel import PanelTest, append, mode, owner, settings, shell, text, write

MAIN = "/var/log/httpd/domains"
PROXY = "/var/log/nginx/domains"
HOST = "example.org"
DOMAIN = "/home/bob/domains/" + HOST
CANARY = "/var/canary.rotation"
NGINX = """user www-data; worker_processes 2; pid /run/nginx.pid; error_log {logs}/{host}.error.log;
events {{ worker_connections 256; }}
http {{ access_log {logs}/{host}.log combined; server {{ listen 127.0.0.1:8088; location / {{ {answer}; }} }} }}
"""
APACHE = """<VirtualHost 127.0.0.1:8089>
ServerName {host}
DocumentRoot /var/www/html
ErrorLog {logs}/{host}.error.log
CustomLog {logs}/{host}.log combined
</VirtualHost>
"""
STOP = "kill -TERM $(cat {0}); for i in $(seq 100); do [ -e {0} ] || exit 0; sleep 0.1; done; rm {0}"
# Asks with a connection for each request until its input ends; prints what was answered and what was not.
LOAD = """
import http.client, itertools, json, sys, threading, urllib.request
over, answered, failed = threading.Event(), [], []
def ask(worker):
    for number in itertools.takewhile(lambda _: not over.is_set(), itertools.count()):
        name = "%s-%d-%d" % (sys.argv[2], worker, number)
        try:
            with urllib.request.urlopen("http://127.0.0.1:%s/?%s" % (sys.argv[1], name), timeout=20) as answer:
                answer.read()
            answered.append(name)
        except (OSError, http.client.HTTPException):
            failed.append(name)
workers = [threading.Thread(target=ask, args=(n,)) for n in range(4)]
[worker.start() for worker in workers]
sys.stdin.read()
over.set()
[worker.join() for worker in workers]
print(json.dumps([answered, failed]))
"""
VISIT = '192.0.2.%d - - [%s] "GET /%s HTTP/1.1" 200 512 "-" "Mozilla/5.0 (X11; Linux x86_64) Firefox/100.0"\n'


def members(archives=DOMAIN + "/logs/*.tar.gz"):
    """Every archived log by archive and member name; what is there twice must be the same."""
    found = {}
    for path in glob.glob(archives, recursive=True):
        subprocess.run(["tar", "-tzf", path], check=True, capture_output=True)
        with tarfile.open(path) as archive:
            for member in archive:
                content = archive.extractfile(member).read().decode("latin-1")
                name = (os.path.basename(path), member.name)
                assert found.setdefault(name, content) == content, name
    return found


class RotationTest(PanelTest):
    seconds = 0

    def setUp(self):
        super().setUp()
        shell("rm -rf /home/bob/domains /home/bob/.php %s %s %s; mkdir -p %s %s" % (MAIN, PROXY, CANARY, MAIN, PROXY))
        panel.panel_do("addAccount", "bob", "user", "root", HOST)
        settings(apachelogdir=MAIN, nginxlogdir=PROXY, apache_pid="/run/apache2/apache2.pid", nginx_pid="/run/nginx.pid")
        shell("mkdir -m 755 {0}; echo whole > {0}/php-mail.log; cp {0}/php-mail.log {0}/Nov-2026.tar.gz".format(CANARY))

    def assertCanary(self):
        self.assertEqual({name: text(CANARY + "/" + name) for name in os.listdir(CANARY)},
                         {"Nov-2026.tar.gz": "whole\n", "php-mail.log": "whole\n"})

    def put(self, name, content, when=None, folder=MAIN):
        path = "%s/%s" % (folder, name)
        write(path, content)
        # Members are named for the time of the last line, and a clock may stand still for ten milliseconds.
        self.seconds += 1
        when = when or time.time() - 900 + self.seconds
        os.utime(path, (when, when))
        return path

    def names(self, folder=MAIN):
        return sorted(os.listdir(folder))


class Servers(RotationTest):
    def start_nginx(self, logs, answer='return 200 "ok"'):
        write("/etc/nginx/rotation.conf", NGINX.format(logs=logs, host=HOST, answer=answer))
        shell("nginx -c /etc/nginx/rotation.conf")
        self.addCleanup(shell, STOP.format("/run/nginx.pid"))

    def start_apache(self):
        shutil.copytree("/etc/apache2", "/etc/apache2.kept", symlinks=True)
        self.addCleanup(shell, "rm -rf /etc/apache2; mv /etc/apache2.kept /etc/apache2")
        write("/etc/apache2/ports.conf", "Listen 127.0.0.1:8089\n")
        write("/etc/apache2/sites-enabled/000-default.conf", APACHE.format(logs=MAIN, host=HOST))
        shell("mkdir -p /var/www/html; echo ok > /var/www/html/index.html; apachectl start", capture_output=True)
        self.addCleanup(shell, STOP.format("/run/apache2/apache2.pid"))

    def under_load(self, port, folders):
        everything = [set(), set()]
        for rounds in (1, 2):
            load = subprocess.Popen(["python3", "-c", LOAD, str(port), str(rounds)], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
            for _ in range(rounds):
                time.sleep(1)
                self.assertEqual(self.drive("rotate_apache_logs"), "")
                time.sleep(1)
                # What is not in an archive when the next rotation comes would be replaced by it.
                if rounds > 1:
                    self.drive("rotateLogs", "bob", HOST)
            outcome = json.loads(load.communicate(b"")[0])
            self.assertGreater(len(outcome[0]), 100)
            for names, more in zip(everything, outcome):
                names.update(more)
            for folder in folders:
                self.assertLogsHold(folder, *everything, len(folders) > 1)
            self.drive("rotateLogs", "bob", HOST)
        self.assertGreater(sum("GET /" in content for content in members().values()), 1)
        self.assertEqual([line for line in self.log().splitlines() if "missing. Re-added" not in line], [])

    def assertLogsHold(self, folder, answered, failed, proxied):
        """In its logs and their archives each answered request stands once."""
        for _ in range(100):
            time.sleep(0.2)
            lines = "".join(text(path) for path in glob.glob("%s/%s.log*" % (folder, HOST)))
            lines += "".join(content for (archive, _), content in members().items()
                             if archive.startswith("nginx-") == (folder == PROXY and proxied))
            logged = collections.Counter(re.findall(r"GET /\?(\S+)", lines))
            missing = answered - set(logged)
            if not missing:
                break
        self.assertFalse(missing and "%d of %d lines are lost in %s" % (len(missing), len(answered), folder))
        self.assertLessEqual(set(logged) - answered, failed)
        self.assertEqual(max(logged.values()), 1)

    def test_nginx(self):
        settings(nginx=1)
        self.start_nginx(PROXY)
        self.under_load(8088, [PROXY])

    def test_apache(self):
        self.start_apache()
        self.under_load(8089, [MAIN])

    def test_nginx_before_apache(self):
        settings(nginx_proxy=1)
        self.start_apache()
        self.start_nginx(PROXY, "proxy_pass http://127.0.0.1:8089")
        self.under_load(8088, [PROXY, MAIN])

    def test_who_is_not_signalled(self):
        stranger = subprocess.Popen(["sleep", "600"])
        self.addCleanup(stranger.wait)
        self.addCleanup(stranger.kill)
        settings(nginx=1, nginx_pid="/run/test.pid")
        for content, mode, wanted in ((str(stranger.pid), 0o644, "process %d of /run/test.pid is not running it" % stranger.pid),
                                      ("x", 0o644, "/run/test.pid holds no process id"), ("-1", 0o644, "holds no process id"),
                                      ("1", 0o644, "holds no process id"), ("999999999", 0o644, "is not running it"),
                                      (str(stranger.pid), 0o666, "/run/test.pid can be written by others than root")):
            write("/run/test.pid", content + "\n", "root", mode)
            self.assertIn("Unable to reload Nginx: ", self.drive("rotate_apache_logs"))
            self.assertLogged(wanted)
        self.assertIsNone(stranger.poll())
        os.unlink("/run/test.pid")
        shell("rm -f /var/log/apache2/error.log")
        settings(nginx=0)
        # Apache reads its settings anew when it gets to it, and must not meet a broken file then.
        for times, step in enumerate((self.start_apache, lambda: self.drive("rotate_apache_logs")), 1):
            step()
            shell("for i in $(seq 200); do [ $(grep -c 'resuming normal operations' /var/log/apache2/error.log) -lt %d ] || "
                  "exit 0; sleep 0.1; done; exit 1" % times)
        append("/etc/apache2/sites-enabled/000-default.conf", "NoSuchWord\n")
        self.assertIn("Unable to reload Apache: its configuration fails the test: ", self.drive("rotate_apache_logs"))
        time.sleep(1)
        os.kill(int(text("/run/apache2/apache2.pid")), 0)
        settings(litespeed=1)
        self.drive("rotate_apache_logs")
        self.assertEqual(text(panel.QUEUE), "action=litespeed&value=reload\n")

    def test_renaming_and_script(self):
        settings(nginx=1)
        self.start_nginx("/var/log")
        for name in ("a.log", "a.error.log", "a.log.1", "a.bytes", "b.log", "log"):
            write(PROXY + "/" + name, name)
        os.makedirs(PROXY + "/b.log.1/in")
        os.makedirs(PROXY + "/folder.log")
        os.symlink("/etc/passwd", PROXY + "/link.log")
        os.link(PROXY + "/a.bytes", PROXY + "/hard.log")
        self.script("custom/tally_rotation_post.sh", "echo rotated $(id -u)\n")
        self.assertEqual(self.drive("rotate_apache_logs"), "rotated 0")
        self.assertEqual(self.names(PROXY), sorted(["a.error.log.1", "a.log.1", "a.bytes", "b.log", "b.log.1", "folder.log",
                                                    "hard.log", "link.log", "log"]))
        self.assertEqual(text(PROXY + "/a.log.1"), "a.log")
        self.assertLogged("Error renaming {0}/b.log to {0}/b.log.1 : Is a directory".format(PROXY), times=1)
        for name in ("link", "hard"):
            for log in ("errortaskq", "security"):
                self.assertLogged("Tally::rotate_apache_logs(%s/%s.log): is hard or symbolic link" % (PROXY, name), log, times=1)
        self.script("custom/tally_rotation_post.sh", "echo no; exit 3\n")
        self.assertEqual(self.drive("rotate_apache_logs"),
                         "<b>Script output %s/scripts/custom/tally_rotation_post.sh</b>: no<br>\n" % panel.PANEL)
        self.assertLogged("Tally::rotate_apache_logs: Rotation Post output: no", times=1)
        write(PROXY + "/c.log", "c")
        write(panel.PANEL + "/conf/demo", "")
        self.assertEqual(self.drive("rotate_apache_logs"), "")
        self.assertIn("c.log", self.names(PROXY))


class Archives(RotationTest):
    def contents(self):
        return sorted(members().values())

    def test_months_and_what_is_kept(self):
        settings(logs_to_keep=2, nginx_proxy=0)
        for stamp, archives in (("2026-09-30 23:59", ["Sep-2026"]), ("2026-10-01 11:59", ["Sep-2026"]),
                                ("2026-10-01 12:01", ["Oct-2026", "Sep-2026"]), ("2026-11-05 00:10", ["Nov-2026", "Oct-2026"])):
            self.put(HOST + ".log.1", stamp, time.mktime(time.strptime(stamp, "%Y-%m-%d %H:%M")))
            self.put(HOST + ".error.log.1", "")
            time.sleep(0.02)
            self.drive("rotateLogs", "bob", HOST)
            for other in ("mine.tar.gz", "Nov-20261.tar.gz"):
                write(DOMAIN + "/logs/" + other, "")
            self.assertEqual(self.names(DOMAIN + "/logs"),
                             sorted([name + ".tar.gz" for name in archives] + ["mine.tar.gz", "Nov-20261.tar.gz"]))
            self.assertEqual(self.names(), [])
        shell("rm {0}/mine.tar.gz {0}/Nov-20261.tar.gz".format(DOMAIN + "/logs"))
        self.assertEqual(self.contents(), ["2026-10-01 12:01", "2026-11-05 00:10"])
        self.assertLogged("Path %s/logs was missing. Re-added it. NOTE: other folders are probably missing." % DOMAIN, times=1)
        for path in glob.glob(DOMAIN + "/logs*"):
            self.assertEqual(owner(path), "bob")

    def test_variants_subdomains_and_awstats(self):
        settings(nginx_proxy=1, awstats=1)
        for prefix in ("", "nginx-", "nginx."):
            self.put(prefix + HOST + ".log", "p" + prefix, folder=PROXY)
            self.put(prefix + HOST + ".error.log", "e" + prefix, folder=PROXY)
        self.put(HOST + ".log", "main")
        self.put("sub." + HOST + ".log", "sub")
        self.put("sub.other.org.log", "other")
        self.drive("rotateLogs", "bob", HOST)
        self.drive("rotateLogs", "bob", HOST, "sub")
        self.assertEqual(self.contents(), sorted(["p", "pnginx-", "pnginx.", "e", "enginx-", "enginx.", "main", "sub"]))
        self.assertEqual(self.names() + self.names(PROXY), ["sub.other.org.log"])
        self.assertEqual({name.split("/")[0] for _, name in members()}, {HOST, "sub." + HOST, "nginx-" + HOST, "nginx." + HOST})
        self.put(HOST + ".log", "again")
        for words in (("bob", "../x"), ("bob", HOST, ".."), ("nosuchuser", HOST)):
            self.drive("rotateLogs", *words, status=1)

    def test_a_log_that_is_still_written_waits(self):
        wanted = []
        with open(self.put(HOST + ".log.1", "one\n"), "a") as busy:
            for day in range(3):
                self.drive("rotateLogs", "bob", HOST)
                self.assertEqual(self.contents(), wanted)
                busy.write("late\n")
                busy.flush()
                self.put(HOST + ".log.1", "day %d\n" % day)
                wanted = ["day %d\n" % n for n in range(day + 1)]
        self.drive("rotateLogs", "bob", HOST)
        self.assertEqual(self.contents(), sorted(["one\nlate\nlate\nlate\n"] + wanted))
        self.assertEqual(self.names(), [])

    def test_places_stay_in_a_row(self):
        def place(number):
            return self.put("%s.log.%d" % (HOST, number), "%d\n" % number, time.time() - 10 * number)
        plans = ("", "domain_log_rotation.rename:kill", "domain_log_rotation.rename:EIO", "domain_log_rotation.unlink:kill:1")
        for plan in plans:
            shell("rm -rf %s/* %s/logs" % (MAIN, DOMAIN))
            busy = [open(place(number), "a") for number in (4, 9, 10)]
            for number in (1, 2, 3, 5, 6, 7, 8, 11):
                place(number)
            self.drive("rotateLogs", "bob", HOST, fail=plan, status=None)
            self.drive("rotateLogs", "bob", HOST)
            self.assertEqual(self.names(), ["%s.log.%d" % (HOST, number) for number in (2, 3, 4)], plan)
            for file in busy:
                file.close()
            self.drive("rotateLogs", "bob", HOST)
            self.assertEqual(self.names(), [])
            self.assertEqual(self.contents(), sorted("%d\n" % number for number in range(1, 12)), plan)

    def test_failures_and_crashes_lose_and_double_nothing(self):
        content = "line\n" * 100000
        failures = ["month_archive.open:EACCES", "month_archive.write:ENOSPC", "month_archive.write:short",
                    "month_archive.read:EIO", "month_archive.fsync:EIO", "month_archive.rename:EDQUOT"]
        kills = ["month_archive.*:kill:%d" % step for step in range(40)] + ["domain_log_rotation.unlink:kill"]
        for fresh in (True, False):
            came_through = 0
            for plan in failures + kills:
                shell("rm -rf %s/* %s/logs" % (MAIN, DOMAIN))
                if not fresh:
                    self.put(HOST + ".log.1", "first")
                    self.drive("rotateLogs", "bob", HOST)
                self.put(HOST + ".log.1", plan + content, time.time() - 1)
                self.drive("rotateLogs", "bob", HOST, fail=plan, status=None)
                came_through += not self.names()
                if "kill" not in plan:
                    self.assertEqual(self.names(), [HOST + ".log.2"] if ("read" if fresh else "rename") not in plan else [], plan)
                self.drive("rotateLogs", "bob", HOST)
                self.assertEqual(self.contents(), sorted([plan + content] + ([] if fresh else ["first"])), plan)
                self.assertEqual(len(self.names(DOMAIN + "/logs")), 1)
                if came_through > 1 and "month_archive.*" in plan:
                    break
            self.assertGreater(came_through, 1)

    def test_what_an_account_plants(self):
        month = time.strftime("%b-%Y.tar.gz", time.localtime(time.time() - 43200))
        logs = DOMAIN + "/logs"
        os.makedirs(logs)
        plants = {"link": "ln -s {c}/Nov-2026.tar.gz {l}/{m}", "fifo": "mkfifo {l}/{m}", "folder": "mkdir {l}/{m}",
                  "no gzip": "echo x > {l}/{m}", "holes": "truncate -s 900G {l}/{m}",
                  "logs is a link": "rm -rf {l}; ln -s {c} {l}", "domains is a link": "mv {d} /home/bob/kept; ln -s {c} {d}",
                  "another's home": "chown root /home/bob"}
        for name, plant in plants.items():
            shell("rm -rf {0}; mkdir -p {0}; chown -R bob:bob /home/bob/domains; rm -f {1}/*".format(logs, MAIN))
            self.put(HOST + ".log.1", "whole")
            shell(plant.format(c=CANARY, l=logs, m=month, d="/home/bob/domains"))
            self.drive("rotateLogs", "bob", HOST, status=1, timeout=20)
            self.assertTrue([n for n in self.names() if text(MAIN + "/" + n) == "whole"], name)
            self.assertCanary()
            shell("chown bob /home/bob; [ ! -d /home/bob/kept ] || { rm /home/bob/domains; mv /home/bob/kept /home/bob/domains; }")
        self.assertLogged("(%s): is hard or symbolic link" % logs, "security")
        shell("rm -rf {0} {1}/*; mkdir -p {0}; chown -R bob:bob /home/bob/domains; ln -s x {0}/{2}.temp".format(logs, MAIN, month))
        self.put(HOST + ".log.1", "good")
        self.drive("rotateLogs", "bob", HOST)
        self.assertEqual(self.contents(), ["good"])


SWAP = """
import itertools, os
there = "{path}"
for turn in itertools.count():
    try:
        os.makedirs(there, exist_ok=True)
        open(there + "/php-mail.log", "a").close()
        os.rename(there, there + str(turn))
        os.symlink("{canary}", there)
        os.unlink(there)
        os.rename(there + str(turn), there)
    except OSError:
        pass
"""


class Attacks(RotationTest):
    def swap(self, path):
        """Lets bob put a link to the canary's folder in place of the one at `path`, and back, as fast as can be."""
        process = subprocess.Popen(["python3", "-c", SWAP.format(path=path, canary=CANARY)], user="bob", group="bob")
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        time.sleep(0.3)
        self.assertIsNone(process.poll())

    def test_who_compresses(self):
        """A program of bob's own he could stop."""
        self.stand_in("/usr/bin/gzip", "id -un >> /var/log/gzip.ids\nexec gzip.kept \"$@\"\n")
        write("/var/log/gzip.ids", "", mode=0o666)
        self.put(HOST + ".log.1", "one")
        self.drive("rotateLogs", "bob", HOST)
        self.assertEqual((text("/var/log/gzip.ids"), owner(glob.glob(DOMAIN + "/logs/*.gz")[0])), ("zvadmin\n", "bob"))

    def test_a_home_log_behind_a_swapped_folder(self):
        folder = "/home/bob/.php"
        shell("mkdir {0}; chown bob:bob {0}".format(folder))
        self.swap(folder)
        outcomes = set()
        for turn in range(150):
            self.drive("rotate_log_up", folder + "/php-mail.log", *["copy"][turn % 2:], status=None, timeout=60)
            outcomes.add(self.status)
        self.assertEqual(outcomes, {0, 1})
        self.assertLogged("Tally::rotate_log_up(%s/php-mail.log): is hard or symbolic link" % folder, "security")

    def tearDown(self):
        self.assertCanary()

    def test_archives_behind_a_swapped_folder(self):
        shell("mkdir -p {0}/logs; chown -R bob:bob /home/bob/domains".format(DOMAIN))
        self.swap(DOMAIN + "/logs")
        for turn in range(60):
            self.put(HOST + ".log.1", "turn %d\n" % turn)
            self.drive("rotateLogs", "bob", HOST, status=None, timeout=60)
        self.doCleanups()
        shell("[ ! -L {0}/logs ] || rm {0}/logs".format(DOMAIN))
        self.drive("rotateLogs", "bob", HOST)
        found = members("/home/bob/domains/**/*.tar.gz")
        self.assertEqual(sorted(set(found.values())), sorted("turn %d\n" % turn for turn in range(60)))


class Statistics(RotationTest):
    def setUp(self):
        super().setUp()
        when = time.strftime("%d/%b/%Y:00:00:00 +0000")
        self.visits = "".join(VISIT % (n, when, page) for n in range(1, 4) for page in ("", "a.html"))
        write(MAIN + "/%s.log.1" % HOST, self.visits, "root", 0o600)
        write(MAIN + "/sub.%s.log.1" % HOST, self.visits, "root", 0o600)
        write(MAIN + "/%s.log" % HOST, self.visits, "root", 0o600)

    def test_webalizer(self):
        shell("sed -e 's/^ReportTitle.*/ReportTitle Seen by/' -e '/^OutputDir/d' /etc/webalizer/webalizer.conf "
              "> /etc/webalizer.conf")
        self.addCleanup(os.unlink, "/etc/webalizer.conf")
        self.drive("doWebalizer", "bob", HOST)
        self.drive("doWebalizer", "bob", HOST, "sub")
        for folder, host in ((DOMAIN + "/stats", HOST), (DOMAIN + "/stats/sub", "sub." + HOST)):
            pages = text(folder + "/index.html")
            self.assertIn("Seen by " + host, pages.replace("\n", " "))
            self.assertRegex(text(folder + time.strftime("/usage_%Y%m.html")), r"Total Hits</FONT></TD>\s*<TD.*<B>6</B>")
            self.assertEqual((owner(folder + "/index.html"), mode(folder + "/index.html")), ("bob", 0o644))
        settings(custom_stats_path="/var/stats")
        shell("rm -rf /var/stats; mkdir /var/stats")
        self.drive("doWebalizer", "bob", HOST)
        self.assertTrue(os.path.exists("/var/stats/%s/stats/index.html" % HOST))

    def test_awstats(self):
        settings(awstats=1)
        for turn, hits in ((1, 6), (2, 6), (3, 8)):
            self.drive("doAwstats", "bob", HOST)
            pages = text(DOMAIN + "/awstats/index.html")
            self.assertRegex(pages, r"Viewed traffic.*?<b>3</b>.*?<b>3</b>.*?<b>%d</b>.*?<b>%d</b>" % (hits, hits))
            if turn == 2:
                when = time.strftime("%d/%b/%Y:00:00:01 +0000")
                write(MAIN + "/%s.log" % HOST, self.visits + "".join(VISIT % (1, when, page) for page in ("b", "c")))
        self.assertEqual((mode(DOMAIN + "/awstats/index.html"), mode(DOMAIN + "/awstats/.data")), (0o644, 0o700))
        script = panel.PANEL + "/scripts/custom/awstats_process.sh"
        self.script("custom/awstats_process.sh", "ids=$(grep -hE '^(Uid|Gid|Groups):' /proc/self/status)\n"
                    "echo \"$@\" $(pwd) $ids >seen; wc -l >>seen\n")
        self.drive("doAwstats", "bob", HOST)
        bob = pwd.getpwnam("bob")
        self.assertEqual(text(DOMAIN + "/awstats/seen").split(), ["bob", HOST] + [DOMAIN + "/awstats"] * 2 +
                         ["Uid:"] + [str(bob.pw_uid)] * 4 + ["Gid:"] + [str(bob.pw_gid)] * 4 + ["Groups:", "8"])
        self.script("custom/awstats_process.sh", "echo broken; exit 4\n")
        self.drive("doAwstats", "bob", HOST, status=1)
        self.assertLogged("error executing %s for %s : broken" % (script, HOST), times=1)

    def test_a_program_that_its_user_stops(self):
        settings(awstats=1, account_time_limit=1)
        write(MAIN + "/two.%s.log" % HOST, self.visits, "root", 0o600)
        self.script("custom/awstats_process.sh", "echo $2 >>/home/bob/ran\nkill -STOP $$\n")
        self.drive("doAwstats", "bob", HOST, "two", "two", "two", status=1)
        self.assertEqual(text("/home/bob/ran"), "two.%s\n" % HOST)
        self.assertLogged("The programs of bob have used up their 1 seconds (account_time_limit).", times=1)
        self.assertNotIn("error executing", self.log())

    def test_suspicious_folders(self):
        folder = DOMAIN + "/stats"
        for plant in ("ln -s %s {0}" % CANARY, "mkdir -m 777 {0}; chown bob {0}", "mkdir {0}",
                      "install -d -o bob {0}/in; mkfifo {0}/in/p; chown bob {0}", "install -d -o bob {0}; ln -s x {0}/l"):
            shell("rm -rf %s %s/errortaskq.log %s/security.log" % (folder, panel.LOGS, panel.LOGS))
            shell(plant.format(folder))
            self.drive("doWebalizer", "bob", HOST, status=1)
            if "ln" not in plant:
                for log in ("errortaskq", "security"):
                    self.assertLogged("Suspicious stats folder found: %s of bob: " % folder, log, times=1)
                self.assertFalse(os.path.exists(folder + "/index.html"))
            self.assertCanary()


if __name__ == "__main__":
    panel.main()
