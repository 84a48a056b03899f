#!/usr/bin/env python3
"""The demo's servers for thirty accounts: sites, zones, FTP and databases, with the real servers. Run by demo-inside.sh.

    demo_services.py prepare      FTP accounts and database users of all accounts, before one of them is suspended
    demo_services.py serve        the name server, the FTP server and nginx read what the panel has written
    demo_services.py change       one account gets a piece of configuration that is broken, another one that is well
    demo_services.py show RUN RUN the table of what the servers answer, each claim checked; exit status 1 when one is wrong
    demo_services.py end          the servers as they were
"""
import ftplib
import os
import pwd
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from urllib.parse import urlencode

import demo_tally
import server
from demo_tally import ADDRESS, OVER

BROKEN, CHANGED = "u00005", "u00006"
PASSWORD = "right"
PANEL_SH = os.path.join(os.path.dirname(os.path.abspath(__file__)), "panel.sh")
LOGIN = server.PANEL + "/conf/mysql.conf"
BASE = "/var/lib/demo_base"
BASE_OPTIONS = f"--no-defaults --user=mysql --datadir={BASE}/data"
NAMED = "/var/cache/bind/demo.conf"
NAMED_TEXT = """options { directory "/var/cache/bind"; pid-file "/run/demo-named.pid"; listen-on { 127.0.0.1; }; listen-on-v6 { none; };
  recursion no; dnssec-validation no; };
include "/etc/bind/zorvane-zones.conf";
"""
SETTINGS = {"ns1": "ns1.host.example", "ns2": "ns2.host.example", "ftppasswd": "/etc/proftpd.passwd", "mysql": "1", "mysqlconf": LOGIN}


def shell(command, **more):
    return subprocess.run(["bash", "-c", command], check=True, **more)


def put(path, content, user="root", mode=0o600):
    with open(path, "w", encoding="ascii") as file:
        file.write(content)
    entry = pwd.getpwnam(user)
    os.chown(path, entry.pw_uid, entry.pw_gid)
    os.chmod(path, mode)


def eventually(holds, what):
    for _ in range(200):
        if holds():
            return
        time.sleep(0.1)
    raise SystemExit("waited in vain: " + what)


def base(statement, *words):
    """What the database server answers; nothing when it lets nobody in."""
    said = subprocess.run(["mariadb", "--no-defaults", "-NB", "-S", BASE + "/socket", *words, "-e", statement], capture_output=True,
                          encoding="ascii", check=False)
    return said.stdout.strip()


def start_base():
    shell(f"rm -rf {BASE}; install -d -o mysql {BASE}; mariadb-install-db {BASE_OPTIONS} --auth-root-authentication-method=normal "
          f"--skip-test-db >/dev/null 2>&1")
    shell(f"mariadbd {BASE_OPTIONS} --skip-networking --socket={BASE}/socket --pid-file={BASE}/pid >/dev/null 2>&1 &")
    eventually(lambda: base("SELECT 1", "-u", "root") == "1", "the database server")
    base("CREATE USER panel@localhost IDENTIFIED BY 'secret'; GRANT ALL ON *.* TO panel@localhost WITH GRANT OPTION", "-u", "root")
    put(LOGIN, f"user=panel\npasswd=secret\nsocket={BASE}/socket\n", "zvadmin")


def prepare():
    accounts = demo_tally.new_server()
    shell(f"install -d -m 2775 -o zvadmin -g bind /var/named; for pair in {' '.join(f'{k}={v}' for k, v in SETTINGS.items())}; do "
          f"bash {PANEL_SH} setSetting ${{pair%%=*}} ${{pair#*=}}; done")
    start_base()
    requests = [{"command": "create", "account": user, "user": user, "host": "localhost", "password": PASSWORD} for user in accounts.users]
    shell(f"{server.PANEL}/libexec/zvdb {LOGIN} 30 {server.PANEL}/conf/zorvane.conf >/dev/null", encoding="ascii",
          input="".join(urlencode(request) + "\n" for request in requests))
    hashed = subprocess.check_output(["openssl", "passwd", "-6", PASSWORD], encoding="ascii").strip()
    put("/etc/proftpd.passwd", "".join(f"{user}:{hashed}:{uid}:{uid}::/home/{user}:\n"
                                       for user in accounts.users for uid in [pwd.getpwnam(user).pw_uid]))


def serve():
    put(demo_tally.SITES, f"include {demo_tally.WRITTEN};\n", mode=0o644)
    put(NAMED, NAMED_TEXT, "bind")
    shell(f"named -u bind -c {NAMED}; sed s/192.0.2.1/127.0.0.1/ {server.PANEL}/share/ftp/proftpd.conf >/etc/proftpd/conf.d/demo.conf; "
          f"/sbin/service proftpd restart >/dev/null; nginx -s reload")
    eventually(lambda: len(served_zones(demo_tally.new_server())) > 0, "the name server")


def change():
    for user, piece in ((BROKEN, "no_such_word on;\n"), (CHANGED, "location = /new { return 200 'new'; }\n")):
        put(f"{server.USERS}/{user}/domains/{user}-0.example.cust_nginx", piece, "zvadmin")


def end():
    shell(f"kill $(cat /run/demo-named.pid) $(cat {BASE}/pid); rm -f /etc/proftpd/conf.d/demo.conf; /sbin/service proftpd restart >/dev/null; "
          f"rm -rf /var/named /etc/bind/zorvane-zones.conf {demo_tally.WRITTEN}")


# --- The table -----------------------------------------------------------------------------------------------------


def page(host, path="/"):
    said = subprocess.run(["curl", "-s", "-m", "10", "--resolve", f"{host}:80:{ADDRESS}", "-w", "\n%{http_code}", f"http://{host}{path}"],
                          capture_output=True, encoding="ascii", check=False).stdout
    content, _, status = said.rpartition("\n")
    return status, content


def answers(user):
    """Whether the site shows what is in the account's folder."""
    with open(f"/home/{user}/domains/{user}-0.example/public_html/index.html", encoding="ascii") as file:
        return page(f"{user}-0.example") == ("200", file.read())


def served_zones(accounts):
    found = [domain for domains in accounts.domains.values() for domain in domains]
    questions = [word for domain in found for word in (domain, "A")]
    said = subprocess.run(["dig", "@127.0.0.1", "+short", "+time=2", "+tries=1", *questions], capture_output=True, encoding="ascii", check=False)
    return [line for line in said.stdout.splitlines() if line == ADDRESS]


def gets_in(user):
    with ftplib.FTP("127.0.0.1", timeout=30) as ftp:
        try:
            ftp.login(user, PASSWORD)
            return "domains" in ftp.nlst()
        except ftplib.error_perm:
            return False


def messages():
    return subprocess.run(["grep", "-rhF", "-A1", BROKEN + ":", server.PANEL + "/data/tickets"], capture_output=True, encoding="utf-8",
                          check=False).stdout


def claims(accounts):
    """What is said, and whether it is so."""
    others = [user for user in accounts.users if user != OVER]
    with ThreadPoolExecutor(4) as pool:
        shown = [user for user, well in zip(others, pool.map(answers, others)) if well]
        let_in = [user for user, well in zip(accounts.users, pool.map(gets_in, accounts.users)) if well]
    status, content = page(f"{OVER}-0.example")
    yield f"nginx: {len(shown)} sites show the page in their folder", shown == others
    yield f"{OVER} is suspended: its site answers with the page that says so, and {status}", (
        status == "503" and "This site is suspended" in content)
    zones = len(served_zones(accounts))
    yield f"named: {zones} zones resolve to {ADDRESS}", zones == len(accounts.users)
    yield f"proftpd: {len(let_in)} accounts get in with their password; {OVER} does not", let_in == others
    entered = [user for user in accounts.users if base("SELECT 1", "-u", user, "-p" + PASSWORD) == "1"]
    yield f"mariadb: {len(entered)} accounts get in with their password; {OVER} does not", entered == others
    words = messages()
    yield f"{BROKEN} has a broken piece of configuration: left out, the administrators know, its site is as before", (
        "no_such_word" in words and BROKEN in shown)
    yield f"{CHANGED} has a good one since the same run: it is live", page(f"{CHANGED}-0.example", "/new") == ("200", "new")


def show(first, second):
    eventually(lambda: page(f"{CHANGED}-0.example", "/new")[0] == "200", "nginx to read what was written")
    print(f"\nThe servers of the {demo_tally.USERS} accounts, written anew in {first}, and once more in {second}\n")
    wrong = 0
    for words, is_so in claims(demo_tally.new_server()):
        wrong += not is_so
        print(f"  {words:100}  {'ok' if is_so else 'NOT SO'}")
    return 1 if wrong else 0


def main():
    action = sys.argv[1]
    if action == "show":
        sys.exit(show(*sys.argv[2:]))
    {"prepare": prepare, "serve": serve, "change": change, "end": end}[action]()


if __name__ == "__main__":
    main()
