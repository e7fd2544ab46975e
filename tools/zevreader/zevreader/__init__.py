"""zevreader: decodes the byte formats of the ZEV Software Inventory component (libsoftware.so.0)
into plain dictionaries, with the standard library only.

    import zevreader
    with open("reply.bin", "rb") as f:
        reply = zevreader.decode_reply(f.read())
    for entry in reply["packages"]["add"]["entries"]:
        print(entry["key"], entry["fields"]["m_strVersion"])

decode_reply, decode_map, decode_strings and decode_message raise FormatError on bytes that do
not follow the format; dump gives the annotated hex dump that docs/formats.md shows.
"""

__version__ = "0.1.0"

from .dump import dump
from .formats import (FormatError, decode_map, decode_message, decode_reply, decode_strings, encode_message)

__all__ = ["FormatError", "decode_map", "decode_message", "decode_reply", "decode_strings", "dump", "encode_message"]
