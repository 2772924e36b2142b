#!/usr/bin/env bash
# Installs the Debian packages Quillmoor needs to build, run and test; does nothing when all are there.
#   scripts/deps.sh          what the app, the command-line companion and the tests need
#   scripts/deps.sh fuzz     that and the clang toolchain of the fuzz targets (tools/fuzz.sh)
set -euo pipefail

PACKAGES=(
  # Building.
  cmake ninja-build g++ pkg-config
  qt6-base-dev qt6-base-dev-tools qt6-declarative-dev qt6-declarative-dev-tools qt6-svg-dev libgl-dev
  qcoro-qt6-dev libpoppler-cpp-dev libzip-dev libicu-dev
  # What the app, the command-line companion and the tests load at run time. Installed without Recommends,
  # so each is named: the platform plugins (xcb for the app, offscreen for the tests) and the OpenGL the
  # views draw with, the QML modules the views import, the image formats of attachments, the fonts (text,
  # its italics, emoji), Poppler's data for CID-keyed (CJK) fonts, the certificates that HTTPS checks the
  # provider against, and the time zones of the debug log's times.
  qt6-qpa-plugins libgl1-mesa-dri libglx-mesa0 libxcursor1
  qml6-module-qtquick qml6-module-qtquick-controls qml6-module-qtquick-window qml6-module-qtquick-layouts
  qml6-module-qtquick-templates qml6-module-qtqml-workerscript qml6-module-qttest
  qt6-image-formats-plugins
  fontconfig fonts-dejavu-core fonts-dejavu-extra fonts-noto-color-emoji
  poppler-data ca-certificates tzdata
  # Qt SQL's SQLite driver, loaded at run time by the vector cache.
  libqt6sql6-sqlite
  # A display for the window tests.
  xvfb xauth
  # The shell's X11 calls (input regions, workspaces), and the window manager, compositor and X tools of
  # the window check under Xvfb.
  libxcb1-dev libxcb-shape0-dev openbox xcompmgr xdotool x11-utils
)

if [ "${1:-}" = "fuzz" ]; then
  PACKAGES+=(clang-14 libclang-rt-14-dev llvm-14)
fi

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
