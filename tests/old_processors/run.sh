#!/usr/bin/env bash
# Runs the built programs on old processors, as QEMU models them: one that has SSE2 only, and one
# that has SSSE3 but not SSE4.1. An instruction that the model lacks ends a program.
#
#   run.sh <build folder> <output folder> [--all]
#
# Recomputes the recorded digests of every routine. --all runs every test program as well, which
# takes long.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

build=$(realpath "$1")
out=$2
all=${3:-}
mkdir -p "$out"
ulimit -c 0
export OMP_WAIT_POLICY=passive
declare -A model=([sse2]="Opteron_G1,-sse3" [ssse3]="Conroe")

# on <processor> <command>...
on() {
  local processor=$1
  shift
  qemu-x86_64 -cpu "${model[$processor]}" "$@"
}

# The models are worth nothing unless they refuse what they lack.
probe() {
  local processor set status
  while read -r processor set status; do
    local got=0
    on "$processor" "$build/bin/processor_probe" "$set" 2> /dev/null || got=$?
    if ((got != status)); then
      echo "the model of $processor ends $set with $got, not $status"
      return 1
    fi
  done <<'TABLE'
sse2 sse2 0
sse2 sse3 132
sse2 ssse3 132
sse2 sse41 132
sse2 avx 132
ssse3 sse2 0
ssse3 sse3 0
ssse3 ssse3 0
ssse3 sse41 132
ssse3 avx 132
TABLE
}

# The recorded results hold on the processor, at each level that it has.
digests() {
  local line
  line=$(on "$1" "$build/bin/digests" tests/digests.txt "$build/lib/libkvl.so" --brief) || {
    echo "$line"
    return 1
  }
  echo "$1: $line"
}

# test_programs <processor>
test_programs() {
  local program log status=0
  for program in "$build"/bin/test_*; do
    log=$out/$1-${program##*/}.log
    SECONDS=0
    if on "$1" "$program" > "$log" 2>&1; then
      echo "$1: ${program##*/}: $(grep -c '^\[       OK' "$log") passed, $SECONDS s"
    else
      status=1
      echo "$1: ${program##*/} FAILED:"
      tail -n 20 "$log"
    fi
  done
  return $status
}

probe
bad=0
digests sse2 &
digests ssse3 || bad=1
wait $! || bad=1

if [[ $all == --all ]]; then
  test_programs sse2 &
  test_programs ssse3 || bad=1
  wait $! || bad=1
fi
exit $bad
