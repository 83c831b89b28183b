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
logrotate --force --state "$folder/state" /etc/logrotate.d/libtesra-common
trace_file_is "" " after its rotation"
[ "$(zcat /var/log/miraxlog.1.gz)" = "a line" ] || fail "no line in the file rotated"
rm /var/log/miraxlog
logrotate --force --state "$folder/state" /etc/logrotate.d/libtesra-common
dpkg --verify "${names[@]}"
version=$(dpkg-query -W -f '${Version}' libtesra-common-dev)
[ "$version" = "$(pkg-config --modversion tesra_common)" ] || fail "packages of version $version"
"$sources/tests/consumer/use.sh"
dpkg-deb -x "$packages"/tesra-tools_*_arm64.deb "$folder/arm64"
[ "$(qemu-aarch64 "$folder/arm64/usr/bin/tesra" count "$sources/samples/chain.pem")" = 3 ]

apt-get remove -y "${names[@]}" >"$folder/log" 2>&1
[ -e /var/log/miraxlog.1.gz ] || fail "rotated files are gone before the packages are purged"
purge
trap 'rm -rf "$folder"' EXIT
left=$(find /etc /usr /var/log -xdev \( -name '*tesra*' -o -name '*platform_log*' \
    -o -name 'miraxlog*' \) -not -path "$sources/*")
[ -z "$left" ] || fail "left behind: $left"
echo "installed, used and purged: ${names[*]}"
