"""Web sites: written from the accounts' data, judged and served by the real servers."""
import fcntl
import os
import pwd
import re
import shutil
import signal
import socket
import subprocess
import time
from urllib.parse import parse_qs

import panel
from panel import PanelTest, settings, shell, text, write

USERS = panel.PANEL + "/data/users"
ADDRESS = "192.0.2.10"
NGINX = "/etc/nginx/nginx.conf"
NGINX_MAIN = """user www-data; worker_processes 1; pid /var/run/nginx.pid; error_log /var/log/nginx/error.log;
events {}
http { include mime.types; include /etc/nginx/zorvane-ips.conf; include /etc/nginx/zorvane-vhosts.conf; }
"""
APACHE = "/etc/apache2/apache2.conf"
APACHE_COMMAND = ["bash", "-c", ". /etc/apache2/envvars; exec apache2 -DFOREGROUND"]
APACHE_LIST = "/etc/apache2/zorvane-vhosts.conf"
APACHE_IPS = "/etc/apache2/zorvane-ips.conf"
APACHE_LOGS = "/var/log/httpd/domains"


def ask(name, path="/", *more, scheme="http"):
    """The status of a page, and the page."""
    port = {"http": 80, "https": 443}[scheme]
    outcome = subprocess.run(["curl", "-sk", "-m", "10", "--resolve", "%s:%d:%s" % (name, port, ADDRESS), "-w", "\n%{http_code}", *more,
                              "%s://%s%s" % (scheme, name, path)], capture_output=True, encoding="latin-1", check=False)
    page, _, status = outcome.stdout.rpartition("\n")
    return int(status), page.strip()


def leads(name, path="/"):
    """The status of a redirect, and where it leads."""
    return ask(name, path, "-o", "/dev/null", "-w", "%{http_code} %{redirect_url}\n0")[1]


def open_files(pid):
    return subprocess.run(["ls", "-l", "/proc/%d/fd" % pid], capture_output=True, encoding="utf-8", check=False).stdout


def listens(path):
    with socket.socket(socket.AF_UNIX) as client:
        return client.connect_ex(path) == 0


def children(process):
    return set(text("/proc/{0}/task/{0}/children".format(process.pid)).split())


class WebTest(PanelTest):
    maxDiff = None

    def setUp(self):
        super().setUp()
        self.servers = []
        shell("rm -rf /home/{ann,bob,cy}/domains /var/log/nginx/domains %s /etc/nginx/zorvane-*.conf /etc/apache2/zorvane-*.conf" % APACHE_LOGS)
        shell("ip address replace %s/32 dev lo" % ADDRESS)
        self.administrator()
        for name, *domains in (("ann", "ann.example"), ("bob", "bob.example", "bob2.example"), ("cy", "cy.example")):
            panel.panel_do("addAccount", name, "user", "boss", *domains)
            for domain in domains:
                self.page(name, domain, domain)
        shell("install -d -o bob -g bob -m 755 /home/bob/domains/bob.example/public_html/shop")
        self.page("bob", "bob.example", "shop", "public_html/shop/index.html")
        self.domain("bob", "bob.example.subdomains", "shop\n")
        self.domain("bob", "bob.example.pointers", "bobby.example\nrobert.example=redirect\n")
        self.account("cy", "suspended=no", "suspended=yes")
        self.domain("bob", "bob2.example.conf", "domain=bob2.example\nsuspended=yes\nsuspended_reason=domain_bandwidth\n")

    def page(self, user, domain, content, path="public_html/index.html"):
        write("/home/%s/domains/%s/%s" % (user, domain, path), content, user, 0o644)
        shell("chmod o+x /home/{0} /home/{0}/domains /home/{0}/domains/{1} /home/{0}/domains/{1}/public_html".format(user, domain))

    def domain(self, user, name, content):
        write("%s/%s/domains/%s" % (USERS, user, name), content, "zvadmin", 0o600)

    def account(self, user, old, new):
        path = "%s/%s/user.conf" % (USERS, user)
        write(path, text(path).replace(old, new), "zvadmin", 0o600)

    def rewrite(self, line="action=rewrite&value=httpd", **how):
        shell(": > %s" % panel.QUEUE)
        self.queue(line)
        return self.run_program(**how)

    def nginx(self):
        settings(nginx=1)
        write(NGINX, NGINX_MAIN)
        self.rewrite("action=rewrite&value=ips")
        self.rewrite("action=rewrite&value=nginx")
        self.serve(["nginx", "-g", "daemon off;"], "/var/run/nginx.pid")

    def apache(self, modules="", kind="mpm_event", **how):
        settings(apachelogdir=APACHE_LOGS, httpdconf=APACHE_LIST, apacheips=APACHE_IPS, **how)
        if not os.path.exists("/etc/apache2.kept"):
            shell("cp -a /etc/apache2 /etc/apache2.kept")
            self.addCleanup(shell, "rm -rf /etc/apache2; mv /etc/apache2.kept /etc/apache2")
        shell("sed -i '/zorvane/d' %s; echo 'Include %s' >> %s; echo 'Include %s' >> %s; : > /etc/apache2/ports.conf; "
              "rm -f /etc/apache2/sites-enabled/*; mkdir -p /run/apache2; a2dismod -q -f remoteip mpm_itk mpm_prefork mpm_event >/dev/null 2>&1; "
              "a2enmod -q ssl http2 headers %s %s >/dev/null" % (APACHE, APACHE_IPS, APACHE, APACHE_LIST, APACHE, kind, modules))
        shell("touch %s %s" % (APACHE_IPS, APACHE_LIST))
        self.rewrite("action=rewrite&value=ips")
        self.rewrite()

    def begin(self, command):
        # Apache ends its whole process group.
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        self.servers.append(process)

    def serve(self, command, pid):
        """A server in the foreground, until the test ends."""
        self.begin(command)
        self.until(lambda: ask("nobody.example")[0] == 200 and os.path.exists(pid))

    def reload(self, holds):
        """Lets the servers read their configuration anew, until none that had the old one answers."""
        for server in self.servers:
            old = children(server)
            server.send_signal(signal.SIGHUP)
            self.until(lambda: not old & children(server))
        self.until(holds)

    def until(self, holds, seconds=20):
        end = time.time() + seconds
        while not holds():
            self.assertLess(time.time(), end, self.log())
            time.sleep(0.1)

    def check_sites(self):
        for name, want in (("ann.example", "ann.example"), ("www.ann.example", "ann.example"), ("bob.example", "bob.example"),
                           ("shop.bob.example", "shop"), ("www.shop.bob.example", "shop"), ("bobby.example", "bob.example"),
                           ("www.bobby.example", "bob.example")):
            self.assertEqual(ask(name), (200, want), name + self.log())
        for name in ("cy.example", "bob2.example"):
            for path in ("/", "/index.html", "/any/where"):
                status, page = ask(name, path)
                self.assertEqual((status, "This site is suspended" in page), (503, True), (name, path, page))
        self.assertIn("There is no site here", ask("nobody.example", "/some/page")[1])
        self.assertEqual(leads("robert.example", "/a?b=c"), "301 http://bob.example/a?b=c")

    def check_logs(self, folder):
        lines = text(folder + "/ann.example.bytes").splitlines()
        self.assertTrue(lines and all(re.fullmatch(r"[1-9]\d* [1-9]\d*", line) for line in lines), lines)
        self.assertIn("GET / HTTP", text(folder + "/shop.bob.example.log"))
        self.assertTrue(os.path.exists(folder + "/bob2.example.error.log"))


    def server_certificate(self, certificate, key):
        shell("mkdir -p $(dirname {0}) $(dirname {1}); openssl req -x509 -newkey rsa:2048 -nodes -days 9 -subj /CN=the.server "
              "-keyout {1} -out {0} 2>/dev/null".format(certificate, key))

    def certificate(self, user, domain, name=None, key=None):
        """A certificate of a domain's own; with `key` that of another domain in its key's place."""
        stem = "%s/%s/domains/%s" % (USERS, user, domain)
        shell("openssl req -x509 -newkey rsa:2048 -nodes -days 9 -subj /CN={1} -keyout {0}.key -out {0}.cert 2>/dev/null; "
              "chown zvadmin: {0}.key {0}.cert; chmod 600 {0}.key {0}.cert".format(stem, name or domain))
        if key:
            shell("cat %s > %s.key" % (key, stem))

    def check_https(self):
        for domain in ("ann.example", "bob.example", "bob2.example", "cy.example"):
            user = domain.split(".")[0].rstrip("2")
            self.certificate(user, domain)
        settings(enable_ssl_sni=1, hsts=600)
        self.domain("ann", "ann.example.conf", "domain=ann.example\nforce_https=yes\n")
        self.page("ann", "ann.example", "public")
        shell("install -d -o bob -g bob -m 755 /home/bob/domains/bob.example/private_html")
        self.page("bob", "bob.example", "private", "private_html/index.html")
        shell("ln -s ./public_html /home/ann/domains/ann.example/private_html")
        self.rewrite()
        self.reload(lambda: shown("ann.example") == "ann.example")
        self.assertEqual([shown(name) for name in ("bob.example", "shop.bob.example", "cy.example", "nobody.example")],
                         ["bob.example", "bob.example", "cy.example", "the.server"])
        self.assertEqual([ask(name, scheme="https")[:2] for name in ("ann.example", "bob.example", "bobby.example")],
                         [(200, "public"), (200, "private"), (200, "private")])
        self.assertEqual(ask("bob.example"), (200, "bob.example"))
        self.assertEqual(ask("cy.example", scheme="https")[0], 503)
        self.assertEqual(leads("ann.example", "/a?b"), "301 https://ann.example/a?b")
        headers = ask("ann.example", "/", "-D", "/dev/stdout", scheme="https")[1]
        self.assertTrue(headers.startswith("HTTP/2 200") and "strict-transport-security: max-age=600" in headers, headers)
        # One that does not fit is refused; the one before stays, and nobody else notices.
        self.certificate("bob", "bob.example", "bob.new", "%s/ann/domains/ann.example.key" % USERS)
        self.certificate("ann", "ann.example", "ann.new")
        self.rewrite()
        self.assertLogged("bob bob.example: certificate is refused: the key cannot be used: key values mismatch")
        self.reload(lambda: shown("ann.example") == "ann.new")
        self.assertEqual(shown("bob.example"), "bob.example")
        copies = [name for name in os.listdir(USERS + "/ann/domains") if name.endswith(".pem")]
        self.assertEqual(len(copies), 1, "the old copy goes")
        self.assertEqual((panel.owner("%s/ann/domains/%s" % (USERS, copies[0])), len(self.notices())), ("zvadmin", 0), self.log())


def shown(name):
    """Whose certificate is shown for a name."""
    outcome = subprocess.run("openssl s_client -connect %s:443 -servername %s </dev/null 2>/dev/null | openssl x509 -noout "
                             "-subject" % (ADDRESS, name), shell=True, capture_output=True, encoding="ascii", check=False)
    return outcome.stdout.strip().rpartition(" ")[2]


class NginxTest(WebTest):
    def test_nginx_with_certificates(self):
        self.server_certificate("/etc/nginx/ssl.crt/server.crt", "/etc/nginx/ssl.key/server.key")
        self.nginx()
        self.check_https()

    def test_nginx_alone(self):
        self.nginx()
        self.assertIn("action=nginx&value=reload", text(panel.QUEUE))
        self.check_sites()
        self.check_logs("/var/log/nginx/domains")
        files = {user: panel.state("%s/%s/nginx.conf" % (USERS, user)) for user in ("ann", "bob", "cy")}
        self.rewrite()
        self.assertEqual(files, {user: panel.state("%s/%s/nginx.conf" % (USERS, user)) for user in files}, "nothing had changed")
        # What was served is billed.
        requests = [line.split() for line in text("/var/log/nginx/domains/ann.example.bytes").splitlines()]
        self.rewrite("action=tally&type=user&value=ann")
        billed = parse_qs(text(USERS + "/ann/bandwidth.tally").strip())
        self.assertEqual([float(billed[key][0]) for key in ("http_bw_total", "http_ul_total")],
                         [sum(int(line[i]) for line in requests) for i in (0, 1)])
        # A broken piece is left out with its account and named; what others changed goes live.
        self.domain("ann", "ann.example.cust_nginx", "expires 1h;\nno_such_word on;\n")
        self.domain("bob", "bob.example.cust_nginx", "location = /own { return 200 'of my own'; }\n")
        self.account("cy", "suspended=yes", "suspended=no")
        self.rewrite()
        self.assertLogged("ann is left out of the nginx configuration: ")
        self.assertIn('unknown directive "no_such_word"', self.notices()[-1][1])
        self.reload(lambda: ask("cy.example")[1] == "cy.example")
        self.assertEqual([ask("bob.example", "/own"), ask("ann.example")], [(200, "of my own"), (200, "ann.example")])
        # What would leave its place does not get there.
        self.domain("ann", "ann.example.cust_nginx", "} server { listen 80; server_name bob.example;\n")
        self.domain("ann", "ann.example.pointers", "www.bob.example\nnew.example\n")
        shell("cd /home/bob/domains/bob.example; mv public_html pages; ln -s /home/ann/domains/ann.example/public_html public_html")
        self.rewrite()
        self.assertLogged("ann ann.example: cust_nginx is refused: it closes a section that it has not opened")
        self.assertLogged("ann ann.example: pointer 'www.bob.example' is refused: ")
        self.assertLogged("bob bob.example: public_html is refused: ")
        self.assertEqual(ask("bob.example")[0], 403, "the running server follows no link either")
        self.reload(lambda: ask("new.example")[1] == "ann.example")
        self.assertEqual([ask(name)[0] for name in ("bob.example", "shop.bob.example", "bob2.example")], 3 * [503])
        # An account that is gone does not keep the server from starting, and its sites go.
        shell("rm -rf %s/cy; nginx -t -q" % USERS)
        self.rewrite("action=confirm_removed&type=httpd.conf&value=%s/cy/httpd.conf" % USERS)
        self.assertNotIn("/cy/", text("/etc/nginx/zorvane-vhosts.conf"))


class PhpTest(WebTest):
    def test_php_runs_as_the_account(self):
        shell("rm -f /etc/php/8.2/fpm/pool.d/zorvane-*; mkdir -p /run/php")
        script = "<?php echo posix_getuid(), ' ', @file_get_contents($_GET['file'] ?? __FILE__) === false ? 'no' : 'yes', function_exists('exec') ? '' : '!';"
        for user in ("ann", "bob", "cy"):
            self.page(user, user + ".example", script, "public_html/who.php")
        # One pool for both domains: what one of them asks for holds.
        limits, own = panel.ADMIN + "/state/php_limits", "domain=bob.example\nphp=5.3/../x\nsafemode=ON\n"
        self.domain("bob", "bob2.example.conf", "domain=bob2.example\nopen_basedir=OFF\n")
        for in_general, asked, want in (("ON", "", "ON"), ("OFF", "", "OFF"), ("OFF", "open_basedir=ON\n", "ON"), ("ON", "open_basedir=OFF\n", "OFF")):
            settings(open_basedir=in_general)
            self.domain("bob", "bob.example.conf", own + asked)
            self.rewrite("action=cache&value=safemode")
            self.assertIn("bob=open_basedir=%s&safemode=ON\n" % want, text(limits))
            self.assertEqual(text(panel.QUEUE), "action=rewrite&value=httpd\n")
        os.unlink(USERS + "/bob/domains/bob2.example.conf")
        self.rewrite("action=cache&value=safemode")
        self.assertIn("bob=open_basedir=OFF&safemode=ON\n", text(limits), "what cannot be read stays as it was")
        self.assertEqual(text(panel.QUEUE), "")
        self.domain("bob", "bob2.example.conf", "domain=bob2.example\nsuspended=yes\n")
        self.account("cy", "suspended=yes", "suspended=no")
        self.nginx()
        self.serve(["php-fpm8.2", "-F"], "/run/php/php8.2-fpm.pid")
        for user, sign in (("ann", ""), ("bob", "!")):
            self.assertEqual(ask(user + ".example", "/who.php"), (200, "%d yes%s" % (pwd.getpwnam(user).pw_uid, sign)), self.log())
        self.assertEqual(ask("bob.example", "/who.php?file=/etc/passwd")[1].split()[-1], "yes!")
        self.assertEqual(ask("ann.example", "/who.php?file=/home/bob/domains/bob.example/public_html/who.php")[1].split()[-1], "no")
        self.assertEqual(ask("ann.example", "/who.php?file=/etc/passwd")[1].split()[-1], "no")
        self.assertLogged("bob bob.example: php '5.3/../x' is refused: there is no such version")
        # A list that nobody can read takes no limit away.
        pool = "/etc/php/8.2/fpm/pool.d/zorvane-bob.conf"
        before = text(pool)
        os.chmod(limits, 0)
        self.rewrite()
        self.assertEqual(text(pool), before)
        self.assertIn("disable_functions", before)
        os.chmod(limits, 0o600)
        self.assertEqual((panel.mode("/run/php/zorvane-ann-8.2.sock"), panel.owner("/run/php/zorvane-ann-8.2.sock")),
                         (0o600, "www-data"))
        # Who waits for the end of another's work on the account sees what it left.
        shell("install -d -m 700 -o zvadmin {0}/state/accounts; : > {1}".format(panel.ADMIN, panel.QUEUE))
        with open(panel.ADMIN + "/state/accounts/boss", "w", encoding="ascii") as lock:
            shutil.chown(lock.name, "zvadmin")
            fcntl.flock(lock, fcntl.LOCK_EX)
            self.queue("action=rewrite&value=httpd&user=boss")
            run = self.start()
            self.until(lambda: run.poll() is not None or "state/accounts" in open_files(run.pid))
            self.account("boss", "suspended=no", "suspended=yes")
        run.wait()
        self.assertIn("web_suspended", text(USERS + "/boss/nginx.conf"))
        self.account("boss", "suspended=yes", "suspended=no")
        self.rewrite()
        # PHP-FPM forgets the pool of who is deleted before his processes are ended: it would start others.
        self.assertTrue(listens("/run/php/zorvane-cy-8.2.sock"))
        self.rewrite("action=delete&value=account&requestedby=boss&select0=cy")
        self.assertIn("action=rewrite&user=cy&value=httpd", text(panel.QUEUE))
        self.assertIn("\nbob=", text(limits))
        self.assertNotIn("cy=", text(limits), "the next cy is another")
        self.assertFalse(os.path.exists("/etc/php/8.2/fpm/pool.d/zorvane-cy.conf"))
        self.until(lambda: not listens("/run/php/zorvane-cy-8.2.sock"))
        self.until(lambda: ask("ann.example", "/who.php")[0] == 200)
        # Who is suspended or gone has no PHP.
        self.account("ann", "suspended=no", "suspended=yes")
        self.rewrite("action=rewrite&value=nginx&user=ann")
        shell("rm -rf %s/bob" % USERS)
        self.rewrite()
        self.assertEqual(sorted(os.listdir("/etc/php/8.2/fpm/pool.d")), ["www.conf", "zorvane-boss.conf"])
        os.unlink(panel.ADMIN + "/ip.list")
        self.rewrite()
        self.assertEqual(text(panel.QUEUE), "action=nginx&value=reload\n", "also after a rewrite that failed")


class ProxyTest(WebTest):
    def test_nginx_before_apache(self):
        self.server_certificate("/etc/nginx/ssl.crt/server.crt", "/etc/nginx/ssl.key/server.key")
        settings(nginx_proxy=1)
        write(NGINX, NGINX_MAIN)
        self.domain("bob", "bob.example.cust_httpd", "Redirect /apache http://else.example/\n")
        self.domain("bob", "bob.example.cust_nginx", "location = /nginx { return 302 http://other.example/; }\n")
        self.apache(modules="remoteip")
        self.begin(APACHE_COMMAND)
        self.serve(["nginx", "-g", "daemon off;"], "/var/run/nginx.pid")
        self.until(lambda: ask("ann.example")[0] == 200)
        self.check_sites()
        self.check_logs("/var/log/nginx/domains")
        self.assertEqual([leads("bob.example", path) for path in ("/apache", "/nginx")],
                         ["302 http://else.example/", "302 http://other.example/"])
        self.assertIn(ADDRESS + " ", text(APACHE_LOGS + "/ann.example.log"), "Apache knows who asks")
        self.assertFalse(os.path.exists(APACHE_LOGS + "/ann.example.bytes"), "the tally reads nginx's alone")
        self.check_https()
        self.assertIn("action=nginx&value=reload", text(panel.QUEUE))
        self.assertIn("action=httpd&value=restart", text(panel.QUEUE))


class ManyTest(WebTest):
    """Twenty domains of eight users: the right page, over http and https, and PHP as the right user."""
    hosts = {"d%02d.example" % i: "m%d" % (i % 8) for i in range(20)}

    def lay(self, certificate, key):
        shell("rm -rf /home/m?/domains /etc/php/8.2/fpm/pool.d/zorvane-*; mkdir -p /run/php")
        for user in sorted(set(self.hosts.values())):
            panel.panel_do("addAccount", user, "user", "boss", *[host for host, owner in self.hosts.items() if owner == user])
        for host, user in self.hosts.items():
            self.page(user, host, host)
            self.page(user, host, "<?php echo posix_getuid();", "public_html/who.php")
            self.certificate(user, host)
        self.account("m7", "suspended=no", "suspended=yes")
        self.domain("m0", "d08.example.conf", "domain=d08.example\nsuspended=yes\n")
        self.server_certificate(certificate, key)
        settings(enable_ssl_sni=1)

    def check(self, logs):
        self.serve(["php-fpm8.2", "-F"], "/run/php/php8.2-fpm.pid")
        for host, user in self.hosts.items():
            isClosed = user == "m7" or host == "d08.example"
            for scheme in ("http", "https"):
                status, page = ask(host, scheme=scheme)
                self.assertEqual((status, "This site is suspended" in page or page), (503, True) if isClosed else (200, host), self.log())
            self.assertEqual(shown(host), host)
            status, page = ask(host, "/who.php")
            self.assertEqual((status, isClosed or page), (503, True) if isClosed else (200, str(pwd.getpwnam(user).pw_uid)), self.log())
        def lines(host):
            return text("%s/%s.bytes" % (logs, host)).splitlines()
        # A server notes a request after its answer.
        self.until(lambda: all(len(lines(host)) >= 3 for host in self.hosts))
        sent = {user: sum(sum(map(int, line.split())) for host, owner in self.hosts.items() if owner == user for line in lines(host))
                for user in self.hosts.values()}
        self.rewrite("action=tally&value=all")
        for user, want in sent.items():
            billed = parse_qs(text("%s/%s/bandwidth.tally" % (USERS, user)).strip())
            self.assertEqual(sum(float(billed[key][0]) for key in ("http_bw_total", "http_ul_total")), want, user)
            self.assertGreater(want, 0)

    def start_apache(self):
        self.serve(APACHE_COMMAND, "/run/apache2/apache2.pid")

    def test_nginx(self):
        self.lay("/etc/nginx/ssl.crt/server.crt", "/etc/nginx/ssl.key/server.key")
        settings(nginx=1)
        write(NGINX, NGINX_MAIN)
        # Who starts the panel may open fewer files than a server has logs.
        for value in ("ips", "nginx"):
            self.rewrite("action=rewrite&value=" + value, before="ulimit -S -n 48; ")
        self.serve(["nginx", "-g", "daemon off;"], "/var/run/nginx.pid")
        self.check("/var/log/nginx/domains")

    def test_apache(self):
        self.lay("/etc/apache2/server.crt", "/etc/apache2/server.key")
        self.apache(kind="mpm_prefork mpm_itk", modules="proxy proxy_fcgi", apachecert="/etc/apache2/server.crt", apachekey="/etc/apache2/server.key")
        self.start_apache()
        self.check(APACHE_LOGS)
        # Another's pool is out of reach for who names its socket.
        self.page("m1", "d01.example", 'SetHandler "proxy:unix:/run/php/zorvane-m2-8.2.sock|fcgi://localhost"\n', "public_html/.htaccess")
        self.assertEqual((ask("d01.example", "/index.html")[0], listens("/run/php/zorvane-m2-8.2.sock")), (503, True))
        # Who may start no programs cannot hand PHP a setting either.
        self.domain("m3", "d03.example.conf", "domain=d03.example\nsafemode=ON\n")
        for user, host in (("m3", "d03.example"), ("m4", "d04.example")):
            self.page(user, host, 'SetEnv PHP_ADMIN_VALUE "open_basedir=/"\n', "public_html/.htaccess")
        self.rewrite("action=cache&value=safemode")
        self.rewrite()
        self.reload(lambda: ask("d03.example", "/who.php")[0] == 500)
        self.assertEqual(ask("d04.example", "/who.php")[0], 200)

    def test_nginx_before_apache(self):
        settings(nginx_proxy=1)
        write(NGINX, NGINX_MAIN)
        self.lay("/etc/nginx/ssl.crt/server.crt", "/etc/nginx/ssl.key/server.key")
        self.apache(kind="mpm_prefork mpm_itk", modules="proxy proxy_fcgi remoteip")
        self.begin(APACHE_COMMAND)
        self.serve(["nginx", "-g", "daemon off;"], "/var/run/nginx.pid")
        self.check("/var/log/nginx/domains")


class ApacheTest(WebTest):
    def test_apache_with_certificates(self):
        self.server_certificate("/etc/apache2/server.crt", "/etc/apache2/server.key")
        self.apache(apachecert="/etc/apache2/server.crt", apachekey="/etc/apache2/server.key")
        self.start_apache()
        self.check_https()

    def start_apache(self):
        self.serve(APACHE_COMMAND, "/run/apache2/apache2.pid")

    def test_apache_alone(self):
        self.domain("ann", "ann.example.mime.types", "text/x-shop=.shop\n")
        self.domain("ann", "ann.example.handlers", "cgi-script=.cgi\nbad name=x\n")
        self.page("ann", "ann.example", "a shop", "public_html/a.shop")
        self.page("ann", "ann.example", "<?php secret();", "public_html/a.php")
        self.apache()
        self.start_apache()
        self.check_sites()
        self.check_logs(APACHE_LOGS)
        self.assertLogged("ann ann.example: handlers 'bad name' is refused: it is no name with endings")
        self.assertEqual(ask("ann.example", "/a.shop", "-w", "\n%{content_type}\n0")[1], "a shop\ntext/x-shop")
        self.assertEqual(ask("ann.example", "/a.php")[0], 403)
        self.domain("ann", "ann.example.cust_httpd", "NoSuchWord on\n")
        self.domain("bob", "bob.example.cust_httpd", "Redirect /own \\\n http://else.example/\n")
        self.rewrite("action=rewrite&value=httpd&user=ann")
        self.rewrite("action=rewrite&value=httpd&user=bob")
        self.assertIn("Invalid command 'NoSuchWord'", self.notices()[-1][1])
        self.domain("cy", "cy.example.cust_httpd", "</VirtualHost>\n<VirtualHost *:80>\n")
        self.account("cy", "suspended=yes", "suspended=no")
        self.rewrite()
        self.assertLogged("cy cy.example: cust_httpd is refused: it closes a section that it has not opened")
        self.reload(lambda: ask("cy.example")[1] == "cy.example")
        self.assertEqual(leads("bob.example", "/own"), "302 http://else.example/")
        self.assertEqual(ask("ann.example")[1], "ann.example")
        shell("rm -rf %s/cy; apache2ctl -t 2>/dev/null" % USERS)


if __name__ == "__main__":
    panel.main()
