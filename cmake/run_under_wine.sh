#!/bin/sh
# Runs a Windows program under Wine, quietly, with a prefix of the build tree's own.
here=$(cd "$(dirname "$0")/.." && pwd)
: "${WINEPREFIX:=$here/build/wine}"
: "${WINEDEBUG:=-all}"
: "${WINEDLLOVERRIDES:=mscoree,mshtml=}"
# File names outside ASCII need a locale that knows UTF-8.
LC_ALL=C.UTF-8
export LC_ALL WINEPREFIX WINEDEBUG WINEDLLOVERRIDES
mkdir -p "$WINEPREFIX"
exec wine "$@"
