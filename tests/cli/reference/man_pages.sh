#!/bin/sh
# Every command has its page, and the formatter has nothing to say about any: man_pages.sh PROGRAM REFERENCE
set -eu
program=$1
reference=$2
status=0

check() { # PAGE WORD...
    page=$reference/$1
    shift
    [ -s "$page" ] || {
        echo "$page is missing"
        status=1
        return
    }
    warnings=$(LC_ALL=C.UTF-8 groff -man -Tutf8 -ww -z "$page" 2>&1)
    if [ -n "$warnings" ]; then
        echo "$page: found warnings: $warnings"
        status=1
    fi
    text=$(LC_ALL=C.UTF-8 groff -man -Tutf8 -P-cbou "$page")
    for word in "$@"; do
        if ! echo "$text" | grep -qe "$word"; then
            echo "$page: does not say $word"
            status=1
        fi
    done
}

commands=$("$program" --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
[ "$(echo "$commands" | wc -l)" -ge 8 ]
# shellcheck disable=SC2046 # a list of words
check panoval.1 NAME SYNOPSIS "EXIT STATUS" --version $(echo "$commands" | sed 's/^/panoval-/')
for command in $commands; do
    # every option that --help lists
    options=$("$program" "$command" --help | grep -oE '^  (-[a-z],)?--[a-z-]+' | sed 's/.*--/--/' | sort -u)
    # shellcheck disable=SC2086 # a list of words
    check "panoval-$command.1" "^NAME" "^SYNOPSIS" "^DESCRIPTION" "^EXAMPLES" "^EXIT STATUS" $options
done
[ $status -eq 0 ] && echo "$(echo "$commands" | wc -l) commands, all with their pages"
exit $status
