# shellcheck shell=bash
# Steps that pass or fail, and their count.

passed=0
failed=0

heading() {
  printf '\n== %s (%d s)\n' "$1" "$SECONDS"
}

# check <what> <command>...: counts one test.
check() {
  local what=$1
  shift
  if "$@"; then
    passed=$((passed + 1))
    echo "passed: $what"
  else
    failed=$((failed + 1))
    echo "FAILED: $what"
  fi
}

# quietly <log> <command>...: shows the output only where the command fails.
quietly() {
  local log=$1
  shift
  "$@" > "$log" 2>&1 < /dev/null && return
  tail -n 60 "$log"
  return 1
}

# build <preset> [target]...: logs go to $out.
build() {
  local preset=$1 targets=()
  shift
  if (($#)); then targets=(--target "$@"); fi
  quietly "$out/$preset-configure.log" cmake --preset "$preset" &&
    quietly "$out/$preset-build.log" cmake --build --preset "$preset" -j "$(nproc)" "${targets[@]}"
}

# The last line of a script: how many steps passed and failed.
summary() {
  printf '\nTook %d s.\n' "$SECONDS"
  echo "$passed passed, $failed failed"
  ((failed == 0))
}
