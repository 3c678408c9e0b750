#!/usr/bin/env bash
# rastrel.exe as people run it: command_test.sh WINE-COMMAND... RASTREL
set -u
rastrel=("$@")
samples=$(cd "$(dirname "$0")/../../samples" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
failures=0

# expect CODE ARGUMENT...: runs the command with its output in out and err.
expect() {
  local code=$1 got
  shift
  "${rastrel[@]}" "$@" >out 2>err
  got=$?
  [ $got -ne 77 ] || { cat out; exit 77; }
  [ $got -eq "$code" ] || { echo "FAILED: exit code $got, not $code: $* ($(cat err))"; failures=$((failures + 1)); }
}
check() { "$@" || { echo "FAILED: $* ($(cat err))"; failures=$((failures + 1)); }; }

# A white page of 64 x 48 pixels with a black bar, 300 dpi.
{
  printf 'BM\xBE\x01\0\0\0\0\0\0\x3E\0\0\0\x28\0\0\0\x40\0\0\0\x30\0\0\0\x01\0\x01\0\0\0\0\0\x80\x01\0\0'
  printf '\x23\x2E\0\0\x23\x2E\0\0\x02\0\0\0\0\0\0\0\0\0\0\0\xFF\xFF\xFF\0'
  for ((row = 0; row < 48; ++row)); do
    ((row >= 20 && row < 26)) && printf '\xFF\x00\x00\x00\x00\x00\xFF\xFF' || printf '\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF'
  done
} >page.bmp
cp page.bmp other.bmp

expect 0 clean --help
expect 0 info "Z:$work/page.bmp"
check grep -q "64 x 48 pixels, 1 bit, 300 dpi" out
# Turned twice it is itself again; files are replaced, and nothing is left beside them.
expect 0 apply page.bmp -o turned.bmp turn:2 -q
check [ "$(cmp page.bmp turned.bmp | wc -l)" -eq 1 ]
expect 2 apply turned.bmp -o turned.bmp turn:2 -q
expect 0 apply turned.bmp -o turned.bmp turn:2 -q --overwrite
check cmp page.bmp turned.bmp
expect 0 apply page.bmp other.bmp -o 'folder/' invert -q
check [ "$(ls -A . folder | xargs)" = ".: err folder other.bmp out page.bmp turned.bmp folder: other.bmp page.bmp" ]
# Between formats pixels stay as they are.
expect 0 apply page.bmp -o page.pbm -q
expect 0 apply page.pbm -o again.bmp -q
check cmp <(tail -c 384 page.bmp) <(tail -c 384 again.bmp)
# An input is recognised under another spelling of its name.
expect 2 clean page.bmp other.bmp -o "Z:$work/" -q
check cmp page.bmp other.bmp
# Names that differ in case only are one file, patterns are expanded, and names may have letters of any language.
mkdir a b
cp page.bmp a/page.bmp
cp page.bmp b/PAGE.bmp
expect 2 apply a/page.bmp b/PAGE.bmp -o out/ -q
expect 0 apply '*.bmp' -o 'all/' -q
check [ "$(ls all | xargs)" = "again.bmp other.bmp page.bmp turned.bmp" ]
LC_ALL=C.UTF-8 expect 0 apply page.bmp -o 'größe-日.bmp' -q
check cmp <(tail -c 384 page.bmp) <(tail -c 384 'größe-日.bmp')
expect 2 apply page.bmp -o page.jp2
check grep -q "page.jp2: the ending tells no format" err
expect 1 apply missing.bmp -o missed.bmp
check [ ! -e missed.bmp ]

# Through the system's codecs pixels are those that libtiff and libpng read of the same files (netpbm says so, too) ...
sums() { (cd "$1" && cksum -- *.ppm | awk '{print $1}' | xargs); }
pixels="4293066356 2895599320"
expect 0 apply "$samples/letter-1bit.tif" "$samples/report-grey.png" -o read/ --format ppm -q
check [ "$(sums read)" = "$pixels" ]
# ... and stay so from format to format, as pages of one file and as files; resolution and tags go along.
expect 0 apply read/letter-1bit.ppm read/report-grey.ppm -o book.tif --dpi 200 -q
expect 0 info -v book.tif
check [ "$(grep -c '200 dpi' out)" -eq 2 ]
check [ "$(grep -c 'software, history' out)" -eq 2 ]
expect 0 apply book.tif -o again/ --format ppm -q
check [ "$(sums again)" = "$pixels" ]
expect 0 apply again/book-001.ppm again/book-002.ppm -o png/ --format png -q
expect 0 apply png/book-001.png png/book-002.png -o last/ --format ppm -q
check [ "$(sums last)" = "$pixels" ]
# JPEG comes close. A page that it has read is upright and has its size and resolution.
expect 0 apply read/report-grey.ppm -o grey.jpg -q
expect 0 apply grey.jpg -o grey.ppm -q
check python3 -c '
import sys
a, b = (open(name, "rb").read() for name in sys.argv[1:])
sys.exit(len(a) != len(b) or sum(abs(x - y) for x, y in zip(a, b)) > 2 * len(a))' read/report-grey.ppm grey.ppm
expect 0 info "$samples/catalogue-colour.jpg"
check grep -q "874 x 1240 pixels, 24 bits, 150 dpi" out
# What is cut short or lies about its size is refused, each by its name.
mkdir hurt
head -c 9000 "$samples/letter-1bit.tif" >hurt/cut-1.tif
head -c 9000 "$samples/report-grey.png" >hurt/cut-2.png
head -c 9000 "$samples/catalogue-colour.jpg" >hurt/cut-3.jpg
{ head -c 18 png/book-001.png && printf '\xFF\xFF' && tail -c +21 png/book-001.png; } >hurt/size.png
expect 1 apply hurt/cut-1.tif hurt/cut-2.png hurt/cut-3.jpg hurt/size.png -o never/ --format bmp
check [ "$(grep -c 'is damaged' err)" -eq 4 ]
check [ -z "$(ls -A never 2>/dev/null)" ]
exit $((failures != 0))
