#!/usr/bin/env bash
# Runs the built programs on old processors, as QEMU models them: one that has SSE2 only, and one
# that has SSSE3 but not SSE4.1. An instruction that the model lacks ends a program.
#
#   run.sh <build folder> <output folder> [--all]
#
# Compares the digests of every routine with those of this machine. --all runs every test program
# as well, which takes long.
set -euo pipefail

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

# digests <file> [<processor>]
digests() {
  ${2:+on "$2"} "$build/bin/digest_host" "$build/lib/libkvl.so" "$out/picture.bmp" \
    "$out/blurred.bmp" 5 > "$out/$1"
}

# Before initialisation all processors agree, and with SSSE3 after it too. With SSE2 only a routine
# gives afterwards either the result that it has here or the one that it has uninitialised; but for
# halved NV12, whose Y plane waits for SSSE3 and whose UV plane does not.
compare_digests() {
  diff "$out/here.txt" "$out/ssse3.txt" || return 1
  paste -d '\n' "$out/here.txt" "$out/sse2.txt" | awk -F ': ' '
    NR % 2 { here = $0; next }
    {
      call = $1
      sub(/^[a-z]+ /, "", call)
      if (/^before/) uninitialised[call, ++before[call]] = $2
      if (/^after/) other = "after" substr($1, 6) ": " uninitialised[call, ++after[call]]
      if ($0 == here || (/^after/ && $0 == other)) next
      if (/^after.*KVL_ShrinkToHalf 3:/ && !mixed[call]++) next
      print "here " here "\nSSE2 " $0
      bad = 1
    }
    END { exit bad || NR == 0 }'
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
"$build/bin/picture" "$out/picture.bmp"
"$build/bin/host" "$build/lib/libkvl.so" "$out/picture.bmp" "$out/blurred.bmp" 5 1 > /dev/null
digests sse2.txt sse2 &
digests ssse3.txt ssse3
wait $!
digests here.txt
compare_digests
echo "$(wc -l < "$out/here.txt") digests of each processor are as they should be"

if [[ $all == --all ]]; then
  test_programs sse2 &
  bad=0
  test_programs ssse3 || bad=1
  wait $! || bad=1
  exit $bad
fi
