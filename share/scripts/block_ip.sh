#!/bin/sh
# Blocks addresses: nothing that comes from them is let in any more.
#
#   block_ip.sh [ADDRESS...]
#
# Without arguments the addresses are those of the variable `ip`, separated by commas or blanks. One that is blocked
# already keeps its time. When one of them is no address, or the machine's own, nothing is blocked.
set -eu
# shellcheck source=block_lib.sh
. "$(dirname "$0")/block_lib.sh"

wanted=$(wantedAddresses "$@")
[ -n "$wanted" ] || fail 'no address given'
new=$(elements "$wanted" "$(date +%s)")
{
    layTable
    printf '%s\n' "$new" | sed 's/^/add element /'
} | nft -f -
