#!/usr/bin/env bash
# Installs the password-check helper that lets a workstation running under an operator's own
# account check the password of whoever signs an action: root-owned, setgid shadow, in a
# root-owned folder; and the file through which it paces checks, readable by no one else.
# Run after a build, as root or with sudo: install-accounts.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."

BUILD_DIR=${1:-build-release}
HELPER_DIR=${SORVANTEL_HELPER_DIR:-/usr/local/libexec/sorvantel}
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

HELPER="$BUILD_DIR/src/sorvantel-authcheck"
PACE_DIR=/var/lib/sorvantel

# A sanitizer build's runtime is not made to run with extra privileges.
if grep -q __asan_init "$HELPER"; then
    echo "$HELPER is a sanitizer build; install the helper of a normal build." >&2
    exit 1
fi

$SUDO install -d -o root -g shadow -m 770 "$PACE_DIR"
if [ ! -f "$PACE_DIR/authcheck.pace" ]; then
    $SUDO install -o root -g shadow -m 660 /dev/null "$PACE_DIR/authcheck.pace"
fi
$SUDO install -d -o root -g root -m 755 "$HELPER_DIR"
$SUDO install -o root -g shadow -m 2755 "$HELPER" "$HELPER_DIR/sorvantel-authcheck"
