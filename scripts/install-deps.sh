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
  libssl-dev libpam0g-dev
  libgl-dev
  fonts-dejavu-core
  xvfb xauth socat poppler-utils
)

export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${PACKAGES[@]}"
