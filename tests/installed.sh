#!/usr/bin/env bash
# Installs the packages of amd64, and the libraries of arm64 beside them; uses them as others do,
# and purges them: installed.sh SOURCES
set -euo pipefail
sources=$1
packages=$sources/build/packages
fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}
[ -e "$packages" ] || fail "there are no packages: run ./test packages first"
[ "$(id -u)" = 0 ] || fail "packages are installed as root"
# Purging would take it along.
[ ! -e /var/log/miraxlog ] || fail "/var/log/miraxlog exists, and is not this test's to delete"

files=("$packages"/{tesra-tools,libtesra-common-dev}_*_amd64.deb "$packages"/*-data_*_all.deb
    "$packages"/lib{tesra-common9,platform-log1}_*.deb)
names=(tesra-tools libtesra-common-{data,dev} lib{tesra-common9,platform-log1}:{amd64,arm64})
if dpkg-query -W -f='${db:Status-Status}\n' "${names[@]}" 2>/dev/null | grep -qx installed; then
    fail "already installed: one of ${names[*]}"
fi

folder=$(mktemp -d)
export DEBIAN_FRONTEND=noninteractive
purge() {
    dpkg --purge "${names[@]}" >"$folder/log" 2>&1 || cat "$folder/log"
}
trap 'purge; rm -rf "$folder"' EXIT
cp "${files[@]}" "$folder" # where apt's own user may read them
chmod -R a+rX "$folder"
apt-get install -y --no-install-recommends "$folder"/*.deb >"$folder/log" 2>&1 ||
    { cat "$folder/log" && exit 1; }

trace_file_is() {
    local found
    found="$(stat -c '%U:%G %a' /var/log/miraxlog) $(cat /var/log/miraxlog)"
    [ "$found" = "root:adm 640 $1" ] || fail "the trace file$2: $found"
}
trace_file_is "" ""
echo "a line" >>/var/log/miraxlog
systemd-tmpfiles --create libtesra-common.conf
trace_file_is "a line" " after another start of the system"
rotate() {
    logrotate --force --state "$folder/state" /etc/logrotate.d/libtesra-common
}
rotate
trace_file_is "" " after its rotation"
[ "$(cat /var/log/miraxlog.1)" = "a line" ] || fail "no line in the file rotated"

# A writer that is not root cannot make the file; one that is root may make it before logrotate does.
chown nobody /var/log/miraxlog
# shellcheck disable=SC2016
writer='for ((i = 0; i < 100000; i++)); do echo line >>/var/log/miraxlog; done'
bash -c "$writer" & setpriv --reuid=nobody --clear-groups bash -c "$writer" &
for _ in {1..6}; do rotate && sleep 0.1; done
wait
lines=$(zcat -f /var/log/miraxlog* | grep -c '^line$')
[ "$lines" = 200000 ] || fail "rotation lost $((200000 - lines)) lines"
[ "$(stat -c '%U:%G %a' /var/log/miraxlog)" = "nobody:adm 640" ] || fail "rotation changes the owner"
ls /var/log/miraxlog.2.gz >/dev/null
rm /var/log/miraxlog
rotate

changed=$(dpkg --verify "${names[@]}")
[ -z "$changed" ] || fail "changed after installation: $changed"
depends() { # package, the one that it needs
    local refused
    refused=$(dpkg --dry-run --remove "$2" 2>&1 || true)
    [[ $refused = *" $1"*" depends on "* ]] || fail "$1 does not depend on $2"
}
depends libtesra-common9 libtesra-common-data
depends libtesra-common-data "$(dpkg -S bin/systemd-tmpfiles | sed 's/:.*//')"
version=$(dpkg-query -W -f '${Version}' libtesra-common-dev)
[ "$version" = "$(pkg-config --modversion tesra_common)" ] || fail "packages of version $version"
"$sources/tests/consumer/use.sh"
dpkg-deb -x "$packages"/tesra-tools_*_arm64.deb "$folder/arm64"
[ "$(qemu-aarch64 "$folder/arm64/usr/bin/tesra" count "$sources/samples/chain.pem")" = 3 ]

touch /var/log/miraxlog-20261123.gz /var/log/miraxlog.1-2026112321.backup
apt-get remove -y "${names[@]}" >"$folder/log" 2>&1
[ -e /var/log/miraxlog.1 ] || fail "rotated files are gone before the packages are purged"
purge
trap 'rm -rf "$folder"' EXIT
left=$(find /etc /usr /var/log -xdev \( -name '*tesra*' -o -name '*platform_log*' \
    -o -name 'miraxlog*' \) -not -path "$sources/*")
[ -z "$left" ] || fail "left behind: $left"
echo "installed, used and purged: ${names[*]}"
