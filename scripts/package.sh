#!/usr/bin/env bash
# Builds the Debian packages of the libraries, of what compiling against them needs, and of the command, into
# build/package/packages. With "try" they are installed in a bare Debian 12 of its own (as root; needs debootstrap), run as
# somebody who is not root, and removed; whatever they leave behind is an error.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
rastrel_install "${RASTREL_BUILD_PACKAGES[@]}" "${RASTREL_TOOL_PACKAGES[@]}" dpkg-dev file
cmake --preset package >/dev/null
cmake --build --preset package
rm -rf build/package/packages
(cd build/package && cpack >/dev/null)
ls build/package/packages/*.deb
[ "${1:-}" = try ] || exit 0

rastrel_install debootstrap
bare=$(mktemp -d)
chmod 755 "$bare"
trap 'umount "$bare/proc" 2>/dev/null || true; rm -rf "$bare"' EXIT
debootstrap --variant=minbase bookworm "$bare" >"$bare.log" 2>&1 || { tail "$bare.log"; exit 1; }
mount -t proc proc "$bare/proc"
inside() { chroot "$bare" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 "$@"; }
files() { (cd "$bare" && find etc usr opt srv -xdev | grep -vE '^usr/share/(mime|fonts)|\.cache$|ld\.so\.cache' | sort); }
mkdir "$bare/packages"
cp build/package/packages/*.deb "$bare/packages"
inside apt-get update -qq 2>/dev/null
inside useradd --create-home somebody
files >"$bare.before"
inside sh -c 'apt-get install -qq -y --no-install-recommends /packages/*.deb >/dev/null 2>&1'
cp samples/letter-1bit.tif "$bare/home/somebody"
inside su somebody -c 'cd && rastrel clean letter-1bit.tif -o page.tif && rastrel clean letter-1bit.tif -o page.pdf && mkdir scans &&
  cp letter-1bit.tif scans && rastrel batch scans -o cleaned && rastrel report cleaned/batch.sqlite -o report && test -s report/index.html'
inside sh -c 'test -s /usr/share/man/man1/rastrel.1 || test ! -d /usr/share/man/man1; bash -n /usr/share/bash-completion/completions/rastrel'
inside sh -c 'apt-get purge -qq -y rastrel librastrel0 librastrel-dev >/dev/null 2>&1 && apt-get autoremove --purge -qq -y >/dev/null 2>&1'
files >"$bare.after"
diff "$bare.before" "$bare.after" && echo "installed, run and removed without a trace"
