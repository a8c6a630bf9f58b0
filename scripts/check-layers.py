#!/usr/bin/env python3
"""Checks that no library includes a header of a library above it.

Reads the #include "..." lines of every source file of the libraries and the command line, maps
each file and each included header to its library by folder, and fails when an include is not
allowed below. Tests, benchmarks and fuzzers may include anything.

    scripts/check-layers.py [ROOT]      exit 0 when clean, 1 with one line per violation
"""
import pathlib
import re
import sys

# Library of a file: the first folder prefix that matches, most specific first.
FOLDERS = [
    ("markup/chartables/", "chartables"),
    ("Classes/", "foundation"),
    ("markup/", "markup"),
    ("url/", "url"),
    ("webcontent/documents/", "documents"),
    ("webcontent/", "webcontent"),
    ("imaging/", "imaging"),
    ("spotlight/", "spotlight"),
    ("service/", "service"),
    ("tools/", "tools"),
]

# What each library may include besides itself. The built-in importers of spotlight/ read
# documents and images, so spotlight sits above imaging; imaging never includes spotlight.
BELOW = {
    "chartables": [],
    "foundation": ["chartables"],
    "markup": ["foundation", "chartables"],
    "url": ["markup", "foundation", "chartables"],
    "webcontent": ["url", "markup", "foundation", "chartables"],
    "documents": ["webcontent", "url", "markup", "foundation", "chartables"],
    "imaging": ["documents", "webcontent", "url", "markup", "foundation", "chartables"],
    "spotlight": ["imaging", "documents", "webcontent", "url", "markup", "foundation",
                  "chartables"],
    "service": ["spotlight", "imaging", "documents", "webcontent", "url", "markup",
                "foundation", "chartables"],
    "tools": ["service", "spotlight", "imaging", "documents", "webcontent", "url", "markup",
              "foundation", "chartables"],
}

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')
SOURCES = {".h", ".hpp", ".cpp", ".cc", ".c"}


def library_of(path):
    for prefix, library in FOLDERS:
        if path.startswith(prefix):
            return library
    return None


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else
                        pathlib.Path(__file__).resolve().parent.parent)
    files = {file for prefix, _ in FOLDERS for file in (root / prefix).rglob("*")
             if file.suffix in SOURCES and file.is_file()}
    violations = 0
    for file in sorted(files):
        relative = file.relative_to(root).as_posix()
        library = library_of(relative)
        for number, line in enumerate(file.read_text(errors="replace").splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            header = match.group(1)
            target = library_of(header)
            if target is None or target == library or target in BELOW[library]:
                continue
            print(f"{relative}:{number}: {library} includes {header} ({target})")
            violations += 1
    if violations:
        print(f"layers: {violations} include(s) point upward", file=sys.stderr)
        return 1
    print(f"layers: {len(files)} files, no include points upward")
    return 0


if __name__ == "__main__":
    sys.exit(main())
