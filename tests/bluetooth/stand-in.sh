#!/bin/sh
# Plays bluetoothctl or rfcomm (the name it runs as): notes time, pid, its starter and its command line in
# "calls", then sources play/TOOL-VERB-ADDRESS, else play/TOOL-VERB; $n counts runs of this very command line.
here=$(dirname "$0") tool=$(basename "$0") by=$(cat /proc/$PPID/comm) verb=$1 mac=
[ -n "$_STDBUF_O" ] && by="stdbuf -o$_STDBUF_O"
[ "$verb" = --timeout ] && verb=$3
echo "$(date +%s%3N) $$ $by $tool $*" >> "$here/calls"
for word in "$@"; do case $word in ??:??:??:??:??:??) mac=$word ;; esac; done
n=$(grep -c -F " $tool $*" "$here/calls")
for play in "$here/play/$tool-$verb-$mac" "$here/play/$tool-$verb"; do
  [ -f "$play" ] && { . "$play"; exit; }
done
