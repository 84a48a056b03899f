# shellcheck shell=bash
# The demo's third run: the panel's upkeep. Read in by demo-inside.sh, whose tables and checks it uses.
# shellcheck disable=SC2154

mountOfDemo="/mnt/customer files"

# windowEdge NAME OFFSET: an edge of a vacation window, OFFSET as date takes it.
windowEdge() {
    date -d "$2" "+${1}year=%-Y&${1}month=%-m&${1}day=%-d&${1}time=%H:%M"
}

# A full partition, a load above its limit, an open vacation window, two blacklisted addresses, a service that never comes.
prepareUpkeep() {
    local mail=$mailFolder/anna.test
    mkdir -p "$mountOfDemo"
    mount -t tmpfs -o size=400k archive "$mountOfDemo"
    head -c 396K /dev/zero >"$mountOfDemo/archive.tar" 2>/dev/null || true
    printf '%s\n' "$mountOfDemo" >"$panelData/templates/partition_check.list"
    setSetting check_partitions 1
    setSetting check_load 0.001
    setSetting check_load_minute 1
    setSetting bruteforce 1
    setSetting clear_blacklist_ip_time 10
    writeRecord "$adminFolder/services.status" nginx=ON proftpd=OFF ghost=ON
    printf '%s\n' "192.0.2.66=$(($(date +%s) - 3600))" "192.0.2.77=$(date +%s)" >"$adminFolder/ip_blacklist"
    printf 'info:%s&%s\n' "$(windowEdge start '-1 day')" "$(windowEdge end '+1 day')" >"$mail/vacation.conf"
    printf 'I am at the sea.\n' >"$mail/reply/info.msg_off"
    chown -R mail:mail "$mail"
    queueLines 'action=vacation&value=all'
}

# The checks behind the rows.
toldOf() { grep -rqE -- "^subject=.*$1" "$ticketsFolder"; }
toldOnceOf() { (($(grep -rlE -- "^subject=.*$1" "$ticketsFolder" | wc -l) == 1)); }
vacationOpen() { [[ -e $mailFolder/anna.test/reply/info.msg && ! -e $mailFolder/anna.test/reply/info.msg_off ]]; }
blacklistAged() { [[ $(cut -d= -f1 "$adminFolder/ip_blacklist") == 192.0.2.77 ]]; }

showUpkeep() {
    title "Third run: zvtaskq, ${runTimes[2]}. Trouble had been made for the upkeep"
    claim "a partition is full: $mountOfDemo" "the administrators have a message" toldOf "$mountOfDemo|[Pp]artition"
    claim "the load is above its limit of 0.001" "the administrators have a message" toldOf '[Ll]oad'
    claim "services.status: ghost=ON, which cannot start" "started, restarted, one message" toldOnceOf ghost
    claim "action=vacation&value=all" "info@anna.test is on vacation now" vacationOpen
    claim "ip_blacklist: 192.0.2.66, an hour old" "gone; the fresh one stays" blacklistAged
}

# showMessages: every stored message as a person would read it.
showMessages() {
    local header
    title "What the administrators find in their panel"
    while read -r header; do
        printf '  %s%s%s\n' "$bold" "$(sed -n 's/^subject=//p' "$header")" "$plain"
        head -6 "${header%.conf}.msg" | cut -c1-140 | sed "s/^/    $dim/; s/\$/$plain/"
    done < <(find "$ticketsFolder" -name '*.conf' | sort)
}
