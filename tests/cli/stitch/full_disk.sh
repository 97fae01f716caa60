#!/bin/sh
# A store on a disk of one megabyte: tiles that fit are made and count, each other one is named with what the system says,
# nothing half-written stays, and with more room the rest is made. full_disk.sh BIN
# BIN is the folder of the built programs. The disk is a tmpfs that nobody else sees and that goes with the test; where one cannot
# be had, for want of rights, the script ends with 77.
set -eu
if [ "${2:-}" != inside ]; then
    for how in --mount '--user --map-root-user --mount'; do
        # shellcheck disable=SC2086 # a list of words
        if unshare $how sh -c 'mount -t tmpfs none /mnt' 2>/dev/null; then
            exec unshare $how sh "$0" "$1" inside
        fi
    done
    echo "no disk of one's own is to be had here"
    exit 77
fi
. "$(dirname "$0")/../../support/work_folder.sh"
trap 'cd /; umount "$work/disk" || true; rm -rf "$work"' EXIT

mkdir scene disk
mount -t tmpfs -o size=1m none disk
"$bin/make_scene" scene >/dev/null
"$panoval" stitch --layout scene/layout.json -o plan.json --plan-only --tile-size 512 --quiet
"$panoval" stitch --plan plan.json -o whole.zarr --compression none --quiet
code=0
"$panoval" stitch --plan plan.json -o disk/a.zarr --compression none --resume --json >full.log 2>errors || code=$?
[ $code -eq 1 ] || fail "found exit code $code; expected 1, for some tiles fit"
made=$(find disk/a.zarr/.panoval/tiles -type f | wc -l)
[ "$made" -gt 0 ] || fail "no tile was made"
[ -z "$(find disk -name '*.part')" ] || fail "unfinished files stay"
tiles=$(sed -n 's/^  "tiles": \([0-9]*\),/\1/p' full.log)
named=$(grep -c '^panoval: tile [0-9]*: disk/a.zarr.*No space left on device' errors)
[ "$named" -eq $((tiles - made)) ] || fail "found $named tiles named; expected $tiles - $made"

# The temporary file of decoded pictures: they are decoded again instead, and that is told.
"$panoval" stitch --layout scene/layout.json -o a.png --memory 17M --seams none --no-verdict >/dev/null 2>errors || fail "$(cat errors)"
! grep temporary errors || fail "a warning where there is room"
for folder in disk none; do
    TMPDIR=$folder "$panoval" stitch --layout scene/layout.json -o b.png --memory 17M --seams none --no-verdict >/dev/null 2>errors ||
        fail "$(cat errors)"
    grep -q "warning: the temporary file of decoded pictures .*in $folder, another folder in TMPDIR" errors ||
        fail "found no warning about $folder: $(cat errors)"
    cmp a.png b.png
done

code=0
"$panoval" stitch --plan plan.json -o disk/c.zarr --compression none --quiet 2>errors || code=$?
[ $code -eq 4 ] || fail "found exit code $code of a store on a full disk; expected 4"
grep -q 'disk/c.zarr/[0-9.a-z/]*: found an error while writing' errors || fail "another name: $(cat errors)"
[ ! -e disk/c.zarr ] || fail "half a store stays"
code=0
"$panoval" stitch --plan plan.json -o disk/b.tif --quiet 2>errors || code=$?
[ $code -eq 4 ] || fail "found exit code $code of a picture on a full disk; expected 4"
[ ! -e disk/b.tif ] || fail "half a picture stays"
mount -o remount,size=64m disk
"$panoval" stitch --plan plan.json -o disk/a.zarr --compression none --resume --json >rest.log 2>errors
grep -q "\"tiles_kept\": $made," rest.log || fail "not $made tiles were kept: $(cat rest.log)"
diff -r disk/a.zarr whole.zarr || fail "other bytes than on a disk with room"
echo "$made of $tiles tiles fit; the rest was named, and made when there was room"
