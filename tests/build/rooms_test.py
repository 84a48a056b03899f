#!/usr/bin/env python3
"""Proves that the build keeps the rooms apart: every header of every room compiles alone with what its room sees; a
room that does not see it cannot include it; and no library needs a symbol of a room that it does not see.

    rooms_test.py COMPILER 'ROOM|LIBRARY|ROOT[:ROOT...]'...
"""
import pathlib
import re
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "dev/lib"))
import rules  # noqa: E402

COMPILER, *DESCRIPTIONS = sys.argv[1:]
ROOMS = {}
for description in DESCRIPTIONS:
    name, library, roots = description.split("|")
    ROOMS[name] = (library, list(dict.fromkeys(pathlib.Path(root) for root in roots.split(":") if root)))


def declared():
    """Room -> the rooms it may see, itself among them: what the declarations say, not what the build made of them."""
    sees, uses = {}, {}
    text = (rules.ROOT / "CMakeLists.txt").read_text()
    for name, rest in re.findall(r"^zv_room\(([\w/]+)([^)]*)\)", text, re.M):
        before, _, after = rest.partition("USES")
        sees[name], uses[name] = before.replace("SEES", "").split(), after.split()

    def passed_on(name):
        return {name}.union(*map(passed_on, sees[name]))
    return {name: passed_on(name).union(*map(passed_on, uses[name])) for name in sees}


def compiles(source, roots, folder):
    probe = pathlib.Path(folder) / "probe.cpp"
    probe.write_text(source)
    done = subprocess.run([COMPILER, "-std=c++20", "-fsyntax-only", *(f"-I{root}" for root in roots), probe],
                          stderr=subprocess.PIPE, check=False)
    return done.stderr.decode() if done.returncode else ""


def headers(room):
    return sorted(f"{room}/{path.name}" for path in (rules.ROOT / "src" / room).glob("*.h"))


def check_headers(visible, folder):
    """A compiler finds an include in a root or nowhere, so looking for the file there tells for every pair; that a
    missing one really stops it is tried once for each room."""
    for room, (_, roots) in ROOMS.items():
        for header in headers(room):
            words = compiles(f'#include "{header}"\n', roots, folder)
            if words:
                yield f"{header} does not compile alone:\n{words}"
        hidden = [header for other in ROOMS if other not in visible[room] for header in headers(other)]
        yield from (f"{room} can include {header}" for header in hidden if any((root / header).exists() for root in roots))
        if hidden and not re.search(r"file not found|No such file", compiles(f'#include "{hidden[0]}"\n', roots, folder)):
            yield f"{room} compiles with {hidden[0]}"


def check_symbols(visible):
    """Only what stands in one room alone: a template or an inline function is made wherever it is used."""
    homes = {}
    for room, (library, _) in ROOMS.items():
        for symbol in rules.symbols(library, "--defined-only", "--extern-only"):
            homes.setdefault(symbol, set()).add(room)
    for room, (library, _) in ROOMS.items():
        for symbol in sorted(rules.symbols(library, "--undefined-only")):
            if symbol in homes and not homes[symbol] & visible[room]:
                yield f"{room} needs {symbol} of {' or '.join(sorted(homes[symbol]))}, which it does not see"


def main():
    visible = declared()
    if set(visible) != set(ROOMS):
        return [f"declared and built rooms differ: {sorted(set(visible) ^ set(ROOMS))}"]
    with tempfile.TemporaryDirectory() as folder:
        return [*check_headers(visible, folder), *check_symbols(visible)]


FINDINGS = main()
print("\n".join(FINDINGS) or f"{sum(len(headers(room)) for room in ROOMS)} headers in {len(ROOMS)} rooms")
sys.exit(1 if FINDINGS or not ROOMS else 0)
