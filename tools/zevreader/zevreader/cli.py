"""The zevreader command: decodes a file given on the command line and prints JSON (or a dump)."""

import argparse
import json
import struct
import sys

from . import __version__
from .dump import dump
from .formats import FormatError, decode_map, decode_message, decode_reply, decode_strings, encode_message

DESCRIPTION = "Decodes the ZEV Software Inventory component's list files, messages and replies into JSON."
EPILOG = """examples:
  zevreader reply reply.bin          a reply saved with 'swinv run --save-reply reply.bin'
  zevreader map SWPackage.bin        a stored list (SWList.bin, SWPackage.bin, SWChange.bin)
  zevreader strings swsearch.bin     the extra search paths
  zevreader message settings.bin     any message, element by element
  zevreader reply --dump reply.bin   every byte annotated instead of JSON

Strings are read as latin-1, so every byte comes out as the character of the same value.
Exit status: 0 decoded, 1 the bytes do not follow the format or the file cannot be read, 2 bad usage."""

KINDS = {"map": "a stored inventory map (SWList.bin, SWPackage.bin, SWChange.bin)",
         "strings": "a stored string array (swsearch.bin)",
         "message": "a message wire buffer, element by element",
         "reply": "an inventory reply: scan time, software and package maps, flags"}


def parser():
    top = argparse.ArgumentParser(prog="zevreader", description=DESCRIPTION, epilog=EPILOG,
                                  formatter_class=argparse.RawDescriptionHelpFormatter)
    top.add_argument("--version", action="version", version="zevreader " + __version__)
    sub = top.add_subparsers(dest="command", required=True, metavar="COMMAND")
    for name, what in KINDS.items():
        command = sub.add_parser(name, help=what, description="Decodes " + what + ".")
        command.add_argument("file", metavar="FILE", help="the file to decode ('-' for standard input)")
        command.add_argument("--dump", action="store_true", help="print an annotated hex dump instead of JSON")
        if name == "reply":
            command.add_argument("--skip", type=int, default=0, metavar="K",
                                 help="elements of the host in front of the reply (default 0)")
    encode = sub.add_parser("encode-message", help="message JSON (as 'message' prints it) back to wire bytes")
    encode.add_argument("json", metavar="JSON", help="the JSON file ('-' for standard input)")
    encode.add_argument("-o", "--output", metavar="OUT", help="output file (default: standard output)")
    return top


def read_input(name, mode):
    if name == "-":
        return sys.stdin.buffer.read() if mode == "rb" else sys.stdin.read()
    with open(name, mode, **({} if mode == "rb" else {"encoding": "utf-8"})) as source:
        return source.read()


def main(argv=None):
    args = parser().parse_args(argv)
    try:
        if args.command == "encode-message":
            wire = encode_message(json.loads(read_input(args.json, "r")))
            with open(args.output, "wb") if args.output else open(sys.stdout.fileno(), "wb", closefd=False) as out:
                out.write(wire)
            return 0
        data = read_input(args.file, "rb")
        skip = getattr(args, "skip", 0)
        if args.dump:
            sys.stdout.write(dump(args.command, data, skip))
            return 0
        result = {"map": decode_map, "strings": decode_strings, "message": decode_message,
                  "reply": lambda d: decode_reply(d, skip)}[args.command](data)
    except (FormatError, OSError, ValueError, KeyError, TypeError, struct.error, RecursionError) as exc:
        print("zevreader: %s: %s" % (args.command, exc), file=sys.stderr)
        return 1
    print(json.dumps(result, indent=1))
    return 0
