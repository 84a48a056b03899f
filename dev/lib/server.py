"""A server full of accounts in a laid panel, for the end-to-end tests and the benchmarks; in the sandbox only.

    server.py ACCOUNTS [--homes]      writes the accounts' data, byte logs and tally files; with homes, system accounts
                                      and files too
"""
import argparse
import os
import pwd
import random
import time

PANEL = "/usr/local/zorvane"
USERS = PANEL + "/data/users"
ADMIN = PANEL + "/data/admin"
WEB_LOGS = "/var/log/httpd/domains"
FIRST_ID = 20000
PER_RESELLER = 50
LIMITS = {"bandwidth": "10240", "quota": "1024", "inode": "100000", "vdomains": "10", "nsubdomains": "10", "nemails": "20",
          "nemailf": "20", "nemailml": "5", "nemailr": "5", "mysql": "5", "domainptr": "5", "ftp": "10"}


# How a line of a byte log may look, and how many of its two numbers count.
FORMS = (("{} {}\n", 2), ("{} {}\n", 2), ("{} -{}\n", 1), ("{}\n", 1), ("-\n", 0), ("\n", 0))


class Server:
    """The names are given; what stands in the logs is chosen by `seed`, and the same every time."""

    def __init__(self, accounts, domains=2, seed=1):
        self.random = random.Random(seed)
        self.owner = pwd.getpwnam("zvadmin")
        self.users = [f"u{i:05}" for i in range(accounts)]
        self.resellers = [f"r{i:03}" for i in range((accounts + PER_RESELLER - 1) // PER_RESELLER)]
        self.admins = ["admin"]
        self.domains = {user: [f"{user}-{k}.example" for k in range(domains)] for user in self.users}
        self.hosts = {user: [host for domain in found for host in (domain, "www." + domain)] for user, found in self.domains.items()}

    def of(self, reseller):
        first = self.resellers.index(reseller) * PER_RESELLER
        return self.users[first:first + PER_RESELLER]

    # --- Files ---------------------------------------------------------------------------------------------------

    def put(self, path, lines, owner=None, mode=0o600):
        with open(path, "w", encoding="latin-1") as file:
            file.write("".join(line + "\n" for line in lines))
        os.chown(path, *(owner or (self.owner.pw_uid, self.owner.pw_gid)))
        os.chmod(path, mode)

    def record(self, path, pairs):
        self.put(path, (f"{name}={value}" for name, value in sorted(pairs.items())))

    def folder(self, path):
        os.makedirs(path, mode=0o711, exist_ok=True)
        os.chown(path, self.owner.pw_uid, self.owner.pw_gid)

    def account(self, name, usertype, creator, domains=()):
        home = f"{USERS}/{name}"
        self.folder(home)
        self.folder(home + "/domains")
        self.record(home + "/user.conf", {**LIMITS, "username": name, "usertype": usertype, "creator": creator, "name": name,
                                          "email": f"{name}@panel.example", "domain": domains[0] if domains else "",
                                          "suspended": "no", "account": "ON", "suspend_at_limit": "ON", "language": "en",
                                          "package": "standard", "ip": "192.0.2.10"})
        self.record(home + "/user.usage", {"bandwidth": "0", "quota": "0"})
        self.put(home + "/domains.list", domains)
        self.put(home + "/tickets.list", ())
        for domain in domains:
            stem = f"{home}/domains/{domain}"
            self.record(stem + ".conf", {"domain": domain, "bandwidth": "unlimited", "quota": "unlimited", "suspended": "no"})
            self.record(stem + ".usage", {"bandwidth": "0"})
            self.put(stem + ".subdomains", ["www"])
            self.put(stem + ".pointers", ())

    def manager(self, name, usertype, creator, users):
        self.account(name, usertype, creator)
        home = f"{USERS}/{name}"
        self.record(home + "/reseller.conf", {**LIMITS, "bandwidth": "unlimited", "quota": "unlimited"})
        self.record(home + "/reseller.usage", {"bandwidth": "0"})
        self.put(home + "/users.list", users)

    def lay(self):
        os.makedirs(WEB_LOGS, exist_ok=True)
        for name in self.admins:
            self.manager(name, "admin", "root", [])
        for name in self.resellers:
            self.manager(name, "reseller", self.admins[0], self.of(name))
            for user in self.of(name):
                self.account(user, "user", name, self.domains[user])
        self.put(ADMIN + "/admin.list", self.admins)
        self.put(ADMIN + "/reseller.list", self.resellers)
        mail = pwd.getpwnam("mail")
        self.put("/etc/virtual/domainowners", (f"{domain}: {user}" for user in self.users for domain in self.domains[user]),
                 (mail.pw_uid, mail.pw_gid), 0o640)

    # --- What is used ----------------------------------------------------------------------------------------------

    def serve(self, users=None, lines=20):
        """Requests to every host, and to the panel: adds to the logs and returns each user's bytes."""
        now = int(time.time())
        bytes_of = {}
        for user in users or self.users:
            total = 0
            for host in self.hosts[user]:
                with open(f"{WEB_LOGS}/{host}.bytes", "a", encoding="ascii") as log:
                    for _ in range(lines):
                        sent, received = self.random.randrange(100_000), self.random.randrange(2000)
                        form, counted = self.random.choice(FORMS)
                        log.write(form.format(sent, received))
                        total += sum((sent, received)[:counted])
            panel = self.random.randrange(1, 50_000)
            self.put(f"{USERS}/{user}/ZorvaneUsage.bytes", [f"{panel}=type=panel&time={now}"])
            bytes_of[user] = total + panel
        return bytes_of

    def make_homes(self, most_files=3):
        """System accounts, written into the system's tables at once, and a home with at most so many files for each."""
        names = [*self.users, *self.resellers, *self.admins]
        for table, line in (("passwd", "{0}:x:{1}:{1}::/home/{0}:/bin/sh\n"), ("group", "{0}:x:{1}:\n"),
                            ("shadow", "{0}:$6$salt$hash{1}:19000:0:99999:7:::\n")):
            with open("/etc/" + table, "a", encoding="ascii") as file:
                file.write("".join(line.format(name, FIRST_ID + i) for i, name in enumerate(names)))
        for i, name in enumerate(names):
            uid, home = FIRST_ID + i, "/home/" + name
            for folder in [home] + [f"{home}/domains/{domain}/public_html" for domain in self.domains.get(name, ())]:
                os.makedirs(folder, exist_ok=True)
            for k in range(self.random.randint(min(1, most_files), most_files)):
                with open(f"{home}/file{k}", "wb") as file:
                    file.write(b"x" * self.random.randrange(200_000))
            for path, folders, files in os.walk(home):
                for entry in [path, *(os.path.join(path, file) for file in files)]:
                    os.chown(entry, uid, uid)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("accounts", type=int)
    parser.add_argument("--homes", action="store_true")
    options = parser.parse_args()
    server = Server(options.accounts)
    server.lay()
    server.serve()
    if options.homes:
        server.make_homes()


if __name__ == "__main__":
    main()
