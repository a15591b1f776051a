#!/usr/bin/env bash
# Installs the password-check helper that lets a workstation running under an operator's own
# account check the password of whoever signs an action: root-owned, setgid shadow, in a folder
# that only root and the group of the workstation's users (default "sorvantel") can enter; the
# folder in which it paces checks, open to no one else; the folder of the lock-out records that the
# PAM service names, which the helper must be able to write; and a commented site groups file
# /etc/sorvantel/accounts.conf when there is none. Beside it the sealing helper and its store.
# The user running this script through sudo (or as themselves) joins the workstation's users;
# that counts from their next login.
# Run after a build, as root or with sudo: install-accounts.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."

BUILD_DIR=${1:-build-release}
HELPER_DIR=${SORVANTEL_HELPER_DIR:-/usr/local/libexec/sorvantel}
USERS_GROUP=${SORVANTEL_USERS_GROUP:-sorvantel}
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

HELPER="$BUILD_DIR/src/sorvantel-authcheck"
# The folder the helper was built to pace its checks in.
PACE_DIR=$(sed -n 's/^SORVANTEL_AUTHCHECK_PACE_DIR:[A-Z]*=//p' "$BUILD_DIR/CMakeCache.txt" 2>/dev/null || true)
PACE_DIR=${PACE_DIR:-/var/lib/sorvantel}

# A sanitizer build's runtime is not made to run with extra privileges.
if grep -q __asan_init "$HELPER"; then
    echo "$HELPER is a sanitizer build; install the helper of a normal build." >&2
    exit 1
fi

# The helper keeps one pace file for each calling account here; nobody else may enter.
$SUDO install -d -o root -g shadow -m 770 "$PACE_DIR"
$SUDO rm -f "$PACE_DIR/authcheck.pace" # the machine-wide file of earlier versions
# pam_faillock runs inside the helper, which is not root: its records must lie where the group
# shadow may write, or it would let every check through without a word. Setgid, so that a record
# made by one caller's helper stays the group's for the next.
FAILLOCK_DIR=$(sed -n 's/^[^#]*pam_faillock\.so.*[[:space:]]dir=\([^[:space:]]*\).*/\1/p' \
    /etc/pam.d/sorvantel 2>/dev/null | head -n 1)
if [ -n "$FAILLOCK_DIR" ]; then
    $SUDO install -d -o root -g shadow -m 2770 "$FAILLOCK_DIR"
    $SUDO chown root:shadow "$FAILLOCK_DIR"
    $SUDO chmod 2770 "$FAILLOCK_DIR"
fi
if ! getent group "$USERS_GROUP" >/dev/null; then
    $SUDO groupadd --system "$USERS_GROUP"
fi
# Only the workstation's users reach the helper: any other local user could use it to try
# passwords of the workstation's accounts.
$SUDO install -d -o root -g "$USERS_GROUP" -m 750 "$HELPER_DIR"
$SUDO chown root:"$USERS_GROUP" "$HELPER_DIR"
$SUDO chmod 750 "$HELPER_DIR"
$SUDO install -o root -g shadow -m 2755 "$HELPER" "$HELPER_DIR/sorvantel-authcheck"

# The sealing helper: set-user-id to an account of its own, which alone may read the day key and
# write the seal store; the workstation's users reach it through the helper folder. Its first run
# makes the store and prints the verification key, once; a store already there is kept.
SEALER="$BUILD_DIR/src/sorvantel-sealer"
SEAL_STORE=$(sed -n 's/^SORVANTEL_SEAL_STORE:[A-Z]*=//p' "$BUILD_DIR/CMakeCache.txt" 2>/dev/null || true)
SEAL_STORE=${SEAL_STORE:-/var/lib/sorvantel-seals}
SEAL_USER=${SORVANTEL_SEAL_USER:-sorvantel-seal}
if [ -x "$SEALER" ]; then
    if grep -q __asan_init "$SEALER"; then
        echo "$SEALER is a sanitizer build; install the helper of a normal build." >&2
        exit 1
    fi
    if ! getent passwd "$SEAL_USER" >/dev/null; then
        $SUDO useradd --system --user-group --no-create-home --home-dir "$SEAL_STORE" \
            --shell /usr/sbin/nologin "$SEAL_USER"
    fi
    $SUDO install -d -o "$SEAL_USER" -g "$SEAL_USER" -m 700 "$SEAL_STORE"
    $SUDO install -o "$SEAL_USER" -g root -m 4755 "$SEALER" "$HELPER_DIR/sorvantel-sealer"
    $SUDO "$HELPER_DIR/sorvantel-sealer" init
fi

if [ ! -e /etc/sorvantel/accounts.conf ]; then
    $SUDO install -d -o root -g root -m 755 /etc/sorvantel
    $SUDO install -o root -g root -m 644 scripts/accounts.conf /etc/sorvantel/accounts.conf
fi

WHO=${SUDO_USER:-$(id -un)}
if [ "$WHO" != root ] && ! id -nG "$WHO" | tr ' ' '\n' | grep -qx "$USERS_GROUP"; then
    $SUDO usermod -aG "$USERS_GROUP" "$WHO"
    echo "$WHO joined the group $USERS_GROUP; log in again for signatures to be checked." >&2
fi
