"""Filling a template of 1 MB with 100,000 tokens, beside envsubst on the same text with its own kind of token."""
import os
import tempfile

import bench

TOKENS = 100000
NAMES = 200
LENGTH = 1000000

fill = os.path.join(os.environ["ZVTASKQ_BUILD"], "bench/template_bench")
names = ["TOKEN_%d" % number for number in range(NAMES)]
values = {name: "value of %s" % name.lower() for name in names}
for name, value in values.items():
    os.environ[name] = value


def template(token, size, count):
    """`count` tokens, and lines of plain text between them that make it `size` bytes with our kind of token."""
    plain = "x" * max(0, size // count - len("|TOKEN_100|") - 1)
    return "".join("%s%s\n" % (plain, token % names[number % NAMES]) for number in range(count))


with tempfile.TemporaryDirectory() as folder:
    def write(name, content):
        path = os.path.join(folder, name)
        with open(path, "w", encoding="ascii") as file:
            file.write(content)
        return path

    tokens = write("tokens", "".join("%s=%s\n" % pair for pair in values.items()))
    ours = write("ours", template("|%s|", LENGTH, TOKENS))
    other = write("other", template("${%s}", LENGTH, TOKENS))
    small, large = (write("template%d" % size, template("|%s|", size * LENGTH, size * TOKENS)) for size in (4, 8))
    bench.compare("template of 1 MB with 100,000 tokens, beside envsubst", ">= 2", [fill, ours, tokens],
                  "envsubst <%s" % other)
    bench.growth("template of 8 MB, beside one of 4 MB", "<= 2.3", [fill, small, tokens], [fill, large, tokens])
