#!/bin/sh
# The zip as somebody on Windows uses it, under Wine: try_windows.sh PACKAGES WORK
# All in folders with Japanese letters and a blank: what README.txt and README.md say, word by word; the program with every
# format; all examples by MinGW; find_package for MinGW, shared and static, and for a linker of Microsoft's kind; and hosts on the
# universal C run-time library, one of which frees blocks of ours.
set -eu
tree=$(cd "$(dirname "$0")/.." && pwd)
zip=$(ls "$1"/panoval-*-windows-x86_64.zip)
zip=$(cd "$(dirname "$zip")" && pwd)/$(basename "$zip")
rm -rf "$2"
mkdir -p "$2"
work=$(cd "$2" && pwd)
wine() { sh "$tree/cmake/run_under_wine.sh" "$@"; }
fail() {
    echo "try_windows: $*" >&2
    exit 1
}

LC_ALL=C.UTF-8
export LC_ALL
unset CMAKE_C_COMPILER_LAUNCHER CMAKE_CXX_COMPILER_LAUNCHER # a cache may not know compilers of Microsoft's kind
folder="$work/新しい フォルダ"
mkdir "$folder"
cd "$folder"
unzip -q "$zip" -d .
mv panoval-*-windows-x86_64 パノラマ
package="$folder/パノラマ"
sh "$tree/tests/cli/windows_imports.sh" "$package/bin"
compiler=x86_64-w64-mingw32-gcc-posix

run_shown() { # WHERE EXPECTED-COMMANDS: what stands in the file of commands, in the folder of the package
    [ "$(wc -l <"$work/commands")" -eq "$2" ] || fail "$1 shows $(wc -l <"$work/commands") commands; expected $2"
    while IFS= read -r line; do
        case $line in
        gcc*) sh -c "$compiler $(echo "${line#gcc }" | tr '\\' /)" ;;
        *) wine cmd /c "$line" >>"$work/said" </dev/null ;;
        esac || fail "$1: '$line' failed"
    done <"$work/commands"
    for made in bin/stitch_two.exe two.pgm edges.png; do
        [ -s "$made" ] || fail "$1 has left no $made"
        rm "$made"
    done
}

echo "README.txt and README.md, word by word"
cd "$package"
sed -n 's/^    \(gcc\|bin.[a-z]\)/\1/p' README.txt >"$work/commands"
run_shown README.txt 5
[ -s both.png ] || fail "README.txt has left no both.png"
sed -n '/^```bat/,/^```/p' "$tree/README.md" | sed '1d;$d' >"$work/commands"
run_shown README.md 3
cd "$folder"

echo "the program, between Japanese letters"
mkdir 写真
cp "$package/bin/panoval.exe" "$package"/bin/*.dll 写真
cd 写真
"$compiler" "$package/examples/stitch_two.c" "-I$package/include" "-L$package/lib" -lpanoval -o 二枚.exe
said=$(wine ./二枚.exe | tr -d '\r')
[ "$said" = "450 x 200, dark 60, middle 130, bright 200" ] || fail "a host by MinGW printed '$said'"
mv two.pgm "左 one.pgm"
cp "左 one.pgm" 右.pgm
wine ./panoval.exe stitch -o 全景.png "左 one.pgm@0,0" 右.pgm@400,0 --quiet
for ending in png tif jpg pgm pam dzi; do
    wine ./panoval.exe smooth 全景.png -o "滑らか a.$ending" --quiet
    [ -s "滑らか a.$ending" ] || fail "no picture as $ending"
done
wine ./panoval.exe ellipses --json 全景.png >targets.json

echo "all examples"
mkdir "$folder/例"
cp "$package"/bin/*.dll "$folder/例/"
(
    cd "$folder" # its name has a blank, which relative names are free of
    cp "$tree/examples/expected.txt" パノラマ/examples/
    CC=$compiler CXX=x86_64-w64-mingw32-g++-posix RUN="sh $tree/cmake/run_under_wine.sh" OWN_LIBMATH=libmath.dll \
        HEADERS=-I../パノラマ/include \
        WORDS="-static -I../パノラマ/include -L../パノラマ/lib -lpanoval.dll -lpanoval_mosaic.dll -lpanoval_measure.dll" \
        sh "$tree/tests/install/run_examples.sh" パノラマ/examples 例
)

echo "find_package for MinGW"
consume() { # FOLDER CMAKE-ARGUMENT...
    build=$1
    shift
    cmake -G Ninja -B "$build" -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_SYSTEM_PROCESSOR=x86_64 -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_PREFIX_PATH="$package" "$@" >"$work/cmake.log" 2>&1 && cmake --build "$build" >>"$work/cmake.log" 2>&1 || {
        cat "$work/cmake.log"
        fail "find_package"
    }
    cp "$package"/bin/*.dll "$build/"
}
consume "$folder/消費 a" -S "$tree/tests/install/consumer" -DEXAMPLE="$package/examples/stitch_two.c" \
    -DCMAKE_C_COMPILER=$compiler -DCMAKE_CXX_COMPILER=x86_64-w64-mingw32-g++-posix -DCMAKE_EXE_LINKER_FLAGS=-static
for host in shared static; do
    said=$(cd "$folder/消費 a" && wine ./$host.exe | tr -d '\r')
    [ "$said" = "450 x 200, dark 60, middle 130, bright 200" ] || fail "$host.exe printed '$said'"
done
(cd "$folder/消費 a" && wine ./versions.exe) || fail "versions.exe found other versions"
if x86_64-w64-mingw32-objdump -p "$folder/消費 a/static.exe" | grep -qi 'DLL Name: \(lib\|panoval\)'; then
    fail "the static program needs a library besides the system's"
fi

echo "a host by the import library of Microsoft's kind"
mkdir microsoft
cat >microsoft/microsoft.c <<'TEXT'
#include "panoval_measure.h"
#include "panoval_mosaic.h"
__declspec(dllimport) void __stdcall ExitProcess(unsigned int code);
void start(void)
{
    ExitProcess(panoval_mosaic_version() == PANOVAL_VERSION_NUMBER && panoval_measure_error_text(1)[0] != 0 ? 17 : 1);
}
TEXT
printf 'LIBRARY kernel32.dll\nEXPORTS\nExitProcess\n' >kernel32.def
llvm-dlltool-14 -m i386:x86-64 -d kernel32.def -D kernel32.dll -l kernel32.lib
cat >microsoft/CMakeLists.txt <<'TEXT'
cmake_minimum_required(VERSION 3.25)
project(microsoft LANGUAGES C)
find_package(panoval 1.0 CONFIG REQUIRED)
add_executable(microsoft microsoft.c)
target_compile_options(microsoft PRIVATE -X -GS-)
target_link_options(microsoft PRIVATE -nodefaultlib -entry:start -subsystem:console)
target_link_libraries(microsoft PRIVATE panoval::mosaic panoval::measure "${CMAKE_SOURCE_DIR}/../kernel32.lib")
TEXT
# No library of Microsoft's is here, so CMake cannot try the compiler by linking; neither are its tools for resources.
ln -s "$(command -v clang)" "$work/clang-cl"
consume "$PWD/microsoft/build" -S microsoft -DCMAKE_C_COMPILER="$work/clang-cl" -DCMAKE_LINKER="$(command -v lld-link)" \
    -DCMAKE_C_COMPILER_TARGET=x86_64-pc-windows-msvc -DCMAKE_C_COMPILER_WORKS=1 -DCMAKE_C_STANDARD_LIBRARIES= \
    -DCMAKE_MSVC_RUNTIME_LIBRARY= -DCMAKE_EXE_LINKER_FLAGS=-manifest:no -DCMAKE_RC_COMPILER=llvm-rc-14 -DCMAKE_MT=llvm-mt-14
mv microsoft/build/microsoft.exe .
code=0
wine ./microsoft.exe || code=$?
[ $code -eq 17 ] || fail "a host by lld-link ended with $code; expected 17"
x86_64-w64-mingw32-objdump -p microsoft.exe | grep -q 'DLL Name: panoval_measure.dll' || fail "microsoft.exe does not load our libraries"

echo "a host on the universal C run-time library, which frees as docs/hosts.md and README.txt say"
sed -n '/^```c/,/^```/p' "$tree/docs/hosts.md" | sed '1d;$d' >lines
[ "$(wc -l <lines)" -eq 2 ] || fail "docs/hosts.md shows $(wc -l <lines) lines of C; expected 2"
sed -n 's/^    \(.*FreeBlock.*;\)\r\{0,1\}$/\1/p' "$package/README.txt" | diff lines - || fail "README.txt says otherwise"
cat >universal.c <<'TEXT'
#include "panoval.h"
#include <stdio.h>
#include <string.h>
#include <windows.h>
int main(void)
{
#include "lines"
    Matb mask = {0, 0, 0, NULL};
    int i;
    for (i = 0; i < 1000 && free_block != NULL; ++i) {
        mask.data = NULL, mask.width = mask.height = 0;
        MatbReset(&mask, 1000, 1000, 1);
        memset(mask.data, 1, 1000000);
        free_block(mask.data);
    }
    printf("freed %d blocks\n", i);
    return 0;
}
TEXT
"$compiler" -dumpspecs | sed 's/-lmsvcrt/-lucrt/g' >universal.specs
"$compiler" -D_UCRT -specs=universal.specs universal.c "-I$package/include" "-L$package/lib" -lpanoval -o universal.exe
x86_64-w64-mingw32-objdump -p universal.exe | grep -q 'DLL Name: api-ms-win-crt' || fail "universal.exe uses another run-time library"
if x86_64-w64-mingw32-objdump -p universal.exe | grep -qi 'DLL Name: msvcrt'; then
    fail "universal.exe uses msvcrt, too"
fi
said=$(wine ./universal.exe | tr -d '\r')
[ "$said" = "freed 1000 blocks" ] || fail "a host on the universal run-time library printed '$said'"
"$compiler" -D_UCRT -specs=universal.specs "$package/examples/mosaic_callbacks.c" "-I$package/include" "-L$package/lib" \
    -lpanoval_mosaic -o callbacks.exe
said=$(wine ./callbacks.exe | tr -d '\r')
[ "$said" = "1700 x 300, 300 rows" ] || fail "the engine's host on the universal run-time library printed '$said'"
echo "the zip works under Wine"
