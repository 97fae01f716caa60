#!/bin/sh
# SPDX-License-Identifier: MIT
# A report that cannot be written does not take the panorama along: report_at_file_limit.sh PROGRAM
set -eu
program=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
{ printf 'P5\n40 40\n255\n'; head -c 1600 /dev/zero | tr '\0' 'a'; } >a.pgm
code=0
( ulimit -f 8; "$program" stitch -q a.pgm@0,0 a.pgm@20,0 -o out.pgm --report report.html ) 2>errors || code=$?
fail() { echo "$1"; cat errors; ls -la; exit 1; }
[ "$code" = 4 ] || fail "ends with $code, not with 4"
grep -q 'report\.html: ' errors || fail "does not name the report"
[ "$(wc -c <out.pgm)" = "$((13 + 60 * 40))" ] || fail "the panorama is not there"
[ ! -e report.html ] || fail "half a report is there"
[ "$(ls | wc -l)" = 3 ] || fail "something is left over"
