# shellcheck shell=bash
# The demo's fourth run: an attack by ssh. Read in by demo-inside.sh, whose tables and checks it uses.
# shellcheck disable=SC2154

secureLog=/var/log/secure
quietLines=200000
guesser=127.0.0.66
forgetful=127.0.0.77

# Lines of every kind but a failed log-in, so that there is something to search.
writeQuietLines() {
    awk -v lines="$1" 'BEGIN {
        for (i = 0; i < lines; i++)
            printf "Nov 21 %02d:%02d:%02d panel sshd[%d]: Accepted publickey for cleo from 192.0.2.%d port %d ssh2: ED25519 SHA256:%040d\n",
                i / 8400 % 24, i / 140 % 60, i % 60, 1000 + i % 30000, i % 250, 20000 + i % 40000, i
    }' >"$secureLog"
    chmod 600 "$secureLog"
}

startSshd() {
    printf '%s\n' 'module(load="imuxsock")' \
        "auth,authpriv.* action(type=\"omfile\" file=\"$secureLog\" template=\"RSYSLOG_TraditionalFileFormat\")" >/etc/rsyslog.conf
    rsyslogd
    waitUntil test -S /dev/log
    mkdir -p /run/sshd
    /usr/sbin/sshd -o ListenAddress=127.0.0.1 -o ListenAddress=::1 -o PasswordAuthentication=yes \
        -o KbdInteractiveAuthentication=no -o MaxStartups=50
}

# logIn FROM USER TO: with a wrong password.
logIn() {
    sshpass -p wrong ssh -b "$1" -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null -o NumberOfPasswordPrompts=1 \
        -o PreferredAuthentications=password "$2@$3" true >/dev/null 2>&1 || true
}

attack() {
    local user
    for user in root admin oracle test anna; do
        logIn "$guesser" "$user" 127.0.0.1 &
    done
    for user in anna anna; do
        logIn "$forgetful" "$user" 127.0.0.1 &
    done
    logIn ::1 root ::1 &
    wait
}

prepareAttack() {
    setSetting check_load 0
    setSetting check_partitions 0
    setSetting brute_force_log_scanner 1
    setSetting ip_brutecount 5
    setSetting user_brutecount 5
    writeRecord "$adminFolder/services.status" nginx=ON proftpd=OFF ghost=OFF
    # An account whose password is locked counts as suspended, and failures against it for nobody.
    printf '%s\n' admin:secret anna:secret | chpasswd
    writeQuietLines "$quietLines"
    startSshd
    attack
}

# The checks behind the rows.
noticeNames() {
    toldOnceOf 'Brute-Force Attack detected in service log from IP' &&
        grep -rqF "IP $guesser has 5 failed login attempts" "$ticketsFolder"
}
silentOn() { ! grep -rqF "IP $1 has" "$ticketsFolder"; }
entriesKept() { (($(wc -l <"$adminFolder/brute_log_entries.list") == 8)); }

showAttack() {
    title "Fourth run: zvtaskq, ${runTimes[3]}. $quietLines quiet lines in $secureLog, then 8 wrong passwords for a real sshd; limit 5"
    claim "5 log-ins from $guesser" "one message to the administrators" noticeNames
    claim "2 log-ins from $forgetful, 1 from ::1" "counted, below the limit: no message" silentOn "$forgetful"
    claim "brute_log_entries.list" "the 8 lines of the log are kept as evidence" entriesKept
    claim "fifth run, ${runTimes[4]}, the log as it was" "no second message" noticeNames
    printf '\n  %-40s  %s\n' "address" "failed log-ins"
    readCounts "$adminFolder/brute_ip.data"
    printf '\n  %-40s  %s\n' "account" "failed log-ins"
    readCounts "$adminFolder/brute_user.data"
}

# readCounts RECORD: its names with the sums of their counts, the highest first.
readCounts() {
    python3 - "$1" <<'END'
import sys
from urllib.parse import parse_qsl, unquote

rows = []
for line in open(sys.argv[1], encoding="utf-8"):
    name, record = line.rstrip("\n").split("=", 1)
    counts = [(key, int(value)) for key, value in parse_qsl(record) if key not in ("first_entry", "last_entry", "last_notify")]
    rows.append((sum(count for _, count in counts), unquote(name), ", ".join("%s %d" % pair for pair in counts)))
for total, name, counts in sorted(rows, reverse=True):
    print("  %-40s  %d (%s)" % (name, total, counts))
END
}
