#!/usr/bin/env python3
"""check_formats_doc.py GENERATOR DOC [--update]: each ```zevdump KIND FILE block of DOC must be zevreader's dump of FILE
(KIND "text": the file itself) as GENERATOR writes it now, and every example must have a block. --update rewrites them."""
import difflib, os, re, subprocess, sys, tempfile, zlib
from pathlib import Path

import zevreader

BLOCK = re.compile(r"^```zevdump (\w+) (\S+)\n(.*?)^```$", re.M | re.S)
PACKAGE_ADD_BLOCK = 16   # wire element: scan time, four software maps of three elements, a flag, then this map's third


def main():
    generator, doc = sys.argv[1:3]
    text = Path(doc).read_text(encoding="utf-8")
    with tempfile.TemporaryDirectory(prefix="formats-doc-") as out:
        subprocess.run([generator, out], check=True)
        problems, shown = [], set()

        def regenerate(match):
            kind, name, body = match.groups()
            shown.add(name)
            if not os.path.exists(os.path.join(out, name)):
                problems.append("block %s %s: the generator writes no such example" % (kind, name))
                return match.group(0)
            data = Path(out, name).read_bytes()
            fresh = data.decode("latin-1") if kind == "text" else zevreader.dump(kind, data)
            if fresh != body:
                problems.append("block %s %s differs from the example written now:\n%s" % (kind, name, "".join(
                    difflib.unified_diff(body.splitlines(True), fresh.splitlines(True), "document", "example", n=1))))
            return "```zevdump %s %s\n%s```" % (kind, name, fresh)

        text = BLOCK.sub(regenerate, text)
        problems += ["example %s has no block in the document" % name for name in sorted(set(os.listdir(out)) - shown)]
        # The document says the first reply's package add block is the stored package list, zlib-compressed.
        block = zevreader.decode_message(Path(out, "reply.bin").read_bytes())["elements"][PACKAGE_ADD_BLOCK]["value"]["hex"]
        if zlib.decompress(bytes.fromhex(block)) != Path(out, "SWPackage.bin").read_bytes():
            problems.append("the reply's package add block does not inflate to SWPackage.bin")
    if sys.argv[3:] == ["--update"]:
        Path(doc).write_text(text, encoding="utf-8")
        print("%s: %d blocks written" % (doc, len(shown)))
        return 0
    print("\n".join(problems) + "\nrerun with --update to write the new dumps into %s" % doc if problems
          else "%s: %d dumps match the examples" % (doc, len(shown)))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
