# shellcheck shell=bash
# The demo's warp: the photograph on a screen in another picture, spinning in a clip, and patterns
# that would show holes and aliasing.

# warp_into <name> <input> <option>...: $out/NAME.png and its small view; leaves the command line in
# `shown` and its time in `took`.
warp_into() {
  local name=$1 input=$2
  shift 2
  local command=("$kvl" warp "$@" --time "$out/$input" "$out/$name")
  took=$(timed "${command[@]}")
  shown="${command[*]}"
  echo "  $took" >&2
  if [[ $name == *.png ]]; then page_small "$out" "${name%.png}"; fi
}

warp_figure() {
  page_figure "$1" "$2-small.jpg" "$2.png"
}

warp_command() {
  echo "<pre>$(escape_html "$shown")"
  echo "$(escape_html "$took")</pre>"
}

warp_screen() {
  # A wall with a dark screen that hangs askew; the photograph goes inside the screen's frame.
  ffmpeg_quietly -i "$out/photograph.png" -frames:v 1 \
    -vf "crop=900:560:0:0,scale=1280:800,boxblur=30:2,eq=brightness=-0.15:saturation=0.5" \
    "$out/warp-wall.png"
  ffmpeg_quietly -f lavfi -i color=c=0x181818:s=600x400 -frames:v 1 \
    -vf "drawbox=c=0x404040:t=8" -pix_fmt rgb24 "$out/warp-frame.png"
  warp_into warp-room.png warp-frame.png --auto-level --onto "$out/warp-wall.png" \
    --corners 340,150,1030,80,1060,690,310,600
  warp_into warp-pinned.png photograph.png --onto "$out/warp-room.png" \
    --corners 360,168,1010,103,1038,667,332,583
  warp_command
  echo '<div class="row">'
  warp_figure "The screen" warp-room
  warp_figure "The photograph, pinned onto it" warp-pinned
  echo '</div>'
}

warp_turns() {
  warp_into warp-turned.png photograph.png --rotate-y 50 --rotate-x -15 --rotate-z 8 --auto-level
  warp_command
  warp_into warp-spin.mp4 clip.mp4 --spin 4.8 --rotate-x 20 --auto-level
  warp_command
  echo '<div class="row">'
  warp_figure "Turned in space" warp-turned
  page_video "Spinning" warp-spin.mp4
  echo '</div>'
}

warp_patterns() {
  ffmpeg_quietly -f lavfi -i "nullsrc=s=24x24,format=gray,geq=lum='255*mod(X+Y,2)'" -frames:v 1 \
    "$out/warp-checkerboard.png"
  ffmpeg_quietly -f lavfi -i color=c=0x203050:s=640x480 -frames:v 1 -pix_fmt rgb24 \
    "$out/warp-ground.png"
  local corners=90,40,600,20,560,450,20,400
  warp_into warp-sparse.png warp-checkerboard.png --onto "$out/warp-ground.png" --corners $corners
  warp_into warp-dense.png warp-checkerboard.png --onto "$out/warp-ground.png" --corners $corners \
    --auto-level
  warp_command
  echo '<div class="row">'
  warp_figure "24 x 24 squares, level 0: samples alone" warp-sparse
  warp_figure "With --auto-level: no holes" warp-dense
  echo '</div>'

  local rings="128+127*cos(PI*(pow(X-800,2)+pow(Y-800,2))/1600)"
  ffmpeg_quietly -f lavfi -i "nullsrc=s=1600x1600,format=gray,geq=lum='$rings'" -frames:v 1 \
    "$out/warp-zone.png"
  ffmpeg_quietly -i "$out/warp-zone.png" -vf "scale=400:400:flags=neighbor" "$out/warp-nearest.png"
  page_small "$out" warp-nearest
  warp_into warp-small.png warp-zone.png --onto "$out/warp-ground.png" \
    --corners 120,40,520,40,520,440,120,440
  warp_command
  echo '<div class="row">'
  warp_figure "A zone plate at a quarter of its size by nearest pixels: aliasing" warp-nearest
  warp_figure "Warped: what is too fine becomes grey" warp-small
  echo '</div>'
}

demo_warp() {
  local shown took
  echo '<h2 id="warp">Warp: drawing in perspective</h2>'
  warp_screen
  warp_turns
  warp_patterns
}
