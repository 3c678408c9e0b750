#!/usr/bin/env bash
# What is installed, as other projects use it: install_test.sh CMAKE BUILD_DIR SOURCE_DIR
set -euo pipefail
cmake=$1 build=$2 source=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$build" --prefix "$work/prefix" >/dev/null
cd "$work"
export PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name rastrel.pc)")
export LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_PATH")

# Turns a page of one pixel, and tells by the exit code whether the library works.
program='int main(void) {
  BITMAPINFOHEADER* header;
  HGLOBAL page = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 48), turned;
  header = (BITMAPINFOHEADER*)GlobalLock(page);
  header->biSize = 40; header->biWidth = header->biHeight = header->biPlanes = 1; header->biBitCount = 24;
  turned = TurnDIB(page, 1);
  return turned == 0 || GlobalFree(turned) != 0 || GlobalFree(page) != 0;
}'
# Beside headers of others with the same names: those that go by the platform'\''s mark, either way round, and those
# that do not.
records='typedef unsigned char BYTE; typedef unsigned int DWORD; typedef unsigned short WORD; typedef int LONG;
typedef struct tagBITMAPINFOHEADER { DWORD biSize; LONG biWidth, biHeight; WORD biPlanes, biBitCount; DWORD biCompression,
  biSizeImage; LONG biXPelsPerMeter, biYPelsPerMeter; DWORD biClrUsed, biClrImportant; } BITMAPINFOHEADER;
typedef struct tagRGBQUAD { BYTE rgbBlue, rgbGreen, rgbRed, rgbReserved; } RGBQUAD;
typedef struct tagRGBTRIPLE { BYTE rgbtBlue, rgbtGreen, rgbtRed; } RGBTRIPLE;
typedef struct tagBITMAPINFO { BITMAPINFOHEADER bmiHeader; RGBQUAD bmiColors[1]; } BITMAPINFO;'
others='typedef struct { LONG bmType, bmWidth, bmHeight, bmWidthBytes; WORD bmPlanes, bmBitsPixel; void* bmBits; } BITMAP;
typedef struct { BYTE peRed, peGreen, peBlue, peFlags; } PALETTEENTRY;
typedef struct { WORD palVersion, palNumEntries; PALETTEENTRY palPalEntry[1]; } LOGPALETTE;
typedef struct { LONG x, y; } POINT; typedef struct { LONG left, top, right, bottom; } RECT;'
marked="#ifndef _WINDOWS_
#define _WINDOWS_
$records
typedef int BOOL; typedef long long INT64; typedef unsigned long long UINT64;
#endif"
include='#include <rastrel.h>'
printf '%s\n' "$include" "$program" >alone.c
printf '%s\n' "$marked" "$include" "$program" >behind.c
printf '%s\n' "$include" "$marked" "$program" >before.c
printf '%s\n' "$records" "$others" '#define RASTREL_NO_HOST_RECORDS' "$include" "$program" >unmarked.c

for file in alone behind before unmarked; do
  cc -std=c11 -Wall -Werror $file.c -o $file $(pkg-config --cflags --libs rastrel)
  ./$file
done
cc alone.c -o static $(pkg-config --cflags rastrel) -Wl,-Bstatic -lrastrel -L"$LD_LIBRARY_PATH" -Wl,-Bdynamic \
  $(pkg-config --static --libs rastrel | sed 's/-lrastrel\b//')
./static
if pkg-config --exists rastrel_pages; then
  printf '#include <rastrel_pages.h>\nint main(void) { return PagesVersion()[0] == 0; }\n' >pages.c
  cc -Wall -Werror pages.c -o pages $(pkg-config --cflags --libs rastrel_pages)
  ./pages
fi

# A project without C++, by the CMake package.
cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(Client LANGUAGES C)
find_package(Rastrel REQUIRED)
add_executable(client alone.c)
target_link_libraries(client PRIVATE Rastrel::rastrel_static)
END
"$cmake" -S . -B client -DCMAKE_PREFIX_PATH="$work/prefix" >client.log
"$cmake" --build client >>client.log
client/client

# As a part of another project: neither tests nor installation of ours.
cat >CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.25)
project(Whole LANGUAGES CXX)
add_subdirectory($source rastrel)
END
"$cmake" -S . -B whole -G Ninja >whole.log
! grep -q rastrel_tests whole/build.ninja
