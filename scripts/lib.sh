# Shared by the scripts: the packages the project needs and how they are installed.
# Everything comes from Debian's packages; an apt-get update is made only when something is missing.

TVEJECT_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
WINE=/usr/lib/wine/wine64
WINESERVER=/usr/lib/wine/wineserver64

# ensure_packages PKG...: installs the packages that are not installed yet.
ensure_packages() {
  local missing=()
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "== Installing: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq || return 1
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null || return 1
}

# lld: the linker the native build uses where it is installed (GNU ld otherwise).
NATIVE_PACKAGES=(cmake ninja-build g++ lld libgtest-dev libgmock-dev googletest strace util-linux
  pkgconf libsystemd-dev dosfstools fusefat exfat-fuse exfatprogs)
# Only the benchmarks (cmake --preset bench) need these: the references they measure against.
BENCH_PACKAGES=(libbenchmark-dev libpugixml-dev libtinyxml2-dev libxml2-dev)
# locales: the definitions from which the Wine scenarios compile a user's locale (localedef);
# xterm: the terminal window a message box falls back to on a desktop without a dialog program;
# zenity and tmux: the closer's progress window and its terminal line, as its scenario sees them.
WINDOWS_PACKAGES=(g++-mingw-w64-x86-64 wine64 xvfb xauth xdotool imagemagick x11-utils locales xterm
  zenity tmux)

# with_wine_env: the Wine prefix lives in the Windows build folder; first start makes it.
wine_env() {
  export WINEPREFIX="$TVEJECT_ROOT/build/windows/wineprefix"
  export WINEDEBUG=-all
  export WINEDLLOVERRIDES="mscoree,mshtml="
  if [ ! -f "$WINEPREFIX/system.reg" ]; then
    echo "== Creating the Wine prefix (first start takes a few seconds)"
    xvfb-run -a sh -c "$WINE wineboot -i >/dev/null 2>&1; $WINESERVER -w" || return 1
  fi
}
