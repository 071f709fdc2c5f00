#!/usr/bin/env python3
"""Adds the packages of the libraries that a package's objects may load at run time to its substitution variables.

Usage: dlopen_substvars.py PACKAGE

dlopen:Depends, dlopen:Recommends and dlopen:Suggests follow the priorities of the objects' notes.
"""
import pathlib
import subprocess
import sys

debian = pathlib.Path(__file__).resolve().parent
sys.dont_write_bytecode = True
import dlopen_note  # noqa: E402

FIELDS = {"required": "Depends", "recommended": "Recommends", "suggested": "Suggests"}


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


def package_of(soname, triplet):
    """The installed package that has the library of this architecture; a line is `package:arch: path`."""
    found = {line.split(":")[0] for line in output_of("dpkg-query", "-S", f"*/{triplet}/{soname}").splitlines()}
    assert len(found) == 1, f"{soname} is in {sorted(found)}"
    return found.pop()


package = sys.argv[1]
triplet = output_of("dpkg-architecture", "-qDEB_HOST_MULTIARCH")
packages = {field: set() for field in FIELDS.values()}
for path in sorted((debian / package).glob("usr/lib/**/*.so.*")):
    if path.is_symlink():
        continue
    for entry in dlopen_note.entries_of(path):
        # Alternatives of one library: the first that is there is loaded, so any of them will do.
        choice = " | ".join(package_of(soname, triplet) for soname in entry["soname"])
        packages[FIELDS[entry["priority"]]].add(choice)
        print(f"{path.name}: {entry['feature']}: {FIELDS[entry['priority']]} {choice}")

with open(debian / f"{package}.substvars", "a", encoding="ascii") as substvars:
    for field, choices in packages.items():
        substvars.write(f"dlopen:{field}={', '.join(sorted(choices))}\n")
