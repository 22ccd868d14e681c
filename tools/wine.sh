# Runs Windows programs for the tests, in a Wine prefix of their own below build/.
# Sourced with the current directory at the project's root.

# Debian keeps the 64-bit loader out of the search path; it needs no 32-bit half. It wants a fixed
# address, which about one start in a thousand finds taken unless addresses are not randomised.
find_wine() {
  for wine in /usr/lib/wine/wine64 wine64 wine; do
    command -v "$wine" >/dev/null 2>&1 && break
  done
  setarch -R true 2>/dev/null && wine="setarch -R $wine"
}

find_wineserver() {
  for wineserver in /usr/lib/wine/wineserver64 /usr/lib/wine/wineserver wineserver; do
    command -v "$wineserver" >/dev/null 2>&1 && return
  done
}

# Makes the prefix if need be and keeps a server running, so that starting a program costs
# milliseconds. No display, no menus, no .NET or HTML engine.
start_wine() {
  find_wine
  find_wineserver
  export WINEPREFIX="$(pwd)/build/wine" WINEARCH=win64 WINEDEBUG=-all
  export WINEDLLOVERRIDES='winemenubuilder.exe=d;mscoree=d;mshtml=d'
  unset DISPLAY WAYLAND_DISPLAY
  if [ ! -f "$WINEPREFIX/ready" ]; then
    echo "preparing Wine" >&2
    rm -rf "$WINEPREFIX"
    mkdir -p "$WINEPREFIX"
  fi
  "$wineserver" -p || return 1
  # The services that a first program brings along keep its output open, so it gets none of ours.
  timeout 120 $wine wineboot -i </dev/null >build/wine.log 2>&1 || return 1
  [ -f "$WINEPREFIX/ready" ] && return
  # What the registry says of TEMP and TMP would hide what a test says.
  for key in 'HKCU\Environment' 'HKLM\System\CurrentControlSet\Control\Session Manager\Environment'
  do
    for name in TEMP TMP; do
      $wine reg delete "$key" /v "$name" /f </dev/null >>build/wine.log 2>&1 || return 1
    done
  done
  touch "$WINEPREFIX/ready"
}

stop_wine() {
  "$wineserver" -k
}
