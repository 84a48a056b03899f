"""A minute in which nothing is to be done: no queue file, one watched service, which runs, every other check off."""
import os
import shutil
import subprocess

import bench

PROCESSES = 300
RUNS = 51
WATCHED = "watched"
OFF = ("check_load", "check_partitions", "brute_force_log_scanner", "block_cracking_unblock",
       "clear_blacklist_ip_time", "lost_password")
COMMON = os.path.join(os.path.dirname(bench.__file__), "panel.sh")
PROGRAM = "/usr/local/zorvane/zvtaskq"


def lay_panel():
    settings = "; ".join(f"setSetting {key} 0" for key in OFF)
    script = f'. "$1"; layPanel "$2"; {settings}; writeRecord "$adminFolder/services.status" {WATCHED}=ON'
    subprocess.run(["bash", "-euc", script, "bash", COMMON, os.environ["ZVTASKQ_BUILD"]], check=True)


def fill_process_table():
    shutil.copy("/bin/sleep", f"/usr/local/bin/{WATCHED}")
    programs = [WATCHED] + ["sleep"] * (PROCESSES - 1)
    return [subprocess.Popen([program, "3600"], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
            for program in programs]


def check_that_it_is_idle():
    """A run that complains, or starts the service, is not the work that is measured."""
    log = "/var/log/zorvane/errortaskq.log"
    subprocess.run([PROGRAM], check=True)
    if os.path.exists(log) and os.path.getsize(log) > 0:
        raise SystemExit(f"the run was not idle: {open(log, encoding='latin-1').read()}")


def main():
    lay_panel()
    sleepers = fill_process_table()
    try:
        check_that_it_is_idle()
        with open("/etc/logrotate.empty", "w", encoding="ascii"):
            pass
        bench.compare(f"idle run, {PROCESSES} processes; logrotate with an empty configuration", "<= 2", PROGRAM,
                      "/usr/sbin/logrotate /etc/logrotate.empty", runs=RUNS)
        bench.peak("idle run, peak memory", "<= 8", PROGRAM)
    finally:
        for sleeper in sleepers:
            sleeper.kill()
            sleeper.wait()


if __name__ == "__main__":
    main()
