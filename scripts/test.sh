#!/usr/bin/env bash
# Builds Rastrel and runs all of its tests: release, the Python package, address and undefined-behaviour sanitizers, 32 bits,
# Windows (64 bits under Wine; 32 bits too where there is a 32-bit Wine), the format check, and how large the tests are beside
# the code. Installs what is missing (Debian). With arguments only those are run: format developer python debug-sanitize
# 32-bit windows; and what is not among the usual ones: web, the WebAssembly module in Node and the page in Chromium, and
# thread-sanitize, the command's threads under the thread sanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

[ $# -gt 0 ] || set -- format developer python debug-sanitize 32-bit windows
packages=("${RASTREL_BUILD_PACKAGES[@]}" "${RASTREL_TOOL_PACKAGES[@]}" "${RASTREL_TEST_PACKAGES[@]}"
  "${RASTREL_LINT_PACKAGES[@]}")
case " $* " in *" python "*) packages+=("${RASTREL_PYTHON_PACKAGES[@]}") ;; esac
case " $* " in *" windows "*) packages+=("${RASTREL_WINDOWS_PACKAGES[@]}") ;; esac
case " $* " in *" web "*) packages+=("${RASTREL_WEB_PACKAGES[@]}" "${RASTREL_WEB_TEST_PACKAGES[@]}") ;; esac
rastrel_install "${packages[@]}"

run_preset() {
  printf '\n== %s\n' "$1"
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$1"
  ctest --preset "$1" --no-tests=error | tee "build/$1/ctest.log"
  # What cannot be run here counts as skipped, which only 32-bit Windows may be.
  if [ "$1" != windows32 ] && grep -q '^ *[0-9]* - golden (Skipped)' "build/$1/ctest.log"; then
    echo "$1: nothing was run" >&2
    exit 1
  fi
}

# The Python package on the libraries and the command of the developer build, which knows nothing of Python afterwards.
run_python() {
  printf '\n== python\n'
  local venv=$PWD/build/python/venv package=$PWD/build/python/package is_built=yes clusters=()
  # Without these the tests on a cluster, which take minutes, are skipped.
  [ -z "${RASTREL_TEST_CLUSTERS:-}" ] || clusters=(distributed fsspec pyarrow s3fs 'moto[server]')
  [ -x "$venv/bin/pytest" ] || /usr/bin/python3 -m venv --clear "$venv"
  "$venv/bin/pip" install --quiet --disable-pip-version-check 'nanobind>=2.4,<3' numpy pillow pytest hypothesis mypy \
    nbclient ipykernel matplotlib pandas "${clusters[@]}"
  rm -rf "$package"
  cmake --preset developer -DRASTREL_BUILD_PYTHON=ON -DPython_EXECUTABLE="$venv/bin/python" >/dev/null &&
    cmake --build --preset developer --target rastrel_python rastrel_command &&
    cmake --install build/developer --component python --prefix "$package" >/dev/null || is_built=no
  cmake --preset developer -DRASTREL_BUILD_PYTHON=OFF -UPython_EXECUTABLE >/dev/null
  [ $is_built = yes ] || { echo "the Python package is not built" >&2; return 1; }
  cp python/rastrel/*.py* python/rastrel/py.typed "$package/rastrel"
  PYTHONPATH=$package "$venv/bin/python" -m pytest -q -p no:cacheprovider tests/python
  (cd "$package" && "$venv/bin/mypy" --strict --cache-dir ../mypy rastrel)
}

# The stored bytes, the npm package in Node beside the native command where that is built, and the page in Chromium.
run_web() {
  printf '\n== web\n'
  scripts/web.sh build
  cmake --build --preset web --target rastrel_web_golden
  (cd build/web && node web/rastrel_web_golden.cjs ../../tests/golden.txt)
  RASTREL_COMMAND=$PWD/build/developer/tools/rastrel node --test tests/web/*.test.mjs
}

# Source files whose names end so, under the folders named or everywhere.
sources() {
  local names=$1
  shift
  find "${@:-.}" \( -name build -o -name node_modules -o -name '.?*' \) -prune -o -type f -regextype posix-extended \
    -regex ".*\.($names)" -print0
}

check_format() {
  printf '\n== format\n'
  sources 'h|cpp|c' | xargs -0 clang-format --dry-run --Werror
}

# Lines that are neither empty nor comments.
count_lines() { sources 'c|cc|cpp|h|hpp|py|ts|mjs' "$@" | xargs -0 cat | grep -cvE '^[[:space:]]*(//.*)?$'; }

print_share_of_tests() {
  local tests bench all
  tests=$(count_lines tests) bench=$(count_lines bench) all=$(count_lines)
  printf '\n== share of the tests: %d lines beside %d, %d %%\n' "$tests" "$((all - tests - bench))" \
    "$((tests * 100 / (all - tests - bench)))"
  # A third is the aim; a little above it breaks nothing for whoever adds a test before the code.
  [ $((tests * 100)) -le $((34 * (all - tests - bench))) ] || { echo "more than 34 %" >&2; return 1; }
}

for what in "$@"; do
  case "$what" in
    format) check_format ;;
    python) run_python ;;
    web) run_web ;;
    windows)
      run_preset windows64
      run_preset windows32
      ;;
    *) run_preset "$what" ;;
  esac
done
print_share_of_tests
