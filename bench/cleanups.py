"""A whole run that clears a log-in history of 50,000 entries, half of them old, beside awk picking the same lines."""
import os
import pwd
import subprocess

import bench

ENTRIES = 50000
NOW = int(subprocess.run(["date", "+%s"], stdout=subprocess.PIPE, check=True).stdout)
LIMIT = 86400
PANEL = "/usr/local/zorvane"
HISTORY = PANEL + "/data/admin/login.hist"
panel = pwd.getpwnam("zvadmin")


def refill(entries):
    """Entries as the log-in page writes them, young and old in turn."""
    def fill():
        lines = ("%08x=attempts=1&date=%d&ip=192.0.2.%d&username=user%d\n"
                 % (number * 2654435761 % 2**32, NOW - (2 * LIMIT if number % 2 else 60), number % 250, number % 5000)
                 for number in range(entries))
        with open(HISTORY, "w", encoding="ascii") as file:
            file.writelines(sorted(lines))
        os.chown(HISTORY, panel.pw_uid, panel.pw_gid)
        os.chmod(HISTORY, 0o600)
    return fill


def seconds_for(entries):
    taken = []
    for _ in range(bench.RUNS + 1):
        taken.append(bench.measure(PANEL + "/zvtaskq", refill(entries)))
        left = sum(1 for _ in open(HISTORY, encoding="ascii"))
        assert left == entries // 2, left
    return bench.median_seconds(taken[1:])


root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
subprocess.run(["bash", os.path.join(root, "dev/lib/panel.sh"), "layPanel", os.environ["ZVTASKQ_BUILD"]], check=True)
with open(PANEL + "/conf/zorvane.conf", "a", encoding="ascii") as conf:
    conf.write("brute_force_time_limit=%d\n" % LIMIT)
awk = ("awk -v limit=%d '{ if (match($0, /date=[0-9]+/) && substr($0, RSTART + 5, RLENGTH - 5) >= limit) print }' %s "
       ">%s.temp && sync %s.temp && mv %s.temp %s") % (NOW - LIMIT, *[HISTORY] * 5)
bench.compare("clean-up of 50,000 log-in entries, beside awk", "<= 1", PANEL + "/zvtaskq", awk, refill(ENTRIES))
half, whole = seconds_for(ENTRIES), seconds_for(2 * ENTRIES)
bench.row("clean-up of 100,000 entries, beside 50,000", bench.show_seconds(whole), bench.show_seconds(half),
          "%.2f x half the work" % (whole / half), "<= 2.2", bench.meets("<= 2.2", whole / half))
