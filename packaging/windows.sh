#!/bin/sh
# The zip for Windows: packaging/windows.sh BUILD OUT
# It holds the program, the libraries, import libraries for MinGW (.dll.a) and for Microsoft's linker (.lib, with the .def
# they are made from), static libraries, headers, examples and the CMake package. The same commit gives the same bytes.
. "$(dirname "$0")/build_release.sh"
name=panoval-$version-windows-x86_64

# The linker writes no time of its own into what it links.
build_release windows -DCMAKE_INSTALL_LIBDIR=lib \
    -DCMAKE_SHARED_LINKER_FLAGS=-Wl,--no-insert-timestamp -DCMAKE_EXE_LINKER_FLAGS="-static -Wl,--no-insert-timestamp"
cmake --install "$build" --prefix "$stage/$name" >>"$build.log"
x86_64-w64-mingw32-strip "$stage/$name"/bin/*
for archive in "$stage/$name"/lib/*.a; do
    x86_64-w64-mingw32-strip --strip-debug --enable-deterministic-archives "$archive"
done

# Names are read from the libraries themselves.
for library in "$stage/$name"/bin/*.dll; do
    base=$(basename "$library" .dll)
    {
        printf 'LIBRARY %s.dll\nEXPORTS\n' "$base"
        x86_64-w64-mingw32-objdump -p "$library" | sed -n 's/^\t\[ *[0-9]*\] \([A-Za-z_][A-Za-z_0-9]*\)$/    \1/p' | sort -u
    } >"$stage/$name/lib/$base.def"
    llvm-dlltool-14 -m i386:x86-64 -d "$stage/$name/lib/$base.def" -D "$base.dll" -l "$stage/$name/lib/$base.lib"
done
cp "$tree/LICENSE" "$tree/CHANGELOG.md" "$stage/$name/"
cp "$tree/packaging/windows/README.txt" "$stage/$name/"
mkdir "$stage/$name/examples"
cp "$tree"/examples/*.c "$tree"/examples/*.cpp "$stage/$name/examples/"
find "$stage/$name" -exec touch -d "@$SOURCE_DATE_EPOCH" {} +
rm -f "$out/$name.zip"
(cd "$stage" && find "$name" -type f | sort | zip -q -X -9 "$out/$name.zip" -@)
ls "$out"
