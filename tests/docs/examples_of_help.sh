#!/bin/sh
# Runs every example that --help and the manual pages show, each in a folder with the pictures that it names:
# examples_of_help.sh BIN
. "$(dirname "$0")/../support/work_folder.sh"
PATH=$bin:$PATH
export PATH

mkdir -p scene
"$bin/make_scene" --size small --pictures 3 scene >/dev/null
cd scene
panoval stitch -q -o panorama.png --layout layout.json
"$bin/make_board" . panorama.png >/dev/null
mkdir shots
for copy in left right a b sheet old-photo page shots/1 shots/2; do
    cp board.png "$copy.png"
done
panoval smooth -q board.png -o photo.jpg
panoval threshold -q board.png -o mask.png --level 60
panoval threshold -q board.png -o scratches.png --level 60
for name in a b; do
    cp mask.png ${name}_mask.png
    panoval smooth -q $name.png -o $name.tif
    panoval threshold -q $name.png -o ${name}_mask.pgm --level 60
    panoval threshold -q $name.png -o $name-mask.png --level 60
    echo $name.png
done >list.txt
panoval stitch -q --alpha -o cut-out.png a.png@0,0:a_mask.png
echo '[{"file": "a.png", "x": 0, "y": 0, "mask": "a_mask.png"}, {"file": "b.png", "x": 40, "y": 3}]' >places.json
"${PYTHON:-python3}" - <<'TEXT'
import struct
def layer(name, x):  # RGBA, uncompressed, with its place
    width, height = 60, 40
    fields = [(256, 3, 1, width), (257, 3, 1, height), (258, 3, 4, 0), (259, 3, 1, 1), (262, 3, 1, 2), (273, 4, 1, 0),
              (277, 3, 1, 4), (278, 3, 1, height), (279, 4, 1, width * height * 4), (282, 5, 1, 0), (283, 5, 1, 0),
              (286, 5, 1, 0), (287, 5, 1, 0), (338, 3, 1, 2)]
    at = 8 + 2 + 12 * len(fields) + 4
    extra = {258: struct.pack("<4H", 8, 8, 8, 8), 282: struct.pack("<2I", 100, 1), 283: struct.pack("<2I", 100, 1),
             286: struct.pack("<2I", x, 100), 287: struct.pack("<2I", 0, 100),
             273: b"".join(bytes(((i * 7 + x) % 200, i % 150, 90, 255)) for i in range(width * height))}
    table, data = b"", b""
    for tag, kind, count, value in fields:
        if tag in extra:
            value = at + len(data)
            data += extra[tag]
        table += struct.pack("<HHI", tag, kind, count) + (struct.pack("<HH", value, 0) if kind == 3 and count == 1
                                                          else struct.pack("<I", value))
    with open(name, "wb") as file:
        file.write(b"II*\0" + struct.pack("<IH", 8, len(fields)) + table + b"\0\0\0\0" + data)
for i in range(3):
    layer("remapped%04d.tif" % i, 40 * i)
TEXT
panoval stitch -q -o panorama.zarr --layout layout.json

run=0
for command in $(panoval --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p'); do
    panoval "$command" --help | sed -n '/^Examples\{0,1\}:/,/^$/s/^  \([a-z].*\)/\1/p' >examples
    [ -s examples ] || fail "panoval $command --help shows no example"
    while IFS= read -r line; do
        sh -c "$line" >said 2>errors </dev/null || fail "panoval $command --help: this example fails: $line"
        run=$((run + 1))
    done <examples
done
echo "$run examples of --help, all of them run"
