#!/usr/bin/env python3
"""Timing two commands side by side, for the benchmarks in bench/ (see bench/README.md).

A benchmark calls `compare`, `peak` or `growth`, each of which prints one row. From a shell script:

    python3 -m bench compare --work TEXT --goal ">= 10" --ours CMD --other CMD [--before CMD] [--runs N]
    python3 -m bench peak --work TEXT --goal "<= 8" --ours CMD [--before CMD]
    python3 -m bench growth --work TEXT --goal "<= 2.2" --small CMD --large CMD [--before CMD]

and, for dev/bench, which gathers the rows:  python3 bench.py table [--json FILE] <ROWS
"""
import argparse
import dataclasses
import json
import os
import re
import shlex
import statistics
import subprocess
import sys
import tempfile

RUNS = 5
FIELDS = ("work", "ours", "other", "ratio", "goal", "met")


@dataclasses.dataclass
class Usage:
    """What one run of a command took."""
    seconds: float
    processor_seconds: float
    megabytes: float


def measure(command, before=None):
    """Runs `command` (a list, or a text for the shell) and says what it took; `before` (a callable, or a command) is
    run first, untimed. A command that fails ends the benchmark: its time would mean nothing."""
    if callable(before):
        before()
    elif before:
        subprocess.run(as_list(before), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, check=True)
    with tempfile.NamedTemporaryFile() as report:
        subprocess.run([os.environ["ZVTASKQ_MEASURE"], report.name, *as_list(command)], stdin=subprocess.DEVNULL,
                       stdout=subprocess.DEVNULL, check=True)
        wall, processor, kilobytes, status = map(int, open(report.name).read().split())
    if status != 0:
        raise SystemExit(f"bench: exit status {status}: {command}")
    return Usage(wall / 1e9, processor / 1e6, kilobytes / 1024)


def as_list(command):
    """A text with nothing for a shell in it is run without one: starting a shell takes as long as an idle run."""
    if not isinstance(command, str):
        return list(command)
    return shlex.split(command) if re.fullmatch(r"[\w ./:@%+,-]*", command) else ["bash", "-c", command]


def alternate(first, second, before=None, runs=RUNS):
    """Both commands in turn, so that what else the machine does hits both: two lists of Usage. The first round only
    warms the caches. `before` may be a pair (a tuple), one for each."""
    befores = before if isinstance(before, tuple) else (before, before)
    found = ([], [])
    for turn in range(runs + 1):
        order = (0, 1) if turn % 2 else (1, 0)
        for which in order:
            usage = measure((first, second)[which], befores[which])
            if turn:
                found[which].append(usage)
    return found


def median_seconds(usages):
    return statistics.median(usage.seconds for usage in usages)


def show_seconds(seconds):
    for unit, size in (("s", 1), ("ms", 1e-3), ("us", 1e-6)):
        if seconds >= size:
            return f"{seconds / size:.3g} {unit}"
    return f"{seconds * 1e9:.0f} ns"


def meets(goal, value):
    """`goal` is "<= NUMBER" or ">= NUMBER"."""
    sign, limit = goal.split()
    return value <= float(limit) if sign == "<=" else value >= float(limit)


def row(work, ours, other, ratio, goal, met):
    print("\t".join((work, ours, other, ratio, goal, "yes" if met else "no")), flush=True)


def compare(work, goal, ours, other, before=None, runs=RUNS, share=1):
    """A row for ours beside the other. A goal of ">= N" wants ours N times as fast; "<= N" allows it N times the
    other's time. A slow other may be given one `share`-th of the work; say so in `work`."""
    mine, theirs = (median_seconds(usages) for usages in alternate(ours, other, before, runs))
    theirs *= share
    ratio = theirs / mine if goal.startswith(">=") else mine / theirs
    words = "x faster" if goal.startswith(">=") else "x its time"
    row(work, show_seconds(mine), show_seconds(theirs), f"{ratio:.2f} {words}", goal, meets(goal, ratio))


def peak(work, goal, ours, before=None, runs=RUNS):
    """A row for the peak memory of a command, in megabytes."""
    megabytes = statistics.median(measure(ours, before).megabytes for _ in range(runs))
    row(work, f"{megabytes:.1f} MB", "-", "-", f"{goal} MB", meets(goal, megabytes))


def growth(work, goal, small, large, before=None, runs=RUNS):
    """A row for how much longer twice the work takes."""
    less, more = (median_seconds(usages) for usages in alternate(small, large, before, runs))
    row(work, show_seconds(more), show_seconds(less), f"{more / less:.2f} x half the work", goal, meets(goal, more / less))


def table(rows, colour):
    """The rows as text, columns aligned; nothing is cut."""
    titles = {"work": "work", "ours": "ours", "other": "the other", "ratio": "ratio", "goal": "goal", "met": "met"}
    cells = [titles, *rows]
    width = {field: max(len(cell[field]) for cell in cells) for field in FIELDS}
    for number, cell in enumerate(cells):
        line = "  ".join(cell[field].ljust(width[field]) for field in FIELDS).rstrip()
        if colour and number:
            line = f"\033[{'32' if cell['met'] == 'yes' else '31'}m{line}\033[0m"
        elif colour:
            line = f"\033[1m{line}\033[0m"
        yield line


def gather(arguments):
    rows = [dict(zip(FIELDS, line.rstrip("\n").split("\t"), strict=True)) for line in sys.stdin if line.strip()]
    if arguments.json:
        with open(arguments.json, "w") as out:
            json.dump(rows, out, indent=1)
            out.write("\n")
    print("\n".join(table(rows, sys.stdout.isatty())))
    met = sum(cell["met"] == "yes" for cell in rows)
    print(f"{met} met, {len(rows) - met} not met")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    kinds = parser.add_subparsers(required=True, dest="kind")
    for name, commands in (("compare", ("ours", "other")), ("peak", ("ours",)), ("growth", ("small", "large"))):
        kind = kinds.add_parser(name)
        for option in ("work", "goal", *commands):
            kind.add_argument(f"--{option}", required=True)
        kind.add_argument("--before")
        kind.add_argument("--runs", type=int, default=RUNS)
    kinds.add_parser("table").add_argument("--json")
    arguments = vars(parser.parse_args())
    kind = arguments.pop("kind")
    if kind == "table":
        gather(argparse.Namespace(**arguments))
    else:
        {"compare": compare, "peak": peak, "growth": growth}[kind](**arguments)


if __name__ == "__main__":
    main()
