# Sourced: the environment of the build tree's own Wine prefix, and the
# functions that create it and stage programs in it. Never ~/.wine.
# Usage: source tools/wine-env.sh BUILD_DIR

tessel_build=$(cd "$1" && pwd)
export WINEPREFIX="$tessel_build/wine/prefix"
export HOME="$tessel_build/wine/home"
export XDG_DATA_HOME="$HOME/.local/share"
export XDG_CONFIG_HOME="$HOME/.config"
export XDG_CACHE_HOME="$HOME/.cache"
export WINEDEBUG=-all
# No debugger on a fault (it would wait for ever), no Mono or Gecko installers.
export WINEDLLOVERRIDES="winedbg.exe=d;mscoree=d;mshtml=d"
export WINEARCH=win64
unset DISPLAY WAYLAND_DISPLAY

if command -v wine64 >/dev/null 2>&1; then
  tessel_wine=$(command -v wine64)
else
  tessel_wine=/usr/lib/wine/wine64
fi
if command -v wineserver >/dev/null 2>&1; then
  tessel_wineserver=$(command -v wineserver)
else
  tessel_wineserver=/usr/lib/wine/wineserver
fi

tessel_stage="$WINEPREFIX/drive_c/tessel/bin"

# Creates and sandboxes the prefix once; safe when several runners start at once.
tessel_ensure_prefix() {
  local dir="$tessel_build/wine"
  [ -f "$dir/prefix.ready" ] && return 0
  mkdir -p "$dir"
  (
    flock 9
    [ -f "$dir/prefix.ready" ] && exit 0
    rm -rf "$WINEPREFIX" "$HOME"
    mkdir -p "$HOME"
    {
      "$tessel_wine" wineboot -i
      # No X server: the null driver still lets windows be created and found.
      "$tessel_wine" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f
      "$tessel_wine" reg add 'HKCU\Software\Wine' /v Version /d win10 /f
      "$tessel_wineserver" -w
    } </dev/null >"$dir/prefix-boot.log" 2>&1
    # The actions delete folders and key trees as root: keep them inside the
    # prefix. No drive for the host's root, no links into the host's home.
    rm -f "$WINEPREFIX/dosdevices/z:"
    local link
    for link in "$WINEPREFIX"/drive_c/users/*/*; do
      if [ -L "$link" ]; then
        rm -f "$link"
        mkdir -p "$link"
      fi
    done
    mkdir -p "$tessel_stage"
    touch "$dir/prefix.ready"
  ) 9>"$dir/prefix.lock"
}

# Copies the build's programs and DLLs that changed into the staging folder.
# A file is replaced by a rename, so a copy still running keeps its image.
tessel_stage_programs() {
  (
    flock 9
    local file target
    for file in "$tessel_build"/bin/*.exe "$tessel_build"/bin/*.dll; do
      [ -e "$file" ] || continue
      target="$tessel_stage/$(basename "$file")"
      if [ ! -e "$target" ] || [ "$file" -nt "$target" ]; then
        cp -p "$file" "$target.$$"
        mv -f "$target.$$" "$target"
      fi
    done
  ) 9>"$tessel_build/wine/stage.lock"
}

# Windows path of a staged program.
tessel_staged_path() {
  printf 'C:\\tessel\\bin\\%s' "$(basename "$1")"
}

# Keeps one wineserver for the whole run: a cold start costs seconds per
# program. The prefix's services are booted once with every stream
# detached, or a service would hold the caller's output pipe open for ever.
tessel_warm_start() {
  tessel_ensure_prefix
  # A server already running for the prefix (one started by hand) serves as well.
  "$tessel_wineserver" -p </dev/null >/dev/null 2>&1 || true
  "$tessel_wine" wineboot </dev/null >/dev/null 2>&1
}

tessel_warm_stop() {
  "$tessel_wineserver" -k </dev/null >/dev/null 2>&1 || true
}
