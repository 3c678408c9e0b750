#!/usr/bin/env bash
# Measures Rastrel beside Leptonica, OpenCV and unpaper, and writes docs/performance.md and docs/cost.svg. For Debian 12, as
# root or with sudo; installs what is missing. Takes some minutes; nothing else should run meanwhile.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh

rastrel_install "${RASTREL_BUILD_PACKAGES[@]}" "${RASTREL_TOOL_PACKAGES[@]}" "${RASTREL_PEER_PACKAGES[@]}"

build=build/peers
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DRASTREL_BUILD_BENCHMARKS=ON -DRASTREL_BUILD_PEERS=ON >/dev/null
cmake --build "$build" --target rastrel_command rastrel_bench rastrel_peers rastrel_growth rastrel_lean_clean rastrel_page_files

echo
"$build/bench/peers/rastrel_peers" --json "$build/peers.json"
echo
python3 bench/peers/whole_process.py "$build" "$build/whole.json"
echo
"$build/bench/peers/rastrel_growth" "$build/growth.json"
echo
"$build/bench/rastrel_bench" --benchmark_filter='BM_(Clean|Binarize)Page' --benchmark_repetitions=20 \
  --benchmark_min_time=0.1 --benchmark_out="$build/pages.json" --benchmark_out_format=json
python3 bench/peers/write_performance.py "$build" docs
echo
echo "docs/performance.md and docs/cost.svg are written."
