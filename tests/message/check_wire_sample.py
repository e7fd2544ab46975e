#!/usr/bin/env python3
"""Usage: check_wire_sample.py WRITER READER_DIR WORKDIR. The independent reader (the zevreader command, its
package in READER_DIR) must decode what WireSampleWriter.cpp put in, and re-encode it from values alone byte for byte."""

import json
import os
import subprocess
import sys
import zlib

TEXT = (b"Caf\xe9 \x01\x7f|" + b"x" * 292).decode("latin-1")
SCALARS = [(0, 0xC3, 1), (1, -7, 1), (2, 0xFEDC, 2), (3, -32768, 2), (4, 0xFFFFFFFE, 4), (5, -2**31, 4),
           (8, -0.15625, 4), (9, 6.02214076e23, 8), (12, 0xFEDCBA9876543210, 8)]   # type, value, width


def block(size):
    return bytes(97 + i * i % 7 if i % 2 else i * i * 31 % 251 for i in range(size))


def reader(*args):
    return subprocess.run([sys.executable, "-m", "zevreader", *args], check=True, stdout=subprocess.PIPE, text=True,
                          env=dict(os.environ, PYTHONPATH=READER_DIR)).stdout


writer, READER_DIR, workdir = sys.argv[1:4]
os.makedirs(workdir, exist_ok=True)
wire_path, values_path, again_path = (os.path.join(workdir, n) for n in ("sample.bin", "values.json", "again.bin"))
subprocess.run([writer, wire_path], check=True)
decoded = json.loads(reader("message", wire_path))
elements = decoded["elements"]
assert (decoded["id"], decoded["hidden"], decoded["count"], len(elements)) == (-1234567, 2, 15, 15), "header"
for element, (code, value, width) in zip(elements, SCALARS):
    assert element["type"] == code and element["value"] == value, "scalar %r, written %r" % (element, value)
    assert not bytes.fromhex(element.pop("raw"))[width:].strip(b"\0"), "unused value bytes are not zero: %r" % element
assert elements[9] == {"type": 10, "value": TEXT}, "string element"
assert elements[10] == {"type": 11, "value": {"length": 5, "hex": "00ff10807f"}}, "buffer element"
assert [e["type"] for e in elements[11:]] == [4, 11, 4, 11], "block element types"
assert elements[11]["value"] == 0 and elements[12]["value"]["hex"] == block(99).hex(), "99 bytes travel raw"
packed = bytes.fromhex(elements[14]["value"]["hex"])
assert elements[13]["value"] == len(packed) and packed[:2] == b"\x78\xda", "4000 bytes: level-9 zlib stream"
assert zlib.decompress(packed) == block(4000), "4000-byte block does not inflate to its input"
for element in elements[11::2]:
    element.pop("raw")
with open(values_path, "w", encoding="utf-8") as f:
    json.dump(decoded, f)
reader("encode-message", values_path, "-o", again_path)
with open(wire_path, "rb") as f, open(again_path, "rb") as g:
    assert f.read() == g.read(), "re-encoding differs from ToBuffer"
print("reader agrees with ToBuffer on %d elements" % len(elements))
