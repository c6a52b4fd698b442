#!/usr/bin/env python3
"""Writes the seeds of fuzz_driver_protocol from the test vectors: the byte that selects the record, then the record,
without trailing zeros if the fuzzer adds them again. Run it after changing the vectors, and commit the seeds. Seeds whose
names do not begin with "vector-" are not changed."""
import argparse
import pathlib

HERE = pathlib.Path(__file__).parent
SEEDS = HERE / "seeds"
VECTORS = HERE.parent.parent / "driver" / "vectors"

KINDS = ["connect-context", "request", "version-reply", "notification", "reply"]
LARGEST = 2048  # the longest input of a short run


def main():
    argparse.ArgumentParser(description=__doc__).parse_args()
    SEEDS.mkdir(exist_ok=True)
    for old in SEEDS.glob("vector-*"):
        old.unlink()
    for line in (VECTORS / "index.txt").read_text(encoding="utf-8").splitlines():
        kind, name = line.split()
        data = (VECTORS / f"{name}.bin").read_bytes()
        if kind == "request":
            data = data.rstrip(b"\0")
        if len(data) < LARGEST:
            (SEEDS / f"vector-{name.replace('/', '-')}").write_bytes(bytes([KINDS.index(kind)]) + data)


if __name__ == "__main__":
    main()
