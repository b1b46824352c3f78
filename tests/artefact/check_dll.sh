#!/usr/bin/env bash
# Checks of Tessel_CA.dll as built.
#   check_dll.sh exports DLL DEF   the export table holds exactly the .def's names
#   check_dll.sh imports DLL       every imported DLL is a Windows system DLL
#   check_dll.sh shipped DLL DEF   the .def's exports and no debug sections
set -euo pipefail
objdump=x86_64-w64-mingw32-objdump
what=$1
dll=$2

case "$what" in
exports)
  def=$3
  expected=$(sed -n '/^EXPORTS/,$p' "$def" | tail -n +2 | awk 'NF { print $1 }' | sort)
  # The export name table: lines "[ n] Name" after "[Ordinal/Name Pointer] Table".
  actual=$("$objdump" -p "$dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
    sed -n 's/^[[:space:]]*\[[[:space:]]*[0-9]*\][[:space:]]*//p' | sort)
  if [ "$expected" != "$actual" ]; then
    echo "export table differs from $def:"
    diff <(echo "$expected") <(echo "$actual") || true
    exit 1
  fi
  echo "$(echo "$actual" | wc -l) exports match $def"
  ;;
imports)
  # Windows' own DLLs; the C runtime is the system's msvcrt.
  allowed='^(kernel32|user32|advapi32|shell32|shlwapi|ole32|oleaut32|msi|msvcrt|version|setupapi|gdi32|ws2_32|rpcrt4|crypt32|userenv|wtsapi32|secur32|imagehlp|dbghelp|xmllite|api-ms-win-[a-z0-9-]+)\.dll$'
  imports=$("$objdump" -p "$dll" | sed -n 's/^[[:space:]]*DLL Name: //p' | tr 'A-Z' 'a-z' | sort -u)
  bad=$(echo "$imports" | grep -Ev "$allowed" || true)
  if [ -n "$bad" ]; then
    echo "Tessel_CA.dll imports non-system DLLs:"
    echo "$bad"
    exit 1
  fi
  echo "imports only system DLLs:" $imports
  ;;
shipped)
  if "$objdump" -h "$dll" | grep -q '\.debug_'; then
    echo "$dll still carries debug sections"
    exit 1
  fi
  "$0" exports "$dll" "$3"
  echo "shipped size: $(stat -c %s "$dll") bytes"
  ;;
*)
  echo "usage: $0 exports DLL DEF | imports DLL | shipped DLL DEF" >&2
  exit 2
  ;;
esac
