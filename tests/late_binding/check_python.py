#!/usr/bin/env python3
"""Loads the shared object into Python and calls it, as a script on an appliance would.

Usage: check_python.py LIBKORVEX_UTIL own|import
With `import`, Python's own module ssl has loaded OpenSSL before, out of sight.
"""
import ctypes
import errno
import os
import socket
import subprocess
import sys
import tempfile
import time

library_path, mode = sys.argv[1:]
korvex = ctypes.CDLL(library_path)


class SslSocketInfo(ctypes.Structure):
    _fields_ = [("fdSocket", ctypes.c_int32), ("pBio", ctypes.c_void_p), ("pSsl", ctypes.c_void_p),
                ("pCtx", ctypes.c_void_p)]


def openssl_files():
    with open("/proc/self/maps", encoding="ascii") as maps:
        return {line.split()[-1] for line in maps if "/libssl.so" in line or "/libcrypto.so" in line}


def expect(what, actual, expected):
    assert actual == expected, f"{what}: {actual!r}, expected {expected!r}"
    print("ok:", what)


def check_functions():
    korvex.Rough_Tick.restype = ctypes.c_uint64
    before = int(time.time() * 1000)
    tick = korvex.Rough_Tick()
    assert before <= tick <= int(time.time() * 1000), f"Rough_Tick: {tick}"

    value = ctypes.c_int64()
    korvex.Decimal_String_To_Integer(b"-1234567890123", ctypes.byref(value))
    expect("Decimal_String_To_Integer", value.value, -1234567890123)
    expect("Check_Temp_Filename", korvex.Check_Temp_Filename(b"/tmp/plain"), 1)
    expect("Is_Process_Existed", korvex.Is_Process_Existed(os.getpid()), 1)


def check_plain_connection():
    korvex.SSL_Recv.restype = korvex.SSL_Send.restype = ctypes.c_int64
    ours, theirs = socket.socketpair()
    record = SslSocketInfo(ours.detach(), None, None, None)
    expect("SSL_Send", korvex.SSL_Send(ctypes.byref(record), b"abc", ctypes.c_uint64(3), 0), 3)
    expect("what was sent", theirs.recv(16), b"abc")
    theirs.sendall(b"defg")
    buffer = ctypes.create_string_buffer(4)
    expect("Exactly_SSL_Recv", korvex.Exactly_SSL_Recv(ctypes.byref(record), buffer, 4, 1000), 4)
    expect("what was received", buffer.raw, b"defg")
    korvex.SSL_Socket_Destroy(ctypes.byref(record), 0)
    expect("the record", (record.fdSocket, record.pCtx), (-1, None))


def check_context(folder):
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                    "-days", "2", "-subj", "/CN=nas.test", "-keyout", "key", "-out", "certificate"],
                   cwd=folder, check=True, capture_output=True)
    host = os.path.join(folder, "host")
    with open(host, "wb") as out:
        for name in "certificate", "key":
            with open(os.path.join(folder, name), "rb") as part:
                out.write(part.read())

    context = ctypes.c_void_p()
    missing = os.path.join(folder, "missing").encode()
    expect("CTX_Initialize without files", korvex.CTX_Initialize(None, b"", b"", ctypes.byref(context)), -errno.EINVAL)
    expect("CTX_Initialize with a missing file",
           korvex.CTX_Initialize(missing, b"", missing, ctypes.byref(context)), -errno.ENOENT)
    expect("CTX_Initialize", korvex.CTX_Initialize(host.encode(), b"", host.encode(), ctypes.byref(context)), 0)
    assert context.value, "no context"
    korvex.CTX_Destroy(context)


if mode == "import":
    import ssl
    print(ssl.OPENSSL_VERSION)
loaded = openssl_files()
expect("OpenSSL in the process", len(loaded), 2 if mode == "import" else 0)
check_functions()
check_plain_connection()
expect("OpenSSL after the plain calls", openssl_files(), loaded)
with tempfile.TemporaryDirectory() as place:
    check_context(place)
expect("OpenSSL after a TLS call", len(openssl_files()), 2)
