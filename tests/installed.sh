#!/usr/bin/env bash
# Installs packages, uses them as others do, and purges them: installed.sh SOURCES PACKAGE...
# Purging takes the trace file along, so this is for machines that nobody else uses.
set -euo pipefail
sources=$1
shift

names=()
for package; do
    names+=("$(dpkg-deb -f "$package" Package)")
done
if dpkg-query -W -f='${db:Status-Status}\n' "${names[@]}" 2>/dev/null | grep -qx installed; then
    echo "already installed: one of ${names[*]}"
    exit 1
fi
folder=$(mktemp -d)
export DEBIAN_FRONTEND=noninteractive
purge() {
    apt-get purge -y "${names[@]}" >"$folder/log" 2>&1 || cat "$folder/log"
}
trap 'purge; rm -rf "$folder"' EXIT
chmod 755 "$folder"
apt-get install -y --no-install-recommends "$@" >"$folder/log" 2>&1 || { cat "$folder/log"; exit 1; }

[ "$(tesra count "$sources/samples/chain.pem")" = 3 ]
# shellcheck disable=SC2046 # flags, not one word
cc -std=c99 -o "$folder/example" "$sources/libtesra_common/examples/certificates.c" \
    $(pkg-config --cflags --libs tesra_common)
"$folder/example" "$sources/samples/chain.pem" | grep -q '^probe.example: '
cmake -S "$sources/tests/consumer" -B "$folder/consumer" >"$folder/log"
cmake --build "$folder/consumer" >>"$folder/log"
"$folder/consumer/consumer"
for name in "${names[@]}"; do
    dpkg --verify "$name"
done

purge
trap - EXIT
rm -rf "$folder"
left=$(find /etc /usr /var/log -xdev \( -name '*libtesra*' -o -name '*libplatform_log*' -o -name miraxlog \
    -o -name tesra \) -not -path "$sources/*")
if [ -n "$left" ]; then
    echo "left behind: $left"
    exit 1
fi
echo "installed, used and purged: ${names[*]}"
