#!/bin/sh
# The zip as somebody on Windows uses it, under Wine: try_windows.sh PACKAGES WORK
# The program in a folder with Japanese letters and a blank; a host by MinGW's import libraries; one by Microsoft's kind of
# import libraries; and one on the universal C run-time library, which frees a block of ours.
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
folder="$work/新しい フォルダ"
mkdir "$folder"
cd "$folder"
unzip -q "$zip" -d .
mv panoval-*-windows-x86_64 パノラマ
package="$folder/パノラマ"
sh "$tree/tests/cli/windows_imports.sh" "$package/bin"

echo "the program, between Japanese letters"
mkdir 写真
cp "$package/bin/panoval.exe" "$package"/bin/*.dll 写真
cd 写真
compiler=x86_64-w64-mingw32-gcc-posix
"$compiler" "$tree/examples/stitch_two.c" "-I$package/include" "-L$package/lib" -lpanoval -o 二枚.exe
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

echo "a host by the import library of Microsoft's kind"
cat >microsoft.c <<'TEXT'
#include "panoval_measure.h"
#include "panoval_mosaic.h"
__declspec(dllimport) void __stdcall ExitProcess(unsigned int code);
void start(void)
{
    ExitProcess(panoval_mosaic_version() == PANOVAL_VERSION_NUMBER && panoval_measure_error_text(1)[0] != 0 ? 17 : 1);
}
TEXT
clang --target=x86_64-pc-windows-msvc -ffreestanding -nostdlibinc "-I$package/include" -c microsoft.c -o microsoft.obj
printf 'LIBRARY kernel32.dll\nEXPORTS\nExitProcess\n' >kernel32.def
llvm-dlltool-14 -m i386:x86-64 -d kernel32.def -D kernel32.dll -l kernel32.lib
lld-link -nologo -entry:start -subsystem:console -out:microsoft.exe microsoft.obj "$package/lib/panoval_mosaic.lib" \
    "$package/lib/panoval_measure.lib" kernel32.lib
code=0
wine ./microsoft.exe || code=$?
[ $code -eq 17 ] || fail "a host by lld-link ended with $code; expected 17"

echo "a host on the universal C run-time library"
cat >universal.c <<'TEXT'
#include "panoval.h"
#include <stdio.h>
#include <string.h>
#include <windows.h>
typedef void (*FreeBlock)(void*);
int main(void)
{
    FreeBlock free_block = (FreeBlock)(void*)GetProcAddress(GetModuleHandleA("msvcrt.dll"), "free");
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
echo "the zip works under Wine"
