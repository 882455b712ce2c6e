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
source "$(dirname "$0")/../../scripts/lib.sh"
cd "$TVEJECT_ROOT"

if [ -z "${TVEJECT_IN_XVFB:-}" ]; then
  exec xvfb-run -a -s "-screen 0 1024x768x24" env TVEJECT_IN_XVFB=1 bash "$0" "$@"
fi

PORTABLE=build/windows/portable
BIN=build/windows/bin
ARTIFACTS=build/artifacts
CAPTION="Tarvel USB Eject v2.0.12"
mkdir -p "$ARTIFACTS"
passed=0
failed=0

if [ ! -f "$PORTABLE/TvAppsClose/TvAppsClose.exe" ] || [ ! -f "$BIN/window_app.exe" ]; then
  echo "missing $PORTABLE or $BIN/window_app.exe: build the windows preset first"
  echo "0 passed, 1 failed"
  exit 1
fi
wine_env || { echo "no Wine prefix"; echo "0 passed, 1 failed"; exit 1; }

work=$(mktemp -d "${TMPDIR:-/tmp}/tveject-wine.XXXXXX") || exit 1
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill -9 "$pid" 2>/dev/null; done
  "$WINESERVER" -k 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

winpath() { printf 'Z:%s' "$(realpath -m "$1" | tr / '\\')"; }
# The Linux path of a Windows path on Wine's C: drive.
unixpath() { printf '%s' "$1" | sed -e "s|^[Cc]:|$WINEPREFIX/drive_c|" -e 's|\\|/|g'; }

wait_for() {  # wait_for SECONDS COMMAND...
  local limit=$(( $(date +%s) + $1 )); shift
  until "$@"; do
    [ "$(date +%s)" -ge "$limit" ] && return 1
    sleep 0.2
  done
}

check() {
  if [ "$2" = ok ]; then passed=$((passed + 1)); echo "PASS $1"; else failed=$((failed + 1)); echo "FAIL $1: $2"; fi
}

running() { kill -0 "$1" 2>/dev/null && [ "$(awk '{print $3}' "/proc/$1/stat" 2>/dev/null)" != Z ]; }

# start NAME EXE ARGS...: starts a Windows program that marks itself ready; sets $started.
start() {
  local name=$1; shift
  "$WINE" "$@" --ready "$(winpath "$work/$name.ready")" --life 120 >/dev/null 2>&1 &
  started=$!
  disown "$started"
  pids+=("$started")
  wait_for 60 test -f "$work/$name.ready"
}

box_contrast() {
  local shot=$1 wid=$2 geometry
  geometry=$(xdotool getwindowgeometry --shell "$wid") || return 1
  eval "$geometry"
  convert "$shot" -crop "${WIDTH}x${HEIGHT}+${X}+${Y}" +repage -format '%[fx:standard_deviation]' info:
}

# answer_box SHOT KEY: waits for a box with the program's caption, keeps a screenshot of it
# once it is drawn, and answers it with KEY. Sets $box_why when something went wrong.
answer_box() {
  local shot=$1 key=$2 wid="" contrast=0
  box_why=""
  find_box() { wid=$(xdotool search --onlyvisible --name "^${CAPTION}\$" 2>/dev/null | head -1); [ -n "$wid" ]; }
  if ! wait_for 90 find_box; then box_why="no box appeared"; return 1; fi
  timeout 10 xdotool windowactivate --sync "$wid" >/dev/null 2>&1 ||
    timeout 10 xdotool windowfocus --sync "$wid" >/dev/null 2>&1
  drawn() {
    import -window root "$shot" 2>/dev/null || return 1
    contrast=$(box_contrast "$shot" "$wid") || return 1
    awk -v c="$contrast" 'BEGIN { exit !(c > 0.02) }'
  }
  wait_for 20 drawn || box_why="the box stayed blank (contrast $contrast)"
  xdotool key "$key"
  gone() { ! xdotool search --onlyvisible --name "^${CAPTION}\$" >/dev/null 2>&1 || [ "$(xdotool search --onlyvisible --name "^${CAPTION}\$" | head -1)" != "$wid" ]; }
  wait_for 20 gone || box_why="${box_why:+$box_why; }the box stayed after $key"
  echo "   box $(basename "$shot"): contrast $contrast"
  [ -z "$box_why" ]
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
wait_for 10 sh -c "! kill -0 $editor 2>/dev/null" || why="$why the editor still runs;"
running "$outsider" || why="$why the outsider was closed;"
running "$console" || why="$why the console program ended;"
[ "$rc" = 1 ] || why="$why exit code $rc, expected 1;"
count=$(cat "$stick/TvAppsClose/TvAppsClose.out" 2>/dev/null)
[ "$count" = 1 ] || why="$why count \"$count\", expected 1;"
grep -E 'TvAppsClose\[[0-9]+\]: (Scope|[0-9]+ application)' "$log" | sed 's/^/   /'
check "wine-closer-wm-close" "${why:-ok}"
kill "$console" 2>/dev/null
wait_for 10 sh -c "! kill -0 $console 2>/dev/null"

# ---- The whole sequence from TvEject.exe.
rm -f "$stick/TvAppsClose/TvAppsClose.out"
start editor2 "$stick/Apps/Editor/editor.exe"; editor=$started
"$WINE" "$stick/TvEject/TvEject.exe" >/dev/null 2>&1 &
tveject=$!
pids+=("$tveject")
why=""
answer_box "$ARTIFACTS/wine-companions-intro.png" Return || why="$why intro: $box_why;"
answer_box "$ARTIFACTS/wine-companions-ejector.png" Return || why="$why ejector: $box_why;"
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
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
