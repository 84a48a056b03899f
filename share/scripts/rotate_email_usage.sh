#!/bin/sh
# Enters the mail traffic that the mail server has noted ("usage/<account>.bytes" in its folder) into the accounts'
# bandwidth.tally. The panel runs it as root when it tallies all accounts, before it bills them, with its folder and its
# configuration file in the variables `serverpath` and `config`. A script of the same name in scripts/custom takes its
# place, and may call this one.
#
# The lines of a mail server that writes on, in a folder that is not root's, are moved by a program: a shell cannot do
# that without following what somebody else puts there, nor without losing or repeating lines when it is killed.
set -eu
panel=${serverpath:-$(dirname "$0")/..}
exec "$panel/libexec/zvmailusage" "${config:-$panel/conf/zorvane.conf}"
