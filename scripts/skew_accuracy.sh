#!/usr/bin/env bash
# Measures how accurate MeasureSkew is on thousands of drawn pages of known skew and writes the tables into docs/skew.md.
# Installs what is missing (Debian). Arguments go to the program (bench/skew_accuracy/main.cpp); with any the tables are
# only shown.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
rastrel_install "${RASTREL_BUILD_PACKAGES[@]}" "${RASTREL_ACCURACY_PACKAGES[@]}"

build=build/skew-accuracy
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DRASTREL_BUILD_TOOL=OFF -DRASTREL_BUILD_TESTS=OFF \
  -DRASTREL_BUILD_BENCHMARKS=OFF -DRASTREL_BUILD_SKEW_ACCURACY=ON >/dev/null
cmake --build "$build" --target rastrel_skew_accuracy >/dev/null
program=$build/bench/skew_accuracy/rastrel_skew_accuracy
if [ $# -gt 0 ]; then exec "$program" "$@"; fi

tables=$build/tables.md
"$program" >"$tables"
sed -i -e "/^<!-- tables -->/,/^<!-- end of tables -->/{/^<!-- tables -->/r $tables" -e '/^<!--/!d}' docs/skew.md
cat "$tables"
