#!/usr/bin/env python3
"""Runs clang-tidy on sources, and caches which had no findings.

A file is not checked again until its preprocessed text (comments included, because they may suppress findings), its
compiler options, .clang-tidy or clang-tidy itself changes.
"""
import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys


def checks_key():
    """The part of the cache key that applies to all files."""
    version = subprocess.run(["clang-tidy", "--version"], check=True, capture_output=True).stdout
    return version + pathlib.Path(".clang-tidy").read_bytes()


def key_of(source, entry, common):
    """The key of a file's result, or None if clang cannot preprocess it: clang-tidy then reports why."""
    options = shlex.split(entry["command"])[1:]
    del options[options.index("-o"):options.index("-o") + 2]
    options = [option for option in options if option not in ("-c", entry["file"])]
    text = subprocess.run(["clang++", *options, "-E", "-C", "-P", entry["file"]], cwd=entry["directory"],
                          capture_output=True)
    if text.returncode != 0:
        return None
    kept = [option for option in options if not option.startswith(("-I", "-ffile-prefix-map="))]
    return hashlib.sha256(b"\0".join([common, source.encode(), " ".join(kept).encode(), text.stdout])).hexdigest()


def check(source, entry, build, common, cache):
    """Checks one file; returns its findings, or nothing."""
    key = key_of(source, entry, common)
    if key and (cache / key).exists():
        return None
    run = subprocess.run(["clang-tidy", "--quiet", "-p", build, source], capture_output=True, text=True)
    if run.returncode == 0:
        if key:
            (cache / key).touch()
        return None
    # Drop the counts of suppressed warnings of system headers.
    errors = re.sub(r"^.*\d+ warnings?( and \d+ errors?)? generated\.\n|^Suppressed .*\n|^Use -header-filter.*\n", "",
                    run.stderr, flags=re.MULTILINE)
    return run.stdout + errors


def main(build, sources):
    root = os.environ.get("FENLUX_CACHE") or os.path.join(
        os.environ.get("XDG_CACHE_HOME") or os.path.expanduser("~/.cache"), "fenlux")
    cache = pathlib.Path(root, "tidy")
    cache.mkdir(parents=True, exist_ok=True)
    with open(pathlib.Path(build, "compile_commands.json"), encoding="utf-8") as file:
        entries = {os.path.realpath(entry["file"]): entry for entry in json.load(file)}
    missing = [source for source in sources if os.path.realpath(source) not in entries]
    if missing:
        sys.exit(f"{build} does not compile {', '.join(missing)}")

    common = checks_key()
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for findings in pool.map(
                lambda source: check(source, entries[os.path.realpath(source)], build, common, cache), sources):
            if findings:
                failed += 1
                print(findings, flush=True)
    if failed:
        sys.exit(f"clang-tidy: findings in {failed} of {len(sources)} files")
    print(f"clang-tidy: no findings in {len(sources)} files")


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter,
                                     allow_abbrev=False)
    parser.add_argument("build", help="build directory with compile_commands.json")
    parser.add_argument("sources", nargs="+")
    arguments = parser.parse_args()
    main(arguments.build, arguments.sources)
