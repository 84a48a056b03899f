"""A queue of lines that nobody knows what to do with: taking it over, reading and telling the lines apart."""
import os
import subprocess

import bench

LINES = 100_000
BASH_SHARE = 10
PANEL = os.path.join(os.path.dirname(bench.__file__), "panel.sh")
PROGRAM = "/usr/local/zorvane/zvtaskq"
QUEUE = "/usr/local/zorvane/data/task.queue"

PYTHON = f"""
import os, urllib.parse
os.rename("{QUEUE}", "{QUEUE}.tmp")
actions = {{"tally": print, "reset": print, "rewrite": print}}
with open("{QUEUE}.tmp") as queue:
    for line in queue:
        record = dict(urllib.parse.parse_qsl(line.rstrip("\\n"), keep_blank_values=True))
        if record.get("action") in actions:
            actions[record["action"]](record)
os.unlink("{QUEUE}.tmp")
"""

BASH = f"""
mv {QUEUE} {QUEUE}.tmp
declare -A record
while IFS= read -r line; do
    record=()
    IFS='&' read -ra pairs <<<"$line"
    for pair in "${{pairs[@]}}"; do
        value=${{pair#*=}} value=${{value//+/ }}
        printf -v value '%b' "${{value//%/\\\\x}}"
        record[${{pair%%=*}}]=$value
    done
    case ${{record[action]}} in
        tally | reset | rewrite) echo "$line" ;;
    esac
done <{QUEUE}.tmp
rm {QUEUE}.tmp
"""


def write_queue(path, lines):
    with open(path, "w", encoding="ascii") as queue:
        for i in range(lines):
            queue.write(f"action=unknown&value=user{i}&type=domain&domain=site{i}.example.com&note=a+few%20words\n")


def write_script(path, text):
    with open(path, "w", encoding="ascii") as script:
        script.write(text)


def main():
    subprocess.run(["bash", PANEL, "layPanel", os.environ["ZVTASKQ_BUILD"]], check=True)
    for name, lines in (("all", LINES), ("half", LINES // 2), ("part", LINES // BASH_SHARE)):
        write_queue(f"/tmp/queue.{name}", lines)
    write_script("/tmp/drain.py", PYTHON)
    write_script("/tmp/drain.sh", BASH)
    refill = "cp /tmp/queue.{} " + QUEUE
    bench.compare("queue of 100,000 lines; Python with urllib", ">= 12", PROGRAM, "python3 /tmp/drain.py",
                  before=refill.format("all"))
    bench.compare("queue of 100,000 lines; while read in bash, a tenth of them times ten", ">= 100", PROGRAM,
                  "bash /tmp/drain.sh", before=(refill.format("all"), refill.format("part")), runs=3, share=BASH_SHARE)
    bench.growth("queue of 100,000 lines, half of it", "<= 2.2", PROGRAM, PROGRAM,
                 before=(refill.format("half"), refill.format("all")))


if __name__ == "__main__":
    main()
