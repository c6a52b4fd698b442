#!/usr/bin/env python3
"""Writes the golden captures from the driver kit's test vectors, independently of the project's own writer.

  make_golden.py VECTORS FOLDER

all-records.pcapng has every well-formed record, malformed.pcapng every malformed one.
"""
import pathlib
import struct
import sys

START = 1_700_000_000_000_000_000  # nanoseconds
DIRECTIONS = {1: 2, 2: 2, 3: 1, 4: 1, 5: 2, 6: 1, 7: 0, 8: 1, 9: 1}


def padded(data):
    return data + bytes(-len(data) % 4)


def option(code, value):
    return struct.pack("<HH", code, len(value)) + padded(value)


def block(kind, body):
    size = len(body) + 12
    return struct.pack("<II", kind, size) + body + struct.pack("<I", size)


class Capture:
    def __init__(self):
        section = struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1) + option(4, b"fenlux") + option(0, b"")
        port = struct.pack("<HHI", 147, 0, 0) + option(2, b"fenlux port") + option(9, b"\x09") + option(0, b"")
        self.data = block(0x0A0D0D0A, section) + block(1, port)
        self.packets = 0
        self.exchange = 0

    def packet(self, kind, exchange, message):
        kept = message.rstrip(b"\0") if kind in (2, 3) else message
        payload = struct.pack("<BBHIQ", 1, kind, 0, 1 if kind not in (8, 9) else 0, exchange) + kept
        time = START + 10_000 * self.packets
        self.packets += 1
        body = struct.pack("<IIIII", 0, time >> 32, time & 0xFFFFFFFF, len(payload), 16 + len(message)) + padded(payload)
        body += option(2, struct.pack("<I", DIRECTIONS[kind])) + option(4, bytes(8)) + option(0, b"")
        self.data += block(6, body)

    def pair(self, kind, message, reply, judgement=None):
        self.exchange += 1
        self.packet(kind, self.exchange, message)
        if judgement:
            self.packet(6, self.exchange, judgement)
        self.packet(kind + 1, self.exchange, reply)


def main():
    vectors, folder = (pathlib.Path(argument) for argument in sys.argv[1:])
    records = {}
    for line in (vectors / "index.txt").read_text().splitlines():
        record, name = line.split()
        # The longest path and full buffers would only make the file large.
        if not name.endswith(("-unused-cd", "/01-longest", "/24-longest")):
            records[name] = (record, (vectors / f"{name}.bin").read_bytes())
    verdicts = [data for name, (_, data) in records.items() if name.startswith("reply/")]
    version = records["version-reply/module-version"][1]

    capture = Capture()
    capture.packet(8, 0, b'{"policy":[]}')
    capture.packet(1, 0, records["connect-context/client-type-1"][1])
    replies = 0
    for name, (record, data) in records.items():
        if name.startswith("request/"):
            capture.pair(2, data, version if name.startswith("request/13") else b"")
        elif name.startswith("notification/"):
            judgement = b'{"decision":2,"rule":"r","microseconds":7}'
            capture.pair(4, data, b"" if "4113" in name else verdicts[replies % len(verdicts)], judgement)
            replies += 1
    capture.exchange += 1
    capture.packet(9, capture.exchange, b'{"operation":"stop"}')
    capture.packet(7, 0, b"the module closed the connection")
    (folder / "all-records.pcapng").write_bytes(capture.data)

    capture = Capture()
    for name, (record, data) in records.items():
        if not name.startswith("malformed/"):
            continue
        if record == "connect-context":
            capture.packet(1, 0, data)
        elif record == "request":
            capture.pair(2, data, b"")
        elif record == "version-reply":
            capture.pair(2, records["request/13-version"][1], data)
        elif record == "notification":
            capture.pair(4, data, verdicts[0])
        else:
            capture.pair(4, records["notification/4098"][1], data)
    (folder / "malformed.pcapng").write_bytes(capture.data)


main()
