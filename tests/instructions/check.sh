#!/usr/bin/env bash
# check.sh <objdump> <object>...: fails when an object holds an instruction beyond the set that its
# name tells: SSE2, which every 64-bit processor has, or that of its suffix. Lines of its own name
# what was found.
set -euo pipefail

objdump=$1
shift
bad=0
for object in "$@"; do
  case $object in
    *_avx2.cpp.o*) allowed=+sse3+ssse3+sse41+avx ;;
    *_sse41.cpp.o*) allowed=+sse3+ssse3+sse41 ;;
    *_ssse3.cpp.o*) allowed=+sse3+ssse3 ;;
    */platform_linux.cpp.o* | */platform_windows.cpp.o*) allowed=+detection ;;
    *) allowed= ;;
  esac
  "$objdump" -d --no-show-raw-insn -M intel "$object" |
    awk -v object="${object##*/}" -v allowed="$allowed" -f "${BASH_SOURCE[0]%/*}/check.awk" || bad=1
done
(($# > 0 && bad == 0))
