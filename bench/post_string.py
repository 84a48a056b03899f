"""URL-encoded lines: parsed, and parsed and built again, beside perl doing so by split and substitution."""
import os
import random
import urllib.parse

import bench

LINES = 1_000_000
PERL_SHARE = 10
LENGTH = 220

PARSE = r"""
use strict; my $pairs = 0;
while (<>) {
    chomp; my %record;
    for (split /&/) {
        my ($name, $value) = split /=/, $_, 2;
        for ($name, $value) { tr/+/ /; s/%([0-9A-Fa-f]{2})/chr hex $1/ge }
        $record{$name} = $value;
    }
    $pairs += keys %record;
"""
BUILD = r"""
    my @pairs;
    for my $key (sort keys %record) {
        my ($name, $value) = ($key, $record{$key});
        for ($name, $value) { s/([^A-Za-z])/sprintf("%%%02X", ord($1))/ge }
        push @pairs, "$name=$value";
    }
    $pairs += length join "&", @pairs;
"""
END = "}\nprint \"$pairs\\n\";\n"


def encoded(text):
    return "".join(c if c.isalpha() else f"%{ord(c):02X}" for c in text)


def built_line(number):
    """A line as the panel's programs build it, by name and with everything but letters escaped; a note fills it up."""
    pairs = {"action": "vacation", "domain": f"site{number}.example.com", "endtime": 1_710_000_000 + number,
             "note": "", "path": "/home/admin/public_html", "type": "domain", "user": f"user{number}", "value": "create"}
    line = {name: f"{encoded(name)}={encoded(str(value))}" for name, value in pairs.items()}
    for c in "back on 14 May, until then ask at the front desk or write to info@example.com":
        longer = line["note"] + encoded(c)
        line["note"] = longer if len("&".join({**line, "note": longer}.values())) <= LENGTH else line["note"]
    return "&".join(line.values()).ljust(LENGTH, "e")


def web_line(number):
    """A line as web pages encode it: in no order, digits as they are, few escapes. Perl has the least to do here."""
    pairs = {"action": "vacation", "value": f"user{number}", "domain": f"site{number}.example.com",
             "ip": f"192.0.2.{number % 255}", "type": "domain", "path": f"/home/user{number}/public_html",
             "starttime": 1_700_000_000 + number, "endtime": 1_710_000_000 + number, "limit": number % 1000,
             "note": "asked for by the reseller, " * LENGTH}
    return urllib.parse.urlencode(pairs)[:LENGTH]


def write_lines(path, lines, line_of):
    some = [line_of(random.randrange(100_000)) for _ in range(10_000)]
    with open(path, "w", encoding="ascii") as out:
        for _ in range(lines):
            out.write(random.choice(some) + "\n")


def compare_lines(shape, line_of):
    for name, lines in (("all", LINES), ("half", LINES // 2), ("part", LINES // PERL_SHARE)):
        write_lines(f"/tmp/lines.{name}", lines, line_of)
    program = os.environ["ZVTASKQ_BUILD"] + "/bench/post_string_work"
    work = f"{LINES:,} {shape} lines of {LENGTH} bytes"
    bench.compare(f"{work}: parse; perl, a tenth times ten", ">= 45", f"{program} /tmp/lines.all",
                  "perl /tmp/parse.pl /tmp/lines.part", share=PERL_SHARE)
    bench.compare(f"{work}: parse and build; perl, a tenth times ten", ">= 80", f"{program} /tmp/lines.all build",
                  "perl /tmp/build.pl /tmp/lines.part", share=PERL_SHARE)
    bench.growth(f"{work}: parse and build, half of them", "<= 2.2", f"{program} /tmp/lines.half build",
                 f"{program} /tmp/lines.all build")


def main():
    random.seed(3)
    for name, script in (("parse", PARSE + END), ("build", PARSE + BUILD + END)):
        with open(f"/tmp/{name}.pl", "w", encoding="ascii") as out:
            out.write(script)
    compare_lines("panel-built", built_line)
    compare_lines("web-encoded", web_line)


if __name__ == "__main__":
    main()
