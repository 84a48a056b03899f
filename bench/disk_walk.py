"""A large Maildir measured, beside du."""
import os

import bench

FILES = 200_000


def write_maildir(folder, files):
    """Names and folders as a mail server makes them."""
    for number in range(files):
        box = f"{folder}/.box{number // 20_000}/cur"
        if number % 20_000 == 0:
            os.makedirs(box)
        name = f"{box}/1795392000.M{number:06}P{number % 32768}.mail.example.com,S={number},W={number + 99}:2,S"
        with open(name, "wb") as message:
            message.write(b"x" * (number % 50))


def main():
    program = os.environ["ZVTASKQ_BUILD"] + "/bench/disk_walk_work"
    write_maildir("/tmp/maildir", FILES)
    write_maildir("/tmp/maildir.half", FILES // 2)
    bench.compare(f"Maildir of {FILES:,} files; du -s --apparent-size", "<= 1", f"{program} /tmp/maildir",
                  ["du", "-s", "--apparent-size", "/tmp/maildir"], runs=9)
    bench.growth(f"Maildir of {FILES:,} files, half of it", "<= 2.2", f"{program} /tmp/maildir.half", f"{program} /tmp/maildir", runs=15)


if __name__ == "__main__":
    main()
