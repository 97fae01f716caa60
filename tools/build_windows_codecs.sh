#!/bin/sh
# Builds the libraries of picture formats for the cross build, from the unpacked source packages zlib, libpng,
# libjpeg-turbo and tiff in build/deps. Static libraries and headers go to build/deps/windows, where cmake/windows.cmake
# looks for them, and the file `complete` when all of them are there.
set -eu
tree=$(cd "$(dirname "$0")/.." && pwd)
sources=$tree/build/deps
out=$sources/windows
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out/include" "$out/lib"

configure_and_build() { # NAME TARGET CMAKE-ARGUMENT...
    name=$1
    target=$2
    shift 2
    echo "dev: building $name for Windows"
    {
        cmake -S "$sources/$name" -B "$work/$name" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$tree/cmake/windows.cmake" \
            -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$out" "$@" &&
            cmake --build "$work/$name" --target "$target"
    } >"$work/log" 2>&1 || {
        cat "$work/log"
        exit 1
    }
}

keep() { # ARCHIVE LIBRARY HEADER...
    cp "$1" "$out/lib/$2"
    shift 2
    cp "$@" "$out/include/"
}

# Its own build of a shared library does not fit the cross compiler; the static one is all that is needed.
configure_and_build zlib zlibstatic
keep "$work/zlib/libzlibstatic.a" libz.a "$sources/zlib/zlib.h" "$work/zlib/zconf.h"

configure_and_build libpng png_static -DPNG_SHARED=OFF -DPNG_TESTS=OFF
keep "$work/libpng/libpng16.a" libpng.a "$sources/libpng/png.h" "$sources/libpng/pngconf.h" \
    "$work/libpng/pnglibconf.h"

configure_and_build libjpeg-turbo jpeg-static -DENABLE_SHARED=OFF -DWITH_TURBOJPEG=OFF -DREQUIRE_SIMD=ON
keep "$work/libjpeg-turbo/libjpeg.a" libjpeg.a "$sources/libjpeg-turbo/jpeglib.h" \
    "$sources/libjpeg-turbo/jmorecfg.h" "$sources/libjpeg-turbo/jerror.h" "$work/libjpeg-turbo/jconfig.h"

# The codecs that stand on the libraries above, and those that need none.
configure_and_build tiff tiff -DBUILD_SHARED_LIBS=OFF -Dtiff-tools=OFF -Dtiff-tests=OFF -Dtiff-contrib=OFF \
    -Dtiff-docs=OFF -Dcxx=OFF -Dzstd=OFF -Dlzma=OFF -Dwebp=OFF -Djbig=OFF -Dlerc=OFF -Dlibdeflate=OFF -Djpeg12=OFF
keep "$work/tiff/libtiff/libtiff.a" libtiff.a "$sources/tiff/libtiff/tiff.h" "$sources/tiff/libtiff/tiffio.h" \
    "$sources/tiff/libtiff/tiffvers.h" "$work/tiff/libtiff/tiffconf.h"
for codec in ZIP JPEG LZW; do
    grep -q "#define ${codec}_SUPPORT 1" "$out/include/tiffconf.h" || {
        echo "dev: the TIFF library was built without $codec" >&2
        exit 1
    }
done
touch "$out/complete"
