#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the demo need.
# Does nothing when all are there.
set -euo pipefail

need=()
have() { command -v "$1" >/dev/null 2>&1; }
have x86_64-w64-mingw32-g++-posix || need+=(g++-mingw-w64-x86-64-posix)
have cmake || need+=(cmake)
have make || need+=(make)
have wixl || need+=(wixl)
have msiinfo || need+=(msitools)
have msibuild || need+=(msitools)
have python3 || need+=(python3)
have flock || need+=(util-linux)
{ have wine64 || [ -x /usr/lib/wine/wine64 ]; } || need+=(wine64)
have wine || need+=(wine)
[ -f /usr/src/googletest/CMakeLists.txt ] || need+=(googletest)

if [ ${#need[@]} -eq 0 ]; then
  exit 0
fi

mapfile -t need < <(printf '%s\n' "${need[@]}" | sort -u)
echo "bootstrap: installing ${need[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo=sudo
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
