#!/usr/bin/env bash
# Runs a Windows program of the build in the build tree's own Wine prefix,
# from its staged copy under C:\tessel\bin. CMake's emulator for the tests.
# Usage: tools/wine-run.sh BUILD_DIR PROGRAM [ARGS...]
set -euo pipefail
source "$(dirname "$0")/wine-env.sh" "$1"
shift
program=$1
shift
tessel_ensure_prefix
tessel_stage_programs
cd "$tessel_stage"
exec "$tessel_wine" "$(tessel_staged_path "$program")" "$@"
