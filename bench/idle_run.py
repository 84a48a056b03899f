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
ERRORS = "/var/log/zorvane/errortaskq.log"


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
    subprocess.run([PROGRAM], stdout=subprocess.DEVNULL, check=True)
    with open(ERRORS, encoding="latin-1") as log:
        # Where a machine does not let its limits be raised, every run says so.
        complaints = [line for line in log if "Error with setrlimit" not in line]
    if complaints:
        raise SystemExit(f"the run was not idle: {''.join(complaints)}")


def main():
    lay_panel()
    with open(ERRORS, "a", encoding="ascii"):
        pass
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
