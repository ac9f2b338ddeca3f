#!/usr/bin/env bash
# Installs what Tapekeep needs to build, test and run (Debian and Ubuntu), then builds it into build/.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(
  build-essential cmake ninja-build pkg-config
  qt6-base-dev nlohmann-json3-dev libutf8proc-dev libudev-dev libblkid-dev libgtest-dev libgmock-dev
  rsync util-linux dosfstools fusefat fuse3
  libarchive-dev libarchive-tools unzip
  qt6-declarative-dev qml6-module-qtquick qml6-module-qtquick-controls qml6-module-qtquick-templates
  qml6-module-qtquick-layouts qml6-module-qtquick-window qml6-module-qtquick-dialogs
  qml6-module-qtqml-workerscript qml6-module-qt-labs-platform qml6-module-qtquick-shapes qt6-qpa-plugins
  libcanberra-dev fonts-jetbrains-mono fonts-inter xvfb xauth libgl1-mesa-dri dbus-daemon
  libsndfile1-dev qt6-multimedia-dev sox libsox-fmt-mp3
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if ((${#missing[@]})); then
  echo "Installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAPEKEEP_WERROR=ON
cmake --build build
