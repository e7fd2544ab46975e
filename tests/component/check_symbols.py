#!/usr/bin/env python3
"""check_symbols.py LIBRARY [--sanitized]: the built libsoftware.so.0 defines exactly the 16 entry points; only the C
and C++ runtime, zlib and the three host symbols stay undefined."""
import re, subprocess, sys

ENTRY_POINTS = set("GetComponentApp DeleteComponentApp IsLoaded GetID GetName GetCommands Execute InitClient "
                   "SetConfig Unload GetClientFileList Install DataSent NeedsX SetXState HaltExecution".split())
HOST_SYMBOLS = {"_ZN3zev10Settings_tC1Ev", "_ZNK3zev10Settings_t11getHomePathB5cxx11Ev",
                "_Z16GetSimpleCommandPKcRNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"}
RUNTIME = re.compile(r"@(GLIBC|GLIBCXX|CXXABI|GCC|ZLIB)_[0-9.]+$|^(__gmon_start__|_ITM_\w+TMCloneTable|__cxa_finalize)$"
                     r"|^(compress\w*|uncompress2?|deflate\w*|inflate\w*|crc32\w*|adler32\w*|zlibVersion|zError)$")
SANITIZER = re.compile(r"^_*(asan|ubsan|tsan|lsan|sanitizer)_")


def run(*argv):
    return subprocess.run(argv, check=True, capture_output=True, text=True).stdout


def dynamic(which, path):
    return {line.split()[-1] for line in run("nm", "-D", which, path).splitlines() if line.strip()}


library, sanitized = sys.argv[1], "--sanitized" in sys.argv[2:]
defined, undefined = dynamic("--defined-only", library), dynamic("--undefined-only", library)
problems = [] if defined == ENTRY_POINTS else [
    "exports: extra %s, missing %s" % (sorted(defined - ENTRY_POINTS), sorted(ENTRY_POINTS - defined))]
# The sanitizer runtimes' interceptors stand in for the C runtime, unversioned.
runtime = {name.split("@")[0] for path in re.findall(r"=>\s*(\S*lib(?:asan|tsan|ubsan|lsan)\S*)", run("ldd", library))
           for name in dynamic("--defined-only", path)} if sanitized else set()
problems += ["unexpected undefined symbol " + name for name in sorted(undefined - HOST_SYMBOLS)
             if not RUNTIME.search(name) and not (sanitized and (SANITIZER.match(name) or name in runtime))]
problems += ["host symbol not referenced: " + name for name in sorted(HOST_SYMBOLS - undefined)]
if "Library soname: [libsoftware.so.0]" not in run("readelf", "-d", library):
    problems.append("soname is not libsoftware.so.0")
print("\n".join(problems))
sys.exit(1 if problems else 0)
