#!/bin/bash
# Usage: test_alpha.sh PATH_OF_KVL
# Pictures with alpha, the colour shift, and the colour key with its second input.
set -u -o pipefail
shopt -s nullglob dotglob

kvl=$(realpath "$1") || exit 1
. "$(dirname "$0")/checks.sh"

# FILE PIXEL: red, green, blue and alpha of one pixel, counted from 0, of the first frame.
rgba() {
  ffmpeg -v error -nostdin -i "$1" -frames:v 1 -pix_fmt rgba -f rawvideo - |
    od -An -v -w4 -tu1 -j $((4 * $2)) -N 4 | xargs
}

# NAME COLOUR ALPHA SIZE
flat_rgba() {
  make_media -f lavfi -i "color=$2@$3:s=$4,format=rgba" -frames:v 1 -pix_fmt rgba "$1"
}

alpha() {
  local type
  # 0xC86432 is 200, 100, 50. Rows of 33 pixels have two blocks of sixteen and one pixel more.
  flat_rgba half.png 0xC86432 0.5 33x5
  local opacity
  opacity=$(rgba half.png 0 | cut -d' ' -f4)
  [[ "$opacity" == 127 || "$opacity" == 128 ]] || fail "the picture's alpha is $opacity"
  for type in png tif mkv; do
    if [[ $type == mkv ]]; then
      make_media -loop 1 -i half.png -frames:v 2 -c:v ffv1 -pix_fmt bgra half.mkv
    elif [[ $type == tif ]]; then
      make_media -i half.png -pix_fmt rgba half.tif
    fi
    run premultiply half.$type less.$type
    equal "premultiplied $type" "100 50 25 $opacity" "$(rgba less.$type 3)"
    equal "premultiplied $type, last pixel" "100 50 25 $opacity" "$(rgba less.$type 164)"
    run unpremultiply less.$type back.$type
    near_rgba "$(rgba back.$type 3)" 200 100 50 "$opacity"
    near_rgba "$(rgba back.$type 164)" 200 100 50 "$opacity"
  done
  flat_rgba clear.png 0xC86432 0 33x5
  run premultiply clear.png less.png
  equal "premultiplied transparency" "0 0 0 0" "$(rgba less.png 7)"
  make_media -f lavfi -i color=0xC86432:s=33x5,format=rgb24 -frames:v 1 -pix_fmt rgb24 opaque.png
  run premultiply opaque.png less.png
  equal "picture without alpha" "200 100 50 255" "$(rgba less.png 7)"
  for type in jpg bmp ppm mp4 y4m; do
    refuse 2 "out/a.$type: holds no alpha" premultiply half.png "out/a.$type"
  done
  refuse 2 "is to be a clip" premultiply half.png out/a.mkv
}

# "R G B A" R G B A: within two levels.
near_rgba() {
  echo "$*" | awk '{ for (i = 1; i <= 4; ++i) if ($i - $(i + 4) > 2 || $(i + 4) - $i > 2) exit 1 }' ||
    fail "wanted ${*:2}, got $1"
}

tint() {
  flat_rgba flat.png 0xC86432 1 40x4
  run tint flat.png same.png
  equal "no tint" "200 100 50 255" "$(rgba same.png 0)"
  # The last eight pixels follow the integer formula: see the case worked by hand in the unit tests.
  run tint --red -0.5 flat.png red.png
  equal "tint by ratio" "142 126 63 255" "$(rgba red.png 39)"
  run tint --red -0.5 --preserve difference flat.png red.png
  equal "tint by difference" "139 126 76 255" "$(rgba red.png 39)"
  refuse 2 "--red: '1.5'" tint --red 1.5 flat.png out/a.png
  refuse 2 "--preserve: 'all'" tint --preserve all flat.png out/a.png
}

# Red on a green screen at the left, over blue.
key() {
  make_media -f lavfi -i "color=0x00b140:s=64x32,format=rgb24,drawbox=x=40:w=24:c=0xc01020:t=fill" \
    -frames:v 1 -pix_fmt rgb24 shot.png
  make_media -f lavfi -i color=0x3050d0:s=64x32,format=rgb24 -frames:v 1 -pix_fmt rgb24 behind.png
  run key --time shot.png behind.png over.png
  grep -Eq '^kvl: key 64x32 1 frames [0-9.]+ ms/frame' err || fail "key --time: $(cat err)"
  equal "background" "48 80 208 255" "$(rgba over.png 3)"
  equal "subject" "192 16 32 255" "$(rgba over.png 50)"
  run key --mask shot.png mask.png
  equal "mask of the screen" "0 0 0 255" "$(rgba mask.png 3)"
  equal "mask of the subject" "255 255 255 255" "$(rgba mask.png 50)"
  # The red is 57 per cent of the distance between black and white away from the green.
  run key --mask --low 40 --high 80 shot.png mask.png
  rgba mask.png 50 | awk '{ exit !($1 > 0 && $1 < 255) }' || fail "the mask is not soft"
  run key --mask --colour c01020 shot.png mask.png
  equal "mask of another colour" "255 255 255 255" "$(rgba mask.png 3)"
  equal "mask of its subject" "0 0 0 255" "$(rgba mask.png 50)"

  # Grass beside the screen loses its green, and less of it with less strength.
  make_media -f lavfi -i color=0x90e080:s=64x32,format=rgb24 -frames:v 1 -pix_fmt rgb24 grass.png
  local spill greens=()
  for spill in 0 50 100; do
    run key --spill $spill grass.png behind.png over.png
    greens+=("$(rgba over.png 5 | cut -d' ' -f2)")
  done
  equal "no spill taken out" 224 "${greens[0]}"
  ((greens[0] > greens[1] && greens[1] > greens[2])) || fail "spill: greens are ${greens[*]}"

  local threads
  for threads in 1 3; do
    run key --threads $threads --low 5 --high 60 shot.png grass.png over$threads.ppm
  done
  cmp over1.ppm over3.ppm || fail "1 and 3 threads differ"
}

key_clips() {
  make_media -loop 1 -i shot.png -frames:v 4 -c:v ffv1 -pix_fmt bgr0 shot.mkv
  make_media -f lavfi -i "color=black:s=64x32:r=25,format=gbrp,geq=r='0':g='0':b='50*N'" -frames:v 4 \
    -c:v ffv1 -pix_fmt bgr0 behind.mkv
  run key shot.mkv behind.png over.mkv
  equal "clip over a picture" "48 80 208 255" "$(rgba over.mkv 3)"
  equal "its frames" 4 "$(stream over.mkv nb_read_frames)"
  run key --repeat 3 shot.mkv behind.mkv over.mkv
  make_media -i over.mkv -vf "select=eq(n\\,3)" -frames:v 1 -pix_fmt rgb24 last.png
  equal "clip over a clip, last frame" "0 0 150 255" "$(rgba last.png 3)"
  run key --mask shot.mkv mask.mkv
  equal "mask of a clip" 4 "$(stream mask.mkv nb_read_frames)"

  make_media -i behind.mkv -frames:v 2 -c copy short.mkv
  refuse 1 "short.mkv: has fewer frames" key shot.mkv short.mkv out/a.mkv
  make_media -i behind.png -vf scale=32:32 -pix_fmt rgb24 narrow.png
  refuse 1 "narrow.png: has 32x32 pixels, but the first input 64x32" key shot.png narrow.png \
    out/a.png
  refuse 1 missing.png key shot.png missing.png out/a.png
  refuse 2 "behind.mkv: is a clip" key shot.png behind.mkv out/a.png
  refuse 2 "background: is required" key shot.png out/a.png
  refuse 2 background key shot.png
  refuse 2 "background: is not used" key --mask shot.png behind.png out/a.png
  refuse 2 "--colour: '12345'" key --colour 12345 shot.png behind.png out/a.png
  refuse 2 "--colour: '00b14g'" key --colour 00b14g shot.png behind.png out/a.png
  refuse 2 "--colour: '-0b140'" key --colour=-0b140 shot.png behind.png out/a.png
}

run_groups alpha tint key key_clips
