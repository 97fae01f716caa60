#!/bin/sh
# The packages on a bare Debian 12, as somebody new there uses them: try_in_chroot.sh PACKAGES CACHE
# PACKAGES has the .deb files; CACHE keeps the bare system between runs. Needs root.
set -eu
tree=$(cd "$(dirname "$0")/.." && pwd)
packages=$(cd "$1" && pwd)
mkdir -p "$2"
cache=$(cd "$2" && pwd)
root=$(mktemp -d)
mounted=

end() {
    [ -z "$mounted" ] || umount "$root/proc" || :
    rm -rf --one-file-system "$root"
}
trap end EXIT

if [ ! -e "$cache/bare.tar" ]; then
    echo "a bare Debian 12 comes from the archive"
    debootstrap --variant=minbase bookworm "$root" >"$cache/debootstrap.log" 2>&1 || {
        tail "$cache/debootstrap.log"
        exit 1
    }
    tar -C "$root" -cf "$cache/bare.tar.part" .
    mv "$cache/bare.tar.part" "$cache/bare.tar"
else
    tar -C "$root" -xf "$cache/bare.tar"
fi
chmod 755 "$root" # it is / for the new user
rm -f "$root/etc/apt/sources.list"
cp -a /etc/apt/sources.list* /etc/apt/apt.conf.d "$root/etc/apt/" 2>/dev/null || : # the mirror of this machine
cp /etc/resolv.conf "$root/etc/"
mount -t proc proc "$root/proc" 2>/dev/null && mounted=1

inside() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"; }

echo "a new user, who may use sudo"
inside sh -c 'apt-get update -qq && apt-get install -y -qq --no-install-recommends sudo' >"$cache/install.log" 2>&1 || {
    tail -n 30 "$cache/install.log"
    exit 1
}
inside useradd -m -s /bin/sh stranger
echo 'stranger ALL=(ALL) NOPASSWD: ALL' >"$root/etc/sudoers.d/stranger"
home=$root/home/stranger
mkdir -p "$home/panoval/build/packages"
cp -r "$tree/README.md" "$tree/examples" "$home/panoval/"
cp "$packages"/*.deb "$home/panoval/build/packages/"
cp "$tree/packaging/as_a_stranger.sh" "$tree/tests/install/run_examples.sh" "$home/"
inside chown -R stranger:stranger /home/stranger
inside su - stranger -c 'sh ./as_a_stranger.sh'
echo "removing them again"
inside sh -c 'apt-get purge -y -qq panoval libpanoval1 && ! ls /usr/lib/*/libpanoval* /usr/bin/panoval 2>/dev/null' >>"$cache/install.log"
echo "the packages work on a bare system"
