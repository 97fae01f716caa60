# The opening of scripts that make packages: sourced with BUILD and OUT as the arguments.
# Leaves $tree, $build, $out and $version, an empty folder $stage, and a function that builds. The same commit gives the same
# bytes: times come from SOURCE_DATE_EPOCH, and texts do not depend on where and how one lives.
set -eu
tree=$(cd "$(dirname "$0")/.." && pwd)
build=$1
out=$2
: "${SOURCE_DATE_EPOCH:?the time of the commit}"
export SOURCE_DATE_EPOCH
umask 022
version=$(sh "$tree/packaging/version.sh")

# A preset without its tests and benchmarks, the log in $build.log.
build_release() { # PRESET CMAKE-ARGUMENT...
    preset=$1
    shift
    if ! cmake --preset "$preset" -S "$tree" -B "$build" -DPANOVAL_TESTS=OFF -DPANOVAL_BENCH=OFF "$@" >"$build.log" 2>&1 ||
        ! cmake --build "$build" >>"$build.log" 2>&1; then
        tail -n 50 "$build.log"
        exit 1
    fi
    export LC_ALL=C.UTF-8 TZ=UTC
    stage=$build/stage
    rm -rf "$stage"
    mkdir -p "$stage" "$out"
}
