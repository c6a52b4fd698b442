#!/usr/bin/env python3
"""Writes the seeds of fuzz_host_dispatch: each seed of fuzz_dispatch's messages with this target's control bytes, and one
path for each rule. Run it after changing either, and commit the seeds."""
import argparse
import importlib.util
import pathlib

HERE = pathlib.Path(__file__).parent
SEEDS = HERE / "seeds"
DISPATCH = HERE.parent / "dispatch"


def load_dispatch():
    spec = importlib.util.spec_from_file_location("dispatch_seeds", DISPATCH / "make_seeds.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def main():
    argparse.ArgumentParser(description=__doc__).parse_args()
    dispatch = load_dispatch()
    control = len(dispatch.control())
    SEEDS.mkdir(exist_ok=True)
    for old in SEEDS.iterdir():
        old.unlink()
    known = set()
    for seed in sorted((DISPATCH / "seeds").iterdir()):
        message = seed.read_bytes()[control:]
        if message not in known:
            known.add(message)
            (SEEDS / seed.name).write_bytes(bytes([0, 0]) + message)
    paths = {"secret": "/home/diary.secret", "program": "C:\\a.exe", "temp": "C:\\x\\Temporary", "data": "/data/a",
             "undecided": "/undecided/a", "mark": "/a.mark", "prefix": "\\??\\C:\\\\a\\.\\b"}
    for number, (name, path) in enumerate(paths.items()):
        write = dispatch.notification(4097, process=number, item1=dispatch.text(path))
        (SEEDS / f"rule-{name}").write_bytes(bytes([number % 8, number % 2]) + write)


if __name__ == "__main__":
    main()
