#!/usr/bin/env python3
"""Plants the faults of dev/lib/planted.list in a tree, one at a time: plant.py TREE PACKAGES [WORD...]; see dev/plant."""
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
TREE, PACKAGES, *WORDS = sys.argv[1:]
TREE = pathlib.Path(TREE)
BUILD = TREE / "build/dev"
INSTALLED = ["zvtaskq", "zvdb", "zvmailusage", "zvcert", "tally_driver", "account_driver"]
# Seconds: a fault may keep its test from ever coming to an end.
LONGEST_TEST = 600


def run(*command):
    done = subprocess.run(command, cwd=TREE, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          check=False)
    return done.returncode, done.stdout.decode(errors="replace")


def rows():
    for line in (ROOT / "dev/lib/planted.list").read_text().splitlines():
        if line and not line.startswith("#") and (not WORDS or any(word in line for word in WORDS)):
            yield [part.strip() for part in line.split(" | ")]


def programs():
    """The rooms that have a test program, the deepest first."""
    _, targets = run("ninja", "-C", BUILD, "-t", "targets", "all")
    names = [line.split(":")[0] for line in targets.splitlines() if line.startswith("tests/test_")]
    return sorted((name.removeprefix("tests/test_") for name in names), key=len, reverse=True)


def test_of(name, method, known):
    """The targets to build, and the command that runs the test."""
    if name.startswith("e2e."):
        file = TREE / f"tests/e2e/{name.removeprefix('e2e.')}_test.py"
        return INSTALLED, ["env", f"ZVTASKQ_TEST_BUILD={BUILD}", "python3", file, *method]
    room = next(room for room in known if name == room or name.startswith(room + "."))
    cases = name[len(room) + 1:]
    return [f"tests/test_{room}"], [BUILD / f"tests/test_{room}", f"--gtest_filter={cases}*"]


def fails(goals, test):
    """Whether the test fails in the tree as it is; None, with what the compiler said, when it does not build."""
    failed, said = run("cmake", "--build", BUILD, "--target", *goals)
    if failed:
        return None, said[-1000:]
    failed, _ = run(ROOT / "dev/sandbox", "--with", PACKAGES, "--", "timeout", str(LONGEST_TEST), *test)
    return failed != 0, ""


SOUND = {}


def plant(row, known):
    """What became of one fault; "noticed" when all is well."""
    file, expression, name, *method = row
    goals, test = test_of(name, method, known)
    # A test that fails anyway, for want of that name or of a server, would notice everything.
    key = (name, *method)
    if key not in SOUND:
        SOUND[key] = fails(goals, test)[0] is False
    if not SOUND[key]:
        return "not sound: the test fails without the fault"
    path = TREE / file
    before = path.read_bytes()
    try:
        run("perl", "-0pi", "-e", expression, path)
        if path.read_bytes() == before:
            return "not planted: nothing there to change"
        failed, said = fails(goals, test)
        if failed is None:
            return "not planted: does not build\n" + said
        return "noticed" if failed else "NOT NOTICED"
    finally:
        path.write_bytes(before)


def main():
    known = programs()
    all_rows = list(rows())
    missed = 0
    for row in all_rows:
        outcome = plant(row, known)
        missed += outcome != "noticed"
        print(f"{outcome:12}  {row[2]}: {row[0]}: {row[1]}", flush=True)
    print(f"{len(all_rows) - missed} noticed, {missed} not noticed")
    return 1 if missed or not all_rows else 0


sys.exit(main())
