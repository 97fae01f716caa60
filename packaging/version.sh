#!/bin/sh
# Prints the version, which stands in include/panoval_version.h alone.
set -eu
sed -n 's/^#define PANOVAL_VERSION_\(MAJOR\|MINOR\|PATCH\) \([0-9]*\).*/\2/p' "$(dirname "$0")/../include/panoval_version.h" |
    paste -s -d .
