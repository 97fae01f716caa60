#!/bin/sh
# Runs a Windows program under Wine, quietly, with a prefix of the build tree's own.
here=$(cd "$(dirname "$0")/.." && pwd)
: "${WINEPREFIX:=$here/build/wine}"
: "${WINEDEBUG:=-all}"
: "${WINEDLLOVERRIDES:=mscoree,mshtml=}"
export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES
mkdir -p "$WINEPREFIX"
exec wine "$@"
