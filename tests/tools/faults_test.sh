#!/usr/bin/env bash
# Runs the command over ten small files, each time with one call of the system failing (see faults.c), and expects of every
# run a clear word, an exit code, whole outputs or none, no temporary files, and the other files done:
#
#   faults_test.sh RASTREL FAULTS SOURCE-FOLDER [SAMPLE]
#
# SAMPLE (24 in the tests) is how many calls of each kind are made to fail, spread over the run; "all" takes every one.
set -u
rastrel=$(realpath "$1") faults=$(realpath "$2") seeds=$(realpath "$3")/fuzz/seeds sample=${4:-24}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
failures=0 runs=0

mkdir in
cp "$seeds"/{tif/two_pages.tif,tif/cmyk.tif,tif/bilevel_Group4.tif,png/palette.png,png/profile.png,jpg/exif.jpg,bmp/rle.bmp,pnm/plain.pgm,pnm/pbm.pbm,pdf/grey.pdf} in
mv in/bilevel_Group4.tif in/fax.tif
run() { # with the faults and counts that the environment tells
  rm -rf out
  mkdir out
  LD_PRELOAD=$faults "$rastrel" clean in/* -o out/ --overwrite --dpi 300 -j 1 >told 2>err
}

RASTREL_COUNTS=counts run || { echo "FAILED without a fault: $(cat err)"; exit 1; }
mv out whole
inputs=$(ls whole | wc -l)

check() { # ORDER CODE
  local name made problem=""
  runs=$((runs + 1))
  case $2 in
    0) [ "$(ls out | wc -l)" -eq "$inputs" ] || problem="success with $(ls out | wc -l) outputs of $inputs" ;;
    1) grep -q '^rastrel: ..*' err || problem="no word" ;;
    *) problem="exit code $2" ;;
  esac
  # GnuTLS, which qpdf brings along, has a word of its own where it finds no memory.
  grep -v '^rastrel: \|GnuTLS' err | grep -q . && problem+=" unclear: $(grep -v '^rastrel: ' err | head -1)"
  made=$(find out -name '.*' -type f)
  [ -z "$made" ] || problem+=" left: $made"
  # No memory before there are pages, or where a library cannot tell of it, ends the run.
  made=$(ls out | wc -l)
  [ "$made" -ge $((inputs - 1)) ] || grep -qx 'rastrel: .*out of memory' err || problem+=" only $made files done"
  for name in $(ls out); do
    cmp -s "out/$name" "whole/$name" || problem+=" $name is another file"
  done
  [ -z "$problem" ] && return
  failures=$((failures + 1))
  echo "FAILED with $1: $problem ($(head -2 err))"
}

for kind in allocate read write seek open close rename sync short-read short-write eintr-read eintr-write; do
  count=$(sed -n "s/^${kind#*-} //p" counts)
  step=1
  [ "$sample" = all ] || step=$(((count + sample - 1) / sample))
  [ "$step" -gt 0 ] || continue
  for ((n = 1 + runs % step; n <= count; n += step)); do
    RASTREL_FAULT=$kind:$n run
    check "$kind:$n" $?
  done
done
echo "$runs runs, $failures failures"
[ $failures -eq 0 ]
