#!/usr/bin/env bash
# Measures how good cleaned pages are, on drawn pages of known truth, beside other programs, and writes the tables and pictures of docs/quality.md. For
# Debian 12; installs what is missing. Takes some minutes. Arguments go to bench/page_quality/measure.py; with any the tables are only shown.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
rastrel_install "${RASTREL_BUILD_PACKAGES[@]}" "${RASTREL_TOOL_PACKAGES[@]}" "${RASTREL_ACCURACY_PACKAGES[@]}" "${RASTREL_QUALITY_PACKAGES[@]}"

build=build/page-quality
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DRASTREL_BUILD_TESTS=OFF -DRASTREL_BUILD_BENCHMARKS=OFF \
  -DRASTREL_BUILD_PAGE_QUALITY=ON >/dev/null
cmake --build "$build" --target rastrel_command rastrel_quality_pages >/dev/null
pages=$build/pages
program=$build/bench/page_quality/rastrel_quality_pages
if [ ! -e "$pages/pages.json" ] || [ "$program" -nt "$pages/pages.json" ]; then
  rm -rf "$pages"
  mkdir -p "$pages"
  "$program" "$pages"
fi

measure=(/usr/bin/python3 bench/page_quality/measure.py "$pages" --rastrel "$build/tools/rastrel" --json "$build/figures.json" --cases "$build/cases")
if [ $# -gt 0 ]; then exec "${measure[@]}" "$@"; fi

"${measure[@]}" --peers >"$build/tables.md"
sed -i -e "/^<!-- tables -->/,/^<!-- end of tables -->/{/^<!-- tables -->/r $build/tables.md" -e '/^<!--/!d}' docs/quality.md
/usr/bin/python3 bench/page_quality/pictures.py "$pages" "$build/tools/rastrel" docs/quality
cat "$build/tables.md"
