# shellcheck shell=bash
# Building and running Windows programs; sourced, not run. Wine uses its own temporary files and needs no display.

windows_started=false

# Prints why Windows programs cannot be built and run on this machine; prints nothing if they can.
windows_obstacle() {
  local program
  for program in x86_64-w64-mingw32-g++-posix:"the cross compiler" wine64:"Wine"; do
    if ! PATH="$PATH:/usr/lib/wine" command -v "${program%%:*}" >/dev/null; then
      echo "${program#*:} is not installed (${program%%:*}); scripts/setup.sh --windows installs it on Debian"
      return
    fi
  done
}

# windows_begin DIRECTORY: builds the libraries if they are not cached, and starts Wine with its files in DIRECTORY.
# Prints the reason to stderr if it fails.
windows_begin() {
  FENLUX_WINDOWS_PREFIX=$(scripts/windows-deps.sh | tail -n 1) || return 1
  export FENLUX_WINDOWS_PREFIX WINEPREFIX=$1/wine WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml=
  export LC_ALL=C.UTF-8  # otherwise Wine cannot create files whose names are not ASCII
  unset DISPLAY WAYLAND_DISPLAY
  PATH="$PATH:/usr/lib/wine"
  mkdir -p "$WINEPREFIX"
  windows_started=true
  # A persistent server; otherwise it exits after each program, and the next one has to start it again.
  if ! { "$(windows_server)" -p && wine64 wineboot --init; } >"$1/wine.log" 2>&1 </dev/null; then
    echo "Wine does not start:" >&2
    tail -n 5 "$1/wine.log" >&2
    return 1
  fi
}

# Ends the Wine that windows_begin started, and no other.
windows_end() {
  if $windows_started; then "$(windows_server)" -k >/dev/null 2>&1 || true; fi
}

windows_server() { PATH="$PATH:/usr/lib/wine" command -v wineserver64 || echo wineserver; }
