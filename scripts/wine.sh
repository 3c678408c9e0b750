#!/usr/bin/env bash
# Runs a Windows program under Wine, on an invisible screen of its own: scripts/wine.sh BITS PREFIX PROGRAM [ARGUMENT...]
# PREFIX is the folder of Wine's own files, made at the first use. Returns 77 where there is no Wine for BITS.
set -euo pipefail
bits=$1
# Crashes end a program, no debugger opens; nothing goes to the user's menus.
export WINEPREFIX=$2 HOME=$2 WINEDEBUG=-all WINEDLLOVERRIDES='winedbg.exe=d;winemenubuilder.exe=d'
unset WINEARCH
shift 2

wine=$(command -v wine64 || echo /usr/lib/wine/wine64)
[ "$bits" = 64 ] || wine=/usr/lib/wine/wine
if [ ! -x "$wine" ] || ! command -v xvfb-run >/dev/null; then
  echo "skipped: no $bits-bit Wine here"
  exit 77
fi

on_a_screen() { xvfb-run -a -s '-screen 0 1280x1024x24' "$@"; }

mkdir -p "$WINEPREFIX"
(
  flock 9
  if [ ! -e "$WINEPREFIX/ready" ]; then
    # There is no window manager to wait for.
    on_a_screen "$wine" wineboot --init >/dev/null 2>&1 &&
      on_a_screen "$wine" reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1 ||
      { echo "Wine cannot be set up in $WINEPREFIX" >&2; exit 1; }
    touch "$WINEPREFIX/ready"
  fi
) 9>"$WINEPREFIX/lock"
on_a_screen "$wine" "$@"
