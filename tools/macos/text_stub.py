#!/usr/bin/env python3
"""Prints the text stub for macOS of a library: text_stub.py NAME LIBRARY...

It holds the names that the given libraries of Linux export, in the form of TAPI's text-based stubs.
"""

import subprocess
import sys

name, libraries = sys.argv[1], sys.argv[2:]
symbols = set()
for library in libraries:
    listing = subprocess.run(['nm', '-D', '--defined-only', '--format=posix', library],
                             check=True, capture_output=True, text=True).stdout
    # Without the versions: macOS has none.
    symbols |= {'_' + line.split()[0].split('@')[0] for line in listing.splitlines()}
if len(symbols) < 10:
    sys.exit(f'{libraries}: no names')
print(f"""--- !tapi-tbd
tbd-version: 4
targets: [ arm64-macos ]
install-name: '@rpath/lib{name}.dylib'
exports:
  - targets: [ arm64-macos ]
    symbols: [ {', '.join(f"'{symbol}'" for symbol in sorted(symbols))} ]
...""")
