#!/usr/bin/env bash
# Builds Rastrel and runs all of its tests: release, address and undefined-behaviour sanitizers, 32 bits, Windows (64 bits
# under Wine; 32 bits too where there is a 32-bit Wine), the format check, and whether all builds make the same bytes.
# Installs what is missing (Debian). With arguments only those are run: format developer debug-sanitize 32-bit windows.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

[ $# -gt 0 ] || set -- format developer debug-sanitize 32-bit windows
packages=("${RASTREL_BUILD_PACKAGES[@]}" "${RASTREL_TOOL_PACKAGES[@]}" "${RASTREL_TEST_PACKAGES[@]}"
  "${RASTREL_LINT_PACKAGES[@]}")
case " $* " in *" windows "*) packages+=("${RASTREL_WINDOWS_PACKAGES[@]}") ;; esac
rastrel_install "${packages[@]}"

built=()
run_preset() {
  printf '\n== %s\n' "$1"
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$1"
  rm -f "build/$1/tests/checksums.txt"
  ctest --preset "$1"
  if [ "$1" != windows32 ] && [ ! -s "build/$1/tests/checksums.txt" ]; then
    echo "$1: nothing was run" >&2
    exit 1
  fi
  built+=("$1")
}

check_format() {
  printf '\n== format\n'
  git ls-files -- '*.h' '*.cpp' '*.c' | xargs clang-format --dry-run --Werror
}

# Each build has written the checksums of what the operations make of the same pages, unless it cannot be run here.
check_same_bytes() {
  local preset first=
  printf '\n== same bytes\n'
  for preset in "${built[@]}"; do
    local file=build/$preset/tests/checksums.txt
    [ -e "$file" ] || continue
    diff -q "${first:=$file}" "$file"
    echo "$preset: $(wc -l <"$file") results"
  done
}

for what in "$@"; do
  case "$what" in
    format) check_format ;;
    windows)
      run_preset windows64
      run_preset windows32
      ;;
    *) run_preset "$what" ;;
  esac
done
[ ${#built[@]} -eq 0 ] || check_same_bytes
