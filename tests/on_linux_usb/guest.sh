# What a guest does: each step leaves what it saw in a folder of its own, and steps.py judges it.
# /tmp/results/given says: MACHINE, which of the three guests it is; LIDCAM, the program; CAMERAS, those that are to be
# enumerated; STREAMED, the one that is streamed from, with FRAMES pictures of each of the SIZES;
# RULES, the folder of the rules for udev that are installed.
set -u
results=/tmp/results
. "$results/given"
export HOME=/tmp LIDCAM_HOME=/tmp/home
cd /tmp

say() { echo "$*" >/dev/kmsg; }

# wait_for SECONDS COMMAND...: until the command succeeds. The machine is slow: limits are far away.
wait_for() {
  local limit=$((SECONDS + $1))
  shift
  until "$@"; do
    [ $SECONDS -lt $limit ] || { echo "waited in vain: $*"; exit 1; }
    sleep 0.2
  done
}

# serve PORT OPTION...: a server in the background, once it serves.
serve() {
  local port=$1
  shift
  "$LIDCAM" serve usbip --listen "127.0.0.1:$port" "$@" 2>"$results/server-$port" &
  servers="$servers $!"
  wait_for 60 grep -q "is served" "$results/server-$port"
}

end_servers() {
  [ -z "$servers" ] || kill $servers
  wait
  servers=
}
servers=

attach() { usbip --tcp-port "$1" attach -r 127.0.0.1 -b 1-1; }

# Devices that are configured; the root hubs aside.
configured() { cat /sys/bus/usb/devices/*-*:1.0/bInterfaceClass 2>/dev/null | grep -c '^ff$'; }
has_configured() { [ "$(configured)" -eq "$1" ]; }

detach_all() {
  local port
  for port in $(usbip port 2>/dev/null | sed -n 's/^Port \([0-9]*\):.*/\1/p'); do
    usbip detach -p "$port"
  done
  wait_for 60 has_configured 0
}

enumerate() {
  local folder=$results/enumeration port=3300 camera count=0
  mkdir "$folder"
  for camera in $CAMERAS; do
    serve $port --camera "$camera"
    attach $port
    port=$((port + 1))
    count=$((count + 1))
  done
  wait_for 120 has_configured $count
  lsusb -v >"$folder/lsusb" 2>"$folder/complaints"
  detach_all
  end_servers
}

# Ahead of a command: without the rights of root, as a login without a seat in the group that the rule names.
as_user=(setpriv --reuid 65534 --regid 65534 --groups plugdev --inh-caps=-all --bounding-set=-all)

start_udev() {
  mkdir -p /run/udev/rules.d /tmp/home
  cp "$RULES"/*.rules /run/udev/rules.d/
  chown 65534:65534 /tmp/home
  /lib/systemd/systemd-udevd --daemon
}

# plug PORT: attaches what is served there, and waits until it may be used.
plug() {
  attach "$1" >/dev/null 2>&1
  wait_for 60 has_configured 1
  udevadm settle --timeout 60
}
unplug() { usbip detach -p 0 >/dev/null 2>&1; wait_for 60 has_configured 0; }

# note NAME COMMAND...: the command's output and status, and its file where that is.
note() {
  local name=$1
  shift
  "$@" >"$folder/$name.out" 2>&1
  echo $? >"$folder/$name.status"
}

# A machine that is busy with other things may give the guest so little time that a stream's first transfers are
# late. The driver then recovers with the camera's interrupt pipe, from which no frame comes: the stream ends after
# 5 s, and another one is started.
was_starved() { grep -q 'no whole frame in 5 s' "$folder/$1.out"; }

# patiently NAME COMMAND...: the same, up to five times where the guest was starved.
patiently() {
  local tries
  for tries in 1 2 3 4 5; do
    note "$@"
    echo $tries >"$folder/$1.tries"
    was_starved "$1" || return 0
    unplug
    plug 3400
  done
}

# start_monitor NAME: what usbmon sees of the bus goes into a capture.
start_monitor() {
  python3 "$TREE/tests/on_linux_usb/usbmon.py" 1 "$folder/$1.pcap" >"$folder/$1.usbmon" 2>&1 &
  monitor=$!
  wait_for 60 grep -q ready "$folder/$1.usbmon"
}
end_monitor() {
  [ -z "$monitor" ] || { kill $monitor; wait $monitor; }
  monitor=
}
monitor=

# plug_pair PORT: as plug, over a socket pair.
plug_pair() {
  python3 "$TREE/tests/on_linux_usb/attach_pair.py" "$1" &
  relay=$!
  wait_for 60 has_configured 1
  udevadm settle --timeout 60
}

# Before the first size usbmon sees the camera plugged in, before the second it begins later; the last comes over
# a socket pair.
streams() {
  local size relay
  folder=$results/streams
  mkdir -m 777 "$folder"
  serve 3400 --camera "$STREAMED"
  set -- $SIZES
  for size in $SIZES; do
    if [ "$size" = "$1" ]; then start_monitor bus; fi
    if [ "$size" = "$5" ]; then plug_pair 3400; echo "$size" >"$folder/pair"; else plug 3400; fi
    if [ "$size" = "$2" ]; then start_monitor later; fi
    patiently "$size" "${as_user[@]}" "$LIDCAM" stream --camera usb --size "$size" --frames "$FRAMES" -q \
      -o "$folder/$size.yuy2"
    end_monitor
    unplug
  done
  wait $relay
}

measure() {
  folder=$results/processor
  mkdir -m 777 "$folder"
  plug 3400
  "${as_user[@]}" "$LIDCAM" list >"$folder/list" 2>&1
  patiently plugged "${as_user[@]}" "$LIDCAM" stream --camera usb --frames "$FRAMES" --json
  patiently simulated "${as_user[@]}" "$LIDCAM" stream --camera "$STREAMED" --frames "$FRAMES" --json
}

controls() {
  folder=$results/controls
  mkdir -m 777 "$folder"
  note set "${as_user[@]}" "$LIDCAM" set --camera usb Contrast=12
  note still "${as_user[@]}" "$LIDCAM" still --camera usb --settle 5 -q -o "$folder/still.yuy2"
  unplug
  plug 3400
  note get "${as_user[@]}" "$LIDCAM" get --camera usb Contrast
  note reset "${as_user[@]}" "$LIDCAM" set --camera usb Contrast=10
  unplug
}

PICTURE=$((160 * 120 * 2))

# Bytes of a stream's pictures so far; it writes beside its file until it ends.
written() { cat "$folder/.$1.yuy2".*.part "$folder/$1.yuy2" 2>/dev/null | wc -c; }

# start_stream NAME OPTION...
start_stream() {
  name=$1
  shift
  "${as_user[@]}" "$LIDCAM" stream --camera usb --size 160x120 "$@" -o "$folder/$name.yuy2" \
    >"$folder/$name.out" 2>&1 &
  stream=$!
}

# goes_on: three pictures more than there are now. @return 1 if the stream has ended, as the guest was starved
goes_on() {
  local enough=$(($(written "$name") + 3 * PICTURE)) limit=$((SECONDS + 60))
  until [ "$(written "$name")" -ge $enough ]; do
    if ! kill -0 $stream 2>/dev/null; then
      was_starved "$name" && return 1
      echo "stream $name ended: $(cat "$folder/$name.out")"
      exit 1
    fi
    [ $SECONDS -lt $limit ] || { echo "stream $name stands still"; exit 1; }
    sleep 0.2
  done
}

# end_stream: as Ctrl-C does. One that hangs is told with what its threads wait in.
end_stream() {
  local limit=$((SECONDS + 60)) thread
  kill -INT $stream
  while kill -0 $stream 2>/dev/null; do
    if [ $SECONDS -ge $limit ]; then
      echo "stream $name does not end:"
      for thread in /proc/$stream/task/*; do
        echo "$(cat "$thread/comm") $(cat "$thread/wchan"): $(cat "$thread/syscall")"
      done
      exit 1
    fi
    sleep 0.2
  done
}

# sample NAME PROCESS: its open files, threads and memory in KiB.
sample() {
  echo "$1 $(ls "/proc/$2/fd" | wc -l) $(ls "/proc/$2/task" | wc -l)" \
    "$(sed -n 's/^RssAnon:[^0-9]*\([0-9]*\).*/\1/p' "/proc/$2/status")" >>"$folder/leaks"
}

# The server dies, and another one takes its place.
replace_server() {
  kill -KILL $servers
  wait $servers
  servers=
  wait_for 60 has_configured 0
  serve 3400 --camera "$STREAMED"
}

replugs() {
  local replugged=0 streams=0 others=0
  folder=$results/replugs
  mkdir -m 777 "$folder"
  serve 3400 --camera "$STREAMED"
  plug 3400
  while [ $others -eq 0 ] && [ $streams -lt 30 ]; do
    streams=$((streams + 1))
    replugged=0
    rm -f "$folder/leaks"
    start_stream all-$streams --wait
    while goes_on; do
      [ $others -eq 0 ] || { end_stream; break; }
      sample stream $stream
      sample server $servers
      if [ $replugged -lt 10 ]; then
        unplug
        replugged=$((replugged + 1))
      else
        replace_server
        others=1
      fi
      plug 3400
    done
    wait $stream
    echo $? >"$folder/all.status"
    # One that was starved has taken its camera to where no frame comes from.
    unplug
    plug 3400
  done
  [ $others -eq 0 ] || echo "$replugged replugs and another server in $streams streams" >"$folder/replugged"

  for streams in 1 2 3 4 5; do
    start_stream cut-$streams
    goes_on && break
    wait $stream
    unplug
    plug 3400
  done
  mv "$folder/cut-$streams.out" "$folder/cut.out"
  kill -KILL $servers
  wait $stream
  echo $? >"$folder/cut.status"
  mv "$folder/cut-$streams.yuy2" "$folder/cut.yuy2"
  wait_for 60 has_configured 0
  servers=
}

# A camera whose control endpoint stalls once, which does no harm, and then its stream.
stall() {
  folder=$results/stall
  mkdir -m 777 "$folder"
  serve 3401 --camera "$STREAMED" --faults 'control 100 stall; frame 15 packet 10 stall'
  plug 3401
  note stalled "${as_user[@]}" "$LIDCAM" stream --camera usb --size 160x120 --frames 100 -o "$folder/stalled.yuy2"
  unplug
  end_servers
}

# What qemu's usb-redir has plugged into its EHCI. The camera came ahead of udev, which is asked to look again.
ehci() {
  local event
  folder=$results/ehci
  mkdir -m 777 "$folder"
  wait_for 60 has_configured 1
  lsusb >"$folder/lsusb"
  for event in /sys/bus/usb/devices/*-1/uevent; do echo add >"$event"; done
  wait_for 60 is_allowed
  note 640x480 "${as_user[@]}" "$LIDCAM" stream --camera usb --frames 10 -o "$folder/640x480.yuy2"
}
is_allowed() { [ -n "$(find /dev/bus/usb -type c -group plugdev)" ]; }

# step NAME: the step of that name, told in the kernel's messages, which are judged from the first one on.
step() {
  say "lidcam: $1"
  "$1"
}

case "$MACHINE" in
  vhci)
    step enumerate
    start_udev
    step streams
    step measure
    step controls
    end_servers
    ;;
  replugs)
    start_udev
    step replugs
    step stall
    ;;
  ehci)
    start_udev
    step ehci
    ;;
esac
say "lidcam: end"
