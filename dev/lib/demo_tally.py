#!/usr/bin/env python3
"""The demo's main job: tallies of thirty accounts with real homes and real requests. Run by demo-inside.sh.

    demo_tally.py prepare     three resellers, thirty users, an nginx that serves them, and requests to all of them
    demo_tally.py release     room again for one of the accounts over their quota
    demo_tally.py show RUN    the table of what the tallies wrote, each claim checked; exit status 1 when one is wrong
"""
import http.client
import json
import os
import pwd
import random
import subprocess
import sys
import time

import server

FACTS = "/tmp/demo_tally.json"
LOGS = "/var/log/nginx/domains"
SITES = "/etc/nginx/conf.d/accounts.conf"
# Of all the accounts.
ADDRESS = "192.0.2.10"
WRITTEN = "/etc/nginx/zorvane-vhosts.conf"
MEGABYTE = 1048576
USERS = 30
OVER, RELEASED, NEAR = "u00002", "u00003", "u00011"
SITE = """server {{ listen 80; server_name {host}; root /home/{user}/domains/{domain}/public_html;
    access_log {logs}/{host}.bytes bytes; access_log {logs}/{host}.log; error_log {logs}/{host}.error.log; }}
"""


def record(path):
    with open(path, encoding="latin-1") as file:
        return dict(line.rstrip("\n").split("=", 1) for line in file if "=" in line)


def change(accounts, path, **pairs):
    accounts.record(path, {**record(path), **pairs})


def request(host, path):
    """One real request; the bytes that came and that went, as this end of the line sees them."""
    connection = http.client.HTTPConnection("127.0.0.1", 80)
    sent = f"GET {path} HTTP/1.1\r\nHost: {host}\r\nConnection: close\r\n\r\n".encode()
    connection.connect()
    connection.sock.sendall(sent)
    came = 0
    while block := connection.sock.recv(65536):
        came += len(block)
    return came + len(sent)


def status_of(host):
    connection = http.client.HTTPConnection(ADDRESS, 80)
    connection.request("GET", "/", headers={"Host": host})
    return connection.getresponse().status


def new_server():
    accounts = server.Server(USERS, domains=1)
    accounts.resellers = ["rita", "rolf", "ruth"]
    share = USERS // len(accounts.resellers)
    accounts.of = lambda reseller: accounts.users[accounts.resellers.index(reseller) * share:][:share]
    return accounts


def prepare():
    subprocess.run(["ip", "address", "replace", ADDRESS + "/32", "dev", "lo"], check=True)
    accounts = new_server()
    accounts.lay()
    accounts.make_homes()
    os.makedirs(LOGS, exist_ok=True)
    with open(WRITTEN, "a", encoding="ascii"), open(SITES, "w", encoding="ascii") as sites:
        # Of two servers of one name the first answers: what the panel has written.
        sites.write(f'include {WRITTEN};\nlog_format bytes "$bytes_sent $request_length";\n')
        for user in accounts.users:
            for host in accounts.hosts[user]:
                sites.write(SITE.format(host=host, user=user, domain=accounts.domains[user][0], logs=LOGS))
    chance = random.Random(1)
    for user in accounts.users:
        page = f"/home/{user}/domains/{accounts.domains[user][0]}/public_html/index.html"
        with open(page, "w", encoding="ascii") as file:
            file.write("x" * chance.randrange(1000, 200_000))
        os.chmod("/home/" + user, 0o711)
    subprocess.run(["nginx", "-s", "reload"], check=True)
    time.sleep(1)
    facts = {user: sum(request(host, "/") for host in accounts.hosts[user] for _ in range(chance.randrange(1, 20))) for user in accounts.users}
    for user in (OVER, RELEASED):
        fill(user, 5 * MEGABYTE)
        change(accounts, f"{server.USERS}/{user}/user.conf", quota="4")
    change(accounts, f"{server.USERS}/{NEAR}/user.conf", bandwidth=f"{facts[NEAR] / MEGABYTE / 0.9:.6f}")
    with open(FACTS, "w", encoding="ascii") as file:
        json.dump(facts, file)


def fill(user, size):
    path = f"/home/{user}/big"
    with open(path, "wb") as file:
        file.write(b"x" * size)
    entry = pwd.getpwnam(user)
    os.chown(path, entry.pw_uid, entry.pw_gid)


def release():
    os.unlink(f"/home/{RELEASED}/big")


# --- The table -----------------------------------------------------------------------------------------------------


def bar(percent, width=20):
    full = min(width, round(width * percent / 100))
    return "#" * full + "." * (width - full)


def state_of(user):
    found = record(f"{server.USERS}/{user}/user.conf")
    if found["suspended"] == "yes":
        return "suspended: " + found["suspended_reason"]
    return "warned" if found.get("sentwarning") == "yes" else "ok"


def rows(accounts):
    for reseller in accounts.resellers:
        for user in accounts.of(reseller):
            limits, used = (record(f"{server.USERS}/{user}/user.{kind}") for kind in ("conf", "usage"))
            traffic, disk = float(used["bandwidth"]), float(used["quota"])
            percent = max(100 * traffic / float(limits["bandwidth"]), 100 * disk / float(limits["quota"]))
            yield user, reseller, traffic, disk, limits["quota"], percent, state_of(user)


def claims(accounts, facts):
    """What is said, and whether it is so."""
    used = {user: float(record(f"{server.USERS}/{user}/user.usage")["bandwidth"]) for user in accounts.users}
    wrong = [user for user in used if abs(used[user] - facts[user] / MEGABYTE) > 0.00001]
    total = float(record(server.ADMIN + "/admin.usage")["bandwidth"])
    yield f"traffic of all, as the requests' own end counted it: {sum(facts.values()) / MEGABYTE:.6f} MB", abs(total - sum(facts.values()) / MEGABYTE) < 0.001
    yield f"and of each account, to the byte: {len(used) - len(wrong)} of {len(used)}", not wrong
    shadow = dict(line.split(":")[:2] for line in open("/etc/shadow", encoding="ascii"))
    # The line was queued by the first tally, and the second run has carried it out.
    yield f"{OVER} is over its quota: suspended, no log-in, its site answers with a page that says so", (
        state_of(OVER).startswith("suspended") and shadow[OVER].startswith("!") and status_of(accounts.hosts[OVER][0]) == 503)
    yield f"{RELEASED} was over it too, made room, and was released: the log-in is back", (
        not state_of(RELEASED).startswith("suspended") and shadow[RELEASED].startswith("$6$"))
    tickets = open(f"{server.USERS}/{NEAR}/tickets.list", encoding="ascii").read()
    yield f"{NEAR} is at 90% of its bandwidth: warned once", state_of(NEAR) == "warned" and tickets.count("\n") == 1


def show(took):
    accounts = new_server()
    with open(FACTS, encoding="ascii") as file:
        facts = json.load(file)
    print(f"\nThe tally of {USERS} accounts, {took}: what it wrote\n")
    print(f"  {'account':8} {'reseller':8} {'bandwidth':>10} {'disk':>8} {'limit':>6}  {'used':>5}                       state")
    for user, reseller, traffic, disk, limit, percent, state in rows(accounts):
        print(f"  {user:8} {reseller:8} {traffic:7.2f} MB {disk:5.1f} MB {limit:>6}  {percent:4.0f}% {bar(percent)}  {state}")
    print()
    wrong = 0
    for words, is_so in claims(accounts, facts):
        wrong += not is_so
        print(f"  {words:100}  {'ok' if is_so else 'NOT SO'}")
    return 1 if wrong else 0


def main():
    action = sys.argv[1]
    if action == "show":
        sys.exit(show(sys.argv[2]))
    {"prepare": prepare, "release": release}[action]()


if __name__ == "__main__":
    main()
