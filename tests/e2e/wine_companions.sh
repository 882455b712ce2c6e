#!/usr/bin/env bash
# The Windows companions under Wine in Xvfb, on a temporary copy of build/windows/portable:
# TvAppsClose closes a windowed application started from the suite folder with WM_CLOSE and
# leaves one started from elsewhere, counts a console program (no window to close) as still
# running, and writes the count file; then the whole sequence from TvEject.exe, whose boxes are
# answered with the keyboard: the closer runs, the ejector moves to a private folder in Wine's
# temporary folder, refuses Wine's drive and says so in a box (screenshot kept in
# build/artifacts/), and its copy and folder are deleted afterwards. Prints "N passed, N failed"
# as its last line.
set -u
source "$(dirname "$0")/lib.sh"
in_xvfb "$@"

PORTABLE=build/windows/portable
BIN=build/windows/bin
need "$PORTABLE/TvAppsClose/TvAppsClose.exe" "$BIN/window_app.exe"
wine_up

wine_scratch wine

# The Linux path of a Windows path on Wine's C: drive.
unixpath() { printf '%s' "$1" | sed -e "s|^[Cc]:|$WINEPREFIX/drive_c|" -e 's|\\|/|g'; }

# start NAME EXE ARGS...: starts a Windows program that marks itself ready; sets $started.
start() {
  local name=$1; shift
  "$WINE" "$@" --ready "$(winpath "$work/$name.ready")" --life 120 >/dev/null 2>&1 &
  started=$!
  disown "$started"
  pids+=("$started")
  wait_for 60 test -f "$work/$name.ready"
}

stick="$work/Stick"
cp -R "$PORTABLE" "$stick"
mkdir -p "$stick/Apps/Editor" "$stick/Apps/Console"
cp "$BIN/window_app.exe" "$stick/Apps/Editor/editor.exe"
cp "$BIN/sleeper.exe" "$stick/Apps/Console/console.exe"
# Wine takes about 2 s to end a windowed program after WM_CLOSE: a grace period to match.
printf '<TvAppsClose>\r\n\t<GraceSeconds>6</GraceSeconds>\r\n\t<ForceClose>0</ForceClose>\r\n</TvAppsClose>' \
  >"$stick/TvAppsClose/TvAppsClose.xml"
export TVEJECT_LOG
TVEJECT_LOG=$(winpath "$work/companions.log")
log="$work/companions.log"

# ---- The closer: the windowed application inside is closed by WM_CLOSE, the one from elsewhere
# stays, the console program (nothing to close) is counted.
start editor1 "$stick/Apps/Editor/editor.exe"; editor=$started
start outsider1 "$BIN/window_app.exe"; outsider=$started
start console1 "$stick/Apps/Console/console.exe"; console=$started
"$WINE" "$stick/TvAppsClose/TvAppsClose.exe" /now /out >/dev/null 2>&1
rc=$?
why=""
wait_for 10 ended "$editor" || why="$why the editor still runs;"
running "$outsider" || why="$why the outsider was closed;"
running "$console" || why="$why the console program ended;"
[ "$rc" = 1 ] || why="$why exit code $rc, expected 1;"
count=$(cat "$stick/TvAppsClose/TvAppsClose.out" 2>/dev/null)
[ "$count" = 1 ] || why="$why count \"$count\", expected 1;"
grep -E 'TvAppsClose\[[0-9]+\]: (Scope|[0-9]+ application)' "$log" | sed 's/^/   /'
check "wine-closer-wm-close" "${why:-ok}"
kill "$console" 2>/dev/null
wait_for 10 ended "$console"

# ---- The whole sequence from TvEject.exe.
rm -f "$stick/TvAppsClose/TvAppsClose.out"
start editor2 "$stick/Apps/Editor/editor.exe"; editor=$started
"$WINE" "$stick/TvEject/TvEject.exe" >/dev/null 2>&1 &
tveject=$!
pids+=("$tveject")
why=""
answer_box "$ARTIFACTS/wine-companions-intro.png" Return "" 90 || why="$why intro: $WHY;"
answer_box "$ARTIFACTS/wine-companions-ejector.png" Return "$WID" 90 || why="$why ejector: $WHY;"
wait_for 30 grep -q 'TvDiskEjector\[[0-9]*\]: Finished' "$log" || why="$why the ejector did not finish;"
running "$editor" && why="$why the editor still runs;"
running "$outsider" || why="$why the outsider was closed;"
grep -q 'TvAppsClose\[[0-9]*\]: Count 0' "$log" || why="$why no count of 0;"
grep -q 'TvDiskEjector\[[0-9]*\]: Continuing from .*TvDiskEjector-[a-z0-9]*\\TvDiskEjector\.exe' "$log" ||
  why="$why the ejector did not move to the temporary folder;"
grep -qE 'TvDiskEjector\[[0-9]+\]: Message: .*(not a removable drive|cannot be identified|holds the running system)' \
  "$log" || why="$why the box did not say why the drive is not ejected;"
copy=$(grep -oE 'Copy deleted or deletion arranged: .*' "$log" | tail -1 | sed 's/^[^:]*: //' | tr -d '\r')
[ -n "$copy" ] || why="$why the copy's deletion was not arranged;"
if [ -n "$copy" ]; then
  wait_for 15 sh -c "! test -e '$(dirname "$(unixpath "$copy")")'" ||
    why="$why the copy $copy or its folder is still there;"
fi
[ -f "$stick/TvAppsClose/TvAppsClose.out" ] && why="$why TvEject left the count file;"
grep -E 'TvDiskEjector\[[0-9]+\]: (Outcome|Message)' "$log" | sed 's/^/   /'
check "wine-whole-sequence" "${why:-ok}"

cp "$log" "$ARTIFACTS/wine-companions.log"
finish
