# What the guest does: each step leaves what it saw in a folder of its own, and scripts/test-usb judges it.
# /tmp/results/given says: LIDCAM, the program; CAMERAS, those that are to be enumerated.
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
    [ $SECONDS -lt $limit ] || { echo "waited in vain: $*"; return 1; }
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

say "lidcam: enumeration"
enumerate
say "lidcam: end"
