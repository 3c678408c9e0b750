#!/usr/bin/env bash
# Builds the fuzzers and runs them one after the other, a minute at a time, for the MINUTES given:
#
#   scripts/fuzz.sh MINUTES [TARGET...]
#
# What is found goes to build/fuzz/found, and into fuzz/findings/TARGET once it is mended. The corpus stays in
# build/fuzz/corpus, and the executions are added up in build/fuzz/executions. Exit code 1 when anything was found.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

[ $# -gt 0 ] || { sed -n 's/^# \{0,1\}//; 2,4p' "$0"; exit 2; }
minutes=$1
shift
readers=" tif png jpg bmp pnm pdf "
[ $# -gt 0 ] || set -- $readers load_dib core pages clean
rastrel_install "${RASTREL_BUILD_PACKAGES[@]}" "${RASTREL_TOOL_PACKAGES[@]}" "${RASTREL_FUZZ_PACKAGES[@]}"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

found=build/fuzz/found
mkdir -p "$found"
before=$(find "$found" -type f | wc -l)
end=$((SECONDS + minutes * 60))
declare -A executions=()
while [ $SECONDS -lt $end ]; do
  for target in "$@"; do
    left=$((end - SECONDS))
    [ $left -gt 0 ] || break
    corpus=build/fuzz/corpus/$target
    mkdir -p "$corpus"
    folders=("$corpus")
    for folder in "fuzz/seeds/$target" "fuzz/findings/$target"; do [ ! -d "$folder" ] || folders+=("$folder"); done
    options=(-max_len=400)
    case "$readers" in
      *" $target "*) options=(-max_len=6000 -dict="fuzz/dictionaries/$target.dict") ;;
    esac
    [ "$target" != load_dib ] || options=(-max_len=3000 -dict=fuzz/dictionaries/bmp.dict)
    log=build/fuzz/$target.log
    RASTREL_FUZZ_TARGET=$target ASAN_OPTIONS=allocator_may_return_null=1 build/fuzz/fuzz/rastrel_fuzz "${options[@]}" \
      -max_total_time=$((left < 60 ? left : 60)) -timeout=10 -malloc_limit_mb=200 -rss_limit_mb=1500 -print_final_stats=1 \
      -artifact_prefix="$found/$target-" "${folders[@]}" >"$log" 2>&1 || { grep -E "ERROR|SUMMARY|runtime error|^broken|Test unit" "$log" || tail -3 "$log"; }
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    executions[$target]=$((${executions[$target]:-0} + ${runs:-0}))
    echo "$target ${runs:-0}" >>build/fuzz/executions
  done
done
for target in "$@"; do printf '%-10s %12d executions\n' "$target" "${executions[$target]:-0}"; done
after=$(find "$found" -type f | wc -l)
echo "found: $((after - before)) inputs, in $found"
[ "$after" -eq "$before" ]
