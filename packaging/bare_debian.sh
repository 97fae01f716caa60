# A bare Debian 12 with a new user, who may use sudo: sourced with a folder that keeps the bare system between runs in $cache.
# Leaves its folder in $root, the new user's home in $home, and two functions; all of it goes with the shell. Needs root.
root=$(mktemp -d)
mounted=

# A folder of this machine that is still mounted inside would lose its files with the bare system.
end_of_bare_debian() {
    for place in $mounted; do
        umount "$root/$place" || umount --lazy "$root/$place"
    done
    if grep -q " $root/" /proc/mounts; then
        echo "still mounted, so not removed: $root" >&2
        return
    fi
    rm -rf --one-file-system "$root"
}
trap end_of_bare_debian EXIT

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
echo "127.0.0.1 localhost $(hostname)" >"$root/etc/hosts"
mount -t proc proc "$root/proc" 2>/dev/null && mounted=proc
if mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm" 2>/dev/null; then
    mounted="$mounted dev/shm"
fi

inside() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"; }
as_stranger() { inside su - stranger -c "$1"; }

echo "a new user, who may use sudo"
inside sh -c 'apt-get update -qq && apt-get install -y -qq --no-install-recommends sudo' >"$cache/install.log" 2>&1 || {
    tail -n 30 "$cache/install.log"
    exit 1
}
inside useradd -m -s /bin/sh stranger
echo 'stranger ALL=(ALL) NOPASSWD: ALL' >"$root/etc/sudoers.d/stranger"
home=$root/home/stranger
