#!/usr/bin/env bash
# Installs the Debian packages Quillmoor needs to build, run and test; does nothing when all are there.
set -euo pipefail

PACKAGES=(
  cmake ninja-build g++ pkg-config
  qt6-base-dev qt6-base-dev-tools qt6-declarative-dev qt6-declarative-dev-tools qt6-svg-dev libgl-dev
  qml6-module-qtquick qml6-module-qtquick-controls qml6-module-qtquick-window qml6-module-qtquick-layouts
  qml6-module-qtquick-templates qml6-module-qtqml-workerscript qml6-module-qttest qml6-module-qtquick-dialogs
  qt6-image-formats-plugins fonts-noto-color-emoji
  # Qt SQL's SQLite driver, loaded at run time by the vector cache.
  libqt6sql6-sqlite
  qcoro-qt6-dev libpoppler-cpp-dev libzip-dev libicu-dev
  xvfb xauth
  # The shell's X11 calls (input regions, workspaces), and the window manager, compositor and X tools of
  # the window check under Xvfb.
  libxcb1-dev libxcb-shape0-dev openbox xcompmgr xdotool x11-utils
)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "Installing: ${missing[*]}"
$SUDO apt-get update -q
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
