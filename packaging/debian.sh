#!/bin/sh
# Debian packages of this tree: packaging/debian.sh BUILD OUT
# BUILD is a folder to build in, OUT gets libpanoval1, libpanoval-dev, panoval and python3-panoval. The same commit gives
# the same bytes: archives are written in order, and nothing names the folder of the build.
. "$(dirname "$0")/build_release.sh"
architecture=$(dpkg --print-architecture)
triplet=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
soversion=${version%%.*}
maintainer=${PANOVAL_MAINTAINER:-The Panoval developers <panoval@localhost.localdomain>}

build_release release -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR="lib/$triplet" -DCMAKE_SKIP_INSTALL_RPATH=ON
rm -f "$out"/*.deb

install_component() { # COMPONENT PACKAGE
    DESTDIR=$stage/$2 cmake --install "$build" --component "$1" >"$build.log"
}
install_component runtime "libpanoval$soversion"
install_component development libpanoval-dev
install_component program panoval
python=$stage/python3-panoval/usr/lib/python3/dist-packages/panoval
if [ -d "$tree/python/panoval" ]; then
    mkdir -p "$python"
    (cd "$tree/python/panoval" && find . -type f \( -name '*.py' -o -name '*.pyi' -o -name py.typed \) ! -path './_lib/*' \
        -exec cp --parents {} "$python" \;)
fi

find "$stage" -type f -name '*.so*' -exec strip --strip-unneeded --remove-section=.comment --remove-section=.note {} +
find "$stage" -type f -name '*.a' -exec strip --strip-debug --enable-deterministic-archives {} +
strip --strip-all --remove-section=.comment --remove-section=.note "$stage/panoval/usr/bin/panoval"
gzip -9n "$stage"/panoval/usr/share/man/man1/*.1

# What the shared objects of a package need of the distribution's, as the fields want it.
needed_by() { # PACKAGE FILE...
    without=-x$1
    shift
    mkdir -p "$stage/shlibs/debian"
    printf 'Source: panoval\n\nPackage: panoval\nArchitecture: any\n' >"$stage/shlibs/debian/control"
    printf 'libpanoval %s libpanoval%s (>= %s)\nlibmath %s libpanoval%s (>= %s)\n' "$soversion" "$soversion" "$version" \
        "$soversion" "$soversion" "$version" >"$stage/shlibs/debian/shlibs.local"
    for library in panoval_mosaic panoval_measure; do
        printf 'lib%s %s libpanoval%s (>= %s)\n' "$library" "$soversion" "$soversion" "$version"
    done >>"$stage/shlibs/debian/shlibs.local"
    (cd "$stage/shlibs" && dpkg-shlibdeps -O --ignore-missing-info "$without" -l"$stage/libpanoval$soversion/usr/lib/$triplet" "$@" \
        2>/dev/null) | sed -n 's/^shlibs:Depends=//p'
}

changelog() { # PACKAGE
    folder=$stage/$1/usr/share/doc/$1
    mkdir -p "$folder"
    cp "$tree/packaging/debian/copyright" "$folder/copyright"
    {
        printf 'panoval (%s) unstable; urgency=medium\n\n' "$version"
        sed -n "/^## $version/,/^## [0-9]/{/^## /d;s/^- /  * /;s/^  \([^ *]\)/    \1/;p}" "$tree/CHANGELOG.md" |
            sed -e '/./,$!d' | fold -s -w 78 | sed 's/ *$//; s/^\([^ ]\)/    \1/'
        printf '\n -- %s  %s\n' "$maintainer" "$(date -u -R -d "@$SOURCE_DATE_EPOCH")"
    } | gzip -9n >"$folder/changelog.gz"
    mkdir -p "$stage/$1/usr/share/lintian/overrides"
    sed "s/PACKAGE/$1/" "$tree/packaging/debian/lintian-overrides" >"$stage/$1/usr/share/lintian/overrides/$1"
}

# The fields and the archive of one package; the description is on standard input, its first line the short one.
package() { # PACKAGE ARCHITECTURE SECTION MULTI-ARCH DEPENDS
    changelog "$1"
    mkdir -p "$stage/$1/DEBIAN"
    {
        printf 'Package: %s\nSource: panoval\nVersion: %s\nArchitecture: %s\nMaintainer: %s\n' "$1" "$version" "$2" \
            "$maintainer"
        printf 'Installed-Size: %s\nDepends: %s\n' \
            "$(find "$stage/$1" -type f ! -path '*/DEBIAN/*' -printf '%s\n' | awk '{k += int(($1 + 1023) / 1024)} END {print k}')" \
            "$5"
        printf 'Section: %s\nPriority: optional\n' "$3"
        [ "$4" = - ] || printf 'Multi-Arch: %s\n' "$4"
        sed -e '1s/^/Description: /' -e '2,$s/^/ /'
    } >"$stage/$1/DEBIAN/control"
    (cd "$stage/$1" && find . -type f ! -path './DEBIAN/*' -printf '%P\n' | sort | xargs -d '\n' md5sum >DEBIAN/md5sums)
    find "$stage/$1" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
    find "$stage/$1" -type d -exec chmod 755 {} +
    find "$stage/$1" -type f ! -path '*/bin/*' ! -name postinst ! -name prerm -exec chmod 644 {} +
    dpkg-deb --root-owner-group -Zxz --threads-max=1 -b "$stage/$1" "$out" >/dev/null
}

library=$stage/libpanoval$soversion
mkdir -p "$library/DEBIAN"
for name in libmath libpanoval libpanoval_mosaic libpanoval_measure; do
    printf '%s %s libpanoval%s (>= %s)\n' "$name" "$soversion" "$soversion" "$version"
done >"$library/DEBIAN/shlibs"
echo 'activate-noawait ldconfig' >"$library/DEBIAN/triggers"

# shellcheck disable=SC2046 # a list of names
package "libpanoval$soversion" "$architecture" libs same "$(needed_by "libpanoval$soversion" $(find "$library" -name '*.so.*' -type f))" <<TEXT
Panoramas and measured targets (shared libraries)
Panoval makes panoramas of overlapping pictures, of any size within a fixed
memory, and measures round targets with their uncertainty.
.
This package has the libraries: the image routines, the panorama engine, the
measurement of targets, and the small linear algebra that they import.
TEXT
package libpanoval-dev "$architecture" libdevel same "libpanoval$soversion (= $version)" <<TEXT
Panoramas and measured targets (development files)
Panoval makes panoramas of overlapping pictures, of any size within a fixed
memory, and measures round targets with their uncertainty.
.
This package has the C headers, static libraries, pkg-config files and the
CMake package.
TEXT
package panoval "$architecture" graphics foreign "$(needed_by panoval "$stage/panoval/usr/bin/panoval")" <<TEXT
Panoramas and measured targets (program)
Panoval makes panoramas of overlapping pictures, of any size within a fixed
memory, and measures round targets with their uncertainty.
.
This package has the program, with a manual page for each of its commands.
TEXT
if [ -d "$python" ]; then
    package python3-panoval all python foreign \
        "python3 (>= 3.9), python3-numpy, libpanoval$soversion (>= $version)" <<TEXT
Panoramas and measured targets (Python)
Panoval makes panoramas of overlapping pictures, of any size within a fixed
memory, and measures round targets with their uncertainty.
.
This package has the module panoval, which works on arrays of NumPy.
TEXT
fi
ls "$out"
