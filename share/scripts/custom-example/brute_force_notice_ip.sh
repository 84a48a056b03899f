#!/bin/sh
# Blocks every address that the brute-force monitor gives notice of. Copied to the folder "custom" beside this one it is
# active:
#
#   cp scripts/custom-example/brute_force_notice_ip.sh scripts/custom/
#
# The monitor sets `value` (the address), `data` (its failures, a URL-encoded record) and `count` (all of them).
# shellcheck disable=SC2154
exec "$(dirname "$0")/../block_ip.sh" "$value"
