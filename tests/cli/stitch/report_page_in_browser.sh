#!/bin/sh
# Looks at the stitching report in a real browser: report_page_in_browser.sh BIN
# BIN is the folder of the built programs. Makes a small panorama with its report, lets headless Chromium load the page,
# and checks what the browser made of it.
set -eu
bin=$1
browser=$(command -v chromium) || {
    echo "chromium is not installed (./dev test installs it)"
    exit 1
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$bin/make_scene" --size small --pictures 3 "$work" >/dev/null
# The second picture is placed 4 pixels too far right.
awk '/"x":/ && ++n == 2 { match($0, /-?[0-9]+/); $0 = substr($0, 1, RSTART - 1) substr($0, RSTART, RLENGTH) + 4 \
    substr($0, RSTART + RLENGTH) } { print }' "$work/layout.json" >"$work/displaced.json"

cat >"$work/probe.html" <<'END'
<p id="probe"></p><p id="numbers"></p><script>addEventListener("load", () => {
const shown = element => { const box = element.getBoundingClientRect(); return box.width > 50 && box.height > 20; };
const image = document.getElementById("panorama");
document.getElementById("probe").textContent = ["image", image.complete && image.naturalWidth > 500 && shown(image),
"layout", shown(document.querySelector("svg.layout")),
"seams", document.querySelectorAll("svg.layout path.seams").length,
"crops", [...document.querySelectorAll("img.crop")].filter(crop => crop.complete && crop.naturalWidth == 200).length,
"bars", document.querySelectorAll("svg.bars").length,
"pictures", document.querySelectorAll("#pictures tr").length - 1,
"overlaps", document.querySelectorAll("#overlaps tr").length - 1,
"summary", document.getElementById("summary").textContent.length > 20,
getComputedStyle(document.getElementById("summary")).borderLeftColor.replaceAll(" ", ""),
"fits", document.documentElement.scrollWidth <= innerWidth].join(" ");
const boxes = [...document.querySelectorAll(".numbers text")].map(text => [text.textContent, text.getBoundingClientRect()]);
// Of a line's box digits fill the middle half.
const cover = (a, b) => a.left < b.right && b.left < a.right && Math.abs(a.top - b.top) < a.height / 2;
document.getElementById("numbers").textContent = [
"covered", boxes.filter(([_, a], i) => boxes.slice(0, i).some(([_, b]) => cover(a, b))).length,
"most", boxes.length >= 250, "black", boxes.some(([text]) => text == "104"),
"readable", boxes.every(([_, box]) => box.height >= 8)].join(" "); });</script>
END

# load PAGE WIDTH: opens a page in a browser so many pixels wide, and asks the browser itself: are the pictures decoded,
# are the tables and drawings laid out, does anything reach beyond the window, can the numbers be read?
load() {
    sed '/<\/body>/{
r '"$work"'/probe.html
}' "$1" >"$work/probed.html"
    timeout 120 "$browser" --headless --no-sandbox --disable-gpu --disable-dev-shm-usage --disable-quic --no-first-run \
        --disable-background-networking --disable-component-update --disable-sync --user-data-dir="$work/profile" \
        --window-size="$2,900" --dump-dom "file://$work/probed.html" >"$work/dom.html" 2>"$work/errors" || {
        cat "$work/errors"
        exit 1
    }
}

# found ID: what the page says of itself.
found() {
    sed -n "s#.*<p id=\"$1\">\([^<]*\)</p>.*#\1#p" "$work/dom.html"
}

# expect WHAT ID TEXT
expect() {
    [ "$(found "$2")" = "$3" ] && return
    echo "$1: the browser found:  $(found "$2")"
    echo "expected:  $3"
    exit 1
}

stitch() {
    "$bin/panoval" stitch --quiet --layout "$work/$1" -o "$work/panorama.png" --report "$work/report.html"
    if [ "$(wc -c <"$work/report.html")" -gt 3000000 ]; then
        echo "the report of $1 has more than 3 MB"
        exit 1
    fi
}

# check LAYOUT CROPS COLOUR: the report of a layout, on a wide window and on a phone's.
check() {
    stitch "$1"
    for width in 1280 390; do
        load "$work/report.html" "$width"
        expect "$1, $width pixels wide" probe \
            "image true layout true seams 1 crops $2 bars 2 pictures 3 overlaps 2 summary true $3 fits true"
    done
}

# Three hundred pictures, one of them black.
check_many() {
    { printf 'P5\n60 50\n255\n'; awk 'BEGIN { for (y = 0; y < 50; ++y) for (x = 0; x < 60; ++x) printf "%c", x % 20 < 10 == y % 20 < 10 ? 60 : 90 }'; } >"$work/grey.pgm"
    { printf 'P5\n60 50\n255\n'; head -c 3000 /dev/zero; } >"$work/black.pgm"
    awk 'BEGIN { printf "["; for (i = 0; i < 300; ++i) printf "%s{\"file\": \"%s.pgm\", \"x\": %d, \"y\": %d}", i ? ",\n" : "",
        i == 103 ? "black" : "grey", i % 20 * 40, int(i / 20) * 40; printf "]\n" }' >"$work/many.json"
    stitch many.json
    for width in 1280 390; do
        load "$work/report.html" "$width"
        expect "300 pictures, $width pixels wide" numbers "covered 0 most true black true readable true"
        expect "300 pictures, $width pixels wide" probe "$(found probe | sed 's/fits [a-z]*/fits true/')"
    done
}

check layout.json 0 "rgb(26,127,55)"  # good
check displaced.json 6 "rgb(196,41,28)" # bad
check_many
echo "the browser shows the whole report"
