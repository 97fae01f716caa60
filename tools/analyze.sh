#!/bin/sh
# Looks for defects without running anything: analyze.sh [FOLDER...]
# cppcheck over the folders; what it finds without reason stands, with why, in tools/cppcheck_suppressions.txt. Without a
# FOLDER also GCC's analyser over all sources in C, the one language that it follows, and functions that no source of
# libraries, program and tools names but where they are defined: what only tests call is listed with its reason there, too.
set -eu
cd "$(dirname "$0")/.."
if [ $# -eq 0 ]; then
    echo "analyze: gcc -fanalyzer"
    find examples tests -name '*.c' | sort | while read -r source; do
        gcc -std=c99 -O1 -Wall -Wextra -Werror -fanalyzer -I . -I include -I libmath -c "$source" -o /dev/null
    done
fi
unused=
if [ $# -eq 0 ]; then
    unused=,unusedFunction
    set -- core io filter exposure blend inpaint detect libmath mosaic measure image cli tools
fi
echo "analyze: cppcheck"
cppcheck --std=c++20 --language=c++ --enable="warning,performance,portability$unused" --inline-suppr --quiet --error-exitcode=1 \
    -I . -I include -DHWY_ATTR= -DHWY_ONCE=1 -DNDEBUG --suppress=missingIncludeSystem --suppressions-list=tools/cppcheck_suppressions.txt \
    --template='{file}:{line}: {id}: {message}' "$@"
