"""Configuration of the name server and the web server rewritten for many accounts, beside cat and a loop in Python."""
import os
import subprocess

import bench
import server

ACCOUNTS = 10_000
PANEL = os.path.join(os.path.dirname(bench.__file__), "panel.sh")
PROGRAM = "/usr/local/zorvane/zvtaskq"
QUEUE = "/usr/local/zorvane/data/task.queue"
ZONES = "/var/named"
ZONE_LIST = "/etc/bind/zorvane-zones.conf"
NGINX_LIST = "/etc/nginx/zorvane-vhosts.conf"
NGINX = """user www-data; pid /run/nginx.pid; events {}
http { server_names_hash_max_size 65536; include /etc/nginx/zorvane-ips.conf; include /etc/nginx/zorvane-vhosts.conf; }
"""

# What every loop has: an account's records are read, the names go into a text that has only them open, which is written.
PYTHON = f"""
import sys
USERS, FIRST = "{server.USERS}", "u00000"
def read(path):
    with open(path) as file:
        return file.read()
def record(path):
    return dict(line.split("=", 1) for line in read(path).splitlines())
def users():
    for line in read("{server.ADMIN}/reseller.list").split():
        yield from read(f"{{USERS}}/{{line}}/users.list").split()
def filled(text, user, domain, account):
    for token, value in (("DOMAIN", domain), ("USER", user), ("IP", account["ip"])):
        text = text.replace(f"|{{token}}|", value)
    return text
"""
PYTHON_ZONES = PYTHON + f"""
template = read("/tmp/zone").replace(FIRST + "-0.example", "|DOMAIN|").replace("192.0.2.10", "|IP|")
with open("/tmp/list", "w") as names:
    for user in users():
        account = record(f"{{USERS}}/{{user}}/user.conf")
        for domain in read(f"{{USERS}}/{{user}}/domains.list").split():
            stem = f"{{USERS}}/{{user}}/domains/{{domain}}"
            record(stem + ".conf"), read(stem + ".subdomains"), read(stem + ".pointers")
            with open(f"/tmp/python/{{domain}}.db", "w") as out:
                out.write(filled(template, user, domain, account))
            names.write(f'zone "{{domain}}" {{{{ type master; file "/tmp/python/{{domain}}.db"; }}}};\\n')
"""
PYTHON_SITES = PYTHON + f"""
template = read("/tmp/site").replace(FIRST, "|USER|").replace("192.0.2.10", "|IP|")
with open("/tmp/list", "w") as names:
    for user in users():
        account = record(f"{{USERS}}/{{user}}/user.conf")
        for domain in read(f"{{USERS}}/{{user}}/domains.list").split():
            stem = f"{{USERS}}/{{user}}/domains/{{domain}}"
            record(stem + ".conf"), read(stem + ".subdomains"), read(stem + ".pointers")
        with open(f"/tmp/python/{{user}}.conf", "w") as out:
            out.write(filled(template, user, "", account))
        names.write(f"include /tmp/python/{{user}}.conf;\\n")
"""


def run(command):
    subprocess.run(["bash", "-c", command], check=True)


def lay():
    run(f"bash {PANEL} layPanel {os.environ['ZVTASKQ_BUILD']}")
    for key, value in (("nginx", "1"), ("ns1", "ns1.host.example"), ("ns2", "ns2.host.example"), ("nginxlogdir", server.WEB_LOGS)):
        run(f"bash {PANEL} setSetting {key} {value}")
    found = server.Server(ACCOUNTS)
    found.lay()
    found.make_homes(files=0)
    run(f"install -d -m 2775 -o zvadmin -g bind {ZONES}; install -d /tmp/python; chmod o+x /home/*")
    with open("/etc/nginx/nginx.conf", "w", encoding="ascii") as main:
        main.write(NGINX)
    for name, script in (("zones", PYTHON_ZONES), ("sites", PYTHON_SITES)):
        with open(f"/tmp/{name}.py", "w", encoding="ascii") as file:
            file.write(script)


def compare(what, value, files, all_of_them, script):
    """`files`: a find expression for what is written; `all_of_them`: what takes it all away."""
    asked = f"echo 'action=rewrite&value={value}' >{QUEUE}"
    work = f"{what} of {ACCOUNTS:,} accounts with two domains"
    data = f"find {server.USERS} -name 'user.conf' -o -name '*.example.*' -o -name '*.list'"
    bench.compare(f"{work}, nothing changed; cat of them and their data", "<= 1.5", PROGRAM,
                  f"( {files}; {data} ) | xargs cat | wc -c", before=asked, runs=5)
    bench.compare(f"{work}, all changed; Python, without locks and checks", "<= 2", PROGRAM, f"python3 /tmp/{script}.py",
                  before=f"{all_of_them}; {asked}", runs=3)


def main():
    lay()
    for value in ("named", "ips", "nginx"):
        run(f"echo 'action=rewrite&value={value}' >{QUEUE}; {PROGRAM} >/dev/null")
    run(f"cp {ZONES}/u00000-0.example.db /tmp/zone; cp {server.USERS}/u00000/nginx.conf /tmp/site")
    compare("zones", "named", f"find {ZONES} -name '*.db'", f"rm -rf {ZONES}/*.db {ZONE_LIST}", "zones")
    compare("sites of nginx", "nginx", f"find {server.USERS} -name nginx.conf",
            f"find {server.USERS} -name nginx.conf -delete; rm -f {NGINX_LIST}", "sites")


if __name__ == "__main__":
    main()
