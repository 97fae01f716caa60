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

# load PAGE WIDTH: what the browser, so many pixels wide, makes of a page. The page asks the browser itself: are the
# pictures decoded, are the tables and drawings laid out, does anything reach beyond the window?
load() {
    sed 's#</body>#<p id="probe"></p><script>addEventListener("load", () => {\
const shown = element => { const box = element.getBoundingClientRect(); return box.width > 50 \&\& box.height > 20; };\
const image = document.getElementById("panorama");\
document.getElementById("probe").textContent = ["image", image.complete \&\& image.naturalWidth > 500 \&\& shown(image),\
"layout", shown(document.querySelector("svg.layout")),\
"seams", document.querySelectorAll("svg.layout path.seams").length,\
"crops", [...document.querySelectorAll("img.crop")].filter(crop => crop.complete \&\& crop.naturalWidth == 200).length,\
"bars", document.querySelectorAll("svg.bars").length,\
"pictures", document.querySelectorAll("\#pictures tr").length - 1,\
"overlaps", document.querySelectorAll("\#overlaps tr").length - 1,\
"summary", document.getElementById("summary").textContent.length > 20,\
"fits", document.documentElement.scrollWidth <= innerWidth].join(" "); });</script></body>#' "$1" >"$work/probed.html"
    timeout 120 "$browser" --headless --no-sandbox --disable-gpu --disable-dev-shm-usage --disable-quic --no-first-run \
        --disable-background-networking --disable-component-update --disable-sync --user-data-dir="$work/profile" \
        --window-size="$2,900" --dump-dom "file://$work/probed.html" >"$work/dom.html" 2>"$work/errors" || {
        cat "$work/errors"
        exit 1
    }
    sed -n 's#.*<p id="probe">\([^<]*\)</p>.*#\1#p' "$work/dom.html"
}

# check LAYOUT CROPS: the report of a layout, on a wide window and on a phone's.
check() {
    "$bin/panoval" stitch --quiet --layout "$work/$1" -o "$work/panorama.png" --report "$work/report.html"
    if [ "$(wc -c <"$work/report.html")" -gt 3000000 ]; then
        echo "the report of $1 has more than 3 MB"
        exit 1
    fi
    expected="image true layout true seams 1 crops $2 bars 2 pictures 3 overlaps 2 summary true fits true"
    for width in 1280 390; do
        found=$(load "$work/report.html" "$width")
        if [ "$found" != "$expected" ]; then
            echo "$1, $width pixels wide: the browser found:  $found"
            echo "expected:           $expected"
            exit 1
        fi
    done
}

check layout.json 0
check displaced.json 6
echo "the browser shows the whole report"
