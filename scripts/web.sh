#!/usr/bin/env bash
# Builds the browser page and serves it on this machine alone: scripts/web.sh [PORT], or only builds it: scripts/web.sh build.
# The page is the folder build/web/page, which any server of files can offer, and the npm package is web/. For Debian 12, as
# root or with sudo; installs what is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh

rastrel_install "${RASTREL_WEB_PACKAGES[@]}"

cmake --preset web -Wno-dev >/dev/null
cmake --build --preset web --target rastrel_web
cd web
npm ci --no-audit --no-fund --loglevel=error
npm run --silent check
npm run --silent build
[ "${1:-}" = build ] || exec npx vite preview --port "${1:-8420}" --strictPort
