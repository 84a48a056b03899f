#!/usr/bin/env bash
# The demo, inside the sandbox: demo-inside.sh BUILD
set -euo pipefail
libFolder=$(dirname "${BASH_SOURCE[0]}")
. "$libFolder/panel.sh"
. "$(dirname "${BASH_SOURCE[0]}")/demo-upkeep.sh"
. "$(dirname "${BASH_SOURCE[0]}")/demo-logs.sh"

if [[ -t 1 ]]; then
    bold=$'\033[1m' green=$'\033[32m' red=$'\033[31m' dim=$'\033[2m' plain=$'\033[0m'
else
    bold="" green="" red="" dim="" plain=""
fi

title() {
    printf '\n%s%s%s\n' "$bold" "$*" "$plain"
}

# claim WHAT OUTCOME CHECK...: a row of a table; the check decides whether what the row says is so.
wrong=0
claim() {
    local mark=${green}ok${plain}
    "${@:3}" || { mark="${red}NOT SO$plain"; wrong=$((wrong + 1)); }
    printf '  %-46s  %-62s  %s\n' "$1" "$2" "$mark"
}

errors=$panelLogs/errortaskq.log
system=$panelLogs/system.log

# What the checks look at. A log line is a time stamp, ": " and the text.
logged() { grep -qE "^[0-9:-]{19}: $(literally "$2")\$" "$1"; }
loggedTimes() { [[ $(grep -cE "^[0-9:-]{19}: $(literally "$2")\$" "$1") == "$3" ]]; }
literally() { sed 's/[][\.*^$+?(){}|/]/\\&/g' <<<"$1"; }
lineOf() { grep -nF -- "$2" "$1" | sed 's/:.*//;q'; }
loggedBefore() { (($(lineOf "$1" "$2") < $(lineOf "$1" "$3"))); }
nowhere() { ! grep -rqF -- "$1" "$panelLogs"; }
absent() {
    local file
    for file in "$@"; do
        [[ ! -e $file && ! -e $file.tmp ]] || return 1
    done
}

# serverProcess NAME: the id of its master process, nothing when it is down.
serverProcess() {
    local id file=/run/$1.pid
    [[ -s $file ]] || return 0
    id=$(<"$file")
    [[ ! -d /proc/$id ]] || printf '%s' "$id"
}

serverState() {
    local id
    id=$(serverProcess "$1")
    [[ -n $id ]] && printf 'running, process %s' "$id" || printf 'down'
}

# remember MOMENT: how the servers are now, as a column of the table of servers.
declare -A nginxAt proftpdAt
moments=()
remember() {
    moments+=("$1")
    nginxAt[$1]=$(serverState nginx)
    proftpdAt[$1]=$(serverState proftpd)
}

waitUntil() {
    local tries
    for ((tries = 0; tries < 100; tries++)); do
        ! "$@" || return 0
        sleep 0.1
    done
    die "waited in vain: $*"
}

isDown() { [[ -z $(serverProcess "$1") ]]; }
isUp() { [[ -n $(serverProcess "$1") ]]; }

samplePanel() {
    layPanel "$1"
    addAccount admin admin "" panel.test
    addAccount rita reseller admin rita.test
    addAccount anna user rita anna.test anna-shop.test
    addAccount bert user rita bert.test
    addAccount cleo user rita cleo.test cleo.example
    writeRecord "$adminFolder/services.status" nginx=ON proftpd=OFF
}

startServers() {
    local server
    for server in nginx proftpd; do
        /sbin/service "$server" start >/dev/null
        waitUntil isUp "$server"
    done
}

mainQueue=(
    'action=nginx&value=reload'
    'action=proftpd&value=stop'
    'action=notify&value=admin&subject=Disk%20replaced&message=The%20second%20disk%20is%20new.'
    'action=nginx&value=restart'
    'value=everything'
    'action=named&value=explode'
    'action=dance&value=all'
    'action=proftpd&value=start'
    'action=nginx&value=graceful'
    'action=reset&value=all'
)
mailQueue=('username=anna' 'action=unheard&username=anna')

fillQueues() {
    queueLines "${mainQueue[@]}"
    printf '%s\n' "${mailQueue[@]}" >"$mailFolder/mail_task.queue"
}

run() {
    local start=$EPOCHREALTIME
    runs=$((runs + 1))
    "$panelRoot/zvtaskq" "$@" >"$work/run$runs" 2>&1 || {
        printf '%szvtaskq ended with exit status %d%s\n' "$red" $? "$plain"
        wrong=$((wrong + 1))
    }
    runTimes+=("$(((${EPOCHREALTIME/./} - ${start/./}) / 1000)) ms")
}

# The checks behind the rows that claim more than one thing.
proftpdStopped() { loggedTimes "$system" 'proftpd stoped' 1 && [[ ${proftpdAt["after run 1"]} == down ]]; }
nginxRestarted() { loggedTimes "$system" 'nginx restarted' 1 && [[ ${nginxAt[before]} != "${nginxAt["after run 1"]}" ]]; }
adminsTold() {
    grep -rqsxF 'The second disk is new.' "$ticketsFolder" && grep -q '=type=message&new=yes$' "$adminFolder/tickets.list"
}
resetRanFirst() {
    logged "$errors" 'Reset All has finished' && loggedTimes "$system" 'Reset all command Received' 1 &&
        loggedBefore "$errors" 'Reset All has started' 'executeCommand:invalid action' &&
        grep -qxF 'action=tally&value=all' "$work/queuedAfter"
}
nginxRevived() {
    logged "$errors" "service nginx wasn't running, starting it" && loggedTimes "$system" 'nginx started' 1 &&
        [[ ${nginxAt["nginx killed"]} == down && ${nginxAt["after run 2"]} == running* ]]
}
tallyDone() {
    grep -qxF 'zvtaskq: command: action=tally&value=all' "$work/run2" && loggedTimes "$system" 'Tally All Complete' 1
}
debugShown() { grep -qx 'staring queue' "$work/run2" && grep -qx 'done queue' "$work/run2"; }

showQueue() {
    title "First run: zvtaskq, ${runTimes[0]}. The queue as it was written, and what became of each line"
    claim "${mainQueue[0]}" "merged into the restart" nowhere 'nginx reload'
    claim "${mainQueue[1]}" "the harder of two verbs: stopped once, at the end" proftpdStopped
    claim "${mainQueue[2]:0:43}..." "a message to the administrators" adminsTold
    claim "${mainQueue[3]}" "the hardest of three verbs: restarted once, at the end" nginxRestarted
    claim "${mainQueue[4]}" "reported: no action" logged "$errors" "executeCommand:invalid action: ${mainQueue[4]}"
    claim "${mainQueue[5]}" "reported: no such verb" logged "$errors" "Invalid action in: ${mainQueue[5]}"
    claim "${mainQueue[6]}" "unknown: dropped in silence" nowhere dance
    claim "${mainQueue[7]}" "merged into the stop" nowhere 'proftpd started'
    claim "${mainQueue[8]}" "merged into the restart" nowhere 'nginx graceful'
    claim "${mainQueue[9]}" "came last, ran first; a full tally is queued" resetRanFirst
    claim "mail queue: ${mailQueue[0]}" "reported: no action" logged "$errors" "execute_mail_commmand:invalid action: ${mailQueue[0]}"
    claim "mail queue: ${mailQueue[1]}" "unknown: dropped in silence" nowhere unheard
}

showSecondRun() {
    title "Second run: zvtaskq d20, ${runTimes[1]}. nginx had been killed"
    claim "service monitor" "found nginx down and started it" nginxRevived
    claim "service monitor" "left proftpd alone: OFF in services.status" nowhere 'service proftpd'
    claim "debug level 20" "begins and ends as it should" debugShown
    claim "action=tally&value=all, queued by the reset" "all accounts were tallied" tallyDone
    claim "queue files, pid file" "all gone" absent "$panelData/task.queue" "$mailFolder/mail_task.queue" /run/zvtaskq.pid
}

showServers() {
    local moment
    title "The servers"
    for moment in "${moments[@]}"; do
        printf '  %-14s  nginx %-24s  proftpd %s\n' "$moment" "${nginxAt[$moment]}" "${proftpdAt[$moment]}"
    done
    claim "nginx answers on port 80" "$(head -1 "$work/answer" | tr -d '\r')" grep -q '^HTTP/1.1 200' "$work/answer"
}

showLogs() {
    local log
    for log in "$system" "$errors"; do
        title "$log"
        sed "s/^/  $dim/; s/\$/$plain/" "$log" 2>/dev/null || printf '  missing\n'
    done
}

askNginx() {
    { exec 3<>/dev/tcp/127.0.0.1/80 && printf 'HEAD / HTTP/1.0\r\n\r\n' >&3 && cat <&3; } >"$work/answer" 2>/dev/null || true
}

# The main job, in a panel of its own: two tallies, of which the second finds one account below its limits again.
tally() {
    layPanel "$1"
    local pair
    for pair in nginx=1 "nginxlogdir=/var/log/nginx/domains" disk_usage_suspend=1 webalizer=0 php_mail_log=0 \
        disable_quota=1 user_warning_thresh_disk=80 user_warning_thresh_inode=80; do
        setSetting "${pair%%=*}" "${pair#*=}"
    done
    python3 "$libFolder/demo_tally.py" prepare
    python3 "$libFolder/demo_services.py" prepare
    queueLines 'action=tally&value=all'
    run
    python3 "$libFolder/demo_tally.py" release
    queueLines 'action=tally&value=all'
    run
    # The server reads what the second has written.
    run
    tallyTook=${runTimes[0]}
    showTally >"$work/tally" || wrong=$((wrong + 1))
    services
    rm -r "$panelRoot" "$panelLogs" "$mailFolder" /etc/nginx/conf.d/accounts.conf
    nginx -s reload
    runs=0 runTimes=()
}
# What the servers make of the same accounts: all of it is written, then a broken piece and a good one.
services() {
    queueLines 'action=rewrite&value=nginx' 'action=rewrite&value=named' 'action=rewrite&value=pureftp_db'
    run
    python3 "$libFolder/demo_services.py" serve
    python3 "$libFolder/demo_services.py" change
    queueLines 'action=rewrite&value=nginx'
    run
    nginx -s reload
    python3 "$libFolder/demo_services.py" show "${runTimes[3]}" "${runTimes[4]}" >"$work/services" || wrong=$((wrong + 1))
    python3 "$libFolder/demo_services.py" end
}
showTally() {
    [[ ! -s $work/tally ]] || { cat "$work/tally"; return; }
    python3 "$libFolder/demo_tally.py" show "$tallyTook"
}

work=$(mktemp -d)
runs=0 runTimes=()
startServers
tally "$1"
samplePanel "$1"
remember before
fillQueues
run
remember "after run 1"
cp "$panelData/task.queue" "$work/queuedAfter" 2>/dev/null || : >"$work/queuedAfter"
kill "$(serverProcess nginx)"
waitUntil isDown nginx
remember "nginx killed"
run d20
remember "after run 2"
askNginx
prepareUpkeep
run
prepareAttack
run
run

showTally
cat "$work/services"
showQueue
showSecondRun
showServers
showUpkeep
showAttack
showMessages
showLogs
if ((wrong > 0)); then
    title "${red}$wrong of these are not so$plain"
    exit 1
fi
