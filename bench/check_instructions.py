#!/usr/bin/env python3
"""Counts the instructions of a dispatch as a ratio to its floor's, and compares the ratios with the committed ones.

  check_instructions.py PROGRAM --build "GNU 12.2.0 RelWithDebInfo x86_64"
  check_instructions.py PROGRAM --print      only prints the ratios, for instructions.json

PROGRAM is fenlux_dispatch_instructions. Valgrind's callgrind counts: the same number for the same program, libraries
and kind of processor, however busy the machine is. A ratio may differ by 2 % from the committed one. A larger one means
that dispatch became slower, a smaller one that it became faster and the committed ratio must follow. Exits with 77
(skipped) without valgrind, or for a build other than the one that the committed ratios belong to.
"""
import argparse
import json
import pathlib
import re
import shutil
import subprocess
import sys

TOLERANCE = 0.02
NOTIFICATIONS = ("path-less", "two-paths")
COUNTS = (500, 1500)  # the difference leaves out the start and the end of the process
SKIPPED = 77


def instructions(program, variant, notification, count):
    command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", program, variant, notification,
               str(count)]
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    collected = re.search(r"Collected\s*:\s*(\d+)", result.stderr)
    if result.returncode != 0 or collected is None:
        sys.exit(f"{' '.join(command)} failed with exit code {result.returncode}:\n{result.stderr}")
    return int(collected.group(1))


def per_notification(program, variant, notification):
    few, many = (instructions(program, variant, notification, count) for count in COUNTS)
    return (many - few) / (COUNTS[1] - COUNTS[0])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program")
    parser.add_argument("--build", default="", help="compiler, version, build type and processor of the program")
    parser.add_argument("--print", action="store_true", help="print the ratios and compare nothing")
    options = parser.parse_args()
    if shutil.which("valgrind") is None:
        print("skipped, because valgrind is not installed: scripts/setup.sh --tools")
        return SKIPPED
    if not options.print and not re.fullmatch(r"GNU 12\.\S* RelWithDebInfo x86_64", options.build):
        print(f"skipped, because the committed ratios are those of GNU 12 RelWithDebInfo x86_64, not {options.build}")
        return SKIPPED

    committed = json.loads((pathlib.Path(__file__).parent / "instructions.json").read_text(encoding="utf-8"))
    failed = False
    for notification in NOTIFICATIONS:
        module, floor = (per_notification(options.program, variant, notification) for variant in ("module", "floor"))
        ratio = module / floor
        print(f"{notification}: {module:.0f} instructions, floor {floor:.0f}, ratio {ratio:.3f}")
        if options.print:
            continue
        change = ratio / committed[notification] - 1
        if abs(change) > TOLERANCE:
            print(f"{notification}: the committed ratio is {committed[notification]:.3f}, this one differs by "
                  f"{100 * change:+.1f} %. If that is intended, put the new ratio into bench/instructions.json.")
            failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
