#!/usr/bin/env bash
# A panel on this machine, for tests and the demo: users, folders, settings, accounts. Read it in, or call one of
# its functions: dev/lib/panel.sh layPanel build/dev. It works in the sandbox only.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

panelRoot=/usr/local/zorvane
panelConf=$panelRoot/conf/zorvane.conf
panelData=$panelRoot/data
adminFolder=$panelData/admin
usersFolder=$panelData/users
ticketsFolder=$panelData/tickets
panelLogs=/var/log/zorvane
mailFolder=/etc/virtual
panelAddress=192.0.2.10

requireSandbox() {
    [[ -n ${ZVTASKQ_SANDBOX:-} ]] || die "a panel is laid in the sandbox only: dev/sandbox CMD"
}

# addPanelUsers: the system accounts a panel works with; each sandbox has them from its start.
addPanelUsers() {
    local user
    for user in zvadmin apache zvacme; do
        getent passwd "$user" >/dev/null || useradd --system --user-group --no-create-home --home-dir "$panelRoot" \
            --shell /usr/sbin/nologin "$user"
    done
}

# panelFolder MODE OWNER FOLDER...
panelFolder() {
    install -d -m "$1" -o "${2%:*}" -g "${2#*:}" "${@:3}"
}

# writeRecord FILE [LINE...]: a record (NAME=VALUE lines) or a list of the panel's own: zvadmin's, mode 0600.
writeRecord() {
    local file=$1
    shift
    : >"$file"
    (($# == 0)) || printf '%s\n' "$@" >"$file"
    chown zvadmin:zvadmin "$file"
    chmod 600 "$file"
}

# addLine LIST LINE: LINE once in a list of the panel's own.
addLine() {
    local lines=()
    [[ ! -e $1 ]] || mapfile -t lines <"$1"
    mapfile -t lines < <(printf '%s\n' ${lines[@]+"${lines[@]}"} "$2" | LC_ALL=C sort -u)
    writeRecord "$1" "${lines[@]}"
}

# setSetting KEY VALUE: in zorvane.conf, in place of an earlier one.
setSetting() {
    local lines
    mapfile -t lines < <(grep -v "^$1=" "$panelConf" || true)
    writeRecord "$panelConf" ${lines[@]+"${lines[@]}"} "$1=$2"
}

layFolders() {
    panelFolder 755 root:root "$panelRoot" "$panelRoot/scripts/custom"
    panelFolder 711 zvadmin:zvadmin "$panelRoot/conf" "$panelData" "$usersFolder" "$ticketsFolder" "$panelLogs"
    panelFolder 1731 zvadmin:nogroup "$adminFolder"
    panelFolder 711 zvadmin:zvadmin "$adminFolder/ips"
    panelFolder 755 mail:mail "$mailFolder"
    panelFolder 1777 root:root /home/tmp
}

# networkDevice: what carries the panel's address, the first one that is not the loopback where that is another.
networkDevice() {
    local device
    for device in /sys/class/net/*; do
        [[ ${device##*/} == lo || ! -e $device/operstate ]] || { printf '%s' "${device##*/}"; return 0; }
    done
    printf lo:0
}

laySettings() {
    writeRecord "$panelConf" "serverpath=$panelRoot" "servername=$(hostname)" "logdir=$panelLogs" \
        "taskqueue=$panelData/task.queue" "taskqueuecb=$panelData/task.queue.cb" "mailtaskqueue=$mailFolder/mail_task.queue" \
        "admindir=$adminFolder" "userdata=$usersFolder" "ticketsdir=$ticketsFolder" "templates=$panelData/templates" \
        "emailvirtual=$mailFolder" "ethernet_dev=$(networkDevice)" "check_load=0" "check_partitions=0"
}

layAdminRecords() {
    local file
    for file in login.hist services.status admin.usage admin.list reseller.list tickets.list; do
        writeRecord "$adminFolder/$file"
    done
    writeRecord "$adminFolder/next_ticket.number" 1
    writeRecord "$adminFolder/admin.conf" service_email_active=yes service_email_last_sent=0
    chown nobody:nogroup "$adminFolder/admin.conf"
    writeRecord "$adminFolder/ip.list" "$panelAddress"
    writeRecord "$adminFolder/ips/$panelAddress" "status=server" "netmask=255.255.255.0"
    : >"$mailFolder/domainowners"
    chown mail:mail "$mailFolder/domainowners"
}

# layPanel [BUILD]: an empty panel below /usr/local/zorvane; with the build folder BUILD, its program and data too.
layPanel() {
    requireSandbox
    addPanelUsers
    layFolders
    [[ -z ${1:-} ]] || cmake --install "$1" --prefix "$panelRoot" >/dev/null
    laySettings
    layAdminRecords
    # Where the panel expects the parallel compressor.
    local program
    for program in pigz unpigz; do
        [[ ! -x /usr/bin/$program ]] || ln -sf "/usr/bin/$program" "/usr/local/bin/$program"
    done
}

accountLimits=(bandwidth=10240 quota=1024 inode=100000 vdomains=10 nsubdomains=10 nemails=20 nemailf=20 nemailml=5
    nemailr=5 mysql=5 domainptr=5 ftp=10 additional_bandwidth=0)

# addDomain USER DOMAIN: in the account's records, its home and the mail server's table.
addDomain() {
    local user=$1 domain=$2 records=$usersFolder/$1/domains
    writeRecord "$records/$domain.conf" "domain=$domain" bandwidth=10240 quota=1024 suspended=no
    writeRecord "$records/$domain.usage" bandwidth=0 quota=0
    writeRecord "$records/$domain.subdomains"
    writeRecord "$records/$domain.pointers"
    addLine "$usersFolder/$user/domains.list" "$domain"
    panelFolder 711 "$user:$user" "/home/$user/domains" "/home/$user/domains/$domain" "/home/$user/domains/$domain/public_html"
    printf '%s: %s\n' "$domain" "$user" >>"$mailFolder/domainowners"
    panelFolder 700 mail:mail "$mailFolder/$domain" "$mailFolder/$domain/reply"
}

# addManagerRecords USER: what resellers and administrators have besides.
addManagerRecords() {
    local folder=$usersFolder/$1
    writeRecord "$folder/reseller.conf" "${accountLimits[@]}"
    writeRecord "$folder/reseller.usage" bandwidth=0 quota=0 nusers=0
    writeRecord "$folder/reseller.allocation" bandwidth=0 quota=0
    writeRecord "$folder/packages.list" standard
    panelFolder 711 zvadmin:zvadmin "$folder/packages"
    writeRecord "$folder/packages/standard.pkg" "${accountLimits[@]}"
    writeRecord "$folder/users.list"
}

# addAccount NAME TYPE CREATOR DOMAIN...: a system user with a home, and its records; TYPE is user, reseller or admin.
addAccount() {
    local name=$1 type=$2 creator=$3 folder=$usersFolder/$1 domain
    shift 3
    getent passwd "$name" >/dev/null || useradd --create-home --home-dir "/home/$name" --user-group --shell /bin/bash "$name"
    chmod 711 "/home/$name"
    panelFolder 711 zvadmin:zvadmin "$folder" "$folder/domains"
    writeRecord "$folder/user.conf" "username=$name" "usertype=$type" "creator=$creator" "name=$name" \
        "email=$name@${1:-localhost}" "domain=${1:-}" "ip=$panelAddress" package=standard language=en \
        "date_created=$(date +%s)" suspended=no account=ON suspend_at_limit=ON sentwarning=no "${accountLimits[@]}"
    writeRecord "$folder/user.usage" bandwidth=0 quota=0
    writeRecord "$folder/ip.list" "$panelAddress"
    writeRecord "$folder/tickets.list"
    [[ $type == user ]] || addManagerRecords "$name"
    [[ $type != admin ]] || addLine "$adminFolder/admin.list" "$name"
    [[ $type != reseller ]] || addLine "$adminFolder/reseller.list" "$name"
    [[ ! -e $usersFolder/$creator/users.list || $type != user ]] || addLine "$usersFolder/$creator/users.list" "$name"
    for domain in "$@"; do
        addDomain "$name" "$domain"
    done
}

# recordSystemctl FILE: from now on systemctl does nothing but write each call's arguments to FILE as a line.
recordSystemctl() {
    requireSandbox
    rm -f /usr/bin/systemctl
    printf '#!/bin/sh\nprintf "%%s\\n" "$*" >>%q\n' "$1" >/usr/bin/systemctl
    chmod 755 /usr/bin/systemctl
    : >"$1"
    chmod 666 "$1"
}

# queueLines LINE...: appended to the main queue, as the panel's other programs do.
queueLines() {
    printf '%s\n' "$@" >>"$panelData/task.queue"
}

if [[ ${BASH_SOURCE[0]} == "$0" ]]; then
    set -euo pipefail
    "${@:?usage: panel.sh FUNCTION ARGUMENT...}"
fi
