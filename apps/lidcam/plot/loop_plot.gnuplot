# The drawing of an exposure loop. Ahead of this stand, from the log:
#   drawing            the form: svg, pngcairo
#   heading, summary   texts, the first of several lines
#   has_loop           whether the host steers this sensor's exposure
#   end                seconds at the right edge
#   has_light, lux_low, lux_high
#   $frames            seconds, light, luminance, index, exposure, fine gain, coarse gain
#   $states            from, to, number of the light state
#   $lights            seconds, light, text
#   $light_curve       seconds, light
#   $events            seconds, lane
#   $moments           of those, what all panels show: lanes 0 and 1
#   counts             events of each lane

width = 1200
# Lines of the heading behind the first one move everything down.
top = 26 * (|heading| - 1)
height = (has_light ? 990 : 878) + top
set encoding utf8
if (drawing eq 'svg') {
  set terminal svg size width, height font 'sans-serif,12' background '#ffffff'
} else {
  # Its letters count in points, of which 72 make 96 pixels.
  set terminal pngcairo size width, height font 'sans-serif,12' fontscale 0.75 background '#ffffff'
}

# Colours that stay apart without red or green: they differ in lightness as well.
ink = '#1f2328'
faint = '#57606a'
light_colour = '#8a5a00'
exposure_colour = '#0057a8'
index_colour = '#6b6f76'
fine_colour = '#c04a00'
coarse_colour = '#5b3a8e'
band_text_colour = '#00684c'
light_line = "linewidth 2 linecolor rgb light_colour"
luma_line = "linewidth 1.8 linecolor rgb ink"
exposure_line = "linewidth 2.2 linecolor rgb exposure_colour"
index_line = "linewidth 1.4 dashtype (5,3) linecolor rgb index_colour"
fine_line = "linewidth 2 linecolor rgb fine_colour"
coarse_line = "linewidth 2 dashtype (7,3,2,3) linecolor rgb coarse_colour"
dead_band = "fillcolor rgb '#009e73' fillstyle transparent solid 0.35 noborder"
light_change = "linewidth 1.4 dashtype (2,3) linecolor rgb light_colour"
transition = "linewidth 1 linecolor rgb ink"

# Normal, LowLight, Initial, Dummy: in the band that names the state, behind the curves, upon the band.
array name[4] = ['Normal', 'LowLight', 'Initial', 'Dummy']
array band[4] = ['#a9d5f5', '#4a3f78', '#b5b8bc', '#f0b429']
array tint[4] = ['#f1f8fd', '#e6e3ef', '#f2f2f2', '#fdf4db']
array upon[4] = ['#1f2328', '#ffffff', '#1f2328', '#1f2328']

x_of(pixels) = pixels / (1.0 * width)
y_of(pixels) = 1 - (pixels + top) / (1.0 * height)
pixels_of(seconds) = seconds * 1000.0 / end
width_of(text, size) = strlen(text) * size * 0.56
field(line, column) = real(word(line, column))

# A panel h pixels high stands below the one before; its left and right titles are upright.
y = 0
panel = "set tmargin at screen y_of(y); set bmargin at screen y_of(y + h); y = y + h + 16"
left_title = "at screen x_of(38), graph 0.5 center rotate font 'sans-serif:Bold,13'"
right_title = "at screen x_of(1155), graph 0.5 center rotate font 'sans-serif:Bold,13'"

set multiplot
set lmargin at screen x_of(100)
set rmargin at screen x_of(1100)
set xrange [0:end]
unset xtics
unset ytics
unset border

do for [i = 1:|heading|] {
  set label heading[i] at screen x_of(100), y_of(27 - top + 26 * (i - 1)) left font 'sans-serif:Bold,21' \
    textcolor rgb ink
}
set label summary at screen x_of(100), y_of(51) left font ',13.5' textcolor rgb faint
h = 100
@panel
set yrange [0:1]
set key at screen x_of(90), y_of(66) left top horizontal Left reverse samplen 2.2 maxcols 6 \
  font ',13' textcolor rgb ink
plot NaN notitle, \
  keyentry with lines @luma_line title 'luminance', \
  keyentry with boxes @dead_band title 'dead band', \
  keyentry with lines @exposure_line title 'exposure', \
  keyentry with lines @index_line title 'index', \
  keyentry with lines @fine_line title 'fine gain', \
  keyentry with lines @coarse_line title 'coarse gain', \
  keyentry with boxes fillcolor rgb band[1] fillstyle solid noborder title 'Normal', \
  keyentry with boxes fillcolor rgb band[4] fillstyle solid noborder title 'Dummy', \
  keyentry with boxes fillcolor rgb band[2] fillstyle solid noborder title 'LowLight', \
  keyentry with boxes fillcolor rgb band[3] fillstyle solid noborder title 'Initial', \
  keyentry with lines @light_change title 'light change', \
  keyentry with lines @transition title 'transition'
unset key
unset label

# The light states by name.
y = 118
h = 24
@panel
do for [i = 1:|$states|] {
  from = field($states[i], 1)
  to = field($states[i], 2)
  state = int(field($states[i], 3)) + 1
  set object rectangle from first from, graph 0 to first to, graph 1 behind \
    fillcolor rgb band[state] fillstyle solid noborder
  if (pixels_of(to - from) > width_of(name[state], 13) + 18) {
    set label name[state] at first (from + to) / 2, graph 0.5 center front font ',13' textcolor rgb upon[state]
  }
}
set ytics ('light state' 0.5) scale 0 font 'sans-serif:Bold,13' textcolor rgb ink
plot NaN notitle
unset object
unset label
unset ytics

# The panels, with the states behind them and the moments at which something changed.
set border 3 linecolor rgb faint linewidth 1
set grid ytics linetype 1 linewidth 0.6 linecolor rgb '#c8ccd0'
set ytics nomirror scale 0 font ',12'
do for [i = 1:|$states|] {
  from = field($states[i], 1)
  to = field($states[i], 2)
  state = int(field($states[i], 3)) + 1
  set object rectangle from first from, graph 0 to first to, graph 1 behind \
    fillcolor rgb tint[state] fillstyle solid noborder
}
do for [i = 1:|$moments|] {
  at = field($moments[i], 1)
  if (int(field($moments[i], 2)) == 0) {
    set arrow from first at, graph 0 to first at, graph 1 nohead back @light_change
  } else {
    set arrow from first at, graph 0 to first at, graph 1 nohead back @transition
  }
}

if (has_light) {
  h = 96
  @panel
  set logscale y
  set yrange [lux_low:lux_high]
  set ytics lux_low, 10 textcolor rgb light_colour format '%g'
  set label 'light (lx)' @left_title textcolor rgb light_colour
  # What the light is, where it begins and as long as there is room for the words. Darkness has no place
  # on a logarithmic scale: it stands at the edge.
  set style textbox opaque noborder fillcolor rgb '#30ffffff' margins 0.3, 0.3
  free_from = -1.0
  do for [i = 1:|$lights|] {
    at = field($lights[i], 1)
    light = field($lights[i], 2)
    amount = word($lights[i], 3) . (words($lights[i]) > 3 ? ' ' . word($lights[i], 4) : '')
    light = light > lux_low ? light : lux_low
    if (pixels_of(at) > free_from && pixels_of(at) + 5 + width_of(amount, 12) < 1000) {
      set label amount at first at, first light left offset 0.8, (light > 0.2 * lux_high ? -1.0 : 0.8) \
        front boxed font 'sans-serif:Bold,12' textcolor rgb light_colour
      free_from = pixels_of(at) + width_of(amount, 12) + 11
    }
  }
  plot $light_curve using 1:($2 > lux_low ? $2 : lux_low) with steps @light_line notitle
  unset label
  unset logscale y
  set format y '%g'
}

h = 230
@panel
set yrange [0:255]
set ytics (0, 50, 100, 150, 200, 255) textcolor rgb ink
set label 'luminance' @left_title textcolor rgb ink
set label 'dead band' at graph 1.008, first 94 left font ',12' textcolor rgb band_text_colour
set label '80 to 96' at graph 1.008, first 80 left font ',12' textcolor rgb band_text_colour
set object 100000 rectangle from graph 0, first 80 to graph 1, first 96 back @dead_band
plot $frames using 1:3 with lines @luma_line notitle
unset object 100000
unset label

h = 150
@panel
set yrange [0:21]
set ytics (0, 5, 10, 15, 20) textcolor rgb exposure_colour
set y2range [0:84]
set y2tics (0, 20, 40, 54, 76) scale 0 font ',12' textcolor rgb index_colour
set label 'exposure (periods)' @left_title textcolor rgb exposure_colour
set label 'index' @right_title textcolor rgb index_colour
no_loop = 'this sensor exposes by itself: the host has no loop over it'
if (has_loop) {
  plot $frames using 1:4 axes x1y2 with steps @index_line notitle, \
       $frames using 1:5 with steps @exposure_line notitle
} else {
  set label no_loop at graph 0.5, graph 0.5 center font ',15' textcolor rgb faint
  plot NaN notitle
}
unset label

h = 110
@panel
set yrange [0:256]
set ytics (0, 128, 192, 256) textcolor rgb fine_colour
set y2range [0:3.6]
set y2tics (0, 1, 2, 3) textcolor rgb coarse_colour
set label 'fine gain' @left_title textcolor rgb fine_colour
set label 'coarse gain' @right_title textcolor rgb coarse_colour
if (has_loop) {
  plot $frames using 1:7 axes x1y2 with steps @coarse_line notitle, \
       $frames using 1:6 with steps @fine_line notitle
} else {
  set label no_loop at graph 0.5, graph 0.5 center font ',15' textcolor rgb faint
  plot NaN notitle
}
unset label
unset object
unset arrow

# A lane for each kind of event, how many there are on its right, and the time.
h = 136
@panel
set border 1 linecolor rgb faint linewidth 1
set yrange [6:0]
set y2range [6:0]
set ytics ('light change' 0.5, 'transition' 1.5, 'step up' 2.5, 'step down' 3.5, 'commit' 4.5, \
  'refused' 5.5) font ',12.5' textcolor rgb ink
set y2tics (word(counts, 1) 0.5, word(counts, 2) 1.5, word(counts, 3) 2.5, word(counts, 4) 3.5, \
  word(counts, 5) 4.5, word(counts, 6) 5.5) font ',12.5' textcolor rgb faint
set xtics nomirror out scale 0.5 offset 0, 0.4 font ',12' textcolor rgb ink
set label "time since the stream's start (s)" at graph 0.5, screen y_of(height - top - 14) center \
  font 'sans-serif:Bold,13' textcolor rgb ink
in_lane(lane) = $2 == lane ? lane + 0.5 : NaN
lanes = 'plot NaN notitle'
if (|$events| > 0) {
  lanes = lanes . ", \
    $events using 1:(in_lane(0)) with points pointtype 7 pointsize 0.8 linecolor rgb light_colour notitle, \
    $events using 1:(in_lane(1)) with points pointtype 13 pointsize 0.85 linecolor rgb ink notitle, \
    $events using 1:(in_lane(2)) with points pointtype 9 pointsize 0.75 linecolor rgb exposure_colour notitle, \
    $events using 1:(in_lane(3)) with points pointtype 11 pointsize 0.75 linecolor rgb '#e07b00' notitle, \
    $events using 1:(in_lane(4) - 0.27):(0):(0.54) with vectors nohead linewidth 1.6 linecolor rgb ink notitle, \
    $events using 1:(in_lane(5)) with points pointtype 2 pointsize 0.75 linewidth 2 linecolor rgb '#b00020' notitle"
}
eval lanes
unset multiplot
