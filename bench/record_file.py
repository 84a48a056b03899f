"""A large record: read, sorted and safely written, beside what sorts the same lines."""
import os
import random
import string

import bench

SIZES = (100_000, 1_000_000)
BYTES_A_PAIR = 80


def own_names(count):
    """Names as they come in tables of domains."""
    letters = string.ascii_lowercase + string.digits
    names = set()
    while len(names) < count:
        names.add("".join(random.choices(letters, k=random.randint(6, 14))) + random.choice((".com", ".org", ".net")))
    return sorted(names)


def shared_names(count):
    """Names that begin alike, at several places: a provider's customers."""
    return [f"{('mail', 'www', 'shop')[i % 3]}.customer-{i // 100:04}.number-{i % 100:02}.example.com" for i in range(count)]


def write_record(path, names):
    """Each name once, in no order."""
    random.seed(len(names))
    random.shuffle(names)
    with open(path, "w", encoding="ascii") as record:
        for number, name in enumerate(names):
            record.write(f"{name}=owner{number % 50_000}\n")


def beyond_the_text(work, source, ours, pairs):
    most = max(bench.measure(ours).megabytes for _ in range(bench.RUNS))
    beyond = (most * 1024 * 1024 - os.path.getsize(source)) / pairs
    goal = f"<= {BYTES_A_PAIR}"
    bench.row(work, f"{beyond:.0f} bytes a pair", "-", "-", goal, bench.meets(goal, beyond))


def ours_for(name, names):
    """Our command that reads, sorts and writes a record of such names."""
    write_record(f"/tmp/record.{name}", names)
    return f"{os.environ['ZVTASKQ_BUILD']}/bench/record_work /tmp/record.{name} /tmp/written"


def sort_beside(work, name, ours):
    bench.compare(f"{work}: read, sort, write; sort -u", ">= 1.7", ours,
                  ["env", "LC_ALL=C", "sort", "-u", "-o", "/tmp/sorted", f"/tmp/record.{name}"], runs=9)


def main():
    random.seed(len(SIZES))
    few, most = SIZES
    sort_beside(f"record of {few:,} pairs", "few", ours_for("few", own_names(few)))
    sort_beside(f"record of {most:,} pairs", "many", ours_for("many", own_names(most)))
    whole, half = ours_for("alike", shared_names(most)), ours_for("half", shared_names(most // 2))
    sort_beside(f"record of {most:,} pairs whose names begin alike", "alike", whole)
    beyond_the_text(f"record of {most:,} such pairs: memory beyond the text", "/tmp/record.alike", whole, most)
    bench.growth(f"record of {most:,} such pairs, half of it", "<= 2.2", half, whole)


if __name__ == "__main__":
    main()
