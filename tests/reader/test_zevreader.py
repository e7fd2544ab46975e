"""The reader on hand-built archive bytes, which no C++ writer produces: back references
and big tags in the shared index space, bad tags, every truncation, trailing bytes."""

import struct
import unittest

import zevreader as zr


def s(text):
    return bytes([len(text)]) + text.encode("latin-1")


class MapStreams(unittest.TestCase):
    def test_tags_back_references_and_rejections(self):
        package = s("p") + s("1.0") + s("v") + s("") + struct.pack("<I", 7) + s("") + s("d")
        new_class = struct.pack("<HHH", 0xFFFF, 2, 22) + b"CSoftwarePackageObject"   # index 1
        data = (struct.pack("<H", 4) + s("a") + new_class + package + s("b") + struct.pack("<H", 0x8001) + package
                + s("c") + struct.pack("<HI", 0x7FFF, 2) + s("") + struct.pack("<H", 0))
        entries = zr.decode_map(data)["entries"]
        self.assertEqual([(e["key"], e["class"]) for e in entries],
                         [(k, "CSoftwarePackageObject") for k in "abc"] + [("c", None)])
        self.assertEqual((entries[2], entries[1]["fields"]["m_nFlags"]), (dict(entries[0], key="c", raw_key="c"), 7))
        bad_tags = [data[:-2] + struct.pack("<H", tag) for tag in (0x0001, 0x0005, 0x8002)]
        for bad in bad_tags + [data + b"\0"] + [data[:n] for n in range(len(data))]:   # every truncation
            with self.assertRaises(zr.FormatError, msg=bad.hex()):
                zr.decode_map(bad)
