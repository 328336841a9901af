#!/bin/bash
# Usage: test_kvl.sh PATH_OF_KVL
# Runs the kvl command on pictures and clips that ffmpeg makes, and on a photograph.
set -u -o pipefail
shopt -s nullglob dotglob

kvl=$(realpath "$1") || exit 1
photo=$(find /usr/share/libjxl-testdata -name flower.png 2>/dev/null | head -n 1)
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

run() { # ARGUMENTS: must succeed
  "$kvl" "$@" 2>err || fail "kvl $*: $(cat err)"
}

# STATUS NAMED ARGUMENTS: must fail with one line that names NAMED, and write nothing to out/.
refuse() {
  local status=$1 named=$2
  shift 2
  "$kvl" "$@" >stdout 2>err </dev/null
  equal "exit status of kvl $*" "$status" $?
  equal "lines on standard error of kvl $*" 1 "$(wc -l <err)"
  grep -q "^kvl: .*$named" err || fail "kvl $*: '$(cat err)' does not name $named"
  [[ ! -s stdout ]] || fail "kvl $*: wrote to standard output"
  local left=(out/*)
  equal "files left by kvl $*" "" "${left[*]-}"
  rm -f out/*
}

pictures() {
  # 33x17 pads each DIB row by one byte.
  make_media -f lavfi -i testsrc2=s=64x64 -vf format=rgb24,scale=33:17 -frames:v 1 -pix_fmt rgb24 in.png
  make_media -f lavfi -i color=c=0xE03060:s=16x16 -frames:v 1 -pix_fmt rgb24 flat.png
  local type wanted
  run gaussian --radius 5 in.png blurred.png
  wanted=$(pixels blurred.png)
  [[ "$wanted" != "$(pixels in.png)" ]] || fail "a blur of radius 5 changed nothing"
  for type in png bmp tif tiff ppm pnm; do
    [[ $type == png ]] || make_media -i in.png -pix_fmt rgb24 -f image2 -update 1 "in.$type"
    run gaussian --radius 5 "in.$type" "round.$type"
    equal "blur of a $type" "$wanted" "$(pixels "round.$type")"
  done

  # The weights of radius 1 sum to one exactly, so flat pictures pass unchanged. The colour of the
  # second kind is one that FFmpeg's palette holds.
  run gaussian --radius 1 flat.png flat.ppm
  equal "flat colour" "$(pixels flat.png)" "$(pixels flat.ppm)"
  local format
  for format in gray rgba pal8; do
    make_media -f lavfi -i color=c=0xFF0055:s=16x16 -vf format=rgb24,format=$format -frames:v 1 \
      same.png
    run gaussian --radius 1 same.png same.bmp
    equal "flat $format" "$(pixels same.png)" "$(pixels same.bmp)"
  done
  make_media -f lavfi -i color=c=0xE0E0E0:s=16x16 -vf format=rgb24,format=gray16be -frames:v 1 \
    -update 1 deep.pgm
  run gaussian --radius 1 deep.pgm deep.ppm
  near deep.ppm 224 224 224

  # Full range and BT.601 both ways: a wrong range or matrix moves this colour by 5 and more.
  run gaussian --radius 1 flat.png flat.jpg
  run gaussian --radius 1 flat.jpg flat.ppm
  near flat.ppm 224 48 96
}

photograph() {
  [[ -n "$photo" ]] || { fail "libjxl-testdata's flower.png is not installed"; return; }
  local threads
  for threads in 1 3; do
    run gaussian --radius 8 --threads $threads "$photo" photo$threads.ppm
  done
  cmp photo1.ppm photo3.ppm || fail "1 and 3 threads differ"
  [[ "$(pixels "$photo")" != "$(pixels photo1.ppm)" ]] || fail "the photograph is not blurred"

  cp in.png same.png
  run gaussian --radius 5 same.png same.png
  equal "input and output of one name" "$(pixels blurred.png)" "$(pixels same.png)"

  run gaussian --time --repeat 3 --radius 5 in.png timed.png
  grep -Eq '^kvl: gaussian 33x17 1 frames [0-9.]+ ms/frame [0-9.]+ MP/s [0-9]+ threads$' err ||
    fail "--time printed '$(cat err)'"
  equal "repeated runs" "$(pixels same.png)" "$(pixels timed.png)"
}

clips() {
  make_media -f lavfi -i testsrc2=s=160x120:r=30000/1001 -frames:v 20 -pix_fmt yuv420p in.mp4
  run gaussian in.mp4 clip.mkv
  equal "mp4 to mkv" ffv1,30000/1001,20 "$(stream clip.mkv codec_name,avg_frame_rate,nb_read_frames)"
  tail -n 1 err | grep -q '20/20 frames.*frames/s.*left' || fail "progress ends in '$(cat err)'"
  run gaussian in.mp4 clip.mp4
  equal "mp4 to mp4" h264,yuv420p,tv,bt709,30000/1001,20 \
    "$(stream clip.mp4 codec_name,pix_fmt,color_range,color_space,avg_frame_rate,nb_read_frames)"
  equal "length" "$(stream in.mp4 duration)" "$(stream clip.mp4 duration)"

  # FFV1 keeps every byte, so a frame of it is the same picture.
  make_media -loop 1 -i in.png -frames:v 3 -c:v ffv1 -pix_fmt bgr0 odd.mkv
  run gaussian --radius 5 odd.mkv odd_out.mkv
  make_media -i odd_out.mkv -frames:v 1 -pix_fmt rgb24 frame.png
  equal "FFV1 frame" "$(pixels blurred.png)" "$(pixels frame.png)"
  run gaussian odd.mkv odd.mp4
  equal "odd sizes in H.264" yuv444p,3 "$(stream odd.mp4 pix_fmt,nb_read_frames)"

  # Frame times that are not even.
  make_media -f lavfi -i "testsrc2=s=64x48:r=30,select='not(mod(n,7))+lt(n,4)'" -frames:v 12 \
    -vsync vfr uneven.mp4
  run gaussian uneven.mp4 uneven_out.mp4
  equal "frame times" "$(ffprobe -v error -show_entries frame=pts_time -of csv=p=0 uneven.mp4)" \
    "$(ffprobe -v error -show_entries frame=pts_time -of csv=p=0 uneven_out.mp4)"

  make_media -loop 1 -i flat.png -vf scale=1280:720 -frames:v 2 -c:v ffv1 -pix_fmt bgr0 flat.mkv
  run gaussian --radius 1 flat.mkv flat.mp4
  run gaussian --radius 1 flat.mp4 flat_back.mkv
  near flat_back.mkv 224 48 96
}

streams() {
  make_media -i in.mp4 -pix_fmt yuv420p in.y4m
  "$kvl" gaussian - - <in.y4m >piped.y4m 2>err || fail "- to -: $(cat err)"
  equal "Y4M stream" 160,120,yuv444p,30000/1001,20 \
    "$(stream piped.y4m width,height,pix_fmt,avg_frame_rate,nb_read_frames)"
  run gaussian in.y4m file.y4m
  cmp piped.y4m file.y4m || fail "a stream and a file differ"
  head -c 200000 in.y4m | "$kvl" gaussian - - 2>err >/dev/null
  equal "exit status for a cut stream" 1 "${PIPESTATUS[1]}"
  grep -q '^kvl: standard input: truncated' err || fail "cut stream: '$(cat err)'"
  "$kvl" gaussian in.y4m - 2>err >/dev/full
  equal "exit status for a full device" 1 $?
}

bad_inputs() {
  local type size
  echo "plain text" >text.png
  : >empty.jpg
  printf 'P6\n0 0\n255\n' >zero.ppm
  head -c 3000 /dev/zero >zeros.mp4
  make_media -i in.mp4 -c copy -movflags +faststart front.mp4
  make_media -i in.mp4 -c copy in.mkv
  make_media -i in.png -pix_fmt yuvj444p -f image2 -update 1 in.jpg
  refuse 1 missing.png gaussian missing.png out/a.png
  refuse 1 text.png gaussian text.png out/a.png
  refuse 1 empty.jpg gaussian empty.jpg out/a.png
  refuse 1 zero.ppm gaussian zero.ppm out/a.png
  refuse 1 zeros.mp4 gaussian zeros.mp4 out/a.mkv
  refuse 1 "out: is a directory" gaussian out out/a.png
  refuse 1 "standard input" gaussian - out/a.y4m
  for type in png jpg bmp tif ppm; do
    size=$(stat -c %s "in.$type")
    for size in 30 $((size / 2)) $((size - 8)); do
      head -c $size "in.$type" >"cut.$type"
      refuse 1 "cut.$type" gaussian "cut.$type" out/a.png
    done
  done
  for type in in.mp4 front.mp4 in.mkv in.y4m; do
    size=$(stat -c %s "$type")
    for size in $((size / 2)) $((size * 99 / 100)); do
      head -c $size "$type" >"cut.${type##*.}"
      refuse 1 "cut.${type##*.}" gaussian "cut.${type##*.}" out/a.mkv
    done
  done
  # A flipped bit in the middle of a PNG fails its checksum.
  size=$(stat -c %s blurred.png)
  cp blurred.png flipped.png
  printf '\xA5\x5A' | dd of=flipped.png bs=1 seek=$((size / 2)) conv=notrunc status=none
  refuse 1 flipped.png gaussian flipped.png out/a.png

  refuse 1 "nowhere/a.png: the output folder" gaussian in.png nowhere/a.png
  mkdir folder.png
  refuse 1 "folder.png: is a directory" gaussian in.png folder.png
  (ulimit -f 1; exec "$kvl" gaussian "$photo" out/a.ppm) 2>err
  equal "exit status at a limit of the file size" 1 $?
  grep -q "^kvl: out/a.ppm: cannot be written" err || fail "limit of the file size: '$(cat err)'"
  [[ -z "$(ls -A out)" ]] || fail "limit of the file size: left $(ls -A out)"
  rm -f out/*
}

bad_usage() {
  refuse 2 "subcommand"
  refuse 2 "sharpest: unknown operation" sharpest in.png out/a.png
  refuse 2 "--radius: 'wide'" gaussian --radius wide in.png out/a.png
  refuse 2 "--radius: '3.5'" gaussian --radius 3.5 in.png out/a.png
  refuse 2 "--radius: '0'" gaussian --radius 0 in.png out/a.png
  refuse 2 "--radius: '9'" gaussian --radius 9 in.png out/a.png
  refuse 2 "--radius: '-1'" gaussian --radius -1 in.png out/a.png
  refuse 2 "--threads: '0'" gaussian --threads 0 in.png out/a.png
  refuse 2 output gaussian in.png
  refuse 2 "--frobnicate" gaussian --frobnicate in.png out/a.png
  refuse 2 "out/a.xyz: unknown output extension" gaussian in.png out/a.xyz
  refuse 2 "in.mp4 is a clip" gaussian in.mp4 out/a.png
  refuse 2 "in.png is a picture" gaussian in.png out/a.mp4
}

# A signal during a clip: status 128 + its number, nothing under the final name, no temporary file.
interrupts() {
  make_media -f lavfi -i testsrc2=s=1280x720 -frames:v 250 -c:v mpeg4 -q:v 5 long.mp4
  local signal wait left process status
  for signal in INT TERM; do
    "$kvl" gaussian long.mp4 out/long.mkv 2>err &
    process=$!
    for ((wait = 0; wait < 100; ++wait)); do
      left=(out/*.part)
      ((${#left[@]} > 0)) && break
      sleep 0.05
    done
    ((${#left[@]} > 0)) || fail "no temporary file appeared"
    [[ ! -e out/long.mkv ]] || fail "the clip has its final name before it is whole"
    kill -$signal $process
    wait $process
    status=$?
    equal "exit status after SIG$signal" $((128 + $(kill -l $signal))) $status
    left=(out/*)
    equal "files left after SIG$signal" "" "${left[*]-}"
    rm -f out/*
  done
}

help() {
  local operation line
  "$kvl" --help >stdout 2>err || fail "--help failed"
  [[ ! -s err ]] || fail "--help wrote to standard error"
  local operations
  operations=$(sed -n '/^Subcommands:/,$p' stdout | awk 'NR > 1 && NF && $1 != "info" { print $1 }')
  grep -qw gaussian <<<"$operations" || fail "--help lists no gaussian"
  for operation in $operations; do
    "$kvl" "$operation" --help >stdout || fail "$operation --help failed"
    while read -r line; do
      [[ $line =~ \[[a-z]+,\ .+,\ default\ .+\]$ ]] ||
        fail "$operation --help: no unit, range and default in '$line'"
    done < <(grep -E '^ +--' stdout)
  done
  "$kvl" gaussian --help | grep -q -- '--radius.*\[pixels, 1..8, default 3\]' ||
    fail "gaussian --help: radius"
  "$kvl" --version | grep -Eq '^kvl [0-9]+\.[0-9]+\.[0-9]+$' || fail "--version"

  "$kvl" info >stdout || fail "info failed"
  for line in "version +[0-9]" "physical cores +[1-9]" "logical processors +[1-9]" \
    "level 1 caches" "processor flags +.*SSE2" "team size +[1-9][0-9]* threads"; do
    grep -Eq "^$line" stdout || fail "info lacks '$line'"
  done
}

for group in pictures photograph clips streams bad_inputs bad_usage interrupts help; do
  before=$failures
  $group
  ((failures == before)) && echo "ok $group"
done
((failures == 0))
