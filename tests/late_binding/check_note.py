#!/usr/bin/env python3
"""Checks that the shared object does not depend on OpenSSL, and that a note in it names what it may load.

Usage: check_note.py LIBKORVEX_UTIL LIBSSL
"""
import json
import pathlib
import subprocess
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "debian"))
import dlopen_note  # noqa: E402

library, libssl = sys.argv[1:]


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def dynamic_entries(path, tag):
    lines = output_of("readelf", "-dW", path).splitlines()
    return [line.split("[")[1].rstrip("]") for line in lines if f"({tag})" in line]


needed = dynamic_entries(library, "NEEDED")
assert not [name for name in needed if "ssl" in name or "crypto" in name], f"needed: {needed}"

# Weak ones may stay without a definition.
undefined = [line.split()[-2:] for line in output_of("nm", "-D", "--undefined-only", library).splitlines()]
openssl_names = {name: kind for kind, name in undefined if name.startswith(("SSL", "TLS", "BIO_", "OPENSSL_", "ERR_"))}
assert "SSL_new" in openssl_names, "the link editor can't see what the library wants of an executable"
assert set(openssl_names.values()) == {"w"}, f"not weak: {openssl_names}"

(soname,) = dynamic_entries(libssl, "SONAME")
entries = dlopen_note.entries_of(library)
named = [entry for entry in entries if soname in entry["soname"]]
assert named, f"no entry for {soname} in {entries}"
for entry in entries:
    assert entry["feature"] and entry["description"], f"incomplete: {entry}"
    assert entry["priority"] in ("required", "recommended", "suggested"), f"priority: {entry}"
assert named[0]["priority"] != "required", "the library works without it"

note_header = [line for line in output_of("readelf", "-SW", library).splitlines() if ".note.dlopen" in line]
assert len(note_header) == 1 and " NOTE " in note_header[0] and " A " in note_header[0], f"section: {note_header}"
print(json.dumps(entries, indent=1))
