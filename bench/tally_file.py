"""A month's tally file, e-mails counted once by their ids, beside awk with an array."""
import os
import random
import string

import bench

LINES = 1_000_000


def write_tally(path, lines):
    """E-mails as the mail server notes them, a tenth of them twice, and now and then another line."""
    random.seed(lines)
    letters = string.ascii_letters + string.digits
    last = ""
    with open(path, "w", encoding="ascii") as tally:
        for number in range(lines):
            if number % 10 == 9:
                tally.write(last)
            elif number % 100 == 0:
                tally.write(f"{number}.000000=type=tally&time={1795392000 + number}&ftp_bw_total=0.000000"
                            f"&http_bw_total={number}.000000&http_ul_total=0.000000&zv_bw_total=0.000000\n")
            else:
                name = "".join(random.choices(letters, k=14))
                last = (f"{random.randint(500, 90000)}=type=email&email=somebody@example.com&method=outgoing"
                        f"&id={name[:6]}-{name[6:12]}-{name[12:]}&time={1795392000 + number}\n")
                tally.write(last)


# What is behind "&id=" up to the next "&" is looked for in the array.
AWK = """{ amount = $0 + 0; if (amount <= 0) next
if (match($0, /&id=[^&]*/)) { id = substr($0, RSTART + 4, RLENGTH - 4); if ((id in seen) && index($0, "type=email")) next; seen[id] = 1 }
total += amount } END { printf "%.0f", total }"""


def main():
    program = os.environ["ZVTASKQ_BUILD"] + "/bench/tally_file_work"
    write_tally("/tmp/tally", LINES)
    write_tally("/tmp/tally.half", LINES // 2)
    for other, goal in (("mawk", ">= 4"), ("gawk", ">= 2.5")):
        bench.compare(f"tally file of {LINES:,} lines; {other} with an array", goal, f"{program} /tmp/tally",
                      ["env", "LC_ALL=C", other, AWK, "/tmp/tally"])
    bench.growth(f"tally file of {LINES:,} lines, half of it", "<= 2.2", f"{program} /tmp/tally.half", f"{program} /tmp/tally", runs=15)


if __name__ == "__main__":
    main()
