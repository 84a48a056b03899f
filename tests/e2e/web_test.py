"""Web sites: written from the accounts' data, judged and served by the real servers."""
import os
import re
import signal
import subprocess
import time

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


class WebTest(PanelTest):
    maxDiff = None

    def setUp(self):
        super().setUp()
        shell("rm -rf /var/log/nginx/domains %s /etc/nginx/zorvane-*.conf /etc/apache2/zorvane-*.conf" % APACHE_LOGS)
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

    def apache(self, **how):
        settings(apachelogdir=APACHE_LOGS, httpdconf=APACHE_LIST, apacheips=APACHE_IPS, **how)
        shell("sed -i '/zorvane/d' %s; echo 'Include %s' >> %s; echo 'Include %s' >> %s; : > /etc/apache2/ports.conf; "
              "rm -f /etc/apache2/sites-enabled/*; mkdir -p /run/apache2; a2enmod -q ssl http2 headers >/dev/null" % (
                  APACHE, APACHE_IPS, APACHE, APACHE_LIST, APACHE))
        shell("touch %s %s" % (APACHE_IPS, APACHE_LIST))
        self.rewrite("action=rewrite&value=ips")
        self.rewrite()

    def serve(self, command, pid):
        """A server in the foreground, until the test ends."""
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        self.until(lambda: ask("nobody.example")[0] == 200 and os.path.exists(pid))
        self.server = process

    def reload(self, holds):
        self.server.send_signal(signal.SIGHUP)
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


class NginxTest(WebTest):
    def test_nginx_alone(self):
        self.nginx()
        self.assertIn("action=nginx&value=reload", text(panel.QUEUE))
        self.check_sites()
        self.check_logs("/var/log/nginx/domains")
        files = {user: os.stat("%s/%s/nginx.conf" % (USERS, user)) for user in ("ann", "bob", "cy")}
        self.rewrite()
        self.assertEqual(files, {user: os.stat("%s/%s/nginx.conf" % (USERS, user)) for user in files}, "nothing had changed")
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
        self.assertEqual((ask("bob.example")[0], ask("bob2.example")[0]), (503, 503))
        # An account that is gone does not keep the server from starting, and its sites go.
        shell("rm -rf %s/cy; nginx -t -q" % USERS)
        self.rewrite("action=confirm_removed&type=httpd.conf&value=%s/cy/httpd.conf" % USERS)
        self.assertNotIn("/cy/", text("/etc/nginx/zorvane-vhosts.conf"))


class ApacheTest(WebTest):
    def test_apache_alone(self):
        self.domain("ann", "ann.example.mime.types", "text/x-shop=.shop\n")
        self.domain("ann", "ann.example.handlers", "cgi-script=.cgi\nbad name=x\n")
        self.page("ann", "ann.example", "a shop", "public_html/a.shop")
        self.page("ann", "ann.example", "<?php secret();", "public_html/a.php")
        self.apache()
        self.serve(["bash", "-c", ". /etc/apache2/envvars; exec apache2 -DFOREGROUND"], "/run/apache2/apache2.pid")
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
