"""A full tally of many accounts, beside loops in Python and in the shell over the same files."""
import os
import subprocess

import bench
import server

ACCOUNTS = 10_000
PANEL = os.path.join(os.path.dirname(bench.__file__), "panel.sh")
PROGRAM = "/usr/local/zorvane/zvtaskq"
QUEUE = "/usr/local/zorvane/data/task.queue"
KEPT = "/tmp/kept"
LIVE = ("/usr/local/zorvane/data", "/var/log/httpd")

# What a tally takes away or adds to comes back as it was; the records stay as the last tally left them.
REFILL = f"""
name=$1
# The list of all accounts is written by a process that the tally leaves behind.
while pgrep -x zvtaskq >/dev/null; do sleep 0.1; done
now=$(cat {KEPT}/now)
if [[ $now != "$name" ]]; then
    for live in {" ".join(LIVE)}; do
        mv "$live" "{KEPT}/$now/${{live##*/}}"
        mv "{KEPT}/$name/${{live##*/}}" "$live"
    done
    echo "$name" >{KEPT}/now
fi
find {server.USERS} -maxdepth 2 -name 'bandwidth.tally*' -delete
tar -C / -xf {KEPT}/$name.tar
echo 'action=tally&value=all' >{QUEUE}
sync
"""

# What the records are for: read, summed, written anew, without locks, without asking whose they are.
PYTHON = f"""
import os, sys, time
USERS, LOGS, ADMIN = "{server.USERS}", "{server.WEB_LOGS}", "{server.ADMIN}"
def record(path):
    pairs = {{}}
    try:
        with open(path) as file:
            for line in file:
                name, _, value = line.rstrip("\\n").partition("=")
                pairs[name] = value
    except FileNotFoundError:
        pass
    return pairs
def lines(path):
    try:
        with open(path) as file:
            return file.read().split()
    except FileNotFoundError:
        return []
def put(path, pairs):
    with open(path + ".new", "w") as file:
        file.writelines(name + "=" + str(value) + "\\n" for name, value in sorted(pairs.items()))
    os.rename(path + ".new", path)
def sum_bytes(path):
    total = 0
    try:
        with open(path) as file:
            for line in file:
                if line[0] in "-\\n":
                    continue
                for number in line.split():
                    total += max(float(number), 0)
        os.unlink(path)
    except FileNotFoundError:
        pass
    return total
def user(name):
    folder = USERS + "/" + name
    conf, usage = record(folder + "/user.conf"), record(folder + "/user.usage")
    total = pointers = subdomains = 0
    domains = lines(folder + "/domains.list")
    for domain in domains:
        stem = folder + "/domains/" + domain
        names = lines(stem + ".subdomains")
        subdomains += len(names)
        pointers += len(lines(stem + ".pointers"))
        bytes_of = sum(sum_bytes(LOGS + "/" + host + ".bytes") for host in [domain] + [sub + "." + domain for sub in names])
        limits, used = record(stem + ".conf"), record(stem + ".usage")
        used["bandwidth"] = float(used.get("bandwidth", 0)) + bytes_of / 1048576
        put(stem + ".usage", used)
        total += bytes_of
    for line in lines(folder + "/ZorvaneUsage.bytes"):
        total += float(line.split("=")[0])
    with open(folder + "/bandwidth.tally", "a") as tally:
        tally.write("%f=type=tally&time=%d\\n" % (total, time.time()))
    month = sum(float(line.split("=")[0]) for line in open(folder + "/bandwidth.tally"))
    put(folder + "/bandwidth.tally.cache", {{"total": month}})
    usage.update(bandwidth=month / 1048576, quota=0, vdomains=len(domains), nsubdomains=subdomains, domainptr=pointers)
    put(folder + "/user.usage", usage)
    if conf.get("bandwidth", "unlimited") != "unlimited" and usage["bandwidth"] > float(conf["bandwidth"]):
        print(name)
    return usage
def reseller(name):
    folder = USERS + "/" + name
    usage = record(folder + "/reseller.usage")
    sums = dict.fromkeys(("bandwidth", "quota", "vdomains", "nsubdomains", "domainptr"), 0)
    for one in lines(folder + "/users.list"):
        used = user(one)
        for key in sums:
            sums[key] += used[key]
    usage.update(sums)
    put(folder + "/reseller.usage", usage)
    return sums
total = {{}}
for name in lines(ADMIN + "/reseller.list") + lines(ADMIN + "/admin.list"):
    for key, value in reseller(name).items():
        total[key] = total.get(key, 0) + value
put(ADMIN + "/admin.usage", total)
"""

SHELL = f"""
for reseller in $(cat {server.ADMIN}/reseller.list); do
    for user in $(cat {server.USERS}/$reseller/users.list); do
        mapfile -t domains <{server.USERS}/$user/domains.list
        logs=("${{domains[@]/#/{server.WEB_LOGS}/}}" "${{domains[@]/#/{server.WEB_LOGS}/www.}}")
        awk '{{ total += $1 }} END {{ print total }}' "${{logs[@]/%/.bytes}}" {server.USERS}/$user/user.usage
    done
done
"""


def lay(accounts):
    subprocess.run(["bash", PANEL, "layPanel", os.environ["ZVTASKQ_BUILD"]], check=True)
    for key, value in (("rotation", "0"), ("apachelogdir", server.WEB_LOGS)):
        subprocess.run(["bash", PANEL, "setSetting", key, value], check=True)
    found = server.Server(accounts)
    found.lay()
    found.serve()


def refill(name):
    """The server of that name, before its tally."""
    return f"bash /tmp/refill.sh {name}"


def keep(name, accounts):
    """Lays a server and puts it by; its traffic is what a tally takes away."""
    lay(accounts)
    os.makedirs(f"{KEPT}/{name}")
    subprocess.run(f"cd / && find {server.USERS} {server.WEB_LOGS} -name '*.bytes' -print0 |"
                   f" tar --create --null --files-from=- --file={KEPT}/{name}.tar 2>/dev/null", shell=True, check=True)
    for live in LIVE:
        os.rename(live, f"{KEPT}/{name}/{os.path.basename(live)}")


def main():
    for name, text in (("tally.py", PYTHON), ("tally.sh", SHELL), ("refill.sh", REFILL)):
        with open("/tmp/" + name, "w", encoding="ascii") as script:
            script.write(text)
    keep("half", ACCOUNTS // 2)
    keep("all", ACCOUNTS)
    for live in LIVE:
        os.rename(f"{KEPT}/all/{os.path.basename(live)}", live)
    with open(f"{KEPT}/now", "w", encoding="ascii") as now:
        now.write("all")
    work = f"full tally of {ACCOUNTS:,} accounts with two domains"
    bench.compare(f"{work}; Python, without locks", "<= 1.25", PROGRAM, "python3 /tmp/tally.py", before=refill("all"))
    bench.compare(f"{work}; shell, an awk a user, reading only", ">= 3", PROGRAM, "bash /tmp/tally.sh", before=refill("all"), runs=3)
    bench.peak(f"memory of it, MB", "<= 64", PROGRAM, before=refill("all"))
    bench.growth(f"{work}, half of it", "<= 2.2", PROGRAM, PROGRAM, before=(refill("half"), refill("all")))


if __name__ == "__main__":
    main()
