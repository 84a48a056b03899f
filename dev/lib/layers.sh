# shellcheck shell=bash
# Prepared layers of the sandbox: Debian packages unpacked and configured once inside a copy, kept as an
# archive of changes in the cache. Nothing of them is ever installed on the machine itself. Of a package that is
# asked for as "files-of:NAME" the files alone are laid down: two servers for one thing forbid each other to be
# installed.
. "$projectRoot/dev/lib/packages.sh"

layersFolder() {
    printf '%s/layers\n' "$(cacheFolder)"
}

# layerKey PACKAGE...: names what is in a layer: the packages, and the machine they were added to (a layer hides
# the machine's own package and user lists, so it fits only the ones it was made from).
layerKey() {
    {
        printf '%s\n' "$@" | sort -u
        cat /var/lib/dpkg/status /etc/passwd /etc/group "$projectRoot"/dev/lib/{layers,inside}.sh
    } | sha256sum | cut -c1-24
}

# aptToCache LOG ARG...: apt-get with our own download folder; as root, which may be the only one to enter it.
aptToCache() {
    local log=$1
    shift
    aptGet "$log" -o "Dir::Cache::archives=$(cacheFolder)/archives" -o APT::Sandbox::User=root \
        -o Dpkg::Options::=--force-unsafe-io "$@"
}

# splitPackages PACKAGE...: sets $installed and $laid to those that are installed, and those whose files are laid down.
splitPackages() {
    local package
    installed=() laid=()
    for package in "$@"; do
        if [[ $package == files-of:* ]]; then laid+=("${package#files-of:}"); else installed+=("$package"); fi
    done
}

# fetch LOG PACKAGE...: the packages and what they need, into the cache.
fetch() {
    local log=$1
    shift
    (($# == 0)) || aptToCache "$log" --download-only install "$@"
}

# downloadPackages PACKAGE...: fetches them and what they need; the lists are renewed only when that fails.
downloadPackages() {
    local log installed laid
    log=$(cacheFolder)/download.log
    mkdir -p "$(cacheFolder)/archives/partial"
    : >"$log"
    say "downloading $*"
    splitPackages "$@"
    if ! { fetch "$log" "${installed[@]}" && fetch "$log" "${laid[@]}"; } &&
        ! { aptGet "$log" update && fetch "$log" "${installed[@]}" && fetch "$log" "${laid[@]}"; }; then
        cat "$log" >&2
        die "could not download $*"
    fi
}

# withoutStarting CMD...: CMD while a policy forbids every package to start a daemon.
withoutStarting() {
    local policy=/usr/sbin/policy-rc.d status=0
    printf '#!/bin/sh\nexit 101\n' >"$policy"
    chmod 755 "$policy"
    "$@" || status=$?
    rm -f "$policy"
    return "$status"
}

# unpackPackages PACKAGE...: runs inside a copy; installs what was downloaded.
unpackPackages() {
    local log installed laid package archives
    log=$(mktemp)
    splitPackages "$@"
    if ! withoutStarting aptToCache "$log" --no-download install "${installed[@]}"; then
        cat "$log" >&2
        return 1
    fi
    for package in "${laid[@]}"; do
        archives=("$(cacheFolder)/archives/${package}"_*.deb)
        # No link of the system's, such as /bin, is replaced by a folder.
        dpkg-deb --fsys-tarfile "${archives[-1]}" | tar -C / --extract --keep-directory-symlink || return 1
    done
    rm -f "$log"
}

# installInPlace PACKAGE...: on a machine that is thrown away itself.
installInPlace() {
    downloadPackages "$@"
    unpackPackages "$@" || die "could not install $*"
}

# printChanges FOLDER: the changes an overlay keeps in FOLDER as an archive on standard output: files, what was
# removed (a device 0,0) and the attributes that say a folder is new or moved.
printChanges() {
    tar -C "$1" --create --numeric-owner --sparse --xattrs --xattrs-include='security.*' \
        --xattrs-include='trusted.overlay.opaque' --xattrs-include='trusted.overlay.redirect' \
        --exclude=./run --exclude=./tmp --exclude=./etc/hosts --exclude=./etc/hostname --exclude=./var/cache/apt .
}

# makeLayer ARCHIVE PACKAGE...: the packages installed in a copy of their own, and its changes kept.
makeLayer() {
    local archive=$1 changes=/run/changes
    shift
    downloadPackages "$@"
    say "unpacking $*"
    ZVTASKQ_SHOW_CHANGES=$changes unshare "${nameSpaces[@]}" --fork --kill-child -- \
        bash "$projectRoot/dev/lib/inside.sh" "$mountPoint" "" / 0 \
        bash -euo pipefail -c '. "$1/common.sh"; . "$1/layers.sh"; unpackPackages "${@:3}"; printChanges "$2"' \
        layer "$projectRoot/dev/lib" "$changes" "$@" \
        </dev/null >"$archive.new" || die "could not unpack $*"
    mv "$archive.new" "$archive"
}

# prepareLayer PACKAGE...: sets $layer to the archive of a layer with these packages, making it when it is not
# there. One process makes it, others wait; after two weeks it is made anew with what is current then.
prepareLayer() {
    layer=$(layersFolder)/$(layerKey "$@").tar
    mkdir -p "$(layersFolder)"
    {
        flock -x 8
        find "$(layersFolder)" -name '*.tar*' -mtime +14 -delete
        [[ -e $layer ]] || makeLayer "$layer" "$@" 8>&-
    } 8>>"$(layersFolder)/lock"
}
