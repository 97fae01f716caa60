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
# Once in some thousand starts a heap at a random place lies where Wine maps the system's shared page, and the start
# fails: no random places, where the system lets a program choose.
fixed=
! setarch "$(uname -m)" -R true 2>/dev/null || fixed="setarch $(uname -m) -R"
exec $fixed wine "$@"
