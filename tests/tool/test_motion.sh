#!/bin/bash
# Usage: test_motion.sh PATH_OF_KVL
# Runs kvl motion on pictures and clips that move by known displacements.
set -u -o pipefail
shopt -s nullglob dotglob

kvl=$(realpath "$1") || exit 1
subcommand=motion
. "$(dirname "$0")/checks.sh"

run() { # ARGUMENTS: must succeed, its vectors in stdout
  "$kvl" motion "$@" >stdout 2>err || fail "kvl motion $*: $(cat err)"
}

# The picture that all others are cut from: blurred noise, in which every block is unlike the others.
make_media -f lavfi -i "color=gray:s=320x240,format=rgb24,noise=alls=100:all_seed=3,gblur=sigma=2" \
  -frames:v 1 -pix_fmt rgb24 whole.png

# NAME X Y: a picture of 160x120 from the column X and the row Y on.
cut() { make_media -i whole.png -vf "crop=160:120:$2:$3" -pix_fmt rgb24 "$1"; }

# NAME "X EXPRESSION" "Y EXPRESSION": a clip of 12 frames of the frame number n.
cut_clip() {
  make_media -loop 1 -framerate 25 -i whole.png -vf "crop=160:120:'$2':'$3',format=gbrp" \
    -frames:v 12 -c:v ffv1 "$1"
}

pictures() {
  cut a.png 60 50
  cut b.png 56 53 # what was at (60, 50) is 4 farther to the right and 3 higher
  run --block 16 --range 8 a.png b.png
  equal "columns" "x y dx dy score" "$(awk 'NR == 1 { $1 = $1; print }' stdout)"
  # Blocks from 8 to 152 and from 8 to 112.
  equal "blocks" 54 "$(awk 'NR > 1 && $1 != "frame"' stdout | wc -l)"
  equal "vectors" "4 -3 0" "$(awk 'NR > 1 && $1 != "frame" { print $3, $4, $5 }' stdout | sort -u)"
  equal "summary" "frame 1 moved by 4.000 -3.000, 54 of 54 blocks agreeing" "$(tail -n 1 stdout)"

  run --block 16 --range 8 --format csv a.png b.png
  equal "first line of the CSV" "frame,x,y,dx,dy,score" "$(head -n 1 stdout)"
  equal "first block of the CSV" "1,8,8,4,-3,0" "$(sed -n 2p stdout)"
  equal "lines of the CSV" 55 "$(wc -l <stdout)"
  run --block 16 --range 8 --format json a.png b.png
  equal "blocks of the JSON" 54 "$(grep -c '{"x":[0-9]*,"y":[0-9]*,"dx":4,"dy":-3,"score":0}' stdout)"
  equal "JSON around the blocks" '[|{"frame":1,"dx":4.000,"dy":-3.000,"agreeing":54,"blocks":[|]' \
    "$(grep -v '"x":' stdout | paste -sd '|')"

  run --search ring --block 16 --range 8 a.png b.png
  # Squares that grow may get lost where a picture has no slopes, but not often.
  (($(grep -c ' 4 *-3 ' stdout) >= 40)) || fail "rings: $(cat stdout)"
  # Half a pixel by averaging two pictures that lie one apart.
  cut c.png 57 53
  make_media -i b.png -i c.png -filter_complex "blend=all_mode=average" -pix_fmt rgb24 half.png
  run --search sub --block 32 --range 6 --format csv a.png half.png
  awk -F, 'NR > 1 { x += $4; y += $5; n++ }
    END { exit !(n > 0 && x / n > 3.25 && x / n < 3.75 && y / n > -3.25 && y / n < -2.75) }' stdout ||
    fail "half a pixel: $(cat stdout)"

  local threads
  for threads in 1 3; do
    run --threads $threads --search sub a.png b.png
    cp stdout vectors$threads
  done
  cmp vectors1 vectors3 || fail "1 and 3 threads differ"

  run --block 16 --range 8 --arrows out/arrows.png --time a.png b.png
  grep -Eq '^kvl: motion 160x120 1 pairs [0-9.]+ ms/pair [0-9]+ threads$' err ||
    fail "--time printed '$(cat err)'"
  # An arrow's line starts in the block's middle, (8 + 7.5, 8 + 7.5), in its own colour.
  equal "pixel on an arrow" "255 230 0" "$(ffmpeg -v error -nostdin -i out/arrows.png \
    -vf crop=1:1:16:16 -pix_fmt rgb24 -f rawvideo - | od -An -tu1 | xargs)"
  rm -f out/*
}

clips() {
  cut_clip pan.mkv "20+5*n" "80-3*n"
  run --block 16 --range 8 --format csv pan.mkv
  equal "vectors of a pan" "-5 3 0" "$(awk -F, 'NR > 1 { print $4, $5, $6 }' stdout | sort -u)"
  equal "pairs of 12 frames" 11 "$(awk -F, 'NR > 1 { print $1 }' stdout | sort -u | wc -l)"
  run --block 16 --range 8 --arrows out/pan.mkv pan.mkv
  equal "lines of a clip" 11 "$(grep -c ' moved by -5.000 3.000' stdout)"
  equal "frames with arrows" 12 \
    "$(ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of csv=p=0 out/pan.mkv)"
  ffmpeg -v error -nostdin -i pan.mkv -pix_fmt rgb24 -f rawvideo - | tail -c 57600 >last
  ffmpeg -v error -nostdin -i out/pan.mkv -pix_fmt rgb24 -f rawvideo - | tail -c 57600 | cmp - last ||
    fail "the last frame has arrows"

  # An even pan stays; of a shake nearly nothing does.
  run --block 16 --range 8 --stabilise out/pan.mkv pan.mkv
  cmp <(ffmpeg -v error -nostdin -i pan.mkv -pix_fmt rgb24 -f rawvideo -) \
    <(ffmpeg -v error -nostdin -i out/pan.mkv -pix_fmt rgb24 -f rawvideo -) ||
    fail "an even pan is changed"
  cut_clip shake.mkv "80+3*mod(n*5,4)-4" "60+2*mod(n*3,5)-5"
  run --block 16 --range 12 --stabilise out/steady.mkv shake.mkv
  equal "steps of the shake" 1 "$(awk '{ sub(",", "", $6); s += $5 * $5 + $6 * $6 }
    END { print (s / NR > 20) }' stdout)"
  run --search sub --block 16 --range 12 out/steady.mkv
  equal "steps of the steadied clip" 1 "$(awk '{ sub(",", "", $6); s += $5 * $5 + $6 * $6 }
    END { print (s / NR < 1) }' stdout)"
  rm -f out/*
}

refusals() {
  printf 'no picture' >text.png
  refuse 2 "a.png: needs a second picture" a.png
  refuse 2 "pan.mkv: is a clip" pan.mkv a.png
  refuse 2 "pan.mkv: is a clip" a.png pan.mkv
  refuse 2 "--stabilise: a.png is a picture" --stabilise out/a.mkv a.png b.png
  refuse 2 "standard input does not allow" --stabilise out/a.mkv -
  refuse 2 "out/a.png: is to be a picture" --arrows out/a.png pan.mkv
  refuse 2 "out/a.mkv: is to be a clip" --arrows out/a.mkv a.png b.png
  refuse 2 "standard output is for the vectors" --arrows - pan.mkv
  refuse 2 "out/a.xyz: unknown output extension" --arrows out/a.xyz a.png b.png
  refuse 2 "--search: 'guess'" --search guess a.png b.png
  refuse 2 "--block: '2'" --block 2 a.png b.png
  refuse 1 "whole.png: has not the size" a.png whole.png
  refuse 1 "160x120: the picture is too small" --range 60 a.png b.png
  refuse 1 "nowhere.png" a.png nowhere.png
  refuse 1 "text.png" a.png text.png
  refuse 1 "nowhere/a.png: the output folder" --arrows nowhere/a.png a.png b.png
}

help() {
  local line
  "$kvl" --help | grep -Eq '^ +motion ' || fail "--help lists no motion"
  "$kvl" motion --help >stdout || fail "motion --help failed"
  while read -r line; do
    [[ $line =~ \[[a-z]+,\ .+,\ default\ .+\]$ ]] ||
      fail "motion --help: no unit, range and default in '$line'"
  done < <(grep -E '^ +--' stdout)
}

run_groups pictures clips refusals help
