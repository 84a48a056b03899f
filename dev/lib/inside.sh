#!/usr/bin/env bash
# First process of the sandbox: builds the copy of the machine around itself, moves into it and runs the command.
# Everything mounted here lives in this process's own name space and goes with it.
#
#   inside.sh MOUNT_POINT LAYER WORKING_FOLDER NUMBER_OF_OUT_FOLDERS OUT... CMD ARG...
#
# LAYER is an archive of changes that the copy starts with, or empty. With ZVTASKQ_SHOW_CHANGES set, the changes
# made to the root are seen at that path.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/panel.sh"

hostName=panel.example.test
# Kernel interfaces and memory: never copied, the sandbox has its own.
ownTypes='^(proc|sysfs|devtmpfs|devpts|cgroup2?|mqueue|debugfs|tracefs|securityfs|pstore|bpf|configfs|fusectl|hugetlbfs|binfmt_misc|autofs|efivarfs|nsfs|ramfs|rpc_pipefs|selinuxfs)$'

# layOver TARGET LOWER NAME: an overlay of LOWER at TARGET whose changes stay in memory. redirect_dir lets a folder
# be renamed as on a real disk, xino keeps file numbers as they are when a file is first changed.
layOver() {
    local changes=$memory/$3
    mkdir -p "$changes/upper" "$changes/work"
    mount -t overlay -o "lowerdir=$2,upperdir=$changes/upper,workdir=$changes/work,redirect_dir=on,xino=on" sandbox "$1"
}

# copyMount POINT: the file system that is mounted at POINT, in the copy.
copyMount() {
    local point=$1 target=$root$1
    if [[ ! -d $point ]]; then
        cp -p "$point" "$target" 2>/dev/null || true
    elif [[ -d $target ]] && ! layOver "$target" "${point//:/\\:}" "mount$((++mounts))" 2>/dev/null; then
        mount --bind "$point" "$target" && mount -o remount,bind,ro "$target"
    fi
}

# copyMounts: an overlay shows only one file system, so each further one is laid over by itself.
copyMounts() {
    local point type mounts=0
    while read -r point type; do
        point=$(printf '%b' "$point")
        [[ $type =~ $ownTypes || $point =~ ^/(proc|sys|dev|run)(/|$) || $point == / || $point/ == "$memory"/* ]] ||
            copyMount "$point"
    done < <(awk '{ for (i = 7; $i != "-"; i++); print $5, $(i + 1) }' /proc/self/mountinfo)
}

makeDevices() {
    local dev=$root/dev name major minor
    mount -t tmpfs -o mode=755,nosuid dev "$dev"
    mkdir -p "$dev/pts" "$dev/shm" "$dev/mqueue"
    while read -r name major minor; do
        mknod -m 666 "$dev/$name" c "$major" "$minor" 2>/dev/null ||
            { : >"$dev/$name" && mount --bind "/dev/$name" "$dev/$name"; }
    done <<<$'null 1 3\nzero 1 5\nfull 1 7\nrandom 1 8\nurandom 1 9\ntty 5 0'
    mount -t devpts -o newinstance,ptmxmode=0666,mode=620,gid=5 devpts "$dev/pts"
    mount -t tmpfs -o mode=1777,nosuid,nodev shm "$dev/shm"
    mount -t mqueue mqueue "$dev/mqueue" 2>/dev/null || true
    ln -s pts/ptmx "$dev/ptmx"
    ln -s /proc/self/fd "$dev/fd"
    ln -s fd/0 "$dev/stdin"
    ln -s fd/1 "$dev/stdout"
    ln -s fd/2 "$dev/stderr"
}

# The kernel's own settings are the machine's: readable, but nothing inside changes them.
makeKernelFolders() {
    local path
    mount -t proc -o nosuid,nodev,noexec proc "$root/proc"
    for path in sys sysrq-trigger irq bus; do
        [[ ! -e $root/proc/$path ]] || { mount --bind "$root/proc/$path" "$root/proc/$path" && mount -o remount,bind,ro "$root/proc/$path"; }
    done
    mount -t sysfs -o ro,nosuid,nodev,noexec sysfs "$root/sys" 2>/dev/null ||
        { mount --rbind /sys "$root/sys" && mount -o remount,bind,ro "$root/sys"; }
}

makeRunFolders() {
    mount -t tmpfs -o mode=755,nosuid,nodev run "$root/run"
    mkdir -p "$root/run/lock" "$root/run/user"
    chmod 1777 "$root/run/lock"
    # A listening socket of the machine would still answer through the copy.
    find "$root/tmp" "$root/var/tmp" -xdev -maxdepth 3 -type s -delete 2>/dev/null || true
}

bindOutFolders() {
    local folder
    for folder in "$@"; do
        mkdir -p "$root$folder"
        mount --bind "$folder" "$root$folder"
    done
}

# Files cannot leave a mount name space that is about to vanish, so the old root is simply let go.
moveIn() {
    cd "$root"
    pivot_root . .
    umount -l .
    cd /
}

# setUpNetwork: a host name, and besides the loopback an address of its own, as every server has: programs look names
# up differently where there is none. It leads nowhere.
setUpNetwork() {
    hostname "$hostName"
    printf '%s\n' "$hostName" >/etc/hostname
    printf '%s\t%s\n' 127.0.0.1 localhost "$panelAddress" "$hostName ${hostName%%.*}" ::1 'localhost ip6-localhost' >/etc/hosts
    perl -MSocket -e '
        my ($bridge, $address, $mask, $flags) = (0x89a0, 0x8916, 0x891c, 0x8914);
        socket(my $s, AF_INET, SOCK_DGRAM, 0) or die "socket: $!";
        my $up = sub { ioctl($s, $flags, my $request = pack("a16 s x22", $_[0], 0x41)) or die "$_[0]: $!" };
        my $number = sub { ioctl($s, $_[0], my $request = pack("a16 a16 x8", $_[1], pack_sockaddr_in(0, inet_aton($_[2])))) or die "$_[1]: $!" };
        $up->("lo");
        my $name = ioctl($s, $bridge, my $wanted = pack("a16", "eth0")) ? "eth0" : "lo:0";
        $number->($address, $name, $ARGV[0]);
        $number->($mask, $name, "255.255.255.255");
        $up->($name);' "$panelAddress"
}

# The layer is unpacked, not laid below: an overlay takes no two lower folders of which one holds the other.
unpackLayer() {
    mkdir -p "$memory/root/upper"
    [[ -z $layer ]] || tar -x --xattrs --xattrs-include='*' --numeric-owner -f "$layer" -C "$memory/root/upper"
}

showChanges() {
    [[ -n ${ZVTASKQ_SHOW_CHANGES:-} ]] || return 0
    mkdir -p "$root$ZVTASKQ_SHOW_CHANGES"
    mount --bind "$memory/root/upper" "$root$ZVTASKQ_SHOW_CHANGES"
}

buildCopy() {
    mount -t tmpfs -o mode=755 sandbox "$memory"
    root=$memory/copy
    mkdir "$root"
    unpackLayer
    layOver "$root" / root
    copyMounts
    makeDevices
    makeKernelFolders
    makeRunFolders
    showChanges
}

memory=$1 layer=$2 workingFolder=$3
outFolders=("${@:5:$4}")
shift "$((4 + $4))"
buildCopy
bindOutFolders ${outFolders[@]+"${outFolders[@]}"}
moveIn
setUpNetwork
addPanelUsers
unset ZVTASKQ_SHOW_CHANGES
export ZVTASKQ_SANDBOX=copy
cd "$workingFolder" 2>/dev/null || cd /
# Not exec: this shell stays the first process, which gathers orphans; the rest ends when it does. The clock, the
# kernel's modules and the machine's power stay out of reach.
status=0
setpriv --bounding-set -sys_time,-sys_boot,-sys_module,-sys_rawio -- "$@" || status=$?
exit "$status"
