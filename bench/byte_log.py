"""The byte log of a web site: what was sent and received, summed, beside awk."""
import os
import random

import bench

LINES = 5_000_000


def write_log(path, lines):
    random.seed(5)
    some = [f"{int(random.lognormvariate(9, 2))} {random.randint(150, 1500)}\n" for _ in range(100_000)]
    with open(path, "w", encoding="ascii") as log:
        for _ in range(lines // len(some)):
            log.write("".join(some))


def main():
    program = os.environ["ZVTASKQ_BUILD"] + "/bench/byte_log_work"
    write_log("/tmp/bytes", LINES)
    write_log("/tmp/bytes.half", LINES // 2)
    summed = "{ sent += $1; received += $2 } END { printf \"%.0f %.0f\", sent + received, received }"
    bench.compare(f"byte log of {LINES:,} lines; mawk", ">= 12", f"{program} /tmp/bytes", ["mawk", summed, "/tmp/bytes"])
    bench.growth(f"byte log of {LINES:,} lines, half of it", "<= 2.2", f"{program} /tmp/bytes.half", f"{program} /tmp/bytes", runs=15)


if __name__ == "__main__":
    main()
