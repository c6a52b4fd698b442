#!/usr/bin/env python3
"""Checks the syntax of sources as C++26, with deprecation warnings as errors.

The other options of a source are those of the build. Sources that the build does not compile (the host kit, the
examples) get those of the module. Writes nothing.
"""
import argparse
import concurrent.futures
import json
import os
import pathlib
import shlex
import subprocess
import sys

DEPRECATION = ["-std=c++26", "-fsyntax-only", "-Wdeprecated", "-Werror=deprecated", "-Wdeprecated-declarations",
               "-Werror=deprecated-declarations"]
# Where the sources find what they would find in an installed package.
KIT = ["-DMODULE_NAME=\"\"", "-Ihostkit/include", "-Idriver/include", "-Isrc", "-Irefhost", "-I."]
# Its options serve for sources that the build does not compile.
MODEL = "src/core/fenlux_impl.cpp"


def options_of(entry):
    """The include paths, macros and warnings of a compile command."""
    words = shlex.split(entry["command"])
    kept = [word for word in words if word.startswith(("-I", "-D", "-W", "-f"))]
    kept = [word for word in kept if not word.startswith(("-Werror", "-ffile-prefix-map", "-fcf-protection"))]
    for index, word in enumerate(words):
        if word == "-isystem":
            kept += [word, words[index + 1]]
    return kept


def check(compiler, build, source, entries, model):
    """Returns the compiler's output if it found something."""
    entry = entries.get(os.path.realpath(source))
    options = options_of(entry) if entry else [*options_of(model), *KIT, f"-I{build}/include"]
    header = ["-x", "c++-header"] if source.endswith(".h") else []
    run = subprocess.run([compiler, *options, *DEPRECATION, *header, source], capture_output=True, text=True)
    return run.stderr if run.returncode != 0 or "deprecated" in run.stderr else ""


def main(compiler, build, sources):
    with open(pathlib.Path(build, "compile_commands.json"), encoding="utf-8") as file:
        entries = {os.path.realpath(entry["file"]): entry for entry in json.load(file)}
    model = entries.get(os.path.realpath(MODEL))
    if not model:
        sys.exit(f"{build} does not compile {MODEL}")
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for findings in pool.map(lambda source: check(compiler, build, source, entries, model), sources):
            if findings:
                failed += 1
                print(findings, flush=True)
    version = subprocess.run([compiler, "--version"], check=True, capture_output=True, text=True).stdout.split("\n")[0]
    if failed:
        sys.exit(f"{version}: findings in {failed} of {len(sources)} files")
    print(f"{version}: nothing deprecated in {len(sources)} files")


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter,
                                     allow_abbrev=False)
    parser.add_argument("compiler")
    parser.add_argument("build", help="build directory with compile_commands.json")
    parser.add_argument("sources", nargs="+")
    arguments = parser.parse_args()
    main(arguments.compiler, arguments.build, arguments.sources)
