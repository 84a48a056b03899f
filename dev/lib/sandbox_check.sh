#!/usr/bin/env bash
# Proves that dev/sandbox keeps what it promises: nothing leaks out, everything inside is there. Prints what is not so.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

sandbox() {
    "$projectRoot/dev/sandbox" "$@"
}

wrong=0
expect() {
    "${@:2}" || { printf 'not so: %s\n' "$1"; wrong=$((wrong + 1)); }
}

if [[ $(sandbox printenv ZVTASKQ_SANDBOX) != copy ]]; then
    echo "in place: nothing is kept apart on this machine"
    exit 0
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
echo outside >"$work/file"

changesVanish() {
    sandbox bash -c 'echo inside >"$1/file"; rm -r "$1"; useradd leak; rm /etc/hostname; ! id leak 2>&1 | grep -q "no such"' \
        change "$work" && [[ $(<"$work/file") == outside && -e /etc/hostname ]] && ! id leak >/dev/null 2>&1
}
statusComesOut() {
    local status=0
    sandbox bash -c 'exit 41' || status=$?
    ((status == 41))
}
# The sleep's length names it; a process outside would be seen by it.
leftoversEnd() {
    sandbox bash -c 'setsid sleep 86399.25 & disown; sleep 0.1'
    ! grep -qsxz '86399.25' /proc/[0-9]*/cmdline
}
killedWithIt() {
    local child tries
    "$projectRoot/dev/sandbox" sleep 86399.5 &
    child=$!
    for ((tries = 0; tries < 200; tries++)); do
        ! grep -qsxz '86399.5' /proc/[0-9]*/cmdline || break
        sleep 0.05
    done
    kill -KILL "$child"
    wait "$child" 2>/dev/null || true
    sleep 0.3
    ! grep -qsxz '86399.5' /proc/[0-9]*/cmdline
}
inputAndOutput() {
    [[ $(echo through | sandbox cat) == through ]] && sandbox cat <&- &&
        sandbox --out "$work/out" cp /etc/hosts "$work/out/kept" && [[ -s $work/out/kept ]]
}
ownMachine() {
    [[ $(sandbox hostname) != "$(hostname)" ]] && sandbox bash -c '
        ((EUID == 0)) && id zvadmin && id apache && [[ -x /sbin/service && ! -e /proc/1/cwd/run/systemd/system ]] &&
        exec 3<>/dev/udp/127.0.0.1/9 && ! echo 1 >/proc/sys/vm/drop_caches && ! date -s 2001-01-01' >/dev/null 2>&1
}
sameFolder() {
    [[ $(cd "$work" && sandbox pwd) == "$work" && $(sandbox cat "$work/file") == outside ]]
}

expect "changes vanish" changesVanish
expect "the exit status comes out" statusComesOut
expect "what CMD leaves behind ends with it" leftoversEnd
expect "a killed sandbox takes everything along" killedWithIt
expect "standard input and --out work, a closed input too" inputAndOutput
expect "own host name, users, network; the kernel's settings stay" ownMachine
expect "the working folder and its files are there" sameFolder
((wrong == 0))
