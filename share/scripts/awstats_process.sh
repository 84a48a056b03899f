#!/bin/sh
# Brings the AWStats pages of one host up to date. The panel runs it as the account's user, with the host's access log
# (combined format) on standard input. A script of the same name in scripts/custom takes its place.
#
#   awstats_process.sh USER HOST FOLDER
#
# FOLDER receives the pages, index.html and awstats.HOST*.html. What AWStats remembers from one run to the next is in
# FOLDER/.data, which visitors are not shown. Exit status 0 when the pages are made.
set -eu

[ $# -eq 3 ] || { echo "usage: awstats_process.sh USER HOST FOLDER" >&2; exit 2; }
host=$2
folder=$3

# firstOf FILE...: the first that there is.
firstOf() {
    for file in "$@"; do
        [ ! -e "$file" ] || { echo "$file"; return 0; }
    done
    echo "none of these is installed: $*" >&2
    return 1
}

program=$(firstOf /usr/lib/cgi-bin/awstats.pl /usr/local/awstats/wwwroot/cgi-bin/awstats.pl)
pages=$(firstOf /usr/share/awstats/tools/awstats_buildstaticpages.pl /usr/local/awstats/tools/awstats_buildstaticpages.pl)

umask 077
data=$folder/.data
mkdir -p "$data"
cat >"$data/awstats.$host.conf" <<END
LogFile="cat |"
LogType=W
LogFormat=1
SiteDomain="$host"
HostAliases="$host www.$host"
DirData="$data"
DirIcons="/awstats-icon"
DNSLookup=0
KeepBackupOfHistoricFiles=0
AllowFullYearView=2
END

"$program" "-config=$host" "-configdir=$data" -update >"$data/update.log" 2>&1 ||
    { tail -n 5 "$data/update.log" >&2; exit 1; }

# The pages are made from what the update has counted, without a second look at the log.
umask 022
"$pages" "-config=$host" "-configdir=$data" "-awstatsprog=$program" "-dir=$folder" >"$data/pages.log" 2>&1 ||
    { tail -n 5 "$data/pages.log" >&2; exit 1; }
cp "$folder/awstats.$host.html" "$folder/index.html"
