#!/usr/bin/env bash
# Crash safety of a save, seen from outside the program. The saver (tests/programs/saver.cpp)
# saves a text the way TvEject saves its configuration; after every interruption a load (the
# safety copy put back, then the text read) must find the previous or the new text complete,
# never a partial or missing file.
#   1. strace fault injection: every system call the save makes, at every occurrence, fails
#      with ENOSPC, fails with EIO, or the process is killed on entering it. The same for the
#      recovery a load makes over an interrupted save.
#   2. Safety copies that linger: a copy a completed save could not delete (every unlink refused,
#      as a virus scanner holding the file does on Windows), several such saves in a row, and a
#      save that has to take number 002 beside such a copy, cut at every point; the same for the
#      recovery over those folders. A completed save must never be undone by a load.
#   3. Real full disks: a tmpfs with a tiny size=, a tmpfs with a tiny nr_inodes=, a FAT image
#      through fusefat and an exFAT image through exfat-fuse. Skipped, with the reason, where
#      mounting is not permitted or the tool is missing.
# CRASH_PARTS (default "strace linger disks") picks the parts to run.
# Prints "N passed, N failed" as its last line; exits non-zero when a check failed.
set -u
source "$(dirname "$0")/lib.sh"

SAVER=$TVEJECT_ROOT/build/native/bin/saver
need "$SAVER"
command -v strace >/dev/null || give_up "strace is missing (Debian package strace)"
skips=()

WORK=$(mktemp -d /tmp/tveject-crash.XXXXXX)
MOUNTS=()
LOOPS=()
# Every mount and loop device made here is undone and every file removed, however the script
# ends.
cleanup() {
  local i
  for ((i = ${#MOUNTS[@]} - 1; i >= 0; i--)); do
    umount "${MOUNTS[i]}" 2>/dev/null || fusermount -u "${MOUNTS[i]}" 2>/dev/null ||
      umount -l "${MOUNTS[i]}" 2>/dev/null
  done
  for i in "${LOOPS[@]}"; do losetup -d "$i" 2>/dev/null; done
  rm -rf "$WORK"
}
trap cleanup EXIT
trap 'exit 130' INT TERM HUP

PARTS=" ${CRASH_PARTS:-strace linger disks} "
part() { [[ $PARTS == *" $1 "* ]]; }

pass() { passed=$((passed + 1)); }
fail() { failed=$((failed + 1)); echo "FAIL $*"; }

# The previous and the new text: XML as the configuration holds it, with accented letters, the
# new one shorter so that new bytes over an old file that was not set aside would show.
OLD=$WORK/old.txt
NEW=$WORK/new.txt
{
  printf '<TarvelUSBEject>\n\t<UserLanguage>fr</UserLanguage>\n'
  for i in $(seq 1 40); do printf '\t<Entry n="%d">Pr\xc3\xa9c\xc3\xa9dent r\xc3\xa9glage %d</Entry>\n' "$i" "$i"; done
  printf '</TarvelUSBEject>\n'
} >"$OLD"
{
  printf '<TarvelUSBEject>\n\t<UserLanguage>en</UserLanguage>\n'
  for i in $(seq 1 25); do printf '\t<Entry n="%d">Nouveau r\xc3\xa9glage %d</Entry>\n' "$i" "$i"; done
  printf '</TarvelUSBEject>\n'
} >"$NEW"

# A version older than both, left in a safety copy by a save that completed: a load that finds it
# has undone that save.
STALE=$WORK/stale.txt
printf '<TarvelUSBEject>\n\t<UserLanguage>de</UserLanguage>\n</TarvelUSBEject>\n' >"$STALE"

# what_loads FILE: "old", "new", "stale", "missing" or "partial" for what a load of FILE finds now.
what_loads() {
  local out=$WORK/loaded.txt rc
  timeout -k 2 20 "$SAVER" load "$1" >"$out" 2>"$WORK/load.err"
  rc=$?
  if [ $rc -eq 3 ]; then echo missing
  elif [ $rc -ne 0 ]; then echo "load-exit-$rc"
  elif cmp -s "$out" "$OLD"; then echo old
  elif cmp -s "$out" "$NEW"; then echo new
  elif cmp -s "$out" "$STALE"; then echo stale
  else echo partial
  fi
}

# leftovers FOLDER NAME: the files beside NAME in FOLDER (safety copies a load did not take back).
leftovers() { find "$1" -mindepth 1 -maxdepth 1 ! -name "$2" ! -name 'filler*' -printf '%f ' 2>/dev/null; }

# ---- 1. fault injection with strace ------------------------------------------------------

DIR=$WORK/stick
FILE=$DIR/TvEject.xml

fresh_folder() { rm -rf "$DIR" && mkdir -p "$DIR" && cp "$OLD" "$FILE"; }

# region_counts TRACE BEGIN END: for each system call made between the lines holding BEGIN and
# END (both included), "name first last": its occurrence numbers in the whole run.
region_counts() {
  awk -v begin="$2" -v end="$3" '
    { line = $0; sub(/^[0-9]+ +/, "", line) }
    line ~ /^[a-z_0-9]+\(/ {
      name = line; sub(/\(.*/, "", name)
      seen[name]++
      if (index(line, begin)) inside = 1
      if (inside) { if (!(name in first)) { first[name] = seen[name]; order[++n] = name } last[name] = seen[name] }
      if (inside && index(line, end)) inside = 0
    }
    END { for (i = 1; i <= n; i++) print order[i], first[order[i]], last[order[i]] }' "$1"
}

# action_for KIND: the strace action for one kind of fault.
action_for() {
  case $1 in
    ENOSPC) echo "error=ENOSPC" ;;
    EIO) echo "error=EIO" ;;
    KILL) echo "signal=KILL" ;;
  esac
}

points=0
declare -A tally
reported_but_old=0
failed_but_new=0

# One save under injection, then a plain load.
save_point() {
  local kind=$1 call=$2 n=$3 rc result rest
  fresh_folder
  # The braces take the shell's own "Killed" notice.
  { ( exec timeout -k 2 20 strace -f -qq -o "$WORK/run.trace" \
      -e "inject=$call:$(action_for "$kind"):when=$n" "$SAVER" save "$FILE" "@$NEW" \
      >/dev/null 2>"$WORK/run.err" ); } 2>/dev/null
  rc=$?
  points=$((points + 1))
  if ! grep -qE 'INJECTED|killed by SIGKILL' "$WORK/run.trace"; then
    fail "save $call#$n $kind: the injection did not happen (the run differs from the trace)"
    return
  fi
  result=$(what_loads "$FILE")
  rest=$(leftovers "$DIR" TvEject.xml)
  tally["save $call $kind $result"]=$(( ${tally["save $call $kind $result"]:-0} + 1 ))
  if [ "$result" != old ] && [ "$result" != new ]; then
    fail "save $call#$n $kind (saver exit $rc): the load found $result"
    sed 's/^/    /' "$WORK/run.err"
  elif [ -n "$rest" ]; then
    fail "save $call#$n $kind: left beside the file after a load: $rest"
  else
    pass
    [ $rc -eq 0 ] && [ "$result" = old ] && reported_but_old=$((reported_but_old + 1))
    [ $rc -eq 1 ] && [ "$result" = new ] && failed_but_new=$((failed_but_new + 1))
  fi
}

# An interrupted save as the kill above leaves it: a partial file and the safety copy.
interrupted_folder() {
  rm -rf "$DIR" && mkdir -p "$DIR"
  head -c 100 "$NEW" >"$FILE"
  cp "$OLD" "$FILE.001.tmp"
}

# One load (its recovery) under injection, then a plain load.
load_point() {
  local kind=$1 call=$2 n=$3 result rest
  interrupted_folder
  # The braces take the shell's own "Killed" notice.
  { ( exec timeout -k 2 20 strace -f -qq -o "$WORK/run.trace" \
      -e "inject=$call:$(action_for "$kind"):when=$n" "$SAVER" load "$FILE" \
      >/dev/null 2>"$WORK/run.err" ); } 2>/dev/null
  points=$((points + 1))
  if ! grep -qE 'INJECTED|killed by SIGKILL' "$WORK/run.trace"; then
    fail "load $call#$n $kind: the injection did not happen (the run differs from the trace)"
    return
  fi
  result=$(what_loads "$FILE")
  rest=$(leftovers "$DIR" TvEject.xml)
  tally["load $call $kind $result"]=$(( ${tally["load $call $kind $result"]:-0} + 1 ))
  if [ "$result" != old ]; then
    fail "load $call#$n $kind: the next load found $result"
  elif [ -n "$rest" ]; then
    fail "load $call#$n $kind: left beside the file after the next load: $rest"
  else
    pass
  fi
}

echo "== Fault injection (strace $(strace -V | head -1 | awk '{print $4}'))"
save_calls=()
load_calls=()
fresh_folder
if ! strace -f -qq -o "$WORK/save.trace" "$SAVER" save "$FILE" "@$NEW" >/dev/null 2>"$WORK/strace.err"; then
  # A container may forbid tracing altogether (ptrace refused).
  skips+=("fault injection: strace cannot trace here ($(grep -m1 strace "$WORK/strace.err"))")
else
  if [ "$(what_loads "$FILE")" != new ]; then
    fail "a save without injection did not give the new text"
  fi
  mapfile -t save_calls < <(region_counts "$WORK/save.trace" '"save begins' '"save ends')
  interrupted_folder
  strace -f -qq -o "$WORK/load.trace" "$SAVER" load "$FILE" >/dev/null 2>&1
  mapfile -t load_calls < <(region_counts "$WORK/load.trace" '"recovery begins' '"recovery ends')
  if [ ${#save_calls[@]} -eq 0 ] || [ ${#load_calls[@]} -eq 0 ]; then
    fail "no system calls found in the traced save or load"
  fi
fi

# brk never fails with an error number (it answers the unchanged break), and an injected one
# makes the C library take the number for an address: only the kill is tried on it.
can_fail() { [ "$1" = KILL ] || [ "$2" != brk ]; }
part strace && for kind in ENOSPC EIO KILL; do
  for entry in "${save_calls[@]}"; do
    read -r call first last <<<"$entry"
    can_fail "$kind" "$call" || continue
    for ((n = first; n <= last; n++)); do save_point "$kind" "$call" "$n"; done
  done
  for entry in "${load_calls[@]}"; do
    read -r call first last <<<"$entry"
    can_fail "$kind" "$call" || continue
    for ((n = first; n <= last; n++)); do load_point "$kind" "$call" "$n"; done
  done
done

echo "Save: system calls between \"save begins\" and \"save ends\" (occurrence numbers in the run):"
for entry in "${save_calls[@]}"; do
  read -r call first last <<<"$entry"
  line="  $call #$first..#$last:"
  for kind in ENOSPC EIO KILL; do
    line+=" $kind"
    for result in old new partial missing; do
      c=${tally["save $call $kind $result"]:-0}
      [ "$c" -gt 0 ] && line+=" $result=$c"
    done
    line+=";"
  done
  echo "$line"
done
echo "Recovery at load (partial file + safety copy):"
for entry in "${load_calls[@]}"; do
  read -r call first last <<<"$entry"
  line="  $call #$first..#$last:"
  for kind in ENOSPC EIO KILL; do
    line+=" $kind"
    for result in old new partial missing; do
      c=${tally["load $call $kind $result"]:-0}
      [ "$c" -gt 0 ] && line+=" $result=$c"
    done
    line+=";"
  done
  echo "$line"
done
echo "Injection points tried: $points (saves that reported success yet the load found the old text: $reported_but_old; saves that reported failure yet the new text stood: $failed_but_new)"

# ---- 2. safety copies that linger --------------------------------------------------------

# Every unlink the saver makes is refused: the safety copy of a completed save stays behind.
# The pauses between the refused attempts (there to outwait a scanner that lets go) return at
# once: nothing but time depends on them, and they were most of this part's minutes.
HELD=(-e inject=unlink:error=EBUSY -e inject=nanosleep,clock_nanosleep:retval=0)

# Folder shapes, each from the previous text OLD:
held_folder() {  # a save completed, its copy of an older version held and marked
  rm -rf "$DIR" && mkdir -p "$DIR"
  cp "$OLD" "$FILE" && cp "$STALE" "$FILE.001.tmp" && : >"$FILE.001.tmp.stale"
}
collision_cut_folder() {  # and then a save that took number 002 was cut
  held_folder
  mv "$FILE" "$FILE.002.tmp" && head -c 100 "$NEW" >"$FILE"
}

# injected TRACE KIND CALL: true when the trace shows the injection of KIND into CALL.
injected() {
  if [ "$2" = KILL ]; then
    grep -q 'killed by SIGKILL' "$1"
  else
    grep -qE "^[0-9]+ +$3\(.*INJECTED" "$1"
  fi
}

# linger_point MODE PREPARE WANT KIND CALL N [EXTRA...]: MODE (save or load) under one injection
# (and the EXTRA strace options) on the folder PREPARE makes; a plain load must then find one of
# WANT and leave nothing beside the file.
linger_point() {
  local mode=$1 prepare=$2 want=$3 kind=$4 call=$5 n=$6 rc result rest
  shift 6
  "$prepare"
  local args=(load "$FILE")
  [ "$mode" = save ] && args=(save "$FILE" "@$NEW")
  { ( exec timeout -k 2 60 strace -f -qq -o "$WORK/run.trace" "$@" \
      -e "inject=$call:$(action_for "$kind"):when=$n" "$SAVER" "${args[@]}" \
      >/dev/null 2>"$WORK/run.err" ); } 2>/dev/null
  rc=$?
  points=$((points + 1))
  if ! injected "$WORK/run.trace" "$kind" "$call"; then
    fail "$mode on $prepare $call#$n $kind: the injection did not happen"
    return
  fi
  result=$(what_loads "$FILE")
  rest=$(leftovers "$DIR" TvEject.xml)
  if [[ " $want " != *" $result "* ]]; then
    fail "$mode on $prepare $call#$n $kind (exit $rc): the next load found $result, not $want"
    sed 's/^/    /' "$WORK/run.err"
  elif [ -n "$rest" ]; then
    fail "$mode on $prepare $call#$n $kind: left beside the file after the next load: $rest"
  else
    pass
  fi
}

# linger_sweep MODE PREPARE WANT BEGIN END [EXTRA...]: a clean traced run gives the system calls
# between the lines BEGIN and END; each occurrence then fails with ENOSPC and EIO and is killed.
# With EXTRA (the held copy) the region starts at the first unlink, whose refusals (and the
# sleeps between them) are left as they are: the calls before it are those of the plain sweeps.
linger_sweep() {
  local mode=$1 prepare=$2 want=$3 begin=\"$4 end=\"$5 calls entry call first last kind n
  local tried=0
  shift 5
  "$prepare"
  local args=(load "$FILE")
  [ "$mode" = save ] && args=(save "$FILE" "@$NEW")
  timeout -k 2 60 strace -f -qq -o "$WORK/sweep.trace" "$@" "$SAVER" "${args[@]}" >/dev/null 2>&1
  [ $# -gt 0 ] && begin='unlink('
  mapfile -t calls < <(region_counts "$WORK/sweep.trace" "$begin" "$end")
  if [ ${#calls[@]} -eq 0 ]; then
    fail "$mode on $prepare: no system calls found in the traced run"
    return
  fi
  for kind in ENOSPC EIO KILL; do
    for entry in "${calls[@]}"; do
      read -r call first last <<<"$entry"
      can_fail "$kind" "$call" || continue
      if [ $# -gt 0 ]; then
        case $call in unlink | nanosleep | clock_nanosleep) continue ;; esac
      fi
      for ((n = first; n <= last; n++)); do
        linger_point "$mode" "$prepare" "$want" "$kind" "$call" "$n" "$@"
        tried=$((tried + 1))
      done
    done
  done
  echo "  $mode on $prepare$([ $# -gt 0 ] && echo ', every unlink refused'): $tried points"
}

echo "== Safety copies that linger"
if [ ${#save_calls[@]} -gt 0 ] && part linger; then
  # A completed save whose copy is held reports success; the next load keeps the new text and
  # then deletes the copy and its mark.
  fresh_folder
  timeout -k 2 60 strace -f -qq -o /dev/null "${HELD[@]}" "$SAVER" save "$FILE" "@$NEW" \
    >/dev/null 2>"$WORK/held.err"
  rc=$?
  if [ $rc -ne 0 ] || [ ! -e "$FILE.001.tmp" ] || [ ! -e "$FILE.001.tmp.stale" ]; then
    fail "held copy: saver exit $rc, left: $(leftovers "$DIR" TvEject.xml)"
  elif [ "$(what_loads "$FILE")" != new ] || [ -n "$(leftovers "$DIR" TvEject.xml)" ]; then
    fail "held copy: the load found $(what_loads "$FILE"), left: $(leftovers "$DIR" TvEject.xml)"
  else
    pass
  fi
  # Three saves in a row, each copy held: three marked copies, and the load finds the last text.
  fresh_folder
  for text in "$STALE" "$OLD" "$NEW"; do
    timeout -k 2 60 strace -f -qq -o /dev/null "${HELD[@]}" "$SAVER" save "$FILE" "@$text" \
      >/dev/null 2>>"$WORK/held.err" || fail "held copies: a save reported failure"
  done
  left=$(cd "$DIR" && LC_ALL=C ls | tr '\n' ' ')
  if [ "$left" != "TvEject.xml TvEject.xml.001.tmp TvEject.xml.001.tmp.stale TvEject.xml.002.tmp TvEject.xml.002.tmp.stale TvEject.xml.003.tmp TvEject.xml.003.tmp.stale " ]; then
    fail "held copies: left beside the file: $left"
  elif [ "$(what_loads "$FILE")" != new ] || [ -n "$(leftovers "$DIR" TvEject.xml)" ]; then
    fail "held copies: the load found $(what_loads "$FILE"), left: $(leftovers "$DIR" TvEject.xml)"
  else
    pass
  fi
  # A save beside a held copy takes number 002; cut anywhere, the load finds old or new.
  linger_sweep save held_folder "old new" "save begins" "save ends"
  # A save whose own copy is held, cut anywhere while it deletes or marks it.
  linger_sweep save fresh_folder "old new" "save begins" "save ends" "${HELD[@]}"
  # The recovery over a completed save's held copy, and over a cut save beside one.
  linger_sweep load held_folder "old" "recovery begins" "recovery ends"
  linger_sweep load collision_cut_folder "old" "recovery begins" "recovery ends"
fi

# ---- 3. real full disks ------------------------------------------------------------------

# try_mount NAME MOUNTPOINT COMMAND...: mounts, or records why the file system is skipped.
try_mount() {
  local name=$1 point=$2
  shift 2
  mkdir -p "$point"
  if ! timeout -k 2 20 "$@" >"$WORK/mount.err" 2>&1; then
    skips+=("$name: mounting is not permitted here ($(head -1 "$WORK/mount.err"))")
    return 1
  fi
  MOUNTS+=("$point")
  # A FUSE mount answers a moment after its daemon detaches.
  wait_for 5 mountpoint -q "$point" && return 0
  skips+=("$name: the mount did not appear")
  return 1
}

unmount_last() {
  local point=${MOUNTS[-1]}
  umount "$point" 2>/dev/null || fusermount -u "$point" 2>/dev/null || umount -l "$point"
  unset 'MOUNTS[-1]'
}

# fill FOLDER: takes every free block with filler files; a few small ones at the end take the
# space a big one leaves.
fill() {
  local i
  timeout -k 2 30 dd if=/dev/zero of="$1/filler0" bs=64k status=none 2>/dev/null
  for i in 1 2 3 4 5 6 7 8; do
    timeout -k 2 10 dd if=/dev/zero of="$1/filler$i" bs=512 status=none 2>/dev/null || true
  done
  sync -f "$1/filler0" 2>/dev/null
}

# save_expect NAME FOLDER TEXTFILE WANT: one save on the mounted file system; WANT is "new",
# "old" or "either". Whatever the saver says, the load must find old or new complete, and the
# saver's answer must match what stands: success with the new text, failure with the old.
save_expect() {
  local name=$1 folder=$2 text=$3 want=$4 rc result rest
  timeout -k 2 30 "$SAVER" save "$folder/TvEject.xml" "@$text" >/dev/null 2>"$WORK/fs.err"
  rc=$?
  result=$(what_loads "$folder/TvEject.xml")
  rest=$(leftovers "$folder" TvEject.xml)
  if [ "$result" != old ] && [ "$result" != new ]; then
    fail "$name: the load found $result (saver exit $rc)"
    sed 's/^/    /' "$WORK/fs.err"
  elif [ $rc -eq 0 ] && [ "$result" != new ]; then
    fail "$name: the save reported success but the load found $result"
  elif [ $rc -ne 0 ] && [ "$result" != old ]; then
    fail "$name: the save reported failure (exit $rc) but the load found $result"
  elif [ "$want" != either ] && [ "$result" != "$want" ]; then
    fail "$name: expected the $want text, the load found $result"
  elif [ -n "$rest" ]; then
    fail "$name: left beside the file: $rest"
  else
    pass
    echo "  $name: saver exit $rc, load found the $result text"
  fi
}

# full_disk_by_size NAME FOLDER: the old text in place, every block taken, then saves that
# cannot fit, that fit once space is freed, and ever larger ones until the disk refuses.
full_disk_by_size() {
  local name=$1 folder=$2 big=$WORK/big.txt size
  rm -f "$folder"/*
  cp "$OLD" "$folder/TvEject.xml" && sync -f "$folder/TvEject.xml"
  fill "$folder"
  save_expect "$name, disk full" "$folder" "$NEW" old
  rm -f "$folder"/filler*
  save_expect "$name, space freed" "$folder" "$NEW" new
  # Ever larger texts until one no longer fits beside the previous one.
  local keep_old=$OLD keep_new=$NEW
  OLD=$WORK/cur-old.txt
  NEW=$WORK/cur-new.txt
  cp "$keep_new" "$OLD"
  for size in 8 32 128 512 2048; do
    { cat "$keep_new"; head -c $((size * 1024)) /dev/zero | tr '\0' 'x'; echo; } >"$NEW"
    save_expect "$name, ${size} KB text" "$folder" "$NEW" either
    [ "$(what_loads "$folder/TvEject.xml")" = new ] && cp "$NEW" "$OLD" || break
  done
  OLD=$keep_old
  NEW=$keep_new
}

# full_disk_by_inodes NAME FOLDER: every inode taken, so the new file cannot be created.
full_disk_by_inodes() {
  local name=$1 folder=$2 i=0
  rm -f "$folder"/*
  cp "$OLD" "$folder/TvEject.xml"
  while touch "$folder/filler$i" 2>/dev/null && [ $i -lt 10000 ]; do i=$((i + 1)); done
  save_expect "$name, no inode left" "$folder" "$NEW" old
  rm -f "$folder/filler0"
  save_expect "$name, one inode freed" "$folder" "$NEW" new
  rm -f "$folder"/filler*
}

echo "== Full disks"
if ! part disks; then
  :
elif [ "$(id -u)" -ne 0 ]; then
  skips+=("every file system: mounting needs root (running as $(id -un))")
else
  point=$WORK/tmpfs-size
  if try_mount "tmpfs size=" "$point" mount -t tmpfs -o size=256k,mode=0755 tvtest "$point"; then
    full_disk_by_size "tmpfs size=256k" "$point"
    unmount_last
  fi
  point=$WORK/tmpfs-inodes
  if try_mount "tmpfs nr_inodes=" "$point" mount -t tmpfs -o size=1m,nr_inodes=16,mode=0755 tvtest "$point"; then
    full_disk_by_inodes "tmpfs nr_inodes=16" "$point"
    unmount_last
  fi
  if command -v fusefat >/dev/null && command -v mkfs.fat >/dev/null; then
    image=$WORK/fat.img
    point=$WORK/fat
    rm -f "$image"
    if ! mkfs.fat -C "$image" 512 >"$WORK/mkfs.err" 2>&1; then
      skips+=("FAT: mkfs.fat failed ($(tail -1 "$WORK/mkfs.err"))")
    elif try_mount "FAT (fusefat)" "$point" fusefat -o rw+ "$image" "$point"; then
      full_disk_by_size "FAT 512 KB (fusefat)" "$point"
      unmount_last
    fi
  else
    skips+=("FAT: fusefat or mkfs.fat is missing (Debian packages fusefat, dosfstools)")
  fi
  if command -v mount.exfat-fuse >/dev/null && command -v mkfs.exfat >/dev/null; then
    image=$WORK/exfat.img
    point=$WORK/exfat
    rm -f "$image"
    truncate -s 2M "$image"
    # As root exfat-fuse mounts block devices only: the image goes through a loop device.
    if ! mkfs.exfat -b 4K "$image" >"$WORK/mkfs.err" 2>&1; then
      skips+=("exFAT: mkfs.exfat failed ($(tail -1 "$WORK/mkfs.err"))")
    elif ! loop=$(losetup -f --show "$image" 2>"$WORK/losetup.err"); then
      skips+=("exFAT: no loop device for the image ($(head -1 "$WORK/losetup.err"))")
    else
      LOOPS+=("$loop")
      if try_mount "exFAT (exfat-fuse)" "$point" mount.exfat-fuse "$loop" "$point"; then
        full_disk_by_size "exFAT 2 MB (exfat-fuse)" "$point"
        unmount_last
      fi
    fi
  else
    skips+=("exFAT: exfat-fuse or mkfs.exfat is missing (Debian packages exfat-fuse, exfatprogs)")
  fi
fi
for s in "${skips[@]}"; do echo "SKIP $s"; done
finish
