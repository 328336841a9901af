#!/bin/bash
# Usage: test_bad_input.sh PATH_OF_KVL [CASES [SEED]]
# Runs the kvl command on pictures and clips of which bytes are missing or bits are flipped, in
# CASES ways each. Every run ends in time, either with status 0 and a whole output, or with another
# and one line that names an input, and no file; and frees all its memory, which GCC's leak sanitizer
# watches (in a build that has a sanitizer already, that one).
set -u -o pipefail
shopt -s nullglob dotglob

kvl=$(realpath "$1") || exit 1
cases=${2:-6}
state=${3:-1}
. "$(dirname "$0")/checks.sh"
# Without it each run starts twice.
export OMP_WAIT_POLICY=passive
watch=()
if ! ldd "$kvl" | grep -q libasan; then
  watch=(env LD_PRELOAD="$(g++ -print-file-name=liblsan.so)")
fi

leaks_are_found() {
  "${watch[@]}" "$(dirname "$kvl")/leak_probe" 2>err
  equal "exit status of a program that leaks" 23 $?
}

# The next pseudo-random number below the argument, in `drawn`.
draw() {
  state=$(((state * 6364136223846793005 + 1442695040888963407) & 0x7FFFFFFFFFFFFFFF))
  drawn=$(((state >> 20) % $1))
}

# FROM TO: without a part of the end; early cuts meet headers.
cut() {
  local size
  size=$(stat -c %s "$1")
  draw 3
  if ((drawn == 0 && size > 200)); then size=200; fi
  draw $((size - 1))
  head -c $((drawn + 1)) "$1" >"$2"
}

# FROM TO: with one to four bits turned, half of the time in the first 200 bytes.
flip() {
  local size bits at byte
  size=$(stat -c %s "$1")
  cp "$1" "$2"
  draw 2
  if ((drawn == 0 && size > 200)); then size=200; fi
  draw 4
  bits=$((drawn + 1))
  for ((; bits > 0; --bits)); do
    draw "$size"
    at=$drawn
    byte=$(od -An -tu1 -j "$at" -N 1 "$2")
    draw 8
    printf '%b' "\\x$(printf %02x $((byte ^ 1 << drawn)))" |
      dd of="$2" bs=1 seek="$at" conv=notrunc status=none
  done
}

# OUTPUT ARGUMENTS: must succeed or refuse; OUTPUT is empty for a command that prints.
either() {
  local output=$1 status what
  shift
  what="kvl $* ($kind of seed $seed)"
  timeout 60 "${watch[@]}" "$kvl" "$@" >stdout 2>err </dev/null
  status=$?
  local left=(out/*)
  case $status in
    0)
      succeeded=$((succeeded + 1))
      # A clip tells how far it is.
      if grep -v "^kvl: $output: .* frames" err >stray; then fail "$what: also said '$(cat stray)'"; fi
      equal "files of $what" "$output" "${left[*]-}"
      case $output in
        '') [[ -s stdout ]] || fail "$what: printed nothing" ;;
        *.raw) [[ -s $output ]] || fail "$what: wrote nothing" ;;
        *) ffmpeg -v error -xerror -nostdin -i "$output" -f null - 2>ffmpeg.err ||
          fail "$what: $output is not whole: $(cat ffmpeg.err)" ;;
      esac
      ;;
    1 | 2)
      # Damage may turn a picture into what looks like a clip, which is wrong usage.
      ((status == 1)) || grep -q 'is a clip, but' err || fail "$what: status 2, '$(cat err)'"
      refused=$((refused + 1))
      equal "lines on standard error of $what" 1 "$(wc -l <err)"
      grep -Eq '^kvl: (bad|good)\.[a-z0-9]+: .+' err || fail "$what: '$(cat err)' names no input"
      [[ ! -s stdout || -z $output ]] || fail "$what: wrote to standard output"
      equal "files left by $what" "" "${left[*]-}"
      ;;
    *) fail "$what: status $status, '$(head -n 20 err)'" ;;
  esac
  rm -f out/*
}

# COUNT TYPE: one command on bad.TYPE, a picture.
picture_command() {
  case $(($1 % 7)) in
    0) either out/a.png gaussian "bad.$2" out/a.png ;;
    1) either out/a.tif resize --size 21x50 "bad.$2" out/a.tif ;;
    2) either "" motion --block 8 --range 2 "bad.$2" good.png ;;
    3) either out/a.png key "bad.$2" good.png out/a.png ;;
    4) either out/a.png key good.png "bad.$2" out/a.png ;;
    5) either out/a.raw convert --to nv12 "bad.$2" out/a.raw ;;
    6) either out/a.bmp fields --with "bad.$2" good.png out/a.bmp ;;
  esac
}

# COUNT TYPE: one command on bad.TYPE, a clip.
clip_command() {
  case $(($1 % 5)) in
    0) either out/a.mkv gaussian "bad.$2" out/a.mkv ;;
    1) either out/a.y4m resize --size 20x30 "bad.$2" out/a.y4m ;;
    2) either "" motion --block 8 --range 2 "bad.$2" ;;
    3) either out/a.mkv key "bad.$2" good.mkv out/a.mkv ;;
    4) either out/a.mkv key good.mkv "bad.$2" out/a.mkv ;;
  esac
}

# COMMAND FILE: damages FILE in all the ways.
damage() {
  local command=$1 file=$2 type=${2##*.} i kind seed succeeded=0 refused=0
  for ((i = 0; i < cases; ++i)); do
    for kind in cut flip; do
      seed=$state
      $kind "$file" "bad.$type"
      $command "$i" "$type"
    done
  done
  ((refused > 0)) || fail "nothing of the damage to $file was seen"
  echo "$file: $refused refused, $succeeded read all the same"
}

jpeg_command() {
  if (($1 % 2)); then
    either out/a.png jpeg decode "bad.$2" out/a.png
  else
    picture_command "$1" "$2"
  fi
}

pictures() {
  local type
  make_media -f lavfi -i testsrc2=s=64x48 -frames:v 1 -pix_fmt rgb24 good.png
  for type in bmp tif ppm pgm; do make_media -i good.png -update 1 "good.$type"; done
  make_media -i good.png -pix_fmt yuvj420p -update 1 good.jpg
  for type in png bmp tif ppm pgm; do damage picture_command "good.$type"; done
  damage jpeg_command good.jpg
}

clips() {
  local type
  make_media -f lavfi -i testsrc2=s=64x48 -frames:v 12 -c:v ffv1 -pix_fmt bgr0 good.mkv
  make_media -i good.mkv -c:v mpeg4 -q:v 4 good.mp4
  make_media -i good.mkv -c:v libx264 -pix_fmt yuv420p x264.mp4
  make_media -i good.mkv -pix_fmt yuv420p good.y4m
  for type in good.mkv good.mp4 x264.mp4 good.y4m; do damage clip_command "$type"; done
}

# What had the output's name before stays.
existing_outputs() {
  local output
  for output in good.png good.mkv; do
    head -c $(($(stat -c %s "$output") / 2)) "$output" >"bad.${output##*.}"
    cp "$output" "kept.${output##*.}"
    "$kvl" gaussian "bad.${output##*.}" "kept.${output##*.}" 2>err
    equal "exit status of a bad $output" 1 $?
    cmp "$output" "kept.${output##*.}" || fail "a failed run touched the file of the output's name"
  done
}

run_groups leaks_are_found pictures clips existing_outputs
