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
  # publishing: the MQTT client library, and the broker and its clients for the demo and the tests
  libmosquitto-dev mosquitto mosquitto-clients
  libgl-dev
  fonts-dejavu-core
  xvfb xauth socat poppler-utils
  # the export test reads CSV back with Python's csv module, as a spreadsheet would; the seal
  # test checks the documented seal bytes with Python's own Ed25519
  python3 python3-cryptography
  # the fuzz targets: clang++-14, libFuzzer with the sanitizer runtimes, llvm-symbolizer-14
  clang-14 libclang-rt-14-dev llvm-14
)

export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${PACKAGES[@]}"

# The workstation's own PAM service. A site's edited copy is left as it is; the copy of an earlier
# version, which had no lock-out, is replaced.
EARLIER_SERVICES=(4291060557fdf528c747d66b03fc69feb0c3c5f7ca5b76498d6fb23da8d3db33)
if [ ! -f /etc/pam.d/sorvantel ] ||
    printf '%s\n' "${EARLIER_SERVICES[@]}" | grep -qx "$(sha256sum </etc/pam.d/sorvantel | cut -d' ' -f1)"; then
    $SUDO install -m 644 "$(dirname "$0")/pam/sorvantel" /etc/pam.d/sorvantel
fi
