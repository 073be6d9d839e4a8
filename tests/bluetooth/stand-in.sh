#!/bin/sh
# Plays bluetoothctl or rfcomm (the name it is called by) for the tests: notes the time,
# its pid, what started it and its command line in "calls", then runs what the test wrote for this verb,
# for this address first ("bluetoothctl-trust-00:1A:..."), else for every address.
# $n is how many times this very command line has been run, this time included.
here=$(dirname "$0")
tool=$(basename "$0")
by=$(cat /proc/$PPID/comm)
[ -n "$_STDBUF_O" ] && by="stdbuf -o$_STDBUF_O"
echo "$(date +%s%3N) $$ $by $tool $*" >> "$here/calls"
verb=$1
[ "$verb" = --timeout ] && verb=$3
mac=
for word in "$@"; do
  case $word in ??:??:??:??:??:??) mac=$word ;; esac
done
n=$(grep -c -F " $tool $*" "$here/calls")
for play in "$here/play/$tool-$verb-$mac" "$here/play/$tool-$verb"; do
  if [ -f "$play" ]; then
    . "$play"
    exit
  fi
done
