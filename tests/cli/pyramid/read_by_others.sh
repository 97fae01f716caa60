#!/bin/sh
# python3-zarr and GDAL read the stores, GDAL and libvips the pyramids: read_by_others.sh BIN
# BIN is the folder of the built programs.
. "$(dirname "$0")/../../support/work_folder.sh"

expect() { # WHAT FOUND EXPECTED
    [ "$2" = "$3" ] || fail "$1: found $2; expected $3"
}

mkdir scene
"$bin/make_scene" scene >/dev/null
for depth in 8 16; do
    "$panoval" stitch --layout scene/layout.json -o plan.json --plan-only --tile-size 512 --depth $depth --quiet
    "$panoval" stitch --plan plan.json -o whole.tif --alpha --quiet
    "$panoval" stitch --plan plan.json -o a.zarr --alpha --quiet
    "$panoval" pyramid a.zarr --quiet
    "$panoval" pyramid a.zarr -o a.tif --compression deflate --quiet

    # the values of the first level, from the store by python3-zarr and from the file by GDAL
    gdal_translate -q -of ENVI -co INTERLEAVE=BSQ whole.tif whole.raw
    /usr/bin/python3 - $depth <<'TEXT'
import sys
import numpy
import zarr

group = zarr.open_group("a.zarr", mode="r")
kind = "uint8" if sys.argv[1] == "8" else "<u2"
shape = (4, 1285, 4000)
whole = numpy.fromfile("whole.raw", kind).reshape(shape)
assert group["0"].shape == shape and (group["0"][:] == whole).all()
scales = group.attrs["multiscales"][0]["datasets"]
assert [scale["path"] for scale in scales] == ["0", "1", "2", "3"]
for level in range(1, 4):
    finer = group[str(level - 1)][:].astype("int64")
    coarser = group[str(level)][:]
    assert coarser.shape == (4, (finer.shape[1] + 1) // 2, (finer.shape[2] + 1) // 2)
    y, x = coarser.shape[1] // 2, coarser.shape[2] // 2  # inside all is covered
    for c in range(4):
        block = finer[c, 2 * y : 2 * y + 2, 2 * x : 2 * x + 2]
        assert coarser[c, y, x] == (block.sum() + 2) // 4, (level, c)
TEXT

    # GDAL: the store's arrays as pictures, and the overviews of the file
    expect "GDAL's value in the store" \
        "$(gdallocationinfo -valonly 'ZARR:"a.zarr":/0:0' 2000 600)" "$(gdallocationinfo -valonly -b 1 whole.tif 2000 600)"
    gdalinfo a.tif >info
    grep -q 'Band 1 .*' info
    expect "GDAL's overviews" "$(sed -n 's/^  Overviews: //p' info | head -n 1)" "2000x643, 1000x322, 500x161, 250x81"
    gdalinfo -checksum a.tif | grep Checksum >sums.pyramid
    gdalinfo -checksum whole.tif | grep Checksum >sums.whole
    cmp sums.pyramid sums.whole

    # libvips: each level is a page half as large, which vips thumbnail reads instead of the whole picture
    expect "libvips' pages" "$(vipsheader -f n-pages a.tif)" 5
    expect "libvips' third page" "$(vipsheader -f width 'a.tif[page=2]') x $(vipsheader -f height 'a.tif[page=2]')" \
        "1000 x 322"
    vips copy 'a.tif[page=0]' a.v
    vips copy whole.tif whole.v
    expect "libvips' largest difference" "$(vips subtract a.v whole.v d.v && vips abs d.v e.v && vips max e.v)" "0.000000"
    rm -rf a.zarr a.tif whole.*
done

"$panoval" stitch --layout scene/layout.json -o a.zarr --quiet
"$panoval" pyramid a.zarr -o a.dzi --quiet
"$panoval" stitch --layout scene/layout.json -o b.dzi --quiet
diff -r a_files b_files || fail "Deep Zoom of the store differs from that of the panorama"
expect "libvips' tile" "$(vipsheader -f width a_files/12/1_1.jpg)" 256
echo "others read what is written"
