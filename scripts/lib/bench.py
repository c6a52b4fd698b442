"""The benchmarks; scripts/bench.sh builds what they need and runs this."""
import argparse
import dataclasses
import json
import os
import pathlib
import platform
import re
import resource
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import threading
import time

from bench_plots import draw
from stress_host import SYSTEM_IMAGES, Failed, Host, permission_events

READY = "Driver Interact Ready."
PROCESSES = 10_000


@dataclasses.dataclass
class Figure:
    """A row of the table."""
    group: str
    name: str
    value: float
    unit: str
    low: float = 0.0  # the quartiles; 0: one measurement
    high: float = 0.0
    floor: str = ""      # the row of the same group that the ratio refers to
    ratio: float = 0.0   # 0: has none
    target: float = 0.0  # of the ratio, or of the value if it has no ratio; 0: none
    at_least: bool = False


def summary_of(group, name, values, unit, **others):
    """The figure of several measurements."""
    low, middle, high = statistics.quantiles(values, n=4, method="inclusive")
    return Figure(group, name, middle, unit, low, high, **others)


# ---- the module, in one process

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
# Operation, its floor, and the ratio to reach.
AGAINST_FLOOR = (("dispatch path-less", "floor", 1.25), ("dispatch two paths", "floor", 1.35),
                 ("register 10000 paths", "floor with file status", 1.15), ("refresh 10000 processes", "floor", 1.1))
# Operation, and how many times the throughput of one thread two should have.
ON_TWO_THREADS = (("deliver, different processes", 1.7), ("deliver, same process", 1.0),
                  ("deliver, host calls alone", 0.0))


def repetitions(build, expression, quick, cores):
    """The repetitions of the benchmarks whose names match, by name and number of threads."""
    count, seconds = (3, 0.005) if quick else (21, 0.05)
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        run = subprocess.run(["taskset", "-c", cores, build / "fenlux_bench", f"--benchmark_filter={expression}",
                              f"--benchmark_repetitions={count}", f"--benchmark_min_time={seconds}",
                              f"--benchmark_out={out.name}", "--benchmark_out_format=json",
                              "--benchmark_report_aggregates_only=false"], stdout=subprocess.DEVNULL,
                             stderr=subprocess.PIPE, text=True, check=False)
        if run.returncode != 0:
            raise Failed(f"fenlux_bench ended with {run.returncode}: {run.stderr}")
        found = {}
        for entry in json.load(out)["benchmarks"]:
            if entry["run_type"] == "iteration":
                name = re.sub(r"/real_time.*|/threads:.*|/repeats:.*", "", entry["run_name"])
                found.setdefault((name, entry["threads"]), []).append(entry)
    return found


def times(entries):
    """The CPU times of repetitions, in nanoseconds."""
    return [entry["cpu_time"] * NANOSECONDS[entry["time_unit"]] for entry in entries]


def unit_for(nanoseconds):
    """A readable unit, and its nanoseconds."""
    return next(((unit, size) for unit, size in (("ms", 1e6), ("us", 1e3)) if nanoseconds >= size), ("ns", 1))


def module_figures(build, quick, cores):
    """Dispatch, registration, refresh, look-ups, and delivery on two threads."""
    figures = []
    # Knowing a million processes takes a while.
    alone = repetitions(build, f"^(dispatch|register|refresh|look-up{'/processes:1000$' if quick else ''})", quick,
                        cores[0])
    for operation, floor, target in AGAINST_FLOOR:
        floor_times = times(alone[f"{operation}/{floor}", 1])
        module_times = times(alone[f"{operation}/module", 1])
        unit, size = unit_for(statistics.median(floor_times))
        ratio = statistics.median(module_times) / statistics.median(floor_times)
        figures.append(summary_of(operation, floor, [time_ / size for time_ in floor_times], unit))
        figures.append(summary_of(operation, "module", [time_ / size for time_ in module_times], unit, floor=floor,
                                  ratio=ratio, target=target))
    lookups = {int(name.rpartition(":")[2]): entries for (name, _), entries in alone.items()
               if name.startswith("look-up/")}
    for count, entries in sorted(lookups.items()):
        figures.append(summary_of("look-up of a process", f"{count:,} known", times(entries), "ns"))
    if len(cores) < 2:
        return figures
    together = repetitions(build, "^(deliver|filling)", quick, ",".join(cores))
    for operation, target in ON_TWO_THREADS:
        one, two = ([entry["items_per_second"] / 1e6 for entry in together[operation, threads]] for threads in (1, 2))
        figures.append(summary_of(operation, "one thread", one, "M/s"))
        figures.append(summary_of(operation, "two threads", two, "M/s", floor="one thread",
                                  ratio=statistics.median(two) / statistics.median(one), target=target,
                                  at_least=True))
    operation = "filling an event's process"
    quiet, busy = ([entry["p99"] for entry in together[f"{operation}/{name}", 1]]
                   for name in ("floor", "during a refresh"))
    figures.append(summary_of(f"{operation}, p99", "no refresh", quiet, "ns"))
    figures.append(summary_of(f"{operation}, p99", "during a refresh", busy, "ns", floor="no refresh",
                              ratio=statistics.median(busy) / statistics.median(quiet), target=1.2))
    return figures


# ---- the guarded open

def open_figures(build, quick, cores):
    """An open without a monitor, with bare ones, and with the host, on one core and on two."""
    figures = []
    places = [("one core", cores[0], cores[0], 1.35)]
    if len(cores) > 1:
        places.append(("two cores", cores[0], cores[1], 1.12))
    for title, core, opener, target in places:
        with tempfile.NamedTemporaryFile(suffix=".json") as out:
            run = subprocess.run([build / "fenlux_open_bench", "4" if quick else "60", "observed", "--core", core,
                                  "--opener-core", opener, "--json", out.name], stdout=subprocess.DEVNULL,
                                 stderr=subprocess.PIPE, text=True, check=False)
            if run.returncode != 0:
                raise Failed(f"fenlux_open_bench ended with {run.returncode}: {run.stderr}")
            variants = json.load(out)
        floor = next(variant["median_us"] for variant in variants if variant["name"] == "bare monitor")
        for variant in variants:
            low, high = variant["quartiles_us"]
            median = variant["median_us"]
            is_host = variant["name"] == "host with the module"
            figures.append(Figure(f"open of a file, {title}", variant["name"], median, "us", low, high, "bare monitor",
                                  median / floor, target if is_host else 0.0))
    return figures


# ---- the host as a process

CONFIGURATION = "[policy]\ndirectories = ['.']\n[log]\nconsole = 'event'\n" + SYSTEM_IMAGES


def start_figure(build, quick):
    """From starting the process to a ready connection."""
    values = []
    with tempfile.TemporaryDirectory() as directory:
        host = Host(build / "fenlux-host", directory, "start")
        host.configuration.write_text(CONFIGURATION)
        for _ in range(3 if quick else 31):
            command = [host.program, "run", "--config", host.configuration, "--socket", host.socket]
            begin = time.monotonic()
            with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True) as process:
                limit = threading.Timer(60, process.kill)
                limit.start()
                lines = []
                for line in process.stderr:
                    lines.append(line)
                    if READY in line:
                        break
                values.append((time.monotonic() - begin) * 1e3)
                process.terminate()
                lines += process.stderr
                limit.cancel()
            if not any(READY in line for line in lines):
                raise Failed("the host did not log that it is ready: " + "".join(lines[-5:]))
    return summary_of("start of the host", f"until \"{READY}\"", values, "ms", target=20)


def open_and_wait(file, reader, writer):
    """A child process: opens the file and waits until its parent ends or closes the other end of the pipe."""
    try:
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        os.close(writer)
        os.close(os.open(file, os.O_RDONLY))
        os.read(reader, 1)
    finally:
        os._exit(0)  # pylint: disable=protected-access


def memory_figure(build):
    """The host's resident memory once it knows this many processes: each opens a watched file."""
    children = []
    reader, writer = os.pipe()
    with tempfile.TemporaryDirectory() as directory:
        watched = pathlib.Path(directory, "watched")
        watched.mkdir()
        file = str(watched / "file.txt")
        pathlib.Path(file).touch()
        host = Host(build / "fenlux-host", directory, "memory")
        host.configuration.write_text("[emulator]\nsource = 'fanotify'\n[emulator.kernel]\ndirectories = ['watched']\n"
                                      "[module]\nrefresh_interval_ms = 600000\n[log]\nconsole = 'event'\n"
                                      + SYSTEM_IMAGES)
        try:
            host.start()
            host.wait_for_log(READY)
            for _ in range(PROCESSES):
                try:
                    child = os.fork()
                except OSError as error:
                    raise Failed(f"only {len(children)} of {PROCESSES} processes could be started: {error.strerror}; "
                                 "raise the limit of processes") from error
                if child == 0:
                    open_and_wait(file, reader, writer)
                children.append(child)
            answered = 0
            for _ in range(600):
                summary = host.summary_now()
                answered = summary["notifications"]["answered"] if summary else 0
                if answered >= PROCESSES:
                    break
                time.sleep(0.1)
            if answered < PROCESSES:
                raise Failed(f"the host answered only {answered} opens of {PROCESSES} processes")
            status = pathlib.Path(f"/proc/{host.process.pid}/status").read_text()
        finally:
            host.kill()
            os.close(reader)
            os.close(writer)
            for child in children:
                os.kill(child, signal.SIGKILL)
            for child in children:
                os.waitpid(child, 0)
    megabytes = int(re.search(r"^VmRSS:\s*(\d+) kB$", status, re.MULTILINE)[1]) / 1024
    return Figure("memory of the host", f"{PROCESSES:,} processes known", megabytes, "MiB", target=20)


# ---- the table

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
    print(f"{'':42} {'median':>10} {'':4} {'spread':>7} {'ratio':>7}  to reach")
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
    figures = module_figures(build, quick, cores)
    obstacle = permission_events()
    if not obstacle:
        figures += open_figures(build, quick, cores)
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
