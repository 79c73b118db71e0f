"""Cuts the platform's own records out of an SMBIOS dump, a file each for qemu: records.py DUMP FOLDER prints its options."""
import sys

dump, folder = sys.argv[1:]
table = open(dump, "rb").read()[32:]
options = []
while table:
    end = table.index(b"\0\0", table[1]) + 2
    if table[0] > 127:
        options.append(f"-smbios file={folder}/record-{len(options)}.bin")
        open(options[-1].split("=")[1], "wb").write(table[:end])
    table = table[end:]
print(" ".join(options))
