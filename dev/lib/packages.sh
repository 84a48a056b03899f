# shellcheck shell=bash
# Installs the Debian packages a script needs and this machine lacks. Tools only: no server is ever installed here,
# those live in the sandbox (see layers.sh).
# shellcheck disable=SC2034  # the lists are for whoever reads this file in

buildPackages=(g++ cmake ninja-build libgtest-dev libbenchmark-dev libmariadb-dev libssl-dev python3)
clangPackages=(clang libclang-rt-14-dev)
checkPackages=(clang-format clang-tidy make shellcheck)

# missingPackages PACKAGE...: those that are not installed, one a line.
missingPackages() {
    local package
    for package in "$@"; do
        [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || printf '%s\n' "$package"
    done
}

# aptGet LOG ARG...: apt-get, its words kept in LOG; it never asks anything.
aptGet() {
    local log=$1
    shift
    apt-get -q -y --no-install-recommends -o Dpkg::Use-Pty=0 -o Dpkg::Options::=--force-confold \
        -o DPkg::Lock::Timeout=300 "$@" >>"$log" 2>&1 </dev/null
}

# ensurePackages PACKAGE...: installs what is missing; the lists are renewed only when it cannot be had without.
ensurePackages() {
    local missing log
    mapfile -t missing < <(missingPackages "$@")
    ((${#missing[@]})) || return 0
    [[ $(id -u) == 0 ]] || die "missing packages; as root: apt-get install ${missing[*]}"
    say "installing ${missing[*]}"
    log=$(mktemp)
    if ! aptGet "$log" install "${missing[@]}" && ! { aptGet "$log" update && aptGet "$log" install "${missing[@]}"; }; then
        cat "$log" >&2
        rm -f "$log"
        die "could not install ${missing[*]}"
    fi
    rm -f "$log"
}
