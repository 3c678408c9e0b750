#!/usr/bin/env bash
# Builds the rastrel command and cleans the sample pages with it. Leaves pictures of each page before and after in
# demo-output/. For Debian 12, as root or with sudo; installs what is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh

rastrel_install "${RASTREL_BUILD_PACKAGES[@]}" "${RASTREL_TOOL_PACKAGES[@]}"

cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DRASTREL_BUILD_TESTS=OFF -DRASTREL_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build build/demo
rastrel=build/demo/tools/rastrel

out=demo-output
rm -rf "$out"
mkdir -p "$out"

echo
echo "What the scanner delivered:"
"$rastrel" info samples/*.tif samples/*.png samples/*.jpg

echo
echo "Cleaning:"
for page in samples/*.tif samples/*.png samples/*.jpg; do
  name=$(basename "${page%.*}")
  "$rastrel" apply "$page" --overwrite -o "$out/$name-before.png" --quiet
  "$rastrel" clean "$page" --overwrite -o "$out/$name-after.png"
done
"$rastrel" clean samples/*.png samples/*.jpg --reduce fs --overwrite -o "$out/black-and-white.tif"
"$rastrel" clean samples/*.tif samples/*.png samples/*.jpg --quality 75 --overwrite -o "$out/archive.tif"

echo
echo "Straight again:"
"$rastrel" info "$out"/*-after.png

echo
echo "Before and after:"
ls -1 "$PWD/$out"/*.png
echo "All pages for the archive: $PWD/$out/archive.tif"
echo "Reduced to black and white: $PWD/$out/black-and-white.tif"
