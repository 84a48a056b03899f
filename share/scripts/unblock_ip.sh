#!/bin/sh
# Lifts the blocks on addresses, all of them at once.
#
#   unblock_ip.sh [ADDRESS...]
#
# Without arguments the addresses are those of the variable `ip`, separated by commas or blanks. One may be a range
# ("192.0.2.0/24"), where an administrator has laid the sets so that they hold ranges. One that is not blocked is left
# out. When one of them is no address, nothing is unblocked.
set -eu
# shellcheck source=block_lib.sh
. "$(dirname "$0")/block_lib.sh"

wanted=$(wantedAddresses "$@")
[ -n "$wanted" ] || fail 'no address given'
old=$(elements "$wanted")
# Only what is there can be deleted: each is added before, as one step with the deletion.
{
    layTable
    printf '%s\n' "$old" | sed 's/^/add element /'
    printf '%s\n' "$old" | sed 's/^/delete element /'
} | nft -f -
