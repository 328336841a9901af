# shellcheck shell=bash
# The resize's part of the demo's page: how exact it is, and a slow zoom.

demo_resize() {
  local scale words psnr
  echo '<h2 id="resize-exact">Resize against double precision</h2>'
  echo '<p>The photograph resized, and its distance from area averages (below 1) or bilinear samples'
  echo '(above) in double precision.</p>'
  echo '<table><tr><th>scale<th>PSNR, dB<th>largest error, levels'
  for scale in 0.37 0.5 0.6666667 1.5 3.1; do
    psnr=$("$kvl" resize --scale "$scale" --exact "$out/photograph.png" "$out/resize-exact.ppm" 2>&1)
    read -ra words < <(grep ' PSNR ' <<< "$psnr")
    echo "<tr><td>$scale<td>${words[3]}<td>${words[7]}"
  done
  echo '</table>'
  rm "$out/resize-exact.ppm"

  # A still clip of the photograph's middle, and a source rectangle that shrinks by fractions of a
  # pixel from frame to frame.
  ffmpeg_quietly -loop 1 -framerate 25 -t 3 -i "$out/photograph.png" -c:v ffv1 -pix_fmt bgr0 \
    "$out/resize-still.mkv"
  local zoom=("$kvl" resize --size 1280x720 --source 400,300,2000,1200
    --source-end 560.3,390.2,1840.7,1110.425 --frames 75 --exact --time
    "$out/resize-still.mkv" "$out/resize-zoom.mp4")
  "${zoom[@]}" 2>&1 | grep '^kvl: resize ' > "$out/resize-zoom.txt"
  rm "$out/resize-still.mkv"
  echo '<h2 id="resize-zoom">Slow zoom</h2>'
  echo '<p>Each frame of the source shows the same photograph, through a rectangle whose edges move'
  echo 'by fractions of a pixel. Its jumps are those of the error from one frame to the next.</p>'
  echo "<pre>$(escape_html "${zoom[*]}")"
  escape_html "$(< "$out/resize-zoom.txt")"
  echo '</pre>'
  echo '<div class="row">'
  page_video "Zoom" resize-zoom.mp4
  echo '</div>'
}
