# shellcheck shell=bash
# A Wine of our own, that touches neither the user's prefix nor the desktop.

# The 64-bit loader, which Debian keeps off the PATH.
wine_program() {
  PATH="$PATH:/usr/lib/wine" command -v wine64 || command -v wine
}

# start_wine <prefix> <log>: exports what Wine reads from the environment, and leaves its server
# running, so that not every test has to start one.
start_wine() {
  local prefix=$1 log=$2
  mkdir -p "$prefix"
  export WINEPREFIX=$prefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe="
  if [[ ! -w ${HOME:-/nonexistent} ]]; then
    export HOME=$prefix
  fi
  wine_server -p || true # fails where one is running already
  # A first start without a display ends well but complains.
  "$(wine_program)" wineboot -i < /dev/null > "$log" 2>&1
}

stop_wine() {
  wine_server -k || true
}

wine_server() {
  PATH="$PATH:/usr/lib/wine" wineserver "$@" < /dev/null > /dev/null 2>&1
}
