"""A small record replaced again and again: lock, owner's identity and checks beside the plain calls."""
import os
import subprocess

import bench

TIMES = 500
# Where the account that owns the records can reach the disk, wherever the checkout stands.
FOLDER = "/var/records"


def main():
    os.makedirs(FOLDER, exist_ok=True)
    subprocess.run(["mount", "--bind", os.environ["ZVTASKQ_DISK"], FOLDER], check=True)
    try:
        subprocess.run(["chown", "zvadmin", FOLDER], check=True)
        program = os.environ["ZVTASKQ_BUILD"] + "/bench/safe_write_work"
        bench.compare(f"safe write of a small record, {TIMES} times; write, fsync, rename, fsync", "<= 1.4",
                      f"{program} ours {TIMES} {FOLDER}/user.conf", f"{program} plain {TIMES} {FOLDER}/plain.conf",
                      runs=15)
    finally:
        subprocess.run(["umount", FOLDER], check=True)


if __name__ == "__main__":
    main()
