#!/usr/bin/env bash
# The companions as built, on a temporary copy of the portable folder (build/native/portable):
# real applications started from inside the folder and from elsewhere, TvAppsClose run the way
# TvEject runs it, TvDiskEjector on a folder that is not on a removable drive (and on a
# loop-mounted FAT drive where root may make one), then the whole demo answered by itself.
# Prints "N passed, N failed" as its last line; exits non-zero when a case failed.
set -u
source "$(dirname "$0")/lib.sh"

PORTABLE=build/native/portable
SLEEPER=build/native/bin/sleeper
need "$PORTABLE/TvAppsClose/TvAppsClose" "$SLEEPER"

work=$(mktemp -d "${TMPDIR:-/tmp}/tveject-e2e.XXXXXX") || exit 1
pids=()
mounted=""
loopdev=""
cleanup() {
  for pid in "${pids[@]}"; do kill -9 "$pid" 2>/dev/null; done
  [ -n "$mounted" ] && umount "$mounted" 2>/dev/null
  [ -n "$loopdev" ] && losetup -d "$loopdev" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

# suite DIR GRACE FORCE: a portable folder in DIR with the closer's settings.
suite() {
  mkdir -p "$1"
  cp -R "$PORTABLE/." "$1/"
  settings "$@"
}
settings() {
  printf '<TvAppsClose>\r\n\t<GraceSeconds>%s</GraceSeconds>\r\n\t<ForceClose>%s</ForceClose>\r\n</TvAppsClose>' \
    "$2" "$3" >"$1/TvAppsClose/TvAppsClose.xml"
}

# start NAME PROGRAM ARGS...: starts a program that marks itself ready; sets $started.
start() {
  local name=$1; shift
  "$@" --ready "$work/$name.ready" --life 120 &
  started=$!
  disown "$started"  # no job notice when a test ends it
  pids+=("$started")
  wait_for 5 test -f "$work/$name.ready"
}

# wait_finished LOG: waits for the ejector's copy to finish (bounded).
wait_finished() { wait_for 30 grep -q 'TvDiskEjector\[[0-9]*\]: Finished' "$1" 2>/dev/null; }

# ---- The closer: what is inside goes, what is outside stays, the stubborn is counted
s="$work/s1"
suite "$s" 2 0
mkdir -p "$s/Apps/Editor" "$s/Apps/Stubborn"
cp "$SLEEPER" "$s/Apps/Editor/editor"
cp "$SLEEPER" "$s/Apps/Stubborn/stubborn"
start editor1 "$s/Apps/Editor/editor" --close-delay 300; editor=$started
start stubborn1 "$s/Apps/Stubborn/stubborn" --ignore-close; stubborn=$started
start outsider1 "$SLEEPER"; outsider=$started
t0=$(date +%s%N)
TVEJECT_LOG="$work/s1.log" "$s/TvAppsClose/TvAppsClose" /now /out </dev/null
rc=$?
elapsed=$(( ($(date +%s%N) - t0) / 1000000 ))
why=""
running "$editor" && why="$why the editor still runs;"
running "$stubborn" || why="$why the stubborn application was ended;"
running "$outsider" || why="$why the outsider was closed;"
[ "$rc" = 1 ] || why="$why exit code $rc, expected 1;"
count=$(cat "$s/TvAppsClose/TvAppsClose.out" 2>/dev/null)
[ "$count" = 1 ] || why="$why count \"$count\", expected 1;"
[ "$elapsed" -ge 2000 ] || why="$why gave up after $elapsed ms, grace is 2 s;"
echo "   closer: exit $rc, count $count, $elapsed ms"
check "closer-inside-outside-stubborn" "${why:-ok}"

# ---- Configured to force: the stubborn one is ended, the outsider still stays
settings "$s" 1 1
TVEJECT_LOG="$work/s2.log" "$s/TvAppsClose/TvAppsClose" /now /out </dev/null
rc=$?
why=""
wait_for 5 ended "$stubborn"
running "$stubborn" && why="$why the stubborn application still runs;"
running "$outsider" || why="$why the outsider was closed;"
[ "$rc" = 0 ] || why="$why exit code $rc, expected 0;"
count=$(cat "$s/TvAppsClose/TvAppsClose.out" 2>/dev/null)
[ "$count" = 0 ] || why="$why count \"$count\", expected 0;"
check "closer-forced" "${why:-ok}"

# ---- Without /now and with nobody to answer the box: the box counts as declined, nothing
# is closed, and the count says so.
settings "$s" 1 0
start editor3 "$s/Apps/Editor/editor"; editor=$started
TVEJECT_LOG="$work/s3.log" DISPLAY= WAYLAND_DISPLAY= setsid "$s/TvAppsClose/TvAppsClose" /out </dev/null >/dev/null 2>&1
rc=$?
why=""
running "$editor" || why="$why the editor was closed without consent;"
[ "$rc" = 1 ] || why="$why exit code $rc, expected 1;"
count=$(cat "$s/TvAppsClose/TvAppsClose.out" 2>/dev/null)
[ "$count" = 1 ] || why="$why count \"$count\", expected 1;"
grep -q 'Cancelled: nothing was closed' "$work/s3.log" || why="$why no cancellation in the log;"
check "closer-asks-first" "${why:-ok}"
kill "$editor" 2>/dev/null

# ---- The ejector on a folder that is not on a removable drive: it runs from its copy in a
# private folder off the suite's volume, refuses, says why, and leaves no copy behind. The
# temporary folder stands on the suite's volume, as when a portable launcher points it at the
# stick: it is passed over for the next place (~/.cache here, with a home in memory).
mkdir -p "$work/tmp4"
home=$(mktemp -d /dev/shm/tveject-home.XXXXXX) || home=""
if [ -n "$home" ] && [ "$(stat -c %d "$home")" != "$(stat -c %d "$work")" ]; then
  mkdir -p "$home/.cache"
  XDG_RUNTIME_DIR= HOME="$home" TVEJECT_LOG="$work/s4.log" TMPDIR="$work/tmp4" DISPLAY= WAYLAND_DISPLAY= \
    setsid "$s/TvEject/TvDiskEjector" /retry </dev/null >/dev/null 2>&1
  why=""
  wait_finished "$work/s4.log" || why="$why the ejector did not finish;"
  grep -q "No copy in $work/tmp4/: on the drive itself" "$work/s4.log" || why="$why the temporary folder on the drive was not passed over;"
  grep -q "Continuing from $home/.cache/TvDiskEjector-....../TvDiskEjector " "$work/s4.log" ||
    why="$why it did not move to a private folder in ~/.cache;"
  grep -qE 'Outcome: the drive .* (is not removable|is not ejected)' "$work/s4.log" || why="$why no refusal;"
  grep -qE 'Message box not shown .*(not a removable drive|holds the running system): it is not ejected' \
    "$work/s4.log" || why="$why the box did not say why;"
  sleep 0.2
  left=$(find "$work/tmp4" "$home/.cache" -mindepth 1)
  [ -z "$left" ] || why="$why left behind: $left;"
  grep -E 'Outcome:|No copy in|Continuing' "$work/s4.log" | sed 's/^/   /'
  check "ejector-refuses-fixed-drive" "${why:-ok}"
else
  echo "SKIP ejector-refuses-fixed-drive: no folder on another volume than $work"
fi
[ -n "$home" ] && rm -rf "$home"

# ---- TvEject leading its terminal (as `xterm -e` or `ssh -t` run it), in a folder with blanks
# and accents: its end hangs the terminal up, and the ejector it started still finishes and
# says how it went (here, with neither display nor terminal left, in the log).
mkdir -p "$work/tmp6"
s6="$work/Cl\xc3\xa9 USB \xc3\xa9t\xc3\xa9"
s6=$(printf "$s6")
suite "$s6" 1 0
(sleep 1; printf 'ok\r'; sleep 2) | LC_ALL=C.UTF-8 TVEJECT_LOG="$work/s6.log" TMPDIR="$work/tmp6" DISPLAY= WAYLAND_DISPLAY= \
  script -qc "'$s6/TvEject/TvEject'" /dev/null >"$work/s6.screen" 2>&1
why=""
grep -q '\[1\] OK  \[2\] Cancel' "$work/s6.screen" || why="$why TvEject asked nothing;"
wait_finished "$work/s6.log" || why="$why the ejector did not finish;"
# The outcome is printed on the terminal when the ejector ends before the hang-up (it works from
# the drive where every private place is on the drive's volume), else written out to the log.
grep -q 'it is not ejected' "$work/s6.screen" ||
  grep -qE 'Message box not shown \(no display and no terminal to show it\): .*it is not ejected' \
    "$work/s6.log" || why="$why the outcome was neither printed nor written out;"
check "ejector-outlives-terminal-leader" "${why:-ok}"

# ---- A loop-mounted FAT drive: a real block device, still not removable; the closer's scope
# is then the suite folder only, and the ejector refuses without unmounting anything.
# make_drive: an image attached to a loop device and mounted at $work/mnt (FAT, or ext2 where
# the kernel has no FAT driver).
make_drive() {
  [ "$(id -u)" -eq 0 ] && command -v losetup >/dev/null || return 1
  truncate -s 160M "$work/drive.img" || return 1
  loopdev=$(losetup -f --show "$work/drive.img" 2>/dev/null) || return 1
  mkdir -p "$work/mnt"
  if mkfs.vfat "$loopdev" >/dev/null 2>&1 && mount -t vfat "$loopdev" "$work/mnt" 2>/dev/null; then
    return 0
  fi
  mkfs.ext2 -q -F "$loopdev" >/dev/null 2>&1 && mount -t ext2 "$loopdev" "$work/mnt" 2>/dev/null
}
if make_drive; then
  echo "   drive: $loopdev ($(findmnt -n -o FSTYPE "$work/mnt")) at $work/mnt"
  mounted="$work/mnt"
  suite "$work/mnt/Suite" 1 0
  mkdir -p "$work/mnt/Suite/Apps" "$work/mnt/Other"
  cp "$SLEEPER" "$work/mnt/Suite/Apps/app"
  cp "$SLEEPER" "$work/mnt/Other/beside"
  start app5 "$work/mnt/Suite/Apps/app"; app=$started
  start beside5 "$work/mnt/Other/beside"; beside=$started
  mkdir -p "$work/tmp5"
  TVEJECT_LOG="$work/s5.log" "$work/mnt/Suite/TvAppsClose/TvAppsClose" /now /out </dev/null
  rc=$?
  TVEJECT_LOG="$work/s5.log" TMPDIR="$work/tmp5" DISPLAY= WAYLAND_DISPLAY= \
    setsid "$work/mnt/Suite/TvEject/TvDiskEjector" /retry </dev/null >/dev/null 2>&1
  why=""
  wait_finished "$work/s5.log" || why="$why the ejector did not finish;"
  running "$app" && why="$why the suite's application still runs;"
  running "$beside" || why="$why an application beside the suite was closed;"
  [ "$rc" = 0 ] || why="$why closer exit code $rc;"
  grep -q "Outcome: the drive $work/mnt/ is not removable" "$work/s5.log" || why="$why no refusal for the loop device;"
  mountpoint -q "$work/mnt" || why="$why the drive was unmounted;"
  grep 'Outcome:' "$work/s5.log" | sed 's/^/   /'
  check "loop-drive-not-removable" "${why:-ok}"
  kill "$beside" 2>/dev/null
  # Disowned, so not waited for by `wait`: the mount is busy until both have ended.
  wait_for 5 sh -c "! kill -0 $beside $app 2>/dev/null"
  umount "$work/mnt" && mounted=""
  losetup -d "$loopdev" && loopdev=""
else
  echo "SKIP loop-drive-not-removable: no root or loop device here"
fi

# ---- The whole flow: the demo, its boxes answered by themselves, for a user in the United States
# (the shipped language file speaks English to every English region).
LC_ALL="" LC_MESSAGES="" LANG=en_US.UTF-8 scripts/demo --yes >"$ARTIFACTS/e2e-demo.log" 2>&1
rc=$?
why=""
[ "$rc" = 0 ] || why="$why demo exit code $rc;"
for line in "the sample application was closed" "the application from elsewhere was left running" \
  "count read back by TvEject: 0" "Tarvel USB Eject will close all programs" "it is not ejected"; do
  grep -q "$line" "$ARTIFACTS/e2e-demo.log" || why="$why no \"$line\";"
done
check "demo" "${why:-ok}"

finish
