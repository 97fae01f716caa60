# The opening of scripts that try the program: sourced with the folder of the built programs as the first argument.
# Leaves the shell in a folder that vanishes with it, with the program's name in $panoval and that of the folder in $bin.
set -eu
bin=$(cd "$1" && pwd)
# shellcheck disable=SC2034 # for the scripts
panoval=$bin/panoval
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

fail() {
    echo "$*"
    [ ! -s errors ] || cat errors
    exit 1
}
