"""Reads what a shared object says of the libraries that it may load at run time: its .note.dlopen section."""
import json
import struct
import subprocess
import tempfile

NOTE_OWNER = b"FDO\0"
NOTE_TYPE = 0x407C0C0A


def records_of(note):
    """The JSON texts of a note section: three words, the owner and the text, both padded to four bytes."""
    while note:
        owner_size, text_size, kind = struct.unpack_from("=III", note)
        owner_end = 12 + (owner_size + 3) // 4 * 4
        assert note[12:12 + owner_size] == NOTE_OWNER, f"owner {note[12:12 + owner_size]}"
        assert kind == NOTE_TYPE, f"type {kind:#x}"
        yield json.loads(note[owner_end:owner_end + text_size].rstrip(b"\0"))
        note = note[owner_end + (text_size + 3) // 4 * 4:]


def entries_of(path):
    """The entries of the object at `path`: each names a feature, a description, a priority and SONAMEs."""
    with tempfile.NamedTemporaryFile() as section:
        subprocess.run(["objcopy", "-O", "binary", "--only-section=.note.dlopen", path, section.name], check=True)
        return [entry for record in records_of(section.read()) for entry in record]
