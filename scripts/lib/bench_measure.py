"""What scripts/bench.sh measures: the module in one process, the guarded open, and the host as a process."""
import dataclasses
import json
import os
import pathlib
import re
import signal
import statistics
import subprocess
import tempfile
import threading
import time

from stress_host import SYSTEM_IMAGES, Failed, Host, ProcessFigures, make_directory

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
# Operation, its floor, the name of the module's row, and the target of the ratio.
AGAINST_FLOOR = (("dispatch path-less", "floor", "module", 1.25), ("dispatch two paths", "floor", "module", 1.35),
                 ("register 10000 paths", "floor with file status", "module", 1.15),
                 ("register 10000 paths", "floor with all host calls", "module, against all host calls", 0.0),
                 ("refresh 10000 processes", "floor", "module", 1.1))
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


def one_thread_figures(build, quick, core):
    """Dispatch, registration, refresh and look-ups."""
    figures = []
    lookup = "look-up/processes:1000$" if quick else "look-up"  # the largest of them takes a while to set up
    alone = repetitions(build, f"^(dispatch|register|refresh|{lookup})", quick, core)
    for operation, floor, row, target in AGAINST_FLOOR:
        floor_times = times(alone[f"{operation}/{floor}", 1])
        module_times = times(alone[f"{operation}/module", 1])
        unit, size = unit_for(statistics.median(floor_times))
        ratio = statistics.median(module_times) / statistics.median(floor_times)
        figures.append(summary_of(operation, floor, [value / size for value in floor_times], unit))
        figures.append(summary_of(operation, row, [value / size for value in module_times], unit, floor=floor,
                                  ratio=ratio, target=target))
    lookups = {int(name.rpartition(":")[2]): entries for (name, _), entries in alone.items()
               if name.startswith("look-up/")}
    for count, entries in sorted(lookups.items()):
        figures.append(summary_of("look-up of a process", f"{count:,} known", times(entries), "ns"))
    return figures


def two_thread_figures(build, quick, cores):
    """Delivery on two threads, and dispatch during a refresh."""
    figures = []
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


def open_scaling_figures(build, quick, cores):
    """Opens per time of two openers with two readers on two cores, against one of each on one core."""
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        run = subprocess.run([build / "fenlux_open_scaling_bench", "4" if quick else "60", "--cores", *cores, "--json",
                              out.name], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False)
        if run.returncode != 0:
            raise Failed(f"fenlux_open_scaling_bench ended with {run.returncode}: {run.stderr}")
        variants = json.load(out)
    figures = []
    for one, two in zip(variants[::2], variants[1::2]):
        is_host = one["name"].startswith("host")
        for variant in (one, two):
            low, high = variant["quartiles_per_ms"]
            figure = Figure("opens, as many programs as readers", variant["name"], variant["per_ms"], "1/ms", low, high)
            if variant is two:
                figure.floor, figure.ratio = one["name"], two["per_ms"] / one["per_ms"]
                figure.target, figure.at_least = (1.7 if is_host else 0.0), True
            figures.append(figure)
    return figures


# ---- the host as a process

CONFIGURATION = "[policy]\ndirectories = ['.']\n[log]\nconsole = 'event'\n" + SYSTEM_IMAGES


def start_figure(build, quick):
    """From starting the process to a ready connection."""
    values = []
    with make_directory() as directory:
        host = Host(build / "fenlux-host", directory, "start")
        host.configuration.write_text(CONFIGURATION)
        for _ in range(3 if quick else 31):
            command = [host.program, "run", "--config", host.configuration, "--socket", host.socket]
            begin = time.monotonic()
            with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True) as process:
                timeout = threading.Timer(60, process.kill)
                timeout.start()
                lines = []
                for line in process.stderr:
                    lines.append(line)
                    if READY in line:
                        break
                values.append((time.monotonic() - begin) * 1e3)
                process.terminate()
                lines += process.stderr
                timeout.cancel()
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
    with make_directory() as directory:
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
            memory = ProcessFigures(host.process.pid).memory
        finally:
            host.kill()
            os.close(reader)
            os.close(writer)
            for child in children:
                os.kill(child, signal.SIGKILL)
            for child in children:
                os.waitpid(child, 0)
    return Figure("memory of the host", f"{PROCESSES:,} processes known", memory / 1024, "MiB", target=20)
