#!/usr/bin/env bash
# Installs the Debian packages that building, running and testing the launcher need.
# Does nothing when they are all present already, so it is cheap to call every time.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  qt6-base-dev qt6-declarative-dev qt6-svg-dev qml6-module-qtquick qml6-module-qtquick-controls
  qml6-module-qtquick-templates qml6-module-qtquick-layouts qml6-module-qtquick-window
  qml6-module-qtqml-workerscript qml6-module-qt-labs-platform qml6-module-qtquick-dialogs
  qml6-module-qtqml qml6-module-qtqml-models qml6-module-qtquick-shapes
  qml6-module-qttest qml6-module-qtcore qml6-module-qt-labs-settings
  qt6-image-formats-plugins libqt6svg6 qcoro-qt6-dev qtkeychain-qt6-dev libsecret-1-0
  libplist-dev libarchive-dev libssl-dev libcurl4-openssl-dev libcpp-httplib-dev nlohmann-json3-dev
  openssl xvfb xauth dbus dbus-x11 gnome-keyring libsecret-tools clang-format
  # the icons drawn at build time, the Debian package and its test
  librsvg2-bin dpkg-dev file desktop-file-utils appstream xdg-utils
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
