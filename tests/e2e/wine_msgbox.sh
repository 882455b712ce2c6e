#!/usr/bin/env bash
# The real Windows message box under Wine in Xvfb: msgbox_demo.exe shows one box through
# MsgBox; the scenario finds the box by its caption, keeps a screenshot of it in
# build/artifacts/, answers with a key and checks the button code the program got back.
# Prints "N passed, N failed" as its last line; exits non-zero when a case failed.
set -u
source "$(dirname "$0")/lib.sh"
in_xvfb "$@"

DEMO=build/windows/bin/msgbox_demo.exe
need "$DEMO"
wine_up
trap wine_down EXIT

# run_case NAME FLAGS TITLE KEY EXPECTED [TEXT]: shows the box, answers with KEY, expects EXPECTED.
run_case() {
  local name=$1 flags=$2 title=$3 key=$4 expected=$5 text=${6:-Message box test}
  local out="$ARTIFACTS/wine-msgbox-$name.out" shot="$ARTIFACTS/wine-msgbox-$name.png"
  local CAPTION=${title:-$CAPTION} answer="" why=""
  rm -f "$out" "$shot"
  "$WINE" "$DEMO" --out "$(winpath "$out")" --flags "$flags" --title "$title" --text "$text" \
    >"$ARTIFACTS/wine-msgbox-$name.log" 2>&1 &
  local pid=$!
  if answer_box "$shot" "$key"; then
    wait_for 20 ended "$pid" || why="the program did not end after $key"
    answer=$(tr -d '\r\n' <"$out" 2>/dev/null)
    [ "$answer" = "$expected" ] || why="${why:+$why; }answer \"$answer\", expected $expected"
  else
    why=$WHY
  fi
  if running "$pid"; then
    kill "$pid" 2>/dev/null
    wait_for 5 ended "$pid" || kill -9 "$pid" 2>/dev/null
  fi
  wait "$pid" 2>/dev/null
  check "$name: $key -> $answer (screenshot $shot)" "${why:-ok}"
}

run_case ok-return 0 "" Return 1
run_case okcancel-info-return 65 "" Return 1 "Éjecter le disque « USB » maintenant ?"
run_case okcancel-escape 1 "Confirm eject" Escape 2
run_case error-return 16 "" Return 1 "Erreur en exécutant le programme de fermeture des applications"
run_case yesno-return 36 "Question" Return 6
finish
