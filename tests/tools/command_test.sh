#!/usr/bin/env bash
# Runs one case of the command's tests: command_test.sh RASTREL SOURCE-FOLDER CASE
set -u
rastrel=$1
samples=$2/samples
letter=$samples/letter-1bit.tif
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
failures=0

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}
# expect CODE COMMAND...: runs it with its output in out and err.
expect() {
  local code=$1 got
  shift
  "$@" >out 2>err
  got=$?
  [ $got -eq "$code" ] || fail "exit code $got, not $code: $* ($(cat err))"
}
complains() {
  [ "$(wc -l <err)" -eq 1 ] || fail "not one line: $(cat err)"
  grep -q "$1" err || fail "no '$1' in: $(cat err)"
}
same_pixels() {
  "$rastrel" apply "$1" -o one.ppm -q --overwrite && "$rastrel" apply "$2" -o other.ppm -q --overwrite && cmp -s one.ppm other.ppm
}
no_leftovers() { [ -z "$(find . -name '.*.part')" ] || fail "left: $(find . -name '.*.part')"; }

# What README.md shows, in order, and its program.
case_readme() {
  local source=${samples%/samples} line
  ln -s "$samples" samples
  rastrel() { "$rastrel" "$@"; }
  while read -r line; do
    eval "expect 0 $line"
  done < <(grep '^    rastrel ' "$source/README.md")
  [ -s tiles/catalogue-colour-006.png ] && [ -s cleaned/report-grey.png ] || fail "made only: $(find .)"
  diff "$source/examples/clean_bitmap.c" <(sed -n '/^```c$/,/^```$/{/^```/!p}' "$source/README.md") || fail "another program"
}

# The manual page and the completions know each option of the help.
case_manual() {
  local shell option
  expect 0 "$rastrel" --print-man
  mv out rastrel.1
  for shell in bash zsh fish; do
    expect 0 "$rastrel" --print-completion $shell
    mv out $shell
    ! command -v $shell >/dev/null || $shell -n $shell || fail "$shell does not take it"
  done
  ! command -v groff >/dev/null || [ -z "$(groff -man -Tutf8 -ww -z rastrel.1 2>&1)" ] || fail "$(groff -man -Tutf8 -ww -z rastrel.1 2>&1)"
  for option in $("$rastrel" clean --help | grep -oE '^  (-., ?)?--[a-z-]+' | grep -oE '[a-z]+(-[a-z]+)*$'); do
    grep -qE "\\\\-\\\\-${option//-/\\\\-}[\", ]" rastrel.1 || fail "the manual has no --$option"
    for shell in "bash --$option" "zsh --$option\[" "fish -l $option "; do
      grep -qe "${shell#* }" "${shell%% *}" || fail "$shell is missing"
    done
  done
  bash -c "source ./bash; COMP_WORDS=(rastrel batch --retr); COMP_CWORD=2; _rastrel; [ \"\${COMPREPLY[*]}\" = --retry ]" || fail "bash finds no --retry"
  expect 2 "$rastrel" --print-completion csh
}

case_usage() {
  expect 0 "$rastrel" --version
  expect 0 "$rastrel" clean --help
  expect 0 "$rastrel" apply --list
  local arguments
  for arguments in "" "polish x" "clean" "clean $letter" "clean $letter -o x.pam" "clean $letter -o x.png --compression g4" "apply - - -o x.tif" "clean $letter -o x" \
    "clean $letter -o x.png --speck-level 19" "clean $letter -o x.png --holes -4" "clean $letter -o x.png -j 0" "clean $letter -o x.png --max-skew nan" \
    "clean $letter -o x.png --reduce paint" "clean $letter -o x.png --brightness 1.5" "apply -o x.png trim" \
    "apply $letter -o x.png scale" "apply $letter -o x.png trim $letter" "apply $letter -o x.png trim:1" "apply $letter -o x.png trim polish" "apply $letter -o x.png rotate:much"; do
    # shellcheck disable=SC2086
    expect 2 "$rastrel" $arguments
    [ -s err ] || fail "no message for: $arguments"
  done
  [ -z "$(find . -name 'x.*')" ] || fail "output after a usage error"
  # Words that are nearly right are told, before anything is written.
  local typo
  for typo in "clena $letter -o x.png:clean" "clean $letter -o x.png --overwirte:--overwrite" "apply $letter -o x.png invrt:invert" \
    "apply $letter -o x.png grey graysacle:grayscale"; do
    # shellcheck disable=SC2086
    expect 2 "$rastrel" ${typo%:*}
    grep -q "did you mean ${typo##*:}?" err || fail "told: $(cat err)"
  done
  expect 1 "$rastrel" apply "$letter" missing-page.tif -o x.tif
  complains "missing-page.tif"
  expect 2 "$rastrel" apply "$letter" -o no/such/x.tif
  grep -q "no folder no/such; --parents" err || fail "told: $(cat err)"
  [ -z "$(find . -name 'x.*')" ] || fail "output in spite of wrong words"
  expect 0 "$rastrel" apply "$letter" -o no/such/x.tif --parents -q
  # Operations by names of other programs.
  expect 0 "$rastrel" apply "$letter" -o ours.tif flip:h grey scale:percent=50 halftone:threshold,20 -q
  expect 0 "$rastrel" apply "$letter" -o theirs.tif flop grayscale resize:percent=50 threshold:20 -q
  cmp -s ours.tif theirs.tif || fail "other names do something else"
}

case_bad_input() {
  mkdir folder
  : >empty.tif
  head -c 5000 "$letter" >short.tif
  head -c 40000 "$samples/report-grey.png" >short.png
  head -c 40000 "$samples/catalogue-colour.jpg" >short.jpg
  echo "no picture" >text.png
  local bad
  for bad in missing.tif folder empty.tif short.tif short.png short.jpg text.png; do
    expect 1 "$rastrel" clean "$bad" -o bad.tif
    complains "^rastrel: $bad"
    [ ! -e bad.tif ] || fail "an output from $bad"
    expect 1 "$rastrel" info "$bad"
    complains "^rastrel: $bad"
  done
  expect 1 "$rastrel" info /proc/self/mem
  complains "Input/output error"
  # The others are still done, and the format is told by the content.
  cp "$letter" letter.png
  expect 1 "$rastrel" clean letter.png short.png "$samples/report-grey.png" -o folder -q
  [ "$(ls folder | xargs)" = "letter.tif report-grey.png" ] || fail "the good pages are not in the folder: $(ls folder)"
  # A book has all its pages, or says by its name that it has not.
  expect 1 "$rastrel" apply letter.png short.png "$samples/report-grey.png" -o both.tif -q
  grep -q "both.tif: is not written without its damaged page" err || fail "told: $(cat err)"
  [ ! -e both.tif ] || fail "a book without a page"
  expect 1 "$rastrel" apply letter.png short.png "$samples/report-grey.png" -o both.tif --skip-damaged --json
  grep -q '"file":"short.png".*"leftOut":true' out || fail "told: $(cat out)"
  [ ! -e both.tif ] || fail "a book without a page under its own name"
  [ "$("$rastrel" info both-incomplete.tif | wc -l)" -eq 2 ] || fail "the good pages are not in the output"
  expect 1 "$rastrel" apply letter.png short.png -o both.tif --skip-damaged
  complains "both-incomplete.tif is there already"
  no_leftovers
}

case_outputs() {
  expect 0 "$rastrel" apply "$letter" "$samples/report-grey.png" "$samples/catalogue-colour.jpg" -o all.tif -q
  [ "$("$rastrel" info all.tif | wc -l)" -eq 3 ] || fail "all.tif has not 3 pages"
  expect 0 "$rastrel" apply all.tif -o page.bmp -q
  [ "$(echo page-*)" = "page-001.bmp page-002.bmp page-003.bmp" ] || fail "numbered: $(echo page*)"
  expect 0 "$rastrel" apply all.tif "$samples/catalogue-colour.jpg" -o folder/ -q
  [ "$(ls folder | xargs)" = "all.tif catalogue-colour.png" ] || fail "in the folder: $(ls folder)"
  expect 0 "$rastrel" apply all.tif -o folder --format png -q
  [ -e folder/all-003.png ] || fail "no numbered pages in the folder"
  expect 0 "$rastrel" apply all.tif -o lossy.tif --quality 60 -q
  [ "$(stat -c %s lossy.tif)" -lt "$(stat -c %s all.tif)" ] || fail "JPEG is no smaller"
  expect 2 "$rastrel" apply folder/all.tif all.tif -o other -q
  expect 1 "$rastrel" apply "$letter" -o /dev/full --format png
  [ -c /dev/full ] || fail "/dev/full was replaced"
}

case_overlay() {
  expect 0 "$rastrel" clean "$letter" -o page.tif --overlay shown.png --json
  grep -q '"overlay":"shown.png".*"widthIn":1165,"heightIn":1653.*"holesAt":\[{"x":1[0-9.]*,"y":[0-9.]*,"diameter":4[78].[0-9],"side":"left"},.*"specks":[1-9]' out ||
    fail "told: $(cat out)"
  "$rastrel" info shown.png | grep -q "1165 x 1653 pixels, 8 bits, 200 dpi" || fail "$("$rastrel" info shown.png)"
  expect 0 "$rastrel" clean "$letter" -o page.tif -v --overwrite
  grep -q "^    hole at the left: 48 pixels wide" out || fail "told: $(cat out)"
  # Several pages: numbered, or in a folder.
  expect 0 "$rastrel" apply "$letter" "$letter" -o two.tif -q
  expect 0 "$rastrel" clean two.tif "$letter" -o three.tif --overlay many.png -q
  [ "$(echo many*)" = "many-001.png many-002.png many-003.png" ] || fail "numbered: $(echo many*)"
  expect 0 "$rastrel" clean two.tif "$letter" -o three.tif --overlay shown/ -q --overwrite
  [ "$(ls shown | xargs)" = "letter-1bit.png two-001.png two-002.png" ] || fail "in the folder: $(ls shown)"
  cmp -s shown.png shown/letter-1bit.png || fail "overlays depend on where they go"
  # Neither inputs nor outputs are lost, and a page without an output has no overlay.
  cp shown.png input.png
  local arguments
  for arguments in "-o new.png --overlay new.png" "-o new.png --overlay ./new.png" "-o new.png --overlay new.tif" \
    "-o new.png --overlay input.png --overwrite" "-o new/ --overlay new/"; do
    # shellcheck disable=SC2086
    expect 2 "$rastrel" clean input.png $arguments
    grep -q -e "--overlay" err || fail "no reason: $(cat err)"
  done
  cmp -s shown.png input.png || fail "an input was lost"
  expect 2 "$rastrel" clean "$letter" -o new.png --overlay no/such/folder.png
  grep -q "no/such/folder.png" err || fail "told: $(cat err)"
  [ ! -e new.png ] || fail "a page without its overlay"
  expect 1 "$rastrel" clean missing.tif -o new.png --overlay new-overlay.png
  [ ! -e new-overlay.png ] || fail "an overlay without a page"
  no_leftovers
}

case_in_place() {
  cp "$letter" one.tif
  cp "$letter" two.tif
  expect 2 "$rastrel" apply one.tif two.tif -o two.tif grey
  expect 2 "$rastrel" apply one.tif two.tif -o . grey
  cmp -s two.tif "$letter" || fail "an input was replaced without being asked"
  expect 2 "$rastrel" apply one.tif -o one.tif grey
  expect 2 "$rastrel" clean one.tif -o two.tif
  cmp -s two.tif "$letter" || fail "a file was replaced without being asked"
  chmod 600 one.tif
  touch -d 2001-02-03T04:05:06Z one.tif
  expect 0 "$rastrel" apply one.tif -o one.tif grey --overwrite --keep-time --json
  grep -q '"replacesInput":true' out || fail "told: $(cat out)"
  [ "$(stat -c '%a %Y' one.tif)" = "600 981173106" ] || fail "mode and time: $(stat -c '%a %Y' one.tif)"
  "$rastrel" info one.tif | grep -q " 8 bits" || fail "one.tif was not replaced"
  expect 0 "$rastrel" apply one.tif two.tif -o two.tif --overwrite -q
  [ "$("$rastrel" info two.tif | wc -l)" -eq 2 ] || fail "two.tif has not 2 pages"
  ln -s one.tif link.tif
  expect 0 "$rastrel" apply "$letter" -o link.tif -q --overwrite
  [ -L link.tif ] || fail "the link was replaced"
  cmp -s one.tif two.tif && fail "one.tif was not written through the link"
  no_leftovers
}

# Through pipes, and through every format and compression that loses nothing.
case_pipes() {
  expect 0 bash -c "'$rastrel' apply - -o - --format tif <'$letter' | '$rastrel' apply - -o - flip:h | '$rastrel' apply - -o piped.png flip:h"
  same_pixels "$letter" piped.png || fail "a page changed in pipes"
  grep -q "^-: done -> -$" err || fail "told: $(cat err)"
  expect 2 "$rastrel" apply "$letter" "$letter" -o - --format png
  [ ! -s out ] || fail "something of a file that is none"
  expect 0 "$rastrel" apply - -o ./ -q <"$letter"
  [ -f standard-input.tif ] || fail "no page of standard input: $(ls)"
  "$rastrel" info - --limit bytes=1000 <"$letter" >out 2>&1 && fail "more than the limit"
  grep -q "more than the limit of 1000 bytes" out || fail "told: $(cat out)"
  expect 1 bash -c "'$rastrel' apply '$letter' -o - >/dev/full"
  local way
  for way in g4 lzw deflate none; do
    expect 0 "$rastrel" apply "$letter" "$samples/report-grey.png" -o $way.tif --compression $way -q
    expect 0 "$rastrel" apply $way.tif -o $way.png -q
    same_pixels "$letter" $way-001.png && same_pixels "$samples/report-grey.png" $way-002.png || fail "$way changes pages"
  done
  expect 0 "$rastrel" apply "$letter" -o page.pbm -q
  same_pixels "$letter" page.pbm || fail "PBM changes pages"
  expect 1 "$rastrel" apply "$samples/report-grey.png" -o grey.pbm
  complains "PBM files are black and white"
  expect 0 "$rastrel" formats --json
  grep -q '"name":"tif".*"manyPages":true.*"choices":"g4,lzw' out || fail "told: $(cat out)"
}

# What a page loses is told, or refused. The profile of a PNG file has no place in a bitmap file.
case_losses() {
  expect 0 "$rastrel" apply "$letter" -o signed.png -q
  expect 0 "$rastrel" info signed.png --json
  grep -q '"reduced":\[\],"depth":1,"space":"grey","compression":"deflate","tags":\[[^]]*"software"' out || fail "told: $(cat out)"
  expect 0 "$rastrel" apply signed.png -o unsigned.bmp -v
  grep -q "^    reduced: software left out: BMP files have no place for it$" out || fail "told: $(cat out)"
  expect 1 "$rastrel" apply signed.png -o strict.bmp --strict
  complains "would lose: software"
  [ ! -e strict.bmp ] || fail "written in spite of --strict"
  expect 0 "$rastrel" apply signed.png -o strict.tif --strict
}

case_tiles() {
  expect 0 "$rastrel" apply "$letter" -o page.png -q
  expect 0 "$rastrel" apply page.png -o tile.png split:512 --json
  grep -q '"made":12,' out || fail "not 12 tiles: $(cat out)"
  [ "$(ls tile-*.png | wc -l)" -eq 12 ] || fail "tiles: $(ls)"
  grep -q '"outputs":\["tile-001.png",.*"tile-012.png"\]' out || fail "told: $(cat out)"
  # What only the second of two brings is told.
  printf 'P5 4 1 255\naaaa' >plain.pgm
  printf '\xff\xd8\xff\xfe\0\5you' >said.jpg
  expect 0 "$rastrel" apply plain.pgm -o bare.jpg
  tail -c +3 bare.jpg >>said.jpg
  expect 0 "$rastrel" apply plain.pgm said.jpg -o joined.tif merge:2 --json
  grep -q '[ "]comment of said.jpg left out"' out || fail "not told: $(cat out)"
  expect 0 "$rastrel" apply tile-*.png -o joined.png merge:3
  same_pixels page.png joined.png || fail "the tiles do not make the page"
  grep -q "^tile-001.png and 11 more: done -> joined.png$" out || fail "told: $(cat out)"
  # In one go, by way of a multi-page file, and by folders.
  expect 0 "$rastrel" apply page.png -o tiles.tif split:512 flip:h
  [ "$("$rastrel" info tiles.tif | wc -l)" -eq 12 ] || fail "tiles.tif has not 12 pages"
  mkdir folder
  expect 0 "$rastrel" apply tiles.tif -o singles.png
  grep -q "^tiles.tif: 12 pages -> singles-001.png to singles-012.png$" out || fail "told: $(cat out)"
  expect 0 "$rastrel" apply tiles.tif -o folder --format png flip:h merge:3
  same_pixels page.png folder/tiles.png || fail "the pages of tiles.tif do not make the page"
  # Inputs and earlier outputs are safe from the names of tiles.
  cp tile-001.png before.png
  expect 1 "$rastrel" apply tile-001.png -o tile.png split:256
  complains "an input"
  cmp -s before.png tile-001.png || fail "an input was lost"
  cp page.png p.png
  cp tile-001.png p-001.png
  expect 1 "$rastrel" apply p.png p-001.png -o folder/ split:1184,1000
  complains "several pages"
  expect 1 "$rastrel" apply page.png missing.png -o joined.bmp merge:1
  complains "missing.png"
  no_leftovers
}

case_blank() {
  expect 0 "$rastrel" apply "$letter" -o empty.png combine:"$letter",0,0,over invert combine:"$letter",0,0,and
  expect 0 "$rastrel" apply empty.png -o blank.png invert
  expect 0 "$rastrel" info "$letter" blank.png
  [ "$(grep -c ", blank$" out)" -eq 1 ] || fail "told: $(cat out)"
  expect 0 "$rastrel" apply "$letter" blank.png "$letter" -o three.tif -q
  expect 0 "$rastrel" clean three.tif -o two.tif --drop-blank 0.2
  grep -q "3 pages, 1 blank left out (2)" out || fail "told: $(cat out)"
  [ "$("$rastrel" info two.tif | wc -l)" -eq 2 ] || fail "two.tif has not 2 pages"
  expect 0 "$rastrel" clean blank.png -o none.png --drop-blank 0.2 --json
  grep -q '"blank":true,"dropped":true' out || fail "told: $(cat out)"
  [ ! -e none.png ] || fail "a blank page was written"
  expect 0 "$rastrel" clean blank.png -o none.tif --drop-blank 0.2
  complains "none.tif is not written: all its pages are blank"
}

# A limit on the size of files stands in for a disk that is full.
case_full_disk() {
  local format
  for format in bmp png tif; do
    expect 1 bash -c "ulimit -f 8; '$rastrel' apply '$letter' -o full.$format grey"
    complains "full.$format"
    grep -q "File too large" err || fail "no reason: $(cat err)"
    [ ! -e "full.$format" ] || fail "a partial full.$format"
  done
  no_leftovers
}

# Where nobody hears what is told, pages are done all the same, and the exit code says that a report is lost.
case_lost_report() {
  local arguments
  for arguments in "info $letter" "info $letter --json" "apply --list" "--help"; do
    expect 1 bash -c "'$rastrel' $arguments >/dev/full"
    [ "$(wc -l <err)" -eq 1 ] && [ "$(cat err)" = "rastrel: standard output: No space left on device" ] || fail "told: $(cat err)"
  done
  expect 1 bash -c "'$rastrel' clean '$letter' -o closed.tif >&-"
  expect 0 "$rastrel" info closed.tif
  echo text >text.tif
  local lost
  for lost in '2>/dev/full' '2>&-' '2> >(exec true)' '> >(exec true)'; do
    rm -rf out-folder
    bash -c "'$rastrel' apply text.tif '$letter' -o out-folder/ $lost" >/dev/null 2>&1
    [ $? -eq 1 ] && [ -e out-folder/letter-1bit.tif ] || fail "pages are not done with $lost: $(ls)"
  done
  # What files are called does nothing to the terminal.
  cp "$letter" $'a\n\e]0;b\x9b.tif'
  expect 0 "$rastrel" apply a*.tif -o name.tif
  grep -qF 'a\n\x1b]0;b\x9b.tif: done -> name.tif' out || fail "told: $(cat -v out)"
  expect 2 "$rastrel" apply a*.tif -o a*.tif
  LC_ALL=C grep -q '[^[:print:]]' err && fail "told: $(cat -v err)"
}

# 40 rows of 2500 bytes.
case_limits() {
  "$rastrel" apply "$letter" -o wide.tif scale:20000,40 -q
  expect 0 "$rastrel" info wide.tif --limit pixels=800k,bytes=100k,seconds=none
  expect 1 "$rastrel" info wide.tif --limit pixels=799k
  complains "20000 x 40 pixels, more than the limit of 799000"
  expect 1 "$rastrel" info wide.tif --limit bytes=99999
  complains "needs 100000 bytes of memory, more than the limit of 99999"
  expect 1 "$rastrel" info wide.tif --limit seconds=0.000001
  complains "takes longer to read"
  expect 2 "$rastrel" info wide.tif --limit pixel=1
  expect 2 "$rastrel" info wide.tif --limit pixels=many
}

case_interruption() {
  local inputs=() i
  for i in $(seq 200); do inputs+=("$samples/catalogue-colour.jpg"); done
  "$rastrel" apply "${inputs[@]}" -o many.tif rotate:5 -q &
  local job=$!
  for i in $(seq 100); do
    [ -n "$(find . -name '.many.tif.*.part')" ] && break
    sleep 0.05
  done
  [ -n "$(find . -name '.many.tif.*.part')" ] || fail "no file under way"
  kill -TERM $job
  wait $job
  [ $? -eq 143 ] || fail "not ended by the signal"
  [ ! -e many.tif ] || fail "a partial file"
  no_leftovers
}

case_order() {
  local inputs=() i
  for i in 1 2 3 4 5; do inputs+=("$samples/catalogue-colour.jpg" "$letter"); done
  expect 0 "$rastrel" clean "${inputs[@]}" -o serial.tif -j 1
  cp out serial.out
  expect 0 "$rastrel" clean "${inputs[@]}" -o parallel.tif -j 64
  cmp -s serial.tif parallel.tif || fail "pages depend on how many run at once"
  [ "$(sed 's/serial/parallel/' serial.out)" = "$(cat out)" ] || fail "lines depend on how many run at once"
  [ "$(wc -l <out)" -eq 10 ] || fail "not a line a file"
}

case_json() {
  expect 0 "$rastrel" clean "$letter" "$samples/catalogue-colour.jpg" -o out.tif --overwrite --json
  [ "$(grep -c '^{.*}$' out)" -eq 2 ] || fail "not two records: $(cat out)"
  head -n 1 out | grep -q '"holes":2,' || fail "the letter's holes: $(head -n 1 out)"
  head -n 1 out | grep -q '"step":"deskew","ms":' || fail "no time for deskew"
  tail -n 1 out | grep -q '"regions":\[{"kind":"border",.*"checked":true' || fail "no plan: $(tail -n 1 out)"
  expect 0 "$rastrel" clean "$samples/catalogue-colour.jpg" -o out.tif --overwrite --json --classic
  grep -q '"skipped":\[{"step":"specks"' out || fail "no reason for specks: $(cat out)"
  expect 1 "$rastrel" clean missing.tif -o out.tif --overwrite --json
  grep -q '"file":"missing.tif".*"error":' out || fail "no record of a failure: $(cat out)"
  expect 0 "$rastrel" clean "$letter" -o out.tif --quiet --overwrite
  [ ! -s out ] && [ ! -s err ] || fail "--quiet is not"
}

case_options() {
  # Of two that contradict each other the last one decides.
  local options
  for options in "--no-holes --holes 8:2" "--holes 8 --no-holes:0" "--no-holes:0"; do
    # shellcheck disable=SC2086
    expect 0 "$rastrel" clean "$letter" -o out.tif --overwrite --json ${options%:*}
    grep -q "\"holes\":${options#*:}," out || fail "${options%:*}: $(cat out)"
  done
  for options in "--no-trim --trim:[1-9]" "--trim --no-trim:0,"; do
    # shellcheck disable=SC2086
    expect 0 "$rastrel" clean "$letter" -o out.tif --overwrite --json ${options%:*}
    grep -q "\"trimmedPixels\":${options#*:}" out || fail "${options%:*}: $(cat out)"
  done
  # Without a resolution the letter's holes, 6 mm at 200 dpi, seem too small to be measured.
  expect 0 "$rastrel" apply "$letter" -o bare.bmp
  dd if=/dev/zero of=bare.bmp bs=1 seek=38 count=8 conv=notrunc status=none
  for options in "--classic:2" "--classic --holes auto:0" ":2"; do
    # shellcheck disable=SC2086
    expect 0 "$rastrel" clean bare.bmp -o out.tif --overwrite --json ${options%:*}
    complains "300 dpi assumed"
    grep -q "\"holes\":${options#*:}," out || fail "without a resolution ${options%:*}: $(cat out)"
  done
}

# The samples are turned by -2.3, 1.7 and 3.1 degrees when they are made.
case_info() {
  expect 0 "$rastrel" info "$letter" "$samples/report-grey.png" "$samples/catalogue-colour.jpg"
  local want
  for want in "1165 x 1653 pixels, 1 bit, 200 dpi, skew -2.[23][0-9]$" "874 x 1240 pixels, 8 bits, 150 dpi, skew 1.[67][0-9]$" \
    "874 x 1240 pixels, 24 bits, 150 dpi, skew 3.[01][0-9]$"; do
    grep -q "$want" out || fail "no '$want' in: $(cat out)"
  done
  expect 0 "$rastrel" info "$letter" -v
  grep -q "^    deskew: .* ms$" out || fail "no steps: $(cat out)"
  expect 1 "$rastrel" info "$letter" missing.tif -q
  [ ! -s out ] || fail "--quiet is not: $(cat out)"
  complains "missing.tif"
  expect 0 "$rastrel" clean "$letter" -o straight.png
  "$rastrel" info straight.png | grep -q "skew -\?0.0[0-5]$" || fail "still skewed: $("$rastrel" info straight.png)"
}

"case_$3"
[ $failures -eq 0 ]
