"""The benchmarks' table, JSON and plots; scripts/bench.sh builds what they need and runs this."""
import argparse
import dataclasses
import json
import os
import pathlib
import platform
import re
import resource
import shutil
import subprocess
import sys
import time

from bench_measure import (memory_figure, one_thread_figures, open_figures, open_scaling_figures, start_figure,
                           two_thread_figures)
from bench_plots import draw
from stress_host import Failed, permission_events


def busy_seconds():
    """The time that all processors have spent on anything, in seconds."""
    fields = [int(field) for field in pathlib.Path("/proc/stat").read_text().splitlines()[0].split()[1:9]]
    return (sum(fields) - fields[3] - fields[4]) / os.sysconf("SC_CLK_TCK")


def own_seconds():
    """The processor time of this process and of the children that have ended."""
    usages = (resource.getrusage(who) for who in (resource.RUSAGE_SELF, resource.RUSAGE_CHILDREN))
    return sum(usage.ru_utime + usage.ru_stime for usage in usages)


def verdict_of(figure):
    """What the last column says about a target."""
    if not figure.target:
        return ""
    reached = figure.ratio or figure.value
    good = reached >= figure.target if figure.at_least else reached <= figure.target
    sign = "≥" if figure.at_least else "≤"
    return f"{sign} {figure.target:g}{'' if good else ', missed'}"


def print_table(figures):
    """The table, with a heading for each group."""
    group = None
    print(f"{'':42} {'median':>10} {'':4} {'spread':>7} {'ratio':>7}  target")
    for figure in figures:
        if figure.group != group:
            group = figure.group
            print(group)
        spread = f"{(figure.high - figure.low) / 2 / figure.value:.1%}" if figure.high else ""
        ratio = f"{figure.ratio:.2f}" if figure.ratio else ""
        print(f"  {figure.name:40} {figure.value:10.2f} {figure.unit:4} {spread:>7} {ratio:>7}  "
              f"{verdict_of(figure)}".rstrip())


def machine():
    """What the figures depend on."""
    model = re.search(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.MULTILINE)
    commit = subprocess.run(["git", "describe", "--always", "--dirty"], capture_output=True, text=True, check=False)
    return {"processor": model[1] if model else platform.machine(), "cores": os.cpu_count(),
            "kernel": platform.release(), "date": time.strftime("%Y-%m-%d"), "commit": commit.stdout.strip()}


def check_outputs(json_file, plots):
    """Reports what cannot be written before anything is measured."""
    if json_file:
        with open(json_file, "a", encoding="utf-8"):
            pass
    if plots:
        plots.mkdir(parents=True, exist_ok=True)
        if shutil.which("gnuplot") is None:
            raise Failed("gnuplot is not installed, so nothing can be drawn; install it, or leave out --plots")


def main(build, quick, json_file, plots):
    check_outputs(json_file, plots)
    cores = [str(core) for core in sorted(os.sched_getaffinity(0))[:2]]
    begin, busy, own = time.monotonic(), busy_seconds(), own_seconds()
    figures = one_thread_figures(build, quick, cores[0])
    if len(cores) > 1:
        figures += two_thread_figures(build, quick, cores)
    obstacle = permission_events()
    if not obstacle:
        figures += open_figures(build, quick, cores)
        if len(cores) > 1:
            figures += open_scaling_figures(build, quick, cores)
    figures.append(start_figure(build, quick))
    if not obstacle and not quick:
        figures.append(memory_figure(build))
    elapsed = time.monotonic() - begin
    other = max(0.0, (busy_seconds() - busy) - (own_seconds() - own)) / elapsed / os.cpu_count()

    print_table(figures)
    if obstacle:
        print(f"The guarded open and the host's memory were not measured: {obstacle}.")
    elif quick:
        print("With --quick, the host's memory and look-ups among many processes are not measured.")
    if len(cores) < 2:
        print("What needs two cores was not measured: only one is available.")
    print(f"Other work used {other * 100:.1f} % of the machine during the {elapsed:.0f} s"
          + ("; measure again when it is quiet." if other > 0.05 else "."))
    if json_file:
        content = {"machine": machine(), "other_load": round(other, 4), "quick": quick,
                   "figures": [dataclasses.asdict(figure) for figure in figures]}
        json_file.write_text(json.dumps(content, indent=2) + "\n", encoding="utf-8")
    if plots:
        draw(figures, plots)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__, allow_abbrev=False)
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--json", type=pathlib.Path)
    parser.add_argument("--plots", type=pathlib.Path)
    options = parser.parse_args()
    try:
        main(options.build, options.quick, options.json, options.plots)
    except (Failed, OSError, subprocess.SubprocessError) as failure:
        sys.exit(f"bench: {failure}")
