# shellcheck shell=bash
# What every script of this folder shares: where the checkout is, how to speak, how to give up.

projectRoot=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)
export projectRoot
# One search path everywhere, so that a script does the same under cron, in CI and in a person's shell.
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
export HOME=${HOME:-/root}
export DEBIAN_FRONTEND=noninteractive

# Where downloads and prepared layers are kept between runs.
cacheFolder() {
    printf '%s\n' "${ZVTASKQ_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/zvtaskq}"
}

# say WORDS...: one line for the person who watches; never mixed into what a command prints.
say() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
}

die() {
    say "$*"
    exit 1
}

requireRoot() {
    [[ $(id -u) == 0 ]] || die "this needs root; run it as root or through sudo"
}

# openStandardInput: a closed standard input becomes an empty one, so that no file we open takes its number.
openStandardInput() {
    [[ -e /proc/self/fd/0 ]] || exec </dev/null
}
