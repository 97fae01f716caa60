#!/bin/bash
# Completes lines as an interactive shell would: completion.sh REFERENCE
set -eu
# shellcheck source=/dev/null
. "$1/panoval.bash"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
touch "a picture.png" board.png

complete -p panoval | grep -q "complete -F _panoval panoval"

# The words of a line so far; what the cursor is at may be empty.
complete_line() {
    COMP_WORDS=("$@")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    _panoval
}

status=0
expect() { # EXPECTED WORD...
    local expected=$1
    shift
    complete_line "$@"
    local found
    found=$(printf '%s|' "${COMPREPLY[@]}")
    if [ "$found" != "$expected|" ]; then
        echo "completing '$*': found $found expected $expected|"
        status=1
    fi
}

expect "stitch" panoval sti
expect "--version" panoval --v
expect "ellipses|edges" panoval e
expect "--sigma" panoval edges --si
expect "--mask" panoval inpaint --mas
expect "multiband|feather" panoval stitch --blend ""
expect "multiband" panoval stitch --blend m
expect "feather" panoval stitch --blend = f
expect "multiband|feather" panoval stitch --blend =
expect "dark|bright|both" panoval ellipses --polarity ""
expect "board.png" panoval ellipses bo
expect "a picture.png" panoval edges --sigma 2 a
expect "board.png" panoval inpaint old.png --mask b
expect "" panoval edges --sigma ""
expect "" panoval nonsense --f
[ $status -eq 0 ] && echo "every line completed as expected"
exit $status
