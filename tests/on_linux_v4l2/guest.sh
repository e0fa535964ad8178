# What the guest does: each step leaves what it saw in /tmp/results, and scripts/test-v4l2 judges it.
# /tmp/results/given says: LIDCAM, the program; CAMERA, a recording, since a guest that is slow gets all of its pictures
# right; LIVE, a camera that can be unplugged; SIZE and FRAMES of the streams; MODULES, files in the order to load them.
set -u
results=/tmp/results
. "$results/given"
export HOME=/tmp LIDCAM_HOME=/tmp/home XDG_RUNTIME_DIR=/tmp/runtime GST_REGISTRY=/tmp/registry
mkdir -m 700 /tmp/runtime
device=/dev/video9
width=${SIZE%x*} height=${SIZE#*x}
cd /tmp

say() { echo "lidcam: $*" >/dev/kmsg; }

# wait_for SECONDS COMMAND...: until the command succeeds. The machine is slow: limits are far away.
wait_for() {
  local limit=$((SECONDS + $1))
  shift
  until "$@"; do
    [ $SECONDS -lt $limit ] || { echo "waited in vain: $*"; cat "$results"/*.out; exit 1; }
    sleep 0.2
  done
}

# note NAME COMMAND...: the command's output and status.
note() {
  local name=$1
  shift
  "$@" >"$results/$name.out" 2>&1
  echo $? >"$results/$name.status"
}

# said NAME COUNT TEXT: whether a program in the background has said it that often.
said() { [ "$(grep -c "$3" "$results/$1.out")" -ge "$2" ]; }

# share NAME CAMERA OPTION...: the service in the background, once it is ready.
share() {
  local name=$1 camera=$2
  shift 2
  "$LIDCAM" share --camera "$camera" --v4l2 $device --size "$SIZE" "$@" 2>"$results/$name.out" &
  service=$!
  wait_for 120 said "$name" 1 "is shared as"
}

end_service() {
  kill -TERM $service
  wait $service
  echo $? >"$results/$1.status"
}

read_by_v4l2_ctl() {
  v4l2-ctl -d $device --stream-mmap=4 --stream-count="$FRAMES" --stream-to="$1"
}
read_by_ffmpeg() {
  ffmpeg -v error -nostdin -f v4l2 -i $device -frames:v "$FRAMES" -f rawvideo -fps_mode passthrough -y "$1"
}
read_by_gstreamer() {
  gst-launch-1.0 -q v4l2src device=$device num-buffers="$FRAMES" ! \
    "video/x-raw,format=YUY2,width=$width,height=$height" ! filesink location="$1"
}

say "no module"
note missing "$LIDCAM" share --camera "$CAMERA" --v4l2 $device

say "modules"
for module in $MODULES; do
  case $module in
    *v4l2loopback*) busybox insmod "$module" video_nr=9 exclusive_caps=1 max_buffers=8 card_label=lidcam ;;
    *) busybox insmod "$module" ;;
  esac || exit 1
done
wait_for 60 test -c $device
note before v4l2-ctl -d $device --info

say "readers"
share readers "$CAMERA"
note during v4l2-ctl -d $device --info --list-formats-ext --get-parm
count=0
for reader in v4l2_ctl ffmpeg gstreamer; do
  count=$((count + 1))
  note $reader read_by_$reader "$results/$reader.yuy2"
  wait_for 120 said readers $count "nobody looks"
done
note second "$LIDCAM" share --camera "$LIVE" --v4l2 $device --size "$SIZE"
end_service readers
note after v4l2-ctl -d $device --info

say "cost"
# ticks PROCESS: the processor time that it has used, in hundredths of a second.
ticks() {
  local line
  read -r line <"/proc/$1/stat"
  set -- ${line##*) }
  echo $((${12} + ${13}))
}
# cost_of_shared FRAMES: of the service, not of the program that reads.
cost_of_shared() {
  local before
  before=$(ticks $service)
  FRAMES=$1 read_by_v4l2_ctl /dev/null >/dev/null 2>&1
  looks=$((looks + 1))
  wait_for 60 said cost $looks "nobody looks"
  echo $(($(ticks $service) - before))
}
# cost_of_stream FRAMES: of a stream by this program alone. The one that shares the camera has ended.
cost_of_stream() {
  TIMEFORMAT='%U %S'
  { time "$LIDCAM" stream --quiet --camera "$LIVE" --size "$SIZE" --frames "$1" -o /dev/null \
    >"$results/cost-stream.out" 2>&1; } 2>&1
}
share cost "$LIVE"
looks=0
cost_of_shared 5 >/dev/null
looks=1
{
  echo "shared 30 $(cost_of_shared 30)"
  looks=2
  echo "shared 210 $(cost_of_shared 210)"
} >"$results/frame-cost"
end_service cost
for frames in 30 210; do
  seconds=$(cost_of_stream $frames) || { cat "$results/cost-stream.out"; exit 1; }
  echo "stream $frames $seconds" >>"$results/frame-cost"
done

say "unplugged"
share unplugged "$LIVE" --faults 'at 1s unplug'
FRAMES=80 note unplugged_reader read_by_v4l2_ctl "$results/unplugged.yuy2"
kill -0 $service || echo "the service has ended"
end_service unplugged

say "end"
