#!/usr/bin/env bash
# Installs the password-check helper that lets a workstation running under an operator's own
# account check the password of whoever signs an action: root-owned, setgid shadow, in a
# root-owned folder. Run after a build, as root or with sudo: install-accounts.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."

BUILD_DIR=${1:-build-release}
HELPER_DIR=${SORVANTEL_HELPER_DIR:-/usr/local/libexec/sorvantel}
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

$SUDO install -d -o root -g root -m 755 "$HELPER_DIR"
$SUDO install -o root -g shadow -m 2755 "$BUILD_DIR/src/sorvantel-authcheck" \
    "$HELPER_DIR/sorvantel-authcheck"
