#!/usr/bin/env bash
# The main job: build what it needs, then ask the tool (the embedded simulator unless
# --device is given) for its identification. Arguments go to hytorc; options alone keep
# the default command. Set-up and build output go to a log file, so that standard
# output carries only the results.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
log="$root/build/main-build.log"
mkdir -p "$root/build"
if ! { bash "$root/scripts/setup.sh" \
       && cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=Release \
       && cmake --build "$root/build" --target hytorc -j"$(nproc)"; } >"$log" 2>&1; then
  echo "main.sh: the build failed; its output is in $log" >&2
  exit 1
fi
# A word that is neither an option nor an option's value is a command. The options that
# take a value are those hytorc's help shows with one ("--device <path>").
hytorc="$root/build/bin/hytorc"
value_options=" $("$hytorc" --help | grep -oE -- '--[a-z-]+ <' | cut -d' ' -f1 | tr '\n' ' ')"
command_given=false
value_next=false
for word in "$@"; do
  if $value_next; then value_next=false; continue; fi
  case "$word" in
    --*=*) ;;
    -*) [[ "$value_options" == *" $word "* ]] && value_next=true ;;
    *) command_given=true ;;
  esac
done
$command_given || set -- "$@" getToolInfo
exec "$hytorc" "$@"
