#!/usr/bin/python3
"""pe_load_config.py NM PROGRAM: points the load configuration entry of a
PE32+ image's data directory at its symbol _load_config_used.

GNU ld (2.40) leaves that entry empty even when the program defines the
structure, so the loader would never read it. The entry takes the
structure's address and the size written in its first field. Exit code 0
when the entry is set, 1 with a message otherwise."""
import struct
import subprocess
import sys

LOAD_CONFIG_ENTRY = 10


def main(nm, program):
    symbols = subprocess.run([nm, program], check=True, capture_output=True, text=True).stdout
    address = None
    for line in symbols.splitlines():
        fields = line.split()
        if len(fields) == 3 and fields[2] == "_load_config_used":
            address = int(fields[0], 16)
    if address is None:
        sys.exit(f"{program}: no symbol _load_config_used")

    with open(program, "r+b") as image:
        data = bytearray(image.read())
        pe = struct.unpack_from("<I", data, 0x3C)[0]
        if data[pe:pe + 4] != b"PE\0\0":
            sys.exit(f"{program}: not a PE image")
        sections = struct.unpack_from("<H", data, pe + 6)[0]
        optional_size = struct.unpack_from("<H", data, pe + 20)[0]
        optional = pe + 24
        if struct.unpack_from("<H", data, optional)[0] != 0x20B:
            sys.exit(f"{program}: not a PE32+ image")
        image_base = struct.unpack_from("<Q", data, optional + 24)[0]
        directories = struct.unpack_from("<I", data, optional + 108)[0]
        if directories <= LOAD_CONFIG_ENTRY:
            sys.exit(f"{program}: the data directory has no load configuration entry")
        rva = address - image_base

        # The structure's own size, read where the section table puts it.
        size = None
        table = optional + optional_size
        for i in range(sections):
            entry = table + 40 * i
            virtual_size, virtual_address, raw_size, raw_offset = struct.unpack_from("<IIII", data, entry + 8)
            if virtual_address <= rva < virtual_address + max(virtual_size, raw_size):
                size = struct.unpack_from("<I", data, raw_offset + rva - virtual_address)[0]
        if not size:
            sys.exit(f"{program}: _load_config_used lies in no section, or its size is 0")

        struct.pack_into("<II", data, optional + 112 + 8 * LOAD_CONFIG_ENTRY, rva, size)
        image.seek(0)
        image.write(data)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(sys.argv[1], sys.argv[2])
