#!/usr/bin/env python3
"""Runs clang-tidy on the sources that a build compiles, and caches which had no findings.

Sources with the same options are checked in batches, so that the headers that all of them include are checked once. If
the build compiles in batches (CMake's unity builds), several of those are checked as one. A batch is not checked again
until its preprocessed text (comments included, because they may suppress findings), its compiler options, .clang-tidy
or clang-tidy itself changes.
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

MAX_SOURCES = 24  # in a batch


def checks_key():
    """The part of the cache key that applies to all files."""
    version = subprocess.run(["clang-tidy", "--version"], check=True, capture_output=True).stdout
    return version + pathlib.Path(".clang-tidy").read_bytes()


def relative(path):
    """The path from this directory, without symbolic links."""
    return os.path.relpath(os.path.realpath(path), os.path.realpath("."))


class Batch:
    """Sources that one compile command or several with the same options compile.

    Sources are checked as one text, not as includes of one file: some checks skip what is included.
    """

    def __init__(self, directory, sources, options, build, parts=()):
        self.directory = directory
        self.sources = sources
        self.options = options
        self.parts = parts  # the batches that this one combines
        self.file = sources[0]
        if len(sources) > 1:
            self.file = os.path.join(build, "batches", f"{len(sources)}-{sources[0].replace('/', '-')}")

    @classmethod
    def of_command(cls, entry, build):
        path = os.path.join(entry["directory"], entry["file"])
        sources = [path]
        if "/Unity/unity_" in path:  # CMake's names of its batches
            text = pathlib.Path(path).read_text(encoding="utf-8")
            sources = re.findall(r'^#include "(.*)"$', text, flags=re.MULTILINE)
        options = shlex.split(entry["command"])[1:]
        del options[options.index("-o"):options.index("-o") + 2]
        options = [option for option in options if option not in ("-c", entry["file"])]
        options.append("-Wno-unknown-warning-option")  # the compiler of the build may have others
        # The analyzer follows fewer paths of each function than by default: a third of the time.
        options += ["-Xclang", "-analyzer-config", "-Xclang", "max-nodes=50000"]
        return cls(entry["directory"], [relative(source) for source in sources], options, build)

    def write(self):
        """Writes the file of several sources."""
        if len(self.sources) == 1:
            return
        os.makedirs(os.path.dirname(self.file), exist_ok=True)
        text = "".join(pathlib.Path(source).read_text(encoding="utf-8") for source in self.sources)
        pathlib.Path(self.file).write_text(text, encoding="utf-8")

    def place(self, line):
        """The source and its line of a line of the file."""
        for source in self.sources:
            count = pathlib.Path(source).read_text(encoding="utf-8").count("\n")
            if line <= count:
                break
            line -= count
        return f"{source}:{line}"

    def key(self, common):
        """The key of the result, or None if clang cannot preprocess the file: clang-tidy then reports why."""
        text = self.run("clang++", *self.options, "-E", "-C", "-P", os.path.abspath(self.file))
        if text.returncode != 0:
            return None
        kept = [option for option in self.options if not option.startswith(("-I", "-ffile-prefix-map="))]
        parts = [common, " ".join(self.sources).encode(), " ".join(kept).encode(), text.stdout]
        return hashlib.sha256(b"\0".join(parts)).hexdigest()

    def compiles(self):
        return self.run("clang++", *self.options, "-fsyntax-only", os.path.abspath(self.file)).returncode == 0

    def run(self, *command):
        return subprocess.run(command, cwd=self.directory, capture_output=True)


def combine(batches, build):
    """Batches of up to MAX_SOURCES sources: combines batches with the same options."""
    alike = {}
    for batch in batches:
        groups = alike.setdefault((batch.directory, *batch.options), [[]])
        if sum(len(part.sources) for part in [*groups[-1], batch]) > MAX_SOURCES:
            groups.append([])
        groups[-1].append(batch)
    for groups in alike.values():
        for group in groups:
            if len(group) == 1:
                yield group[0]
            else:
                sources = [source for batch in group for source in batch.sources]
                yield Batch(group[0].directory, sources, group[0].options, build, group)


def batches_of(sources, build):
    """The batches that contain the sources. Ends the program if a source is not compiled."""
    with open(pathlib.Path(build, "compile_commands.json"), encoding="utf-8") as file:
        batches = [Batch.of_command(entry, build) for entry in json.load(file)]
    missing = {relative(source) for source in sources}
    found = []
    for batch in batches:
        if missing.intersection(batch.sources):
            missing.difference_update(batch.sources)
            found.append(batch)
    if missing:
        sys.exit(f"{build} does not compile {', '.join(sorted(missing))}")
    return sorted(combine(found, build), key=lambda batch: -len(batch.sources))  # the longest first


def check(batch, common, cache):
    """Checks a batch; returns its findings, or nothing."""
    batch.write()
    key = batch.key(common)
    if key and (cache / key).exists():
        return ""
    if batch.parts and not batch.compiles():  # names clash, or there is an error that the parts show
        findings = "\n".join(filter(None, (check(part, common, cache) for part in batch.parts)))
        if key and not findings:
            (cache / key).touch()
        return findings
    file = os.path.abspath(batch.file)
    run = batch.run("clang-tidy", "--quiet", file, "--", *batch.options)
    if run.returncode == 0:
        if key:
            (cache / key).touch()
        return ""
    # Drop the counts of suppressed warnings of system headers.
    errors = re.sub(r"^.*\d+ warnings?( and \d+ errors?)? generated\.\n|^Suppressed .*\n|^Use -header-filter.*\n", "",
                    run.stderr.decode(), flags=re.MULTILINE)
    return re.sub(re.escape(file) + r":(\d+)", lambda match: batch.place(int(match[1])), run.stdout.decode() + errors)


def main(build, sources):
    root = os.environ.get("FENLUX_CACHE") or os.path.join(
        os.environ.get("XDG_CACHE_HOME") or os.path.expanduser("~/.cache"), "fenlux")
    cache = pathlib.Path(root, "tidy")
    cache.mkdir(parents=True, exist_ok=True)
    common = checks_key()
    failed = False
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for findings in pool.map(lambda batch: check(batch, common, cache), batches_of(sources, build)):
            if findings:
                failed = True
                print(findings, flush=True)
    if failed:
        sys.exit("clang-tidy: the findings are above")
    print(f"clang-tidy: no findings in {len(sources)} files")


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter,
                                     allow_abbrev=False)
    parser.add_argument("build", help="build directory with compile_commands.json")
    parser.add_argument("sources", nargs="+")
    arguments = parser.parse_args()
    main(arguments.build, arguments.sources)
