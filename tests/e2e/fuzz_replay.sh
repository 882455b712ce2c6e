#!/usr/bin/env bash
# Every input the fuzzers kept (fuzz/corpus/<target>), replayed through the same checks with the
# native build: one case per target. Prints "N passed, N failed" as its last line.
set -u
source "$(dirname "$0")/lib.sh"

for corpus in fuzz/corpus/*/; do
  target=$(basename "$corpus")
  replay=build/native/bin/${target}_fuzz_replay
  if [ ! -x "$replay" ]; then
    echo "FAIL $target: $replay is missing"
    failed=$((failed + 1))
    continue
  fi
  if out=$("$replay" "$corpus" 2>&1); then
    echo "PASS $target: $out"
    passed=$((passed + 1))
  else
    echo "FAIL $target:"
    echo "$out" | tail -20
    failed=$((failed + 1))
  fi
done
finish
