#!/usr/bin/env bash
# Installs every Debian package Velmora needs to build, run and test.
# Idempotent: only packages that are missing are installed.
set -euo pipefail

packages=(
  # build
  build-essential cmake ninja-build ccache pkg-config
  # Qt 6 (Core, Gui, Widgets, Network, DBus, Concurrent) and image plugins (TIFF)
  qt6-base-dev qt6-base-dev-tools qt6-image-formats-plugins
  # libraries
  libtag1-dev libplist-dev libogg-dev libvorbis-dev
  libcdio-dev libburn-dev libisofs-dev
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-libav
  # tools run as child processes
  lame twolame ffmpeg sox mplayer atomicparsley cd-paranoia
  vorbis-tools libid3-tools id3v2 genisoimage dosfstools mtools
  # icons, man pages, package checks
  librsvg2-bin help2man desktop-file-utils appstream bash-completion
  # tests, benchmarks, fuzzing
  googletest libgtest-dev libgmock-dev libbenchmark-dev clang libclang-rt-14-dev dbus-daemon
  # independent UDF readers that check the DVD-Audio images
  udftools 7zip
  # screenshots of the window (scripts/screenshots.sh)
  xvfb xauth
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing: ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
