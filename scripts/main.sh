#!/usr/bin/env bash
# The main job: build, then ask the tool (the embedded simulator unless --device is
# given) for its identification. Extra arguments go to hytorc.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/build.sh"
if [ $# -eq 0 ]; then
  set -- getToolInfo
fi
exec "$root/build/bin/hytorc" "$@"
