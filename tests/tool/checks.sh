# shellcheck shell=bash
# What the tests of the kvl command share: a folder to work in, and checks that count failures.
# The caller has set kvl to the command's path, and subcommand where all its calls have the same.

failures=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
mkdir out

fail() {
  echo "FAILED: $*" >&2
  failures=$((failures + 1))
}

equal() { # WHAT WANTED GOT
  [[ "$2" == "$3" ]] || fail "$1: wanted '$2', got '$3'"
}

make_media() { ffmpeg -v error -nostdin -y "$@" || { echo "ffmpeg $* failed" >&2; exit 1; }; }

# The decoded bytes of a picture or clip as 24-bit RGB.
pixels() { ffmpeg -v error -nostdin -i "$1" -pix_fmt rgb24 -f rawvideo - | md5sum; }

stream() { ffprobe -v error -count_frames -show_entries "stream=$2" -of csv=p=0 "$1"; }

# FILE R G B: the first frame must be of that colour, give or take 3 levels.
near() {
  ffmpeg -v error -nostdin -i "$1" -frames:v 1 -pix_fmt rgb24 -f rawvideo - |
    od -An -v -w3 -tu1 |
    awk -v r="$2" -v g="$3" -v b="$4" 'function off(a, c) { return a - c > 3 || c - a > 3 }
      off($1, r) || off($2, g) || off($3, b) { bad = 1; print "colour " $0; exit }
      END { exit bad || NR == 0 }' >&2 || fail "$1: the colour moved"
}

call=("$kvl" ${subcommand:+"$subcommand"})
called="kvl${subcommand:+ $subcommand}"

run() { # ARGUMENTS: must succeed
  "${call[@]}" "$@" 2>err || fail "$called $*: $(cat err)"
}

# STATUS NAMED ARGUMENTS: must fail with one line that names NAMED, and write nothing to out/.
refuse() {
  local status=$1 named=$2
  shift 2
  "${call[@]}" "$@" >stdout 2>err </dev/null
  equal "exit status of $called $*" "$status" $?
  equal "lines on standard error of $called $*" 1 "$(wc -l <err)"
  grep -q "^kvl: .*$named" err || fail "$called $*: '$(cat err)' does not name $named"
  [[ ! -s stdout ]] || fail "$called $*: wrote to standard output"
  local left=(out/*)
  equal "files left by $called $*" "" "${left[*]-}"
  rm -f out/*
}

operation_names() {
  "$kvl" --help | sed -n '/^Subcommands:/,$p' | awk 'NR > 1 && NF && $1 !~ /^(info|jpeg|motion)$/ { print $1 }' | sort
}

# Runs each function that is named, and fails when one of its checks did.
run_groups() {
  local group before
  for group in "$@"; do
    before=$failures
    $group
    ((failures == before)) && echo "ok $group"
  done
  ((failures == 0))
}
