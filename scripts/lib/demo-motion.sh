# shellcheck shell=bash
# The page's section on motion: a pan by known offsets, a moving picture's vectors, a steadied clip.

# motion_clip <name> <columns of frame n> <rows of frame n> <frames>: a lossless clip of 1280x720
# that is cut from the photograph.
motion_clip() {
  ffmpeg_quietly -loop 1 -framerate 25 -i "$out/photograph.png" \
    -vf "crop=1280:720:'$2':'$3',format=gbrp" -frames:v "$4" -c:v ffv1 "$out/$1.mkv"
}

# motion_row <who> <share> <mean error> <milliseconds>
motion_row() {
  echo "<tr><td>$1<td>$(awk -v share="$2" 'BEGIN { printf "%.1f %%", share * 100 }')"
  awk -v error="$3" -v time="$4" 'BEGIN { printf "<td>%.3f<td>%.1f\n", error, time }'
}

# The share of blocks that a search finds exactly in the pan, and how fast.
motion_hits() {
  local search=$1 csv=$out/motion-pan-$1.csv messages
  messages=$("$kvl" motion --search "$search" --format csv --time "$out/motion-pan.mkv" \
    2>&1 > "$csv" < /dev/null | grep ' ms/pair ')
  # shellcheck disable=SC2046
  motion_row "kvl motion --search $search" $(awk -F, 'NR > 1 {
      hits += $4 == -5 && $5 == -3; error += sqrt(($4 + 5)^2 + ($5 + 3)^2); ++blocks
    } END { print hits / blocks, error / blocks }' "$csv") \
    "$(sed -E 's/.* ([0-9.]+) ms\/pair .*/\1/' <<< "$messages")"
}

# The peers' program is there where scripts/bench has built it.
motion_peers() {
  local program=build/bench/bin/motion_hits who share error time
  if [[ ! -x $program ]]; then
    echo "<tr><td colspan=\"4\">OpenCV's row is missing: run scripts/bench first"
    return
  fi
  while read -r who share error time; do
    if [[ $who == opencv ]]; then
      motion_row "OpenCV matchTemplate, TM_SQDIFF" "$share" "$error" "$time"
    else
      motion_row "KVL_CalcCorrelationNormal" "$share" "$error" "$time"
    fi
  done < <(ffmpeg_quietly -i "$out/motion-pan.mkv" -frames:v 4 -pix_fmt gray -f rawvideo - |
    OMP_WAIT_POLICY=passive "$program" 1280 720 16 12 -5 -3)
}

# Root mean square of how far the steps between frames differ from each other.
motion_shake() {
  "$kvl" motion --range 20 --block 32 "$1" < /dev/null 2> /dev/null |
    awk '{ sub(",", "", $6); if (NR > 1) s += ($5 - x)^2 + ($6 - y)^2; x = $5; y = $6 }
      END { printf "%.2f", sqrt(s / (NR - 1)) }'
}

motion_video() {
  ffmpeg_quietly -i "$out/$1.mkv" -c:v libx264 -preset veryfast -crf 18 -pix_fmt yuv420p \
    "$out/$1.mp4"
}

demo_motion() {
  local search
  motion_clip motion-pan "300+5*n" "250+3*n" 12
  motion_clip motion-shake "500+3*n+round(7*sin(n*1.1)+4*sin(n*0.6+2))" \
    "350+round(6*cos(n*1.3)+4*sin(n*1.7))" 60
  local turned=("$kvl" motion --block 32 --range 24 --search sub
    --arrows "$out/motion-turned.png" "$out/photograph.png" "$out/motion-second.png")
  local steady=("$kvl" motion --block 32 --range 20
    --stabilise "$out/motion-steady.mkv" "$out/motion-shake.mkv")
  ffmpeg_quietly -i "$out/photograph.png" -vf "rotate=0.012:fillcolor=gray" -pix_fmt rgb24 \
    "$out/motion-second.png"
  "${turned[@]}" > "$out/motion-turned.txt" < /dev/null
  "${steady[@]}" > "$out/motion-steady.txt" 2> /dev/null < /dev/null
  motion_video motion-shake
  motion_video motion-steady
  page_small "$out" motion-turned
  page_detail "$out" motion-turned

  echo '<h2 id="motion">Motion</h2>'
  echo "<p>A clip of 1280 × 720 that pans over the photograph by 5 pixels to the left and 3 up a frame:"
  echo "blocks of 16 × 16 pixels, looked for up to 12 pixels around, that are found exactly.</p>"
  echo "<table><tr><th>Search<th>found exactly<th>mean error, pixels<th>ms a pair of frames"
  for search in full ring sub; do motion_hits "$search"; done
  motion_peers
  echo "</table>"
  echo "<p>The photograph and the same turned by 0.7 degrees: where each block went.</p>"
  echo "<pre>$(escape_html "${turned[*]}")</pre>"
  echo '<div class="row">'
  page_figure "Vectors" motion-turned-small.jpg motion-turned.png
  page_figure "Detail" motion-turned-detail.png motion-turned.png
  echo '</div>'
  echo "<pre>$(escape_html "$(head -n 6 "$out/motion-turned.txt")")</pre>"
  echo "<p>A shaken pan and the same steadied. From frame to frame the camera's step changes by"
  echo "$(motion_shake "$out/motion-shake.mkv") pixels before and by"
  echo "$(motion_shake "$out/motion-steady.mkv") after, root mean square.</p>"
  echo "<pre>$(escape_html "${steady[*]}")</pre>"
  echo '<div class="row">'
  page_video "Before" motion-shake.mp4
  page_video "After" motion-steady.mp4
  echo '</div>'
}
