#!/usr/bin/env bash
# Runs the whole test suite under Wine with one warm wineserver.
# Usage: tools/test.sh BUILD_DIR [ctest arguments...]
set -euo pipefail
tools=$(cd "$(dirname "$0")" && pwd)
source "$tools/wine-env.sh" "$1"
shift
trap tessel_warm_stop EXIT
tessel_warm_start
export TESSEL_WINE_WARM=1
cd "$tessel_build"
ctest --output-on-failure -j2 "$@"
