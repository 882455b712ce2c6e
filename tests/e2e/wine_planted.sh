#!/usr/bin/env bash
# What another user could plant beside the Windows programs, under Wine in Xvfb: the import
# tables of the three programs name only the system's known libraries (comctl32 only for
# TvEject, bound by its manifest to the system's copy); a copy of the ejector with a winmm.dll
# beside it does not load that file; and its clean-up runs the system's ping, not a ping.exe
# beside it or in its working folder. Each check first shows that Wine would take the planted
# file (a program that imports winmm, a bare "ping" in the command processor's loop); where it
# would not, the check proves nothing and is skipped. Prints "N passed, N failed" as its last
# line.
set -u
source "$(dirname "$0")/lib.sh"
in_xvfb "$@"

PORTABLE=build/windows/portable
PLANTED=build/windows/planted

# ---- Imports: nothing a program's own folder could stand in for.
known="advapi32 clbcatq combase comdlg32 coml2 difxapi gdi32 gdiplus imagehlp imm32 kernel32 msctf
msvcrt normaliz nsi ole32 oleaut32 psapi rpcrt4 sechost setupapi shcore shell32 shlwapi user32
wldap32 ws2_32"
for exe in TvEject/TvEject TvEject/TvDiskEjector TvAppsClose/TvAppsClose; do
  why=""
  [ -f "$PORTABLE/$exe.exe" ] || why="missing $PORTABLE/$exe.exe: build the windows preset first;"
  for dll in $(x86_64-w64-mingw32-objdump -p "$PORTABLE/$exe.exe" 2>/dev/null |
               sed -n 's/^[[:space:]]*DLL Name: //p' | tr 'A-Z' 'a-z' | sed 's/\.dll$//'); do
    case " $(echo $known) " in *" $dll "*) continue ;; esac
    [ "$dll" = comctl32 ] && [ "$exe" = TvEject/TvEject ] && continue
    why="$why imports $dll.dll;"
  done
  check "imports-$(basename "$exe")" "${why:-ok}"
done

need "$PLANTED/winmm.dll" "$PLANTED/planted_program.exe"
wine_up
# Native first, as Windows looks for a library that is not a known one: the program's folder
# before the system's.
export WINEDLLOVERRIDES="$WINEDLLOVERRIDES;winmm=n,b"

work=$(mktemp -d "${TMPDIR:-/tmp}/tveject-planted.XXXXXX") || exit 1
cleanup() { wine_down; rm -rf "$work"; }
trap cleanup EXIT
export TVEJECT_PLANTED_MARK
TVEJECT_PLANTED_MARK=$(winpath "$work/marks.txt")
marks() { cat "$work/marks.txt" 2>/dev/null | tr -d '\r'; }

# ---- A planted winmm.dll beside a copy of the ejector.
mkdir -p "$work/control" "$work/Temp/Copy"
cp "$PLANTED/winmm.dll" "$PLANTED/planted_program.exe" "$work/control/"
"$WINE" "$work/control/planted_program.exe" >/dev/null 2>&1
control=$(marks)
rm -f "$work/marks.txt"

cp -R "$PORTABLE" "$work/Stick"
cp "$work/Stick/TvEject/TvDiskEjector.exe" "$PLANTED/winmm.dll" "$work/Temp/Copy/"
for folder in "$work/Temp" "$work/Temp/Copy"; do
  cp "$PLANTED/planted_program.exe" "$folder/ping.exe"
  cp "$PLANTED/planted_program.exe" "$folder/PING.EXE" 2>/dev/null
done
export TVEJECT_LOG
TVEJECT_LOG=$(winpath "$work/ejector.log")
# The copy as the original starts it: it waits for the original (long gone), ejects, shows its
# box and has its file and folder deleted.
"$WINE" "$work/Temp/Copy/TvDiskEjector.exe" /from "$(winpath "$work/Stick/TvEject/TvDiskEjector.exe")" \
  /wait 4000000 >/dev/null 2>&1 &
why=""
answer_box "$ARTIFACTS/wine-planted-ejector.png" Return "" 90 || why="$why $WHY;"
wait_for 30 grep -q 'Finished' "$work/ejector.log" || why="$why the copy did not finish;"
wait_for 40 sh -c "! test -e '$work/Temp/Copy/TvDiskEjector.exe'" ||
  why="$why the copy was not deleted;"
run=$(marks)
case "$control" in *winmm*) ;; *) why="$why Wine does not load a planted winmm.dll (control: '$control'): the check proves nothing;" ;; esac
echo "$run" | grep -q '^winmm' && why="$why the planted winmm.dll was loaded: $(echo "$run" | grep '^winmm');"
check "planted-winmm-not-loaded" "${why:-ok}"
grep -E 'Outcome|Message|deleted' "$work/ejector.log" | sed 's/^/   /'

# ---- The copy's clean-up runs the system's ping, not the ping.exe in its working folder or
# beside the copy. The control runs a bare "ping" the way the clean-up once did, in a loop of
# the command processor, from the same folder: where Wine does not take the planted one there,
# the check would prove nothing and is skipped.
rm -f "$work/marks.txt"
(cd "$work/Temp" && "$WINE" cmd /d /q /c 'for /l %i in (1,1,2) do (ping -n 2 127.0.0.1 >nul & if exist zz exit)' \
  >/dev/null 2>&1)
if marks | grep -q '^program'; then
  why=""
  echo "$run" | grep -q '^program' && why="$why a planted ping.exe was run: $(echo "$run" | grep '^program');"
  check "planted-ping-not-run" "${why:-ok}"
else
  echo "SKIP planted-ping-not-run: Wine's command processor runs no ping.exe from its working folder inside a loop"
fi

finish
