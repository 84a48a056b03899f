#!/usr/bin/env python3
"""clang-tidy over every file of a compile database: tidy.py BUILD-FOLDER

Prints the findings, one a line; the exit status is 1 when there is one. A file that was clean is not looked at again
until it, a header it includes or the configuration changes; what was clean is remembered in BUILD-FOLDER/clean.
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
KEPT_DAYS = 30


def preprocessed(entry):
    """The file as the compiler sees it, with its comments, which may hold NOLINT."""
    command = shlex.split(entry["command"])
    command[command.index("-o"):command.index("-o") + 2] = []
    command[command.index("-c")] = "-E"
    return subprocess.run([*command, "-C", "-o", "-"], cwd=entry["directory"], stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, check=False).stdout


def fingerprint(entry):
    digest = hashlib.sha256(preprocessed(entry))
    for folder in [pathlib.Path(entry["file"]).parent, *pathlib.Path(entry["file"]).parents]:
        if (folder / ".clang-tidy").exists():
            digest.update((folder / ".clang-tidy").read_bytes())
        if folder == ROOT:
            break
    return digest.hexdigest()


def findings_of(entry, build):
    clean = build / "clean" / fingerprint(entry)
    if clean.exists():
        clean.touch()
        return []
    run = subprocess.run(["clang-tidy", "-p", build, "--quiet", entry["file"]], stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE, check=False)
    lines = [line for line in run.stdout.decode().splitlines() if ": error: " in line or ": warning: " in line]
    if run.returncode == 0 and not lines:
        clean.touch()
        return []
    return lines or [f"{entry['file']}: clang-tidy ended with {run.returncode}: {run.stderr.decode()[-300:]}"]


def main(build):
    (build / "clean").mkdir(exist_ok=True)
    for old in (build / "clean").iterdir():
        if time.time() - old.stat().st_mtime > KEPT_DAYS * 86400:
            old.unlink()
    entries = {entry["file"]: entry for entry in json.loads((build / "compile_commands.json").read_text())}
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        found = pool.map(lambda entry: findings_of(entry, build), entries.values())
    lines = sorted({line.replace(f"{ROOT}/", "") for group in found for line in group})
    print("\n".join(lines) if lines else f"{len(entries)} files")
    return 1 if lines else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1])))
