#!/bin/sh
# The packages on a bare Debian 12, as somebody new there uses them: try_in_chroot.sh PACKAGES CACHE
# PACKAGES has the .deb files; CACHE keeps the bare system between runs. Needs root.
set -eu
tree=$(cd "$(dirname "$0")/.." && pwd)
packages=$(cd "$1" && pwd)
mkdir -p "$2"
cache=$(cd "$2" && pwd)
. "$tree/packaging/bare_debian.sh"

mkdir -p "$home/panoval/build/packages"
cp -r "$tree/README.md" "$tree/examples" "$home/panoval/"
cp "$packages"/*.deb "$home/panoval/build/packages/"
cp "$tree/packaging/as_a_stranger.sh" "$tree/tests/install/run_examples.sh" "$home/"
inside chown -R stranger:stranger /home/stranger
as_stranger 'sh ./as_a_stranger.sh'
echo "removing them again"
inside sh -c 'apt-get purge -y -qq panoval libpanoval1 && ! ls /usr/lib/*/libpanoval* /usr/bin/panoval 2>/dev/null' >>"$cache/install.log"
echo "the packages work on a bare system"
