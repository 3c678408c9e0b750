#!/usr/bin/env bash
# Builds Rastrel and runs all of its tests: release, address and undefined-behaviour sanitizers, 32 bits, and the format
# check. Installs what is missing (Debian). With arguments only those are run: release debug-sanitize 32-bit format
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
rastrel_install "${RASTREL_BUILD_PACKAGES[@]}" "${RASTREL_TOOL_PACKAGES[@]}" "${RASTREL_TEST_PACKAGES[@]}" \
  "${RASTREL_LINT_PACKAGES[@]}"

run_preset() {
  printf '\n== %s\n' "$1"
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$1"
  ctest --preset "$1"
}

check_format() {
  printf '\n== format\n'
  git ls-files -- '*.h' '*.cpp' '*.c' | xargs clang-format --dry-run --Werror
}

[ $# -gt 0 ] || set -- format release debug-sanitize 32-bit
for what in "$@"; do
  case "$what" in
    format) check_format ;;
    *) run_preset "$what" ;;
  esac
done
