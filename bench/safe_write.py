"""A small record replaced again and again: lock, owner's identity and checks beside the plain calls."""
import os
import subprocess

import bench

TIMES = 2000


def main():
    folder = "/var/tmp/records"
    os.makedirs(folder, exist_ok=True)
    subprocess.run(["chown", "zvadmin", folder], check=True)
    program = os.environ["ZVTASKQ_BUILD"] + "/bench/safe_write_work"
    bench.compare(f"safe write of a small record, {TIMES:,} times; write, fsync, rename, fsync", "<= 1.4",
                  f"{program} ours {TIMES} {folder}/user.conf", f"{program} plain {TIMES} {folder}/plain.conf", runs=9)


if __name__ == "__main__":
    main()
