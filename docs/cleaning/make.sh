#!/usr/bin/env bash
# Makes the pictures of cleaning.md of the pages in samples/: docs/cleaning/make.sh RASTREL
set -euo pipefail
rastrel=$(realpath "$1")
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

small() { "$rastrel" apply "$1" --overwrite -o "$2" -q "${@:3}"; }
for page in letter-1bit.tif report-grey.png; do
  name=${page%%-*}
  "$rastrel" clean "../../samples/$page" -o "$work/$name.png" --overlay "$work/$name-overlay.png" -q
  small "../../samples/$page" "$name-before.png" grey scale:percent=50
  small "$work/$name.png" "$name-after.png" grey scale:percent=50
  small "$work/$name-overlay.png" "$name-overlay.png" to24 scale:percent=50
done
"$rastrel" apply "$work/letter-overlay.png" --overwrite -o specks-overlay.png -q crop:60,440,400,300
