#!/bin/bash
# Usage: test_halving.sh PATH_OF_KVL
# Runs the operations halve and fields on pictures and clips that ffmpeg makes.
set -u -o pipefail
shopt -s nullglob dotglob

kvl=$(realpath "$1") || exit 1
. "$(dirname "$0")/checks.sh"

refuse() { # STATUS NAMED ARGUMENTS: must fail with one line that names NAMED, and leave no file
  local status=$1 named=$2
  shift 2
  "$kvl" "$@" >stdout 2>err </dev/null
  equal "exit status of kvl $*" "$status" $?
  # A clip's progress may come before.
  grep -q "^kvl: .*$named" err || fail "kvl $*: '$(cat err)' does not name $named"
  local left=(out/*)
  equal "files left by kvl $*" "" "${left[*]-}"
}

size() { ffprobe -v error -show_entries stream=width,height -of csv=p=0 "$1"; }

rgb() { ffmpeg -v error -nostdin -i "$1" -pix_fmt rgb24 -f rawvideo -; }

# The first byte of each row.
rows() {
  local width
  width=$(ffprobe -v error -show_entries stream=width -of csv=p=0 "$1")
  rgb "$1" | od -An -v -tu1 -w$((3 * width)) | awk '{ printf "%s%s", n++ ? " " : "", $1 }'
}

colour() { # NAME SIZE COLOUR
  make_media -f lavfi -i "color=c=$3:s=$2,format=rgb24" -frames:v 1 -pix_fmt rgb24 "$1"
}

halves() {
  local layout psnr
  make_media -f lavfi -i testsrc2=s=64x64 -vf format=rgb24,scale=34:18 -frames:v 1 -pix_fmt rgb24 \
    in.png
  # Of a picture that was doubled, the half is what it was.
  make_media -i in.png -vf scale=68:36:flags=neighbor -pix_fmt rgb24 double.png
  for layout in rgb24 rgb32; do
    run halve --layout $layout double.png half.png
    equal "$layout: half of the double" "$(rgb in.png | md5sum)" "$(rgb half.png | md5sum)"
  done

  # An odd size loses its last column and row; a layout of half chroma what is no whole block.
  make_media -i double.png -vf crop=67:35:0:0 -pix_fmt rgb24 odd.png
  run halve odd.png half.png
  equal "half of 67x35" 33,17 "$(size half.png)"
  make_media -i odd.png -vf gblur=4 -pix_fmt rgb24 smooth.png
  run halve smooth.png wanted.png
  make_media -i wanted.png -vf crop=32:16:0:0 -pix_fmt rgb24 -update 1 wanted.ppm
  for layout in yuy2 yv12 yv16 yv24 nv12; do
    run halve --layout $layout smooth.png half.png
    equal "$layout: half of 67x35" 32,16 "$(size half.png)"
    psnr=$(ffmpeg -nostdin -i half.png -i wanted.ppm -lavfi psnr -f null - 2>&1 |
      sed -n 's/.*average:\([0-9]*\).*/\1/p')
    ((psnr >= 25)) || fail "$layout: $psnr dB from the right picture"
  done
  colour flat.png 38x26 0xE03060
  for layout in rgb24 rgb32 yuy2 yv12 yv16 yv24 nv12; do
    run halve --layout $layout flat.png half.png
    rgb half.png | od -An -v -tu1 -w3 | awk '{ for (i = 1; i <= 3; ++i) {
        d = $i - (i == 1 ? 224 : i == 2 ? 48 : 96); if (d > 3 || d < -3) exit bad = 1 } }
      END { exit bad || NR == 0 }' || fail "$layout: the colour moved"
  done

  run halve --layout yv24 double.png half.png
  run halve --layout yv24 --samples double.png samples.png
  equal "samples of a double" "$(rgb half.png | md5sum)" "$(rgb samples.png | md5sum)"
  run halve --layout yv24 in.png half.png
  run halve --layout yv24 --samples in.png samples.png
  ! cmp -s half.png samples.png || fail "--samples averages"
}

fields() {
  colour black.png 16x8 black
  colour white.png 16x8 white
  run fields --with white.png black.png woven.png
  equal "bottom field" "0 255 0 255 0 255 0 255" "$(rows woven.png)"
  run fields --field top --with white.png black.png woven.png
  equal "top field" "255 0 255 0 255 0 255 0" "$(rows woven.png)"
  run halve --interlaced woven.png half.png
  equal "halves of fields" "255 0 255 0" "$(rows half.png)"
  run halve woven.png half.png
  equal "half across fields" "127 127 127 127" "$(rows half.png)"

  colour oddblack.png 3x5 black
  colour oddwhite.png 3x5 white
  run fields --field bottom --with oddwhite.png oddblack.png woven.png
  equal "bottom field of an odd height" "0 255 0 255 0" "$(rows woven.png)"
  run fields --field top --with oddwhite.png oddblack.png woven.png
  equal "top field of an odd height" "255 0 255 0 255" "$(rows woven.png)"
}

clips() {
  make_media -loop 1 -i black.png -frames:v 4 -c:v ffv1 -pix_fmt bgr0 black.mkv
  make_media -i black.mkv -vf "geq=r='60*N':g='60*N':b='60*N',format=bgr0" -c:v ffv1 steps.mkv
  make_media -i steps.mkv -frames:v 3 -c:v ffv1 -pix_fmt bgr0 short.mkv
  run fields --repeat 3 --with steps.mkv black.mkv woven.mkv
  equal "every frame with its own" \
    "0 0 0 0 0 0 0 0 0 60 0 60 0 60 0 60 0 120 0 120 0 120 0 120 0 180 0 180 0 180 0 180" \
    "$(rows woven.mkv)"
  run fields --with white.png steps.mkv woven.mkv
  equal "a picture for every frame" \
    "0 255 0 255 0 255 0 255 60 255 60 255 60 255 60 255" "$(rows woven.mkv | cut -d' ' -f-16)"
  run halve steps.mkv half.mkv
  equal "half of a clip" "8,4 0 0 0 0 60 60 60 60" \
    "$(size half.mkv | head -n 1) $(rows half.mkv | cut -d' ' -f-8)"
  refuse 1 "short.mkv: ends before the input" fields --with short.mkv black.mkv out/a.mkv
}

bad_calls() {
  colour dot.png 1x1 white
  colour low.png 9x3 white
  refuse 1 "1x1: the picture is too small" halve dot.png out/a.png
  refuse 1 "9x3: the picture is too small" halve --layout yv12 low.png out/a.png
  refuse 1 "9x3: the picture is too small" halve --interlaced low.png out/a.png
  refuse 2 "--layout: 'rgb16'" halve --layout rgb16 in.png out/a.png
  refuse 2 "--with is required" fields in.png out/a.png
  refuse 2 "--field: 'left'" fields --field left --with in.png in.png out/a.png
  refuse 2 "--with: cannot be standard input" fields --with - in.png out/a.png
  refuse 1 "missing.png" fields --with missing.png in.png out/a.png
  refuse 1 "flat.png: has 38x26 pixels, but the input 34x18" fields --with flat.png in.png out/a.png
}

run_groups halves fields clips bad_calls
