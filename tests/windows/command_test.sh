#!/usr/bin/env bash
# rastrel.exe as people run it: command_test.sh WINE-COMMAND... RASTREL
set -u
rastrel=("$@")
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
check grep -q "BMP, PBM, PGM, PPM, PAM files only" out
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
expect 2 apply page.bmp -o page.tif
check grep -q "page.tif: the ending tells no format" err
expect 1 apply missing.bmp -o missed.bmp
check [ ! -e missed.bmp ]
exit $((failures != 0))
