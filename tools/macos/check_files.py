#!/usr/bin/env python3
"""Checks what was linked for macOS: check_files.py HEADER MODULE PROGRAM...

The module must export the functions that its header declares and nothing else. Tells each fault on a
line of its own and fails if there is one.
"""

import pathlib
import re
import struct
import sys

MAGIC_64, CPU_ARM64, EXECUTABLE, DYLIB = 0xFEEDFACF, 0x0100000C, 2, 6
HAS_THREAD_LOCALS = 0x800000  # MH_HAS_TLV_DESCRIPTORS: the system never unloads such a library
LC_SYMTAB, LC_SEGMENT_64, LC_BUILD_VERSION = 0x2, 0x19, 0x32
LC_DYLD_INFO_ONLY, LC_DYLD_EXPORTS_TRIE = 0x80000022, 0x80000033
SECTION_THREAD_LOCALS = range(0x11, 0x16)  # S_THREAD_LOCAL_REGULAR to _INIT_FUNCTION_POINTERS
PLATFORM_MACOS, TARGET = 1, (13, 3)
N_STAB, N_TYPE, N_EXT, DYNAMIC_LOOKUP = 0xE0, 0x0E, 0x01, 0xFE


class MachO:
    """What is checked of a file in the form of Mach-O, 64 bits, little endian."""

    def __init__(self, path):
        self.data = path.read_bytes()
        magic, self.cpu, _, self.kind, count, _, self.flags = struct.unpack_from('<7I', self.data)
        if magic != MAGIC_64:
            raise ValueError('is no Mach-O file of 64 bits')
        self.section_types, self.oldest_system, self.unbound, trie = set(), None, [], (0, 0)
        at = 32
        for _ in range(count):
            command, size = struct.unpack_from('<2I', self.data, at)
            if command == LC_SEGMENT_64:
                sections, = struct.unpack_from('<I', self.data, at + 64)
                for i in range(sections):
                    self.section_types.add(self.data[at + 72 + 80 * i + 64])
            elif command == LC_BUILD_VERSION:
                platform, version = struct.unpack_from('<2I', self.data, at + 8)
                self.oldest_system = (platform, version >> 16, version >> 8 & 0xFF)
            elif command == LC_SYMTAB:
                self.unbound = list(self._unbound(*struct.unpack_from('<4I', self.data, at + 8)))
            elif command == LC_DYLD_INFO_ONLY:
                trie = struct.unpack_from('<2I', self.data, at + 40)
            elif command == LC_DYLD_EXPORTS_TRIE:
                trie = struct.unpack_from('<2I', self.data, at + 8)
            at += size
        self.exports = sorted(self._exports(self.data[trie[0]:trie[0] + trie[1]]))

    def _unbound(self, symbols, count, texts, _):
        """Names that are undefined without telling which library has them."""
        for i in range(count):
            name, kind, _, description, _ = struct.unpack_from('<IBBHQ', self.data, symbols + 16 * i)
            if kind & N_STAB or kind & N_TYPE or not kind & N_EXT:
                continue
            if description >> 8 in (0, DYNAMIC_LOOKUP):
                yield self.data[texts + name:].split(b'\0', 1)[0].decode()

    @staticmethod
    def _exports(trie, at=0, prefix=b''):
        def number(at):
            value = shift = 0
            while True:
                value |= (trie[at] & 0x7F) << shift
                at, shift = at + 1, shift + 7
                if not trie[at - 1] & 0x80:
                    return value, at

        if not trie:
            return
        size, at = number(at)
        if size:
            yield prefix.decode()
        at += size
        children, at = trie[at], at + 1
        for _ in range(children):
            end = trie.index(b'\0', at)
            child, following = number(end + 1)
            yield from MachO._exports(trie, child, prefix + trie[at:end])
            at = following


def faults(path, kind, exports):
    """The faults of a file as sentences; `exports` are the names that it must export, None for any."""
    try:
        file = MachO(path)
    except (OSError, ValueError, struct.error) as error:
        yield str(error)
        return
    if (file.cpu, file.kind) != (CPU_ARM64, kind):
        yield f'is of processor {file.cpu:#x} and type {file.kind}'
    if file.oldest_system != (PLATFORM_MACOS, *TARGET):
        yield f'is for platform and system {file.oldest_system}'
    for name in file.unbound:
        yield f'{name} is in no library'
    if exports is None:
        return
    for name in sorted(exports ^ set(file.exports)):
        yield f'{name} ' + ('is exported' if name in file.exports else 'is not exported')
    if file.flags & HAS_THREAD_LOCALS or file.section_types & set(SECTION_THREAD_LOCALS):
        yield 'has thread_local variables, so the system would never unload it'


def main():
    header, module, *programs = map(pathlib.Path, sys.argv[1:])
    exports = re.findall(r'^QTP_EXPORT .*?(\w+)\(', header.read_text(), re.MULTILINE)
    found = [f'{module.name} {fault}' for fault in faults(module, DYLIB, {f'_{name}' for name in exports})]
    for program in programs:
        found += [f'{program.name} {fault}' for fault in faults(program, EXECUTABLE, None)]
    for fault in found:
        print('error:', fault)
    return 1 if found or not exports else 0


if __name__ == '__main__':
    sys.exit(main())
