#!/usr/bin/env bash
# memcheck.sh <program> [argument]...: runs it under valgrind; a leak or the use of a byte that was
# never set is a failure. --keep-debuginfo names the frames of a library that was unloaded.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
exec valgrind --quiet --error-exitcode=99 --leak-check=full \
  --errors-for-leak-kinds=definite,indirect,possible --keep-debuginfo=yes \
  --suppressions="$root/tests/valgrind.supp" "$@"
