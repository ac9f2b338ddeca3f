#!/usr/bin/env bash
# Installs what is missing, builds, and starts Tapekeep with the demo card: a whole backup of it,
# then the list of its versions.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
./build/bin/tapekeep-cli --demo cards
./build/bin/tapekeep-cli --demo backup M8DEMO
./build/bin/tapekeep-cli --demo versions "$(./build/bin/tapekeep-cli --demo --json sets | sed -n 's/.*"folderName": *"\([^"]*\)".*/\1/p' | head -n 1)"
