# shellcheck shell=bash
# The demo's page: the views of each picture, and the HTML around them.

detail=240:160:1210:750 # of the photograph: width, height, left, top
gain=8                  # of the shown difference

escape_html() {
  sed 's/&/\&amp;/g; s/</\&lt;/g; s/>/\&gt;/g' <<< "$1"
}

# The whole picture, small enough for the page.
page_small() {
  ffmpeg_quietly -i "$1/$2.png" -vf "scale='min(720,iw)':-2" -q:v 2 "$1/$2-small.jpg"
}

# Every pixel of a detail, enlarged.
page_detail() {
  ffmpeg_quietly -i "$1/$2.png" -vf "crop=$detail,scale=iw*3:-2:flags=neighbor" "$1/$2-detail.png"
}

page_difference() {
  local out=$1 before=$2 after=$3
  ffmpeg_quietly -i "$out/$before.png" -i "$out/$after.png" -filter_complex \
    "[0]format=gbrp[a];[1]format=gbrp[b];[a][b]blend=all_mode=difference,\
lutrgb=r=val*$gain:g=val*$gain:b=val*$gain" "$out/$after-difference.png"
}

page_start() {
  cat << HTML
<!doctype html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>kvl: every operation</title>
<style>
  body { font: 16px/1.5 system-ui, sans-serif; max-width: 1500px; margin: 2em auto; padding: 0 1em;
         color: #222; background: #fafafa; }
  h2 { margin-top: 3em; border-top: 1px solid #ccc; padding-top: 1em; }
  pre { background: #eee; padding: .6em 1em; overflow-x: auto; font-size: 14px; }
  table { border-collapse: collapse; }
  th, td { padding: .3em 1em; text-align: right; border-bottom: 1px solid #ddd; }
  th[colspan] { text-align: center; }
  th:first-child, td:first-child { text-align: left; }
  .row { display: grid; grid-template-columns: repeat(auto-fit, minmax(320px, 1fr)); gap: 1em; }
  figure { margin: 0; }
  img, video { width: 100%; display: block; background: #ddd; }
  figcaption { font-size: 14px; color: #555; }
</style>
<h1>kvl: every operation</h1>
<p>A photograph and a clip that pans over it, before and after each operation. Times are those
inside the library: the median of several runs of each frame.</p>
<pre>$(escape_html "$1")</pre>
<table>
<tr><th rowspan="2">Operation<th colspan="4">Picture<th colspan="4">Clip
<tr><th>size<th>ms a frame<th>MP/s<th>threads<th>size<th>ms a frame<th>MP/s<th>threads
HTML
}

# time_cells <line of kvl --time>: "kvl: NAME SIZE N frames MS ms/frame MPS MP/s T threads"
time_cells() {
  local size time speed threads
  read -r _ _ size _ _ time _ speed _ threads _ <<< "$1"
  echo "<td>${size/x/ × }<td>$time<td>$speed<td>$threads"
}

page_row() {
  local name=$1 title=$2 picture_time=$3 clip_time=$4
  echo "<tr><td><a href=\"#$name\">$(escape_html "$title")</a>"
  time_cells "$picture_time"
  time_cells "$clip_time"
}

page_middle() {
  echo "</table>"
}

# page_figure <caption> <file of the image> <file that it links to>
page_figure() {
  echo "<figure><a href=\"$3\"><img src=\"$2\" alt=\"$1\"></a><figcaption>$1</figcaption></figure>"
}

# page_video <caption> <file>
page_video() {
  echo "<figure><video src=\"$2\" controls muted loop preload=\"auto\"></video>"
  echo "<figcaption>$1</figcaption></figure>"
}

page_section() {
  local kind=$1 name=$2 title=$3 picture_command=$4 clip_command=$5 view
  local views=(small.jpg)
  if [[ $kind == filter ]]; then views+=(detail.png); fi
  echo "<h2 id=\"$name\">$(escape_html "$title")</h2>"
  echo "<pre>$(escape_html "$picture_command")</pre>"
  for view in "${views[@]}"; do
    echo '<div class="row">'
    page_figure "Before" "photograph-$view" photograph.png
    page_figure "After" "$name-$view" "$name.png"
    if [[ $kind == filter ]]; then
      page_figure "Difference, $gain times" "$name-difference-$view" "$name-difference.png"
    fi
    echo '</div>'
  done
  echo "<pre>$(escape_html "$clip_command")</pre>"
  echo '<div class="row">'
  page_video "Before" clip.mp4
  page_video "After" "$name.mp4"
  echo '</div>'
}

page_end() {
  echo "</html>"
}
