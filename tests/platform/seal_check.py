#!/usr/bin/env python3
"""The seals of one record file, checked from the bytes the README documents, with nothing of
the workstation's own code: Python's cryptography package for Ed25519 and hashlib for SHA-256.

    seal_check.py STORE NAME RECORD_FILE

Prints "days D, lines L, sealed S, gap A..B" and exits 0 when every day key follows from the
verification key and every entry is signed, dated and chained as documented and matches its
line; otherwise prints what failed and exits 1."""
import hashlib
import sys
from datetime import datetime, timezone

from cryptography.exceptions import InvalidSignature
from cryptography.hazmat.primitives.asymmetric.ed25519 import Ed25519PublicKey


def fail(what):
    print(what)
    sys.exit(1)


def verify(public_hex, message, signature_hex):
    try:
        Ed25519PublicKey.from_public_bytes(bytes.fromhex(public_hex)).verify(
            bytes.fromhex(signature_hex), message)
    except InvalidSignature:
        fail("bad signature over " + repr(message[:40]))


store, name, record = sys.argv[1], sys.argv[2], sys.argv[3]
magic, site, verification = open(store + "/site").read().split("\n")[:3]
if magic != "SORVANTEL-SEALS 1":
    fail("not a seal store")

days = {}
signer = verification
for k, line in enumerate(open(store + "/days").read().splitlines(), start=1):
    tag, index, date, public, signature = line.split(" ")
    if tag != "D" or int(index) != k:
        fail("day entry out of order")
    verify(signer, f"sorvantel day key 1\n{site}\n{index}\n{date}\n{public}\n".encode(), signature)
    days[k] = (date, public)
    signer = public

seal_file = store + "/files/" + hashlib.sha256(name.encode()).hexdigest()[:32] + ".seal"
entries = open(seal_file).read().splitlines()
if entries[0] != f"F {site} {name}":
    fail("seal file of another site or file")

lines = open(record, "rb").read().split(b"\r\n")
if lines and lines[-1] == b"":
    lines.pop()
previous = "-"
sealed = 0
gaps = []
expected = 1
unsigned_times = []  # entries since the last signature, which must share its key's day
for entry in entries[1:]:
    f = entry.split(" ")
    signature = ""
    if f[0] == "S":
        _, n, time, account, line_hash = f
        message = (f"sorvantel seal 2\n{site}\n{name}\n{n}\n{time}\n{account}\n"
                   f"{line_hash}\n{previous}\n")
        if int(n) != expected:
            fail("seals missing")
        if hashlib.sha256(lines[int(n) - 1]).hexdigest() != line_hash:
            fail(f"line {n} altered")
        sealed += 1
        expected += 1
        unsigned_times.append(int(time))
    elif f[0] == "G":
        _, first, last, time, account = f
        message = (f"sorvantel gap 2\n{site}\n{name}\n{first}\n{last}\n{time}\n{account}\n"
                   f"{previous}\n")
        if int(first) != expected:
            fail("seals missing")
        gaps.append(f"{first}..{last}")
        expected = int(last) + 1
        unsigned_times.append(int(time))
    else:
        _, time, day, signature = f
        message = f"sorvantel signature 2\n{site}\n{name}\n{time}\n{day}\n{previous}\n"
        date, public = days[int(day)]
        for t in unsigned_times + [int(time)]:
            if datetime.fromtimestamp(t, timezone.utc).strftime("%Y-%m-%d") != date:
                fail("seal dated outside its key's day")
        verify(public, message.encode(), signature)
        unsigned_times = []
    previous = hashlib.sha256(message.encode() + bytes.fromhex(signature)).hexdigest()

if unsigned_times:
    fail("entries after the last signature")
if expected - 1 != len(lines):
    fail(f"{len(lines)} lines, {expected - 1} sealed")
print(f"days {len(days)}, lines {len(lines)}, sealed {sealed}, gap {', '.join(gaps)}")
