"""Configuration of the name server and the web server rewritten for many accounts, beside cat and loops in Python."""
import os
import subprocess

import bench
import server

ACCOUNTS = 10_000
# A web server opens every log for its check, a dozen an account: more than may be open where the limit cannot be raised.
CHECKED = 1_000
PANEL = os.path.join(os.path.dirname(bench.__file__), "panel.sh")
PROGRAM = "/usr/local/zorvane/zvtaskq"
QUEUE = "/usr/local/zorvane/data/task.queue"
KEPT = "/tmp/kept"
LIVE = ("/usr/local/zorvane/data", "/etc/virtual", "/var/named")
CHECKERS = ("/usr/bin/named-checkconf", "/usr/sbin/nginx")
NGINX = """user www-data; pid /run/nginx.pid; events {}
http { include /etc/nginx/zorvane-ips.conf; include /etc/nginx/zorvane-vhosts.conf; }
"""
LOOPS_NGINX = """user www-data; pid /run/nginx.pid; events {}
http {
    log_format zorvane_bytes '$bytes_sent $request_length'; server_names_hash_max_size 65536; server_names_hash_bucket_size 512;
    include /etc/nginx/zorvane-ips.conf; include /tmp/python/list;
}
"""

# What both loops do: an account's records are read, and what is its own goes into a text where that has a token.
PYTHON = f"""
USERS = "{server.USERS}"
def read(path):
    with open(path) as file:
        return file.read()
def record(path):
    return dict(line.split("=", 1) for line in read(path).splitlines())
def users():
    for reseller in read("{server.ADMIN}/reseller.list").split():
        yield from read(f"{{USERS}}/{{reseller}}/users.list").split()
def domains(user):
    for domain in read(f"{{USERS}}/{{user}}/domains.list").split():
        stem = f"{{USERS}}/{{user}}/domains/{{domain}}"
        record(stem + ".conf"), read(stem + ".subdomains"), read(stem + ".pointers")
        yield domain
def put(path, text, **values):
    for token, value in values.items():
        text = text.replace(f"|{{token}}|", value)
    with open(path, "w") as out:
        out.write(text)
"""
ZONES = PYTHON + """
template = read("/tmp/zone").replace("u00000-0.example", "|DOMAIN|").replace("192.0.2.10", "|IP|")
with open("/tmp/python/list", "w") as names:
    for user in users():
        account = record(f"{USERS}/{user}/user.conf")
        for domain in domains(user):
            put(f"/tmp/python/{domain}.db", template, DOMAIN=domain, IP=account["ip"])
            names.write(f'zone "{domain}" {{ type master; file "/tmp/python/{domain}.db"; }};\\n')
"""
SITES = PYTHON + """
template = read("/tmp/site").replace("u00000", "|USER|").replace("192.0.2.10", "|IP|")
with open("/tmp/python/list", "w") as names:
    for user in users():
        account = record(f"{USERS}/{user}/user.conf")
        list(domains(user))
        put(f"/tmp/python/{user}.conf", template, USER=user, IP=account["ip"])
        names.write(f"include /tmp/python/{user}.conf;\\n")
"""


class Service:
    """`files`: what find takes for the files written; `names`: the file that names them; `script`: the loop."""

    def __init__(self, value, words, files, names, script):
        self.value, self.words, self.files, self.script = value, words, files, f"/tmp/{value}.py"
        with open(self.script, "w", encoding="ascii") as file:
            file.write(script)
        self.asked = f"echo 'action=rewrite&value={value}' >{QUEUE}"
        self.anew = f"find {files} -delete; rm -f {names}; {self.asked}"

    def rewrite(self):
        run(f"{self.asked}; {PROGRAM} >/dev/null")

    def compare(self, accounts):
        work = f"{self.words} of {accounts:,} accounts with two domains"
        data = f"{server.USERS} -name user.conf -o -name '*.example.*' -o -name domains.list"
        run(f"(find {self.files}; find {data}) >/tmp/{self.value}.files")
        bench.compare(f"{work}, nothing changed; cat of them and of the records", "<= 1.5", PROGRAM,
                      f"xargs cat </tmp/{self.value}.files >/dev/null", before=self.asked)
        bench.compare(f"{work}, all changed, no check; Python, without locks", "<= 2", PROGRAM, f"python3 {self.script}", before=self.anew)
        bench.peak(f"memory of {work}, all changed", "<= 64", PROGRAM, before=self.anew)
        half = f"bash /tmp/switch.sh half; {self.anew}"
        bench.growth(f"{work}, half of them", "<= 2.2", PROGRAM, PROGRAM, before=(half, f"bash /tmp/switch.sh all; {self.anew}"))

    def compare_checked(self, accounts, check):
        bench.compare(f"{self.words} of {accounts:,} accounts, all changed; the same loop, then {check}", "<= 2", PROGRAM,
                      f"python3 {self.script}; {check} >/dev/null 2>&1", before=self.anew)


SWITCH = f"""
now=$(cat {KEPT}/now)
if [[ $now != "$1" ]]; then
    for live in {" ".join(LIVE)}; do
        mv "$live" "{KEPT}/$now/"
        mv "{KEPT}/$1/${{live##*/}}" "$live"
    done
    echo "$1" >{KEPT}/now
fi
"""


def run(command):
    subprocess.run(["bash", "-c", command], check=True)


def lay(name, accounts):
    """A panel of that name with so many accounts; the one before is kept."""
    run(f"mkdir -p {KEPT}/{name}; ! [[ -e {KEPT}/now ]] || mv {' '.join(LIVE)} {KEPT}/$(cat {KEPT}/now)/; echo {name} >{KEPT}/now")
    run(f"bash {PANEL} layPanel {os.environ['ZVTASKQ_BUILD']}; install -d -m 2775 -o zvadmin -g bind /var/named")
    for key, value in (("nginx", "1"), ("ns1", "ns1.host.example"), ("ns2", "ns2.host.example"), ("nginxlogdir", server.WEB_LOGS)):
        run(f"bash {PANEL} setSetting {key} {value}")
    found = server.Server(accounts)
    found.lay()
    return found


def main():
    run("mkdir -p /tmp/python")
    for path, text in (("/tmp/switch.sh", SWITCH), ("/etc/nginx/nginx.conf", NGINX), ("/tmp/nginx.conf", LOOPS_NGINX)):
        with open(path, "w", encoding="ascii") as file:
            file.write(text)
    lay("all", ACCOUNTS).make_homes(most_files=0)
    lay("half", ACCOUNTS // 2)
    lay("checked", CHECKED)
    zones = Service("named", "zones", "/var/named -name '*.db'", "/etc/bind/zorvane-zones.conf", ZONES)
    sites = Service("nginx", "sites", f"{server.USERS} -name nginx.conf", "/etc/nginx/zorvane-vhosts.conf", SITES)
    run(f"echo 'action=rewrite&value=ips' >{QUEUE}; {PROGRAM} >/dev/null")
    zones.rewrite()
    sites.rewrite()
    run(f"cp /var/named/u00000-0.example.db /tmp/zone; cp {server.USERS}/u00000/nginx.conf /tmp/site")
    zones.compare_checked(CHECKED, "named-checkconf -z /tmp/python/list")
    sites.compare_checked(CHECKED, "nginx -t -c /tmp/nginx.conf")
    run(f"for one in {' '.join(CHECKERS)}; do rm $one; printf '#!/bin/sh\\n' >$one; chmod 755 $one; done")
    run("bash /tmp/switch.sh all")
    for service in (zones, sites):
        run(service.anew)
        service.rewrite()
        service.compare(ACCOUNTS)


if __name__ == "__main__":
    main()
