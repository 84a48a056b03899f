"""The brute-force monitor: a whole pass over a log, counts and entries written, beside what else reads such a log."""
import os
import subprocess
import time

import bench

WORK = os.environ["ZVTASKQ_BUILD"] + "/bench/brute_scan_work"
FILES = "/tmp/brute"
LINES = 1_000_000
PARSER = "/usr/libexec/sshguard/sshg-parser"
# What one would type: the address is the fourth word from the end.
COUNT = "/sshd.*Failed password/ { failures[$(NF - 3)]++ } END { for (address in failures) print address, failures[address] }"
# The same pass over 100,000 records: read, drop the old, look for those at the limit, and write, as one does who cannot
# tell that nothing has changed.
PYTHON = """
import os, sys, time, urllib.parse
path = sys.argv[1]
kept = []
for line in open(path):
    name, record = line.rstrip("\\n").split("=", 1)
    record = dict(urllib.parse.parse_qsl(record))
    count = sum(int(value) for key, value in record.items() if key not in ("first_entry", "last_entry", "last_notify"))
    if int(record["last_entry"]) < time.time() - 86400:
        continue
    if count >= 2000000000:
        print(urllib.parse.unquote_plus(name))
    kept.append(name + "=" + urllib.parse.urlencode(record) + "\\n")
with open(path + ".new", "w") as out:
    out.writelines(sorted(kept))
os.unlink(path + ".new")
"""


def fresh():
    subprocess.run(["bash", "-c", f"rm -rf {FILES} && install -d -m 777 {FILES}"], check=True)


def make(kind, percent, addresses=3000, users=1000, lines=LINES):
    path = f"/tmp/{kind}.{percent}.{addresses}.{users}.{lines}"
    if not os.path.exists(path):
        subprocess.run([WORK, "make", path, kind, *map(str, (lines, percent, addresses, users))], check=True)
    return path


def scan(log, kind="secure"):
    return [WORK, "scan", FILES, log, kind]


def beside_others(work, goal, log, other, kind="secure", **more):
    bench.compare(work, goal, scan(log, kind), other, before=(fresh, lambda: None), **more)


def parse(log):
    return ["bash", "-c", f"{PARSER} <{log}"]


def whole_passes():
    for percent, goal in ((2, ">= 3"), (20, ">= 1.2")):
        beside_others(f"log of 1,000,000 lines, {percent} % failed, 1,000 names: whole pass; mawk counting addresses", goal,
                      make("secure", percent), ["mawk", COUNT, make("secure", percent)], runs=9)
    for percent, goal in ((20, ">= 9"), (90, ">= 3")):
        log = make("secure", percent)
        beside_others(f"the same, {percent} %; sshguard's parser", goal, log, parse(log))
    tenth = make("secure", 20, lines=LINES // 10)
    beside_others("the same, 20 %; fail2ban-regex on a tenth of it, times 10", ">= 100", make("secure", 20),
                  ["fail2ban-regex", tenth, "sshd"], runs=3, share=10)
    mail = make("mail", 20)
    beside_others("mail log of 1,000,000 lines, 20 % failed; sshguard's parser", ">= 14", mail, parse(mail), "mail")


def minute_pass():
    """The log holds nothing new, and no address is at its limit."""
    fresh()
    subprocess.run(scan(make("secure", 0, lines=1000)), check=True, stdout=subprocess.DEVNULL)
    now = int(time.time())
    with open(FILES + "/brute_ip.data", "w", encoding="ascii") as data:
        names = sorted(f"10.{i >> 16}.{i >> 8 & 255}.{i & 255}" for i in range(100_000))
        data.writelines(f"{name}=first_entry={now - 60}&last_entry={now}&sshd4={i % 90}&sshd5={i % 9}\n"
                        for i, name in enumerate(names))
    os.chmod(FILES + "/brute_ip.data", 0o644)
    before = os.stat(FILES + "/brute_ip.data")
    bench.compare("minute pass over 100,000 known addresses, nothing new; Python with urllib", ">= 40",
                  scan(make("secure", 0, lines=1000)), ["python3", "-c", PYTHON, FILES + "/brute_ip.data"])
    after = os.stat(FILES + "/brute_ip.data")
    assert (before.st_ino, before.st_mtime_ns) == (after.st_ino, after.st_mtime_ns), "written, though nothing changed"


def made_up_names():
    """The names are no accounts of the server, which has many."""
    with open("/etc/passwd", "a", encoding="ascii") as passwd, open("/etc/shadow", "a", encoding="ascii") as shadow:
        for i in range(5000):
            passwd.write(f"account{i}:x:{20_000 + i}:100::/home/account{i}:/bin/false\n")
            shadow.write(f"account{i}:!$6$salt$hash:19000:0:99999:7:::\n")
    log = make("secure", 100, users=20_000, lines=20_000)
    bench.compare("20,000 made-up names, 5,000 accounts; the same without a look for suspended ones", "<= 1.5", scan(log),
                  [*scan(log), "all"], before=fresh)


def main():
    whole_passes()
    minute_pass()
    bench.peak("scan of 1,000,000 lines, 90 % failed, 100,000 addresses: memory", "<= 64", scan(make("secure", 90, 100_000)),
               before=fresh)
    for percent in (2, 90):
        bench.growth(f"scan of 1,000,000 lines, {percent} % failed, half of it", "<= 2.2",
                     scan(make("secure", percent, lines=LINES // 2)), scan(make("secure", percent)), before=fresh)
    made_up_names()


if __name__ == "__main__":
    main()
