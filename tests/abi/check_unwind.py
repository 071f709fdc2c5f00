#!/usr/bin/env python3
"""Checks that every function of an object can be unwound through: each has an entry in the table for that.

Usage: check_unwind.py OBJECT
An object that was stripped is checked for what it exports.
"""
import re
import subprocess
import sys

path = sys.argv[1]


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


frames = output_of("readelf", "--wide", "--debug-dump=frames", path)
# .debug_frame, which a debugger reads and a process does not have, comes after.
loaded = frames.split("Contents of the .debug_frame section")[0]
entries = sorted((int(begin, 16), int(end, 16))
                 for begin, end in re.findall(r" FDE .* pc=([0-9a-f]+)\.\.([0-9a-f]+)", loaded))

functions = {}
for line in output_of("readelf", "--wide", "--symbols", path).splitlines():
    fields = line.split()
    # Number, value, size, type, binding, visibility, section, name. What has no size is not the compiler's.
    if len(fields) == 8 and fields[3] == "FUNC" and fields[6] != "UND" and int(fields[2], 0) > 0:
        functions[int(fields[1], 16)] = fields[7]

missing = [name for address, name in sorted(functions.items())
           if not any(begin <= address < end for begin, end in entries)]
print(f"{len(entries)} entries for {len(functions)} functions")
assert len(functions) >= 169, "the functions can't be seen"
assert len(entries) >= 169, "there is no table to speak of"
assert not missing, f"without an entry: {missing}"
