"""The reader on hand-built archive bytes, which no C++ writer produces: back references
and big tags in the shared index space, bad tags, every truncation, trailing bytes; and the
annotated dumps of such bytes and of a reply with a raw and a zlib block."""

import struct
import unittest
import zlib

import zevreader as zr


def s(text):
    return bytes([len(text)]) + text.encode("latin-1")


PACKAGE = s("p") + s("1.0") + s("v") + s("") + struct.pack("<I", 7) + s("") + s("d")
NEW_CLASS = struct.pack("<HHH", 0xFFFF, 2, 22) + b"CSoftwarePackageObject"   # index 1
MAP = (struct.pack("<H", 4) + s("a") + NEW_CLASS + PACKAGE + s("b") + struct.pack("<H", 0x8001) + PACKAGE
       + s("c") + struct.pack("<HI", 0x7FFF, 2) + s("") + struct.pack("<H", 0))


def dumped(text):
    """The bytes and the labels of a dump's lines."""
    lines = text.splitlines()
    return bytes.fromhex("".join(line[6:29] for line in lines)), [line[31:] for line in lines if line[31:]]


class MapStreams(unittest.TestCase):
    def test_tags_back_references_and_rejections(self):
        data = MAP
        entries = zr.decode_map(data)["entries"]
        self.assertEqual([(e["key"], e["class"]) for e in entries],
                         [(k, "CSoftwarePackageObject") for k in "abc"] + [("c", None)])
        self.assertEqual((entries[2], entries[1]["fields"]["m_nFlags"]), (dict(entries[0], key="c", raw_key="c"), 7))
        bad_tags = [data[:-2] + struct.pack("<H", tag) for tag in (0x0001, 0x0005, 0x8002)]
        for bad in bad_tags + [data + b"\0"] + [data[:n] for n in range(len(data))]:   # every truncation
            with self.assertRaises(zr.FormatError, msg=bad.hex()):
                zr.decode_map(bad)


class Dumps(unittest.TestCase):
    def test_every_byte_labelled_tags_prefixes_and_reply_places(self):
        raw, labels = dumped(zr.dump("map", MAP))
        self.assertEqual(raw, MAP)
        self.assertEqual([label for label in labels if label.startswith("object tag")],
                         ["object tag: new object of a new class", "object tag: new object of class 1",
                          "object tag: 0x7FFF, a 32-bit tag follows", "object tag: object 2 again", "object tag: null object"])
        self.assertEqual(labels[:3] + labels[-3:-1], ["entry count: 4", "key length: 1", 'key: "a"',
                                                     "object tag: object 2 again", 'key: "" (empty)'])
        self.assertIn('class name: "CSoftwarePackageObject"', labels)
        self.assertIn("m_nFlags: 7", labels)
        paths = struct.pack("<H", 1) + b"\xff" + struct.pack("<H", 300) + b"/\xe9" * 150
        raw, labels = dumped(zr.dump("strings", paths))
        self.assertEqual((raw, labels[:3]), (paths, ["string count: 1", "string length: 0xFF, a 16-bit length follows",
                                                     "string length: 300"]))
        self.assertTrue(labels[3].startswith('string: "/\\xe9/'), labels[3])

        packed = zlib.compress(MAP, 9)
        block = lambda body, header: [{"type": 4, "value": len(MAP) if header else len(body)}, {"type": 4, "value": header},
                                      {"type": 11, "value": {"length": len(body), "hex": body.hex()}}]
        empty = block(b"\0\0", 0)
        reply = zr.encode_message({"id": 9, "hidden": 7, "elements": [{"type": 5, "value": -1}, {"type": 10, "value": "now"}]
                                   + block(MAP, 0) + empty * 3 + [{"type": 3, "value": 1}] + block(packed, len(packed))
                                   + empty * 2 + [{"type": 3, "value": 0}]})
        raw, labels = dumped(zr.dump("reply", reply, skip=1))
        self.assertEqual(raw, reply)
        self.assertEqual([label for label in labels if label.startswith("[")][:5] + [labels[-2]],
                         ["[0] int: an element of the host", "[1] string: scan time", "[2] uint: software add: map length",
                          "[3] uint: software add: block header (zlib length, 0 = raw)", "[4] buffer: software add: block",
                          "[24] short: packages flag: 1 = no stored list"])
        self.assertIn("  object tag: object 2 again", labels)   # the raw block read field by field
        self.assertIn("  zlib stream, inflates to the %d-byte map" % len(MAP), labels)
        with self.assertRaises(zr.FormatError):
            zr.dump("reply", reply)   # without the skip, the host's element is where the scan time belongs
