#!/usr/bin/env python3
"""The independent reader against ToBuffer: runs the sample writer, decodes its
buffer with zevreader.py and checks that every value matches what was written,
that the reader's re-encoding equals the buffer byte for byte, and that the
compressed block inflates to its input.

Usage: check_wire_sample.py WRITER READER WORKDIR
"""

import json
import os
import struct
import subprocess
import sys
import zlib


# Bytes a scalar takes at the start of the 8-byte value store, per type code.
WIDTHS = {0: 1, 1: 1, 2: 2, 3: 2, 4: 4, 5: 4, 8: 4, 9: 8, 12: 8}


def fail(text):
    print("FAIL: " + text, file=sys.stderr)
    sys.exit(1)


def as_float32(value):
    return struct.unpack("<f", struct.pack("<f", value))[0]


def main():
    writer, reader, workdir = sys.argv[1:4]
    os.makedirs(workdir, exist_ok=True)
    wire_path = os.path.join(workdir, "sample.bin")
    written_path = os.path.join(workdir, "sample.json")
    subprocess.run([writer, wire_path, written_path], check=True)
    with open(wire_path, "rb") as f:
        wire = f.read()
    with open(written_path, encoding="utf-8") as f:
        summary = json.load(f)

    run = subprocess.run([sys.executable, reader, "message", wire_path], capture_output=True, text=True)
    if run.returncode != 0:
        fail("reader rejected the buffer: " + run.stderr.strip())
    decoded = json.loads(run.stdout)

    # (1) every decoded value equals what was written
    for key in ("id", "hidden", "count"):
        if decoded[key] != summary[key]:
            fail("%s: reader %r, writer %r" % (key, decoded[key], summary[key]))
    elements = decoded["elements"]
    if len(elements) != decoded["count"]:
        fail("element count")
    pos = 0
    for item in summary["written"]:
        if "block" in item:
            data = bytes.fromhex(item["hex"])
            header, body = elements[pos], elements[pos + 1]
            pos += 2
            if header["type"] != 4 or body["type"] != 11:
                fail("block of %d bytes: element types %d, %d" % (item["block"], header["type"], body["type"]))
            stored = bytes.fromhex(body["value"]["hex"])
            if item["block"] < 100:
                if header["value"] != 0 or stored != data:
                    fail("99-byte block must travel raw behind a 0")
            else:
                if header["value"] != len(stored) or header["value"] == 0:
                    fail("hidden element must hold the compressed length")
                # (3) the compressed block inflates to the input
                if zlib.decompress(stored) != data:
                    fail("4000-byte block does not inflate to its input")
                if stored[:2] != b"\x78\xda":
                    fail("block is not a level-9 zlib stream")
            continue
        element = elements[pos]
        pos += 1
        if element["type"] != item["type"]:
            fail("element %d: type %d, written %d" % (pos - 1, element["type"], item["type"]))
        if item["type"] == 10:
            if element["value"].encode("latin-1") != bytes.fromhex(item["hex"]):
                fail("string element differs")
        elif item["type"] == 11:
            if element["value"]["hex"] != item["hex"] or element["value"]["length"] != len(item["hex"]) // 2:
                fail("buffer element differs")
        else:
            expected = as_float32(item["value"]) if item["type"] == 8 else item["value"]
            if element["value"] != expected:
                fail("element %d of type %d: %r, written %r" % (pos - 1, item["type"], element["value"], expected))
            if bytes.fromhex(element["raw"])[WIDTHS[item["type"]]:].strip(b"\0"):
                fail("element %d: unused bytes of the value store are not zero" % (pos - 1))
    if pos != len(elements):
        fail("%d elements beyond what was written" % (len(elements) - pos))

    # (2) the reader's re-encoding, from values alone, equals the buffer byte for byte
    for element in elements:
        element.pop("raw", None)
    values_path = os.path.join(workdir, "sample.values.json")
    with open(values_path, "w", encoding="utf-8") as f:
        json.dump(decoded, f)
    again_path = os.path.join(workdir, "sample.again.bin")
    subprocess.run([sys.executable, reader, "encode-message", values_path, "-o", again_path], check=True)
    with open(again_path, "rb") as f:
        again = f.read()
    if again != wire:
        first = next((i for i, (a, b) in enumerate(zip(again, wire)) if a != b), min(len(again), len(wire)))
        fail("re-encoding differs from ToBuffer at byte %d (%d vs %d bytes)" % (first, len(again), len(wire)))
    print("reader agrees with ToBuffer on %d bytes, %d elements" % (len(wire), len(elements)))


if __name__ == "__main__":
    main()
