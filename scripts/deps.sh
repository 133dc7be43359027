#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Installs the Debian packages needed to build, run and test the program.
# Idempotent: when everything is present it only checks and returns.
set -euo pipefail

packages=(
    cmake g++ ccache
    qtbase5-dev libqt5charts5-dev qtmultimedia5-dev libqt5multimedia5-plugins
    pulseaudio pulseaudio-utils xvfb xauth imagemagick x11-utils
    libbenchmark-dev libfftw3-dev desktop-file-utils dpkg-dev libgsl-dev libpulse-dev
    lintian appstream help2man
)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
    echo "Installing: ${missing[*]}"
    sudo_cmd=()
    [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
    "${sudo_cmd[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
