#!/usr/bin/env bash
# Installs what is missing, builds, and starts the Tapekeep desktop application with the built-in demo
# card. On a machine without a display it says so and runs the command-line demo instead: a whole
# backup of the demo card, then the list of its versions.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
  exec ./build/bin/tapekeep --demo
fi
echo "No display (neither DISPLAY nor WAYLAND_DISPLAY is set), so the desktop application cannot start."
echo "Running the command-line demo instead."
./build/bin/tapekeep-cli --demo cards
./build/bin/tapekeep-cli --demo backup M8DEMO
./build/bin/tapekeep-cli --demo versions "$(./build/bin/tapekeep-cli --demo --json sets | sed -n 's/.*"folderName": *"\([^"]*\)".*/\1/p' | head -n 1)"
