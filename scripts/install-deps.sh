#!/usr/bin/env bash
# Installs everything Sorvantel needs to build, run and test on Debian 12.
# Safe to run again: apt-get skips what is already there.
set -euo pipefail

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

PACKAGES=(
  build-essential cmake ninja-build pkg-config
  qt6-base-dev qt6-base-dev-tools qt6-serialbus-dev qt6-serialport-dev
  libqcustomplot-dev libqcustomplot2.1-qt6
  libssl-dev libpam0g-dev libcrypt-dev
  libgl-dev
  fonts-dejavu-core
  xvfb xauth socat poppler-utils
  # the fuzz targets: clang++-14, libFuzzer with the sanitizer runtimes, llvm-symbolizer-14
  clang-14 libclang-rt-14-dev llvm-14
)

export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${PACKAGES[@]}"

# The workstation's own PAM service. A site's edited copy is left as it is.
if [ ! -f /etc/pam.d/sorvantel ]; then
    $SUDO install -m 644 "$(dirname "$0")/pam/sorvantel" /etc/pam.d/sorvantel
fi
