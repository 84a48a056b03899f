"""A large record: read, sorted and safely written, beside what sorts the same lines."""
import os
import random
import string

import bench

SIZES = (100_000, 1_000_000)
BYTES_A_PAIR = 120


def write_record(path, pairs):
    """Names as they come in tables of domains: each once, in no order."""
    random.seed(pairs)
    letters = string.ascii_lowercase + string.digits
    names = set()
    while len(names) < pairs:
        names.add("".join(random.choices(letters, k=random.randint(6, 14))) + random.choice((".com", ".org", ".net")))
    names = sorted(names)
    random.shuffle(names)
    with open(path, "w", encoding="ascii") as record:
        for number, name in enumerate(names):
            record.write(f"{name}=owner{number % 50_000}\n")


def beyond_the_text(work, source, ours, pairs):
    most = max(bench.measure(ours).megabytes for _ in range(bench.RUNS))
    beyond = (most * 1024 * 1024 - os.path.getsize(source)) / pairs
    goal = f"<= {BYTES_A_PAIR}"
    bench.row(work, f"{beyond:.0f} bytes a pair", "-", "-", goal, bench.meets(goal, beyond))


def main():
    program = os.environ["ZVTASKQ_BUILD"] + "/bench/record_work"
    ours = {}
    for pairs in (*SIZES, SIZES[-1] // 2):
        write_record(f"/tmp/record.{pairs}", pairs)
        ours[pairs] = f"{program} /tmp/record.{pairs} /tmp/written.{pairs}"
    for pairs in SIZES:
        bench.compare(f"record of {pairs:,} pairs: read, sort, write; sort -u", ">= 1.7", ours[pairs],
                      ["env", "LC_ALL=C", "sort", "-u", "-o", "/tmp/sorted", f"/tmp/record.{pairs}"], runs=9)
    most = SIZES[-1]
    beyond_the_text(f"record of {most:,} pairs: memory beyond the text", f"/tmp/record.{most}", ours[most], most)
    bench.growth(f"record of {most:,} pairs, half of it", "<= 2.2", ours[most // 2], ours[most])


if __name__ == "__main__":
    main()
