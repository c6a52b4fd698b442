#!/usr/bin/env python3
"""Writes the seeds of fuzz_emulator_intake: one short play for each kind of step. Run it after changing the steps, and
commit the seeds."""
import argparse
import pathlib
import struct

SEEDS = pathlib.Path(__file__).parent / "seeds"
CONNECT_MAGIC, REQUEST_MAGIC, REPLY_MAGIC = 0x2518D52534AC4C62, 0x8F79FFE729A34AE3, 0x5365C3B2B13342E4


def open_valid(client_type=1):
    return bytes([0, client_type - 1])


def open_any(flags=0, context=struct.pack("<QII", CONNECT_MAGIC, 200, 1), before=b""):
    return bytes([1, flags]) + before + bytes([len(context)]) + context


def command(number, payload=b""):
    return bytes([3, number, len(payload)]) + payload


def raw(data, flags=0):
    return bytes([4, flags, len(data)]) + data


def deliver(code, flags, tail=b"", rest=b""):
    return bytes([5, flags]) + struct.pack("<H", code) + bytes([len(tail)]) + tail + rest


def reply(verdict, context=b"", stated=None):
    return bytes([verdict, len(context) if stated is None else stated, len(context)]) + context


def faults(which, rest=b""):
    return bytes([7, which]) + rest


CLOSE, RECONNECT, START = bytes([6]), bytes([9]), bytes([2])


def u32(*values):
    return struct.pack(f"<{len(values)}I", *values)


def main():
    argparse.ArgumentParser(description=__doc__).parse_args()
    SEEDS.mkdir(exist_ok=True)
    for old in SEEDS.iterdir():
        old.unlink()
    path = "/data".encode("utf-16-le")
    item = b"\x11" * 48
    seeds = {
        "open": open_valid(),
        "open-any": open_any() + START,
        "open-name": open_any(1, before=b"\x04port"),
        "open-size": open_any(2, before=u32(5)),
        "open-no-handler": open_any(4),
        "open-no-context": bytes([1, 8]),
        "open-short-context": open_any(context=b"\x01\x02"),
        "open-twice": open_valid() + open_valid(2),
        "reopen": open_valid() + CLOSE + RECONNECT + open_valid(2),
        "monitor": open_valid() + command(1, u32(1) + b"\1" + b"\0" * 8 + path) + command(3, u32(1)),
        "switches": open_valid(2) + command(4, u32(2) + b"\1") + command(6, u32(2) + b"\0") + command(6, u32(1) + b"\0"),
        "values": open_valid() + command(8, u32(77)) + command(9, b"\1") + command(12, b"\1\0\1\0"),
        "dump-and-version": open_valid() + command(11) + command(13),
        "mode": open_valid() + command(19, u32(2)) + command(19, u32(5)),
        "process": open_valid() + command(20, u32(2) + struct.pack("<Q", 400)),
        "list": open_valid() + command(21, u32(1)) + command(22, u32(1) + item + u32(9)) + command(23, u32(1)),
        "list-nested": open_valid() + command(21, u32(1)) + command(21, u32(2)) + command(23, u32(2)),
        "config": open_valid() + command(24, b"block"),
        "unknown-command": open_valid() + command(2) + command(99),
        "raw": open_valid() + raw(struct.pack("<QII", REQUEST_MAGIC, 3, 1), 1) + raw(b"", 0) + raw(b"x", 0x41),
        "flag": open_valid() + raw(struct.pack("<QI", REQUEST_MAGIC, 11), 3),
        "judged": open_valid() + deliver(4098, 0, rest=reply(2)),
        "pass-client-2": open_valid(2) + deliver(4098, 0, rest=reply(3)) + deliver(4098, 0, rest=reply(7)),
        "oplock": open_valid() + deliver(4100, 0x10, rest=reply(3)) + deliver(4100, 0x10, rest=reply(4)),
        "context": open_valid() + deliver(4098, 0, rest=reply(6, b"note\0\0")) + deliver(4098, 0, rest=reply(6, b"n", 9)),
        "unjudged": open_valid() + deliver(1, 0, rest=reply(8)) + deliver(4115, 0x20, b"abc", reply(2)),
        "no-reply": open_valid() + deliver(4113, 2) + deliver(4098, 2),
        "throws": open_valid() + deliver(4098, 3),
        "any-reply": open_valid() + deliver(4098, 1, rest=b"\x0c" + struct.pack("<QI", REPLY_MAGIC, 156)),
        "drop-after": faults(2, b"\2") + open_valid() + deliver(4098, 0, rest=reply(2)) * 3,
        "refuse": faults(1, b"\1") + open_valid() + RECONNECT,
        "version": faults(12, u32(5) + b"\1") + open_valid() + command(13),
        "fail-send": faults(16, b"\x0b\1\2") + open_valid() + command(11) * 2,
    }
    for name, data in seeds.items():
        (SEEDS / name).write_bytes(data)


if __name__ == "__main__":
    main()
