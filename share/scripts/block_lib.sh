# shellcheck shell=sh
# What block_ip.sh and unblock_ip.sh share; read in by them, not run.
#
# The blocked addresses are kept by the kernel, in two sets of the nftables table "inet zorvane_bfm". The comment of
# each element is the second, since the epoch, in which it was blocked. A restart of the machine empties the sets.

PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
LC_ALL=C
export PATH LC_ALL

fail() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# wantedAddresses [ADDRESS...]: those of the command line, else those of the variable `ip`, one a line.
wantedAddresses() {
    [ $# -gt 0 ] || set -- "${ip:-}"
    printf '%s\n' "$@" | sed 's/[, \t]\{1,\}/\n/g' | sed '/^$/d'
}

# elements ADDRESS-LINES [COMMENT]: the addresses as elements, one a line, each behind the name of its set. One that is
# no address fails all; that of a machine itself does when it is to be blocked. What is made of these characters can be
# nothing but an address to nft, and it is nft that judges the fine points of IPv6.
elements() {
    printf '%s\n' "$1" | awk -v comment="${2:-}" -v own="127.0.0.1 ::1 $(hostname -I 2>/dev/null)" '
        function isByte(n) { return n ~ /^(0|[1-9][0-9]?[0-9]?)$/ && n + 0 < 256 }
        function isIPv4(text) { return split(text, b, ".") == 4 && isByte(b[1]) && isByte(b[2]) && isByte(b[3]) && isByte(b[4]) }
        function isIPv6(text) { return text ~ /^[0-9A-Fa-f:.]+$/ && text ~ /:.*:/ && length(text) < 46 }
        function refuse(why) { print why ": " $0 | "cat >&2"; refused = 1; exit 1 }
        BEGIN { n = split(own, list, " "); for (i = 1; i <= n; i++) isOwn[list[i]] }
        # What a server that listens on IPv6 calls an IPv4 address.
        tolower($0) ~ /^::ffff:[0-9.]+$/ { sub(/^.*:/, "") }
        { address = $0 }
        # A range is never blocked here, as it may hold the server itself; its block may be lifted.
        !comment && address ~ /\/[0-9]+$/ { sub(/\/[0-9]+$/, "", address) }
        { family = isIPv4(address) ? 4 : isIPv6(address) ? 6 : 0 }
        !family { refuse("not an address") }
        comment && ($0 in isOwn || /^127\./ || /^0\./ || /^[0:]*:[0:]*1?$/) { refuse("an address of this server itself") }
        { printf "inet zorvane_bfm blocked%d { %s%s }\n", family, $0, comment ? " comment \"" comment "\"" : "" }
        END { exit refused }'
}

# layTable: the commands for the table with its sets and the rules that drop what comes from them. What is there stays.
layTable() {
    cat <<'END'
add table inet zorvane_bfm
add set inet zorvane_bfm blocked4 { type ipv4_addr; }
add set inet zorvane_bfm blocked6 { type ipv6_addr; }
add chain inet zorvane_bfm input { type filter hook input priority -10; policy accept; }
flush chain inet zorvane_bfm input
add rule inet zorvane_bfm input ip saddr @blocked4 drop
add rule inet zorvane_bfm input ip6 saddr @blocked6 drop
END
}
