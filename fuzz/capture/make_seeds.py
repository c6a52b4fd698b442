#!/usr/bin/env python3
"""Writes the seeds of fuzz_capture: small captures, whole, damaged, and in the other byte order."""
import argparse
import pathlib
import struct

FOLDER = pathlib.Path(__file__).parent
VECTORS = FOLDER.parent.parent / "driver" / "vectors"


def option(order, code, value):
    return struct.pack(order + "HH", code, len(value)) + value + bytes(-len(value) % 4)


def block(order, kind, body):
    size = len(body) + 12
    return struct.pack(order + "II", kind, size) + body + struct.pack(order + "I", size)


def header(order="<", link_type=147, resolution=9):
    section = struct.pack(order + "IHHq", 0x1A2B3C4D, 1, 0, -1)
    port = struct.pack(order + "HHI", link_type, 0, 0) + option(order, 9, bytes([resolution])) + option(order, 0, b"")
    return block(order, 0x0A0D0D0A, section) + block(order, 1, port)


def packet(kind, exchange, message, order="<", original=None, comment=b"", version=1):
    payload = struct.pack("<BBHIQ", version, kind, 0, 1, exchange) + message
    whole = 16 + (len(message) if original is None else original)
    body = struct.pack(order + "IIIII", 0, 1, exchange, len(payload), whole) + payload + bytes(-len(payload) % 4)
    if comment:
        body += option(order, 1, comment)
    body += option(order, 2, struct.pack(order + "I", 1)) + option(order, 4, bytes(8)) + option(order, 0, b"")
    return block(order, 6, body)


def vector(name):
    return (VECTORS / f"{name}.bin").read_bytes()


def main():
    argparse.ArgumentParser(description=__doc__).parse_args()
    seeds = FOLDER / "seeds"
    seeds.mkdir(exist_ok=True)
    for old in seeds.iterdir():
        old.unlink()

    request = vector("request/01-directory").rstrip(b"\0")
    notification = vector("notification/4098-text")
    judgement = b'{"decision":3,"rule":"r","microseconds":1}'
    exchange = packet(4, 1, notification) + packet(6, 1, judgement) + packet(5, 1, vector("reply/verdict-4"))
    captures = {
        "empty": b"",
        "header": header(),
        "exchange": header() + exchange,
        "request": header() + packet(2, 1, request, original=65561) + packet(3, 1, b"", comment=b"failed"),
        "texts": header() + packet(1, 0, vector("connect-context/client-type-1")) + packet(8, 0, b'{"a":[1]}')
                 + packet(7, 0, b"the reason\n") + packet(9, 2, b"[[[["),
        "big-endian": header(">") + packet(4, 1, notification, ">"),
        "two-sections": header() + packet(9, 1, b"{}") + header(">", resolution=0x8A) + packet(9, 2, b"{}", ">"),
        "other-interface": header(link_type=1) + packet(4, 1, b"x"),
        "unknown-kind": header() + packet(77, 1, b"x") + packet(4, 2, b"x", version=2),
        "cut-off": (header() + exchange)[:-30],
        "lying-length": header() + exchange[:4] + struct.pack("<I", 4000) + exchange[8:],
        "lying-capture": header() + exchange[:20] + struct.pack("<I", 9999) + exchange[24:],
        "lying-original": header() + packet(2, 1, request, original=0xFFFFFF00),
        "two-lengths": header() + packet(9, 1, b"{}")[:-4] + b"\x08\0\0\0" + exchange,
        "unknown-block": header() + block("<", 0xBAD, b"data") + exchange,
    }
    for name, data in captures.items():
        (seeds / name).write_bytes(struct.pack(">H", len(data) // 2) + data)


main()
