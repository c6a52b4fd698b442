#!/usr/bin/env python3
"""Writes the seeds of fuzz_dispatch: one small input for each path through dispatch. Run it after changing the layout of
the control bytes, and commit the seeds."""
import argparse
import pathlib
import struct

SEEDS = pathlib.Path(__file__).parent / "seeds"


def control(decision=2, flags=0, context=0, throwing=0, empty=0, always=0, kind=0):
    return bytes([decision, flags, context, throwing, empty, always, kind])


def text(value):
    return (value + "\0").encode("utf-16-le")


def notification(code, process=1, fields=(), item1=b"", item2=b"", item3=b"", item4=b""):
    fixed = bytearray(156)
    struct.pack_into("<QI", fixed, 12, process, code)
    struct.pack_into("<IIII", fixed, 30, len(item1), len(item2), len(item3), 1 if item4 else 0)
    for offset, layout, value in fields:
        struct.pack_into("<" + layout, fixed, offset, value)
    return bytes(fixed) + item1 + item2 + item3 + item4


def write(name, control_bytes, message):
    (SEEDS / name).write_bytes(control_bytes + message)


def main():
    argparse.ArgumentParser(description=__doc__).parse_args()
    SEEDS.mkdir(exist_ok=True)
    for old in SEEDS.iterdir():
        old.unlink()
    path, other = text("\\Device\\a.txt"), text("\\Device\\b.txt")
    write("plain", control(), notification(4098))
    write("short", control(), notification(4098)[:155])
    write("access", control(decision=3), notification(4097, fields=[(147, "B", 1), (148, "I", 7)], item1=path))
    write("access-condition", control(decision=4), notification(8193, fields=[(25, "B", 1), (24, "B", 1)], item1=path))
    write("two-paths", control(decision=1), notification(4104, item1=path, item2=other, item3=b"\1\2\3"))
    write("category-2", control(), notification(4109, fields=[(27, "B", 1)]))
    write("no-reply", control(), notification(4113, item1=path))
    write("endpoint-4", control(), notification(4114, fields=[(115, "H", 443), (117, "I", 0x0100007F)]))
    write("endpoint-6", control(), notification(4114, fields=[(114, "B", 1), (115, "H", 443), (132, "B", 1)]))
    write("remote", control(flags=0x04), notification(8205, fields=[(114, "B", 1), (115, "Q", 1), (139, "Q", 4)]))
    write("prefixed-path", control(flags=0x20), notification(4118, item1=text("\\Registry\\Ma\\Software")))
    write("prefixed-short", control(), notification(4118, item1=text("short")))
    write("marked", control(decision=6), notification(8194))
    write("further-path", control(), notification(8204, item1=path, item2=other, item3=b"\1\2", item4=text("c")))
    write("oplock", control(flags=0x01), notification(4100, fields=[(29, "B", 1)]))
    write("context", control(decision=5, context=11), notification(4098))
    write("context-lost", control(decision=5), notification(4098))
    write("identity", control(flags=0x08), notification(4098, fields=[(46, "I", 12), (50, "B", 1)]))
    write("surrogates", control(), notification(4098, item1=text("\U0001F600") + b"\0\xd8"))
    write("unknown-code", control(), notification(4115, item1=path))
    write("huge-item", control(), notification(4098, fields=[(30, "I", 0xFFFFFFFF), (34, "I", 0xFFFFFFFF)], item1=b""))
    write("throwing-call", control(throwing=9, kind=1), notification(4098, item1=path))
    write("throwing-null-what", control(throwing=9, kind=4), notification(4098, item1=path))
    write("throwing-log", control(always=0x11), notification(4095))
    write("throwing-detail", control(always=0x02), notification(4098, fields=[(29, "B", 1)]))
    write("empty-record", control(empty=2), notification(4098))
    write("empty-reply", control(empty=1), notification(4098))
    write("measured", control(flags=0x10), notification(8195))
    write("stopped", control(flags=0x02), notification(8206))


if __name__ == "__main__":
    main()
