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
"$bin/panoval" stitch --quiet --layout "$work/layout.json" -o "$work/panorama.png" --report "$work/report.html"

# The page asks the browser itself: is the picture decoded, are the tables and drawings laid out?
sed 's#</body>#<p id="probe"></p><script>addEventListener("load", () => {\
const shown = element => { const box = element.getBoundingClientRect(); return box.width > 50 \&\& box.height > 20; };\
const image = document.getElementById("panorama");\
document.getElementById("probe").textContent = ["image", image.complete \&\& image.naturalWidth > 500 \&\& shown(image),\
"layout", shown(document.querySelector("svg.layout")),\
"bars", [...document.querySelectorAll("svg.bars")].filter(shown).length,\
"pictures", document.querySelectorAll("\#pictures tr").length - 1,\
"overlaps", document.querySelectorAll("\#overlaps tr").length - 1,\
"summary", document.getElementById("summary").textContent.length > 20].join(" "); });</script></body>#' \
    "$work/report.html" >"$work/probed.html"
timeout 120 "$browser" --headless --no-sandbox --disable-gpu --disable-dev-shm-usage --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync --user-data-dir="$work/profile" \
    --dump-dom "file://$work/probed.html" >"$work/dom.html" 2>"$work/errors" || {
    cat "$work/errors"
    exit 1
}
found=$(sed -n 's#.*<p id="probe">\([^<]*\)</p>.*#\1#p' "$work/dom.html")
expected="image true layout true bars 2 pictures 3 overlaps 2 summary true"
if [ "$found" != "$expected" ]; then
    echo "the browser found:  $found"
    echo "expected:           $expected"
    exit 1
fi
echo "the browser shows the whole report"
