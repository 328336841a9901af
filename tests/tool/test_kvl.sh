#!/bin/bash
# Usage: test_kvl.sh PATH_OF_KVL
# Runs the kvl command on pictures and clips that ffmpeg makes, and on a photograph.
set -u -o pipefail
shopt -s nullglob dotglob

kvl=$(realpath "$1") || exit 1
photo=$(find /usr/share/libjxl-testdata -name flower.png 2>/dev/null | head -n 1)
. "$(dirname "$0")/checks.sh"

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

# Columns and rows, from the top left, of the pixels in which two pictures of one size differ.
changed() {
  local width file
  width=$(stream "$1" width)
  for file in "$1" "$2"; do
    ffmpeg -v error -nostdin -y -i "$file" -pix_fmt rgb24 -f rawvideo "raw${file##*/}" || return
  done
  equal "bytes of $2" "$(stat -c %s "raw${1##*/}")" "$(stat -c %s "raw${2##*/}")"
  cmp -l "raw${1##*/}" "raw${2##*/}" |
    awk -v w="$width" '{ p = int(($1 - 1) / 3); print p % w, int(p / w) }' | uniq
}

# LEFT TOP RIGHT BOTTOM of the pixels that changed lists.
bounds() {
  awk 'NR == 1 { l = r = $1; t = b = $2 }
    { if ($1 < l) l = $1; if ($1 > r) r = $1; if ($2 < t) t = $2; if ($2 > b) b = $2 }
    END { if (NR) print l, t, r, b }'
}

# Arguments that change in.png, at least one line an operation.
filter_lines() {
  cat <<'LINES'
average --radius 4
box --radius 3
box --radius-x 2.5 --radius-y 0.5
box --rect 5,2,9,6
classic-blur --threshold 60 --radius 3
classic-blur --threshold 255 --radius 1.5
classic-blur --grey
directional-blur --angle -30 --length 9.5
fields --with blurred.png
gaussian
halve
radial-blur --angle 25.5
resize --source 2.5,1.5,28,15
selective-blur --threshold 60 --radius 2
selective-blur --threshold 60 --radius 2 --separable
selective-sharpen --threshold 5 --gain 2.5
selective-sharpen --threshold 5 --gain 2.5 --form modified
selective-sharpen --threshold 5 --gain 2.5 --form smooth
sharpen --amount 0.5 --threshold 3
sharpen --grey
warp --rotate-y 30 --rotate-z 5
warp --corners 1,2,30,3,28,14,3,16 --auto-level
tint --red -0.2
tint --green 0.4 --blue -0.3 --preserve difference
zoom-blur --strength 0.5
LINES
}

# Operations that take more than one picture, or one with alpha: other files of tests try them.
tried_elsewhere() {
  cat <<'NAMES'
convert
key
premultiply
unpremultiply
NAMES
}

every_filter() {
  local name digests="" words
  while read -ra words; do
    name=${words[0]}
    run "${words[@]}" --time --threads 1 in.png one.ppm
    grep -Eq "^kvl: $name 33x17 1 frames [0-9.]+ ms/frame" err || fail "$name --time: $(cat err)"
    run "${words[@]}" --threads 3 in.png three.ppm
    cmp one.ppm three.ppm || fail "${words[*]}: 1 and 3 threads differ"
    digests+="$(md5sum <one.ppm)"$'\n'
  done < <(filter_lines)
  # Each differs from the picture and from all others: no option goes unheard.
  digests+=$(ffmpeg -v error -nostdin -i in.png -pix_fmt rgb24 -f image2pipe -c:v ppm - | md5sum)
  equal "results that occur twice" "" "$(sort <<<"$digests" | uniq -d)"
  equal "operations that are not tried" "" \
    "$(comm -3 <(operation_names) <({ filter_lines | cut -d' ' -f1; tried_elsewhere; } | sort -u))"
}

rectangles() {
  make_media -f lavfi -i color=gray:s=33x17,format=rgb24,noise=alls=100:all_seed=1 -frames:v 1 \
    -pix_fmt rgb24 noise.png
  run box --rect 5,2,9,6 --radius 2 noise.png rect.ppm
  equal "rectangle" "5 2 13 7" "$(changed noise.png rect.ppm | bounds)"
  run box --rect 30,14,100,100 noise.png rect.ppm
  equal "rectangle that reaches beyond the picture" "30 14 32 16" \
    "$(changed noise.png rect.ppm | bounds)"
  run box --rect 0,0,33,17 --radius 3 in.png rect.ppm
  run average --radius 3 in.png whole.ppm
  cmp rect.ppm whole.ppm || fail "the box blur of the whole picture is not the averaging blur"
  refuse 1 "--rect: lies outside the picture of 33x17" box --rect 33,0,1,1 in.png out/a.png
  refuse 1 "--rect: lies outside the picture of 33x17" box --rect 0,17,1,1 in.png out/a.png

  # A picture one pixel wide or high gives what any line of two equal ones gives.
  local name size stack
  while read -r size stack; do
    make_media -i in.png -vf "crop=$size:16:8" -pix_fmt rgb24 line.png
    make_media -i line.png -i line.png -filter_complex "$stack" -pix_fmt rgb24 lines.png
    for name in "average --radius 3" "box --radius 3" "box --radius 2.5"; do
      # shellcheck disable=SC2086
      { run $name line.png line.ppm; run $name lines.png lines.ppm; }
      make_media -i lines.ppm -vf "crop=$size:0:0" -update 1 first.png
      equal "$name of $size" "$(pixels first.png)" "$(pixels line.ppm)"
      [[ "$(pixels line.png)" != "$(pixels line.ppm)" ]] || fail "$name left $size as it was"
    done
  done <<<"17:1 vstack
1:9 hstack"
}

# A white dot on black tells what goes where.
directions() {
  make_media -f lavfi -i color=black:s=21x15,format=rgb24,drawbox=x=4:y=3:w=1:h=1:c=white:t=fill \
    -frames:v 1 -pix_fmt rgb24 dot.png
  make_media -f lavfi -i color=black:s=21x15,format=rgb24 -frames:v 1 -pix_fmt rgb24 black.png
  local name centre
  run directional-blur --angle 0 --length 4 dot.png smear.ppm
  equal "smear at 0 degrees" "2 3 6 3" "$(changed black.png smear.ppm | bounds)"
  run directional-blur --angle 90 --length 4 dot.png smear.ppm
  equal "smear at 90 degrees" "4 1 4 5" "$(changed black.png smear.ppm | bounds)"
  run directional-blur --angle 45 --length 4 dot.png smear.ppm
  changed black.png smear.ppm >pixels
  { grep -qx "5 2" pixels && grep -qx "3 4" pixels; } || fail "45 degrees do not rise to the right"
  ! grep -qxE "3 2|5 4" pixels || fail "45 degrees fall to the right"

  run box --radius-x 2 --radius-y 0 dot.png smear.ppm
  equal "box along the rows" "2 3 6 3" "$(changed black.png smear.ppm | bounds)"

  # The centre is the one pixel that neither zoom nor turn can move.
  for name in "zoom-blur --strength 1.5" "radial-blur --angle 200"; do
    # shellcheck disable=SC2086
    run $name --center 4,3 dot.png smear.ppm
    changed dot.png smear.ppm >pixels
    ! grep -qx "4 3" pixels || fail "$name --center 4,3 moved that pixel"
    for centre in 4,11 16,3; do
      # shellcheck disable=SC2086
      run $name --center $centre dot.png smear.ppm
      changed dot.png smear.ppm >pixels
      grep -qx "4 3" pixels || fail "$name --center $centre spared 4,3"
    done
    # shellcheck disable=SC2086
    { run $name in.png middle.ppm; run $name --center 16,8 in.png smear.ppm; }
    cmp middle.ppm smear.ppm || fail "$name: the default centre is not the middle"
  done
}

grey() {
  local name
  run sharpen --grey --amount 0 flat.png grey.ppm
  near grey.ppm 106 106 106
  # Of a grey picture, the one plane and the three give the same.
  run sharpen --grey --amount 0 in.png grey.ppm
  for name in "sharpen --amount 2" "classic-blur --threshold 60"; do
    # shellcheck disable=SC2086
    { run $name --grey in.png plane.ppm; run $name grey.ppm three.ppm; }
    cmp plane.ppm three.ppm || fail "$name --grey: not the brightness"
  done
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
  local value
  for value in nan inf 1e9 0x1 wide 1,2; do
    refuse 2 "--strength: '$value'" zoom-blur "--strength=$value" in.png out/a.png
  done
  for value in 1 1,2,3 1,nan inf,1 1e7,0 ',1'; do
    refuse 2 "--center: '$value'" radial-blur --center "$value" in.png out/a.png
  done
  for value in 1,2,3 0,0,0,1 0,0,1,0 -1,0,5,5 0,0,5,5,5 1.5,0,2,2 0,0,99999999999,1; do
    refuse 2 "--rect: '$value'" box --rect "$value" in.png out/a.png
  done
  refuse 2 "--radius: '-0.5'" box --radius -0.5 in.png out/a.png
  refuse 2 "--form: 'rough' is not one of simple|modified|smooth" \
    selective-sharpen --form rough in.png out/a.png
  refuse 2 "--threshold: 40 is above 39" selective-blur --threshold 40 --radius 20 in.png out/a.png
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
  operation_names | grep -qw gaussian || fail "--help lists no gaussian"
  for operation in $(operation_names); do
    "$kvl" "$operation" --help >stdout || fail "$operation --help failed"
    while read -r line; do
      [[ $line =~ \[[a-z]+,\ .+,\ default\ .+\]$ ]] ||
        fail "$operation --help: no unit, range and default in '$line'"
    done < <(grep -E '^ +--' stdout)
  done
  "$kvl" gaussian --help | grep -q -- '--radius.*\[pixels, 1..8, default 3\]' ||
    fail "gaussian --help: radius"
  "$kvl" box --help >stdout
  grep -q -- '--radius N .*\[pixels, 0..2055, default 5\]' stdout || fail "box --help: radius"
  grep -q -- '--rect L,T,W,H .*\[pixels, .*, default the whole picture\]' stdout ||
    fail "box --help: rect"
  "$kvl" --version | grep -Eq '^kvl [0-9]+\.[0-9]+\.[0-9]+$' || fail "--version"

  "$kvl" info >stdout || fail "info failed"
  for line in "version +[0-9]" "physical cores +[1-9]" "logical processors +[1-9]" \
    "level 1 caches" "processor flags +.*SSE2" "team size +[1-9][0-9]* threads"; do
    grep -Eq "^$line" stdout || fail "info lacks '$line'"
  done
}

run_groups pictures photograph every_filter rectangles directions grey clips streams bad_inputs \
  bad_usage interrupts help
