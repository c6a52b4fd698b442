"""The soak; scripts/soak.sh builds what it needs and runs this.

Two hosts run at once: one plays a scripted scenario as fast as it can, with seeded faults and dropped connections; the
other, as root, judges the kernel's events. Processes start and exit, both hosts reload their configuration, and control
clients send good and bad requests."""
import argparse
import os
import pathlib
import random
import signal
import socket
import statistics
import subprocess
import sys
import threading
import time

from stress_host import (Failed, Host, Opener, ProcessFigures, SYSTEM_IMAGES, Table, adds_up, is_refused,
                         make_directory, permission_events)

CODES = (4097, 4098, 4099, 4101, 4105, 4109, 4113, 4114, 4116, 4118, 8193, 8194, 8197, 8204, 8205, 8206)
FAULTS = ("version_reply = 'short'", "version_reply = 'empty'", "version_reply = 'replace'", "driver_version = 7",
          "refuse_connects = 1", "fail_send = {{ command = {command} }}",
          "fail_send = {{ command = {command}, exception = 'other' }}", "delay_requests_ms = 20")
OPERATIONS = (("status",), ("summary",), ("driver",), ("version",), ("features",), ("policy-changed",), ("debug-dump",),
              ("spsp",), ("net-control", "mode1"), ("reload",))


def scenario(chance):
    """A scenario that never ends: bursts at full rate, garbage, faults, and a dropped connection in each round."""
    steps = ["name = 'soak'", "threads = 2", "repeat = 0"]
    for _ in range(4):
        for _ in range(6):
            code = chance.choice(CODES)
            path = chance.choice(("/a/file", "/a/file.secret", "/vault/x", "/some/long/path/" + "p" * 200))
            steps.append(f"[[steps]]\nnotify = {code}\npid = {chance.choice((1, 2, 77, 999999))}\npath = '{path}'\n"
                         f"count = {chance.choice((2000, 10000, 20000))}\nthreads = 2")
        steps.append(f"[[steps]]\ngarbage = {chance.randrange(0, 400)}\nseed = {chance.randrange(1, 1000)}\ncount = 500")
        fault = chance.choice(FAULTS).format(command=chance.choice((1, 3, 11, 12, 13, 20, 24)))
        steps.append(f"[[steps]]\nfaults = {{ {fault} }}")
    steps.append("[[steps]]\ndrop = true")
    return "\n".join(steps) + "\n"


RULES = ("[[judging.rules]]\npath = '*.secret'\ndecision = 3\n"
         "[[judging.rules]]\npath = '/vault/**'\ndecision = 4\n" + SYSTEM_IMAGES)


def scripted_configuration(variant):
    """One of two configurations of the scripted host, which differ in live settings."""
    directories = "['.']" if variant else "['.', 'not-there']"
    return ("[emulator]\nscenario = 'scenario.toml'\ndeadline_ms = 30000\n[log]\nconsole = 'off'\n"
            f"file = 'soak-scripted.log'\nfile_level = 'warning'\n[module]\nrefresh_interval_ms = 200\n"
            f"identity_text = {str(variant).lower()}\n[policy]\ndirectories = {directories}\n" + RULES)


def kernel_configuration(variant):
    """One of two configurations of the host of the kernel's events."""
    directories = "['watched', 'other']" if variant else "['watched']"
    return ("[emulator]\nsource = 'fanotify'\n[log]\nconsole = 'event'\n[module]\nbypass_process_cache = true\n"
            f"refresh_interval_ms = 200\n[policy]\ndirectories = {directories}\n" + RULES)


class Samples:
    """Figures of a host, taken twice a second."""

    def __init__(self, host):
        self.host = host
        self.figures = []
        self.p99 = []

    def take(self, summary):
        """Takes a sample; `summary` may be None."""
        self.figures.append(ProcessFigures(self.host.process.pid))
        if summary and summary["latency"]["count"]:
            self.p99.append(summary["latency"]["p99_us"])

    def quarters(self, name):
        """The medians of the first quarter and of the last."""
        values = [getattr(figure, name) for figure in self.figures]
        return first_and_last(values)


def first_and_last(values):
    """The medians of the first quarter of the values and of the last."""
    length = max(1, len(values) // 4)
    return statistics.median(values[:length]), statistics.median(values[-length:])


class Disturbances:
    """Everything that disturbs the hosts, each on its own thread, until the end."""

    def __init__(self, hosts, configurations, directory, chance):
        self.hosts = hosts
        self.configurations = configurations
        self.directory = directory
        self.chance = chance
        self.ended = threading.Event()
        self.counts = {"processes": 0, "reloads": 0, "control requests": 0, "bad control clients": 0,
                       "connections ended by ctl": 0}
        self.errors = []
        self.threads = [threading.Thread(target=self.guarded, args=(body,), daemon=True)
                        for body in (self.churn, self.reload, self.control, self.bad_clients)]

    def guarded(self, body):
        """Runs a disturbance repeatedly; stores the exception that ends it."""
        try:
            while not self.ended.wait(body()):
                pass
        except Exception as error:  # pylint: disable=broad-except
            self.errors.append(f"{body.__name__}: {error!r}")

    def churn(self):
        """Starts a process that reads a file, which the second host judges."""
        subprocess.run(["cat", str(self.directory / "watched" / "1.txt")], stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL, check=False)
        self.counts["processes"] += 1
        return 0.01

    def reload(self):
        """Gives each host another configuration and sends SIGHUP."""
        for host in self.hosts:
            self.counts["reloads"] += 1
            temporary = host.configuration.with_suffix(".new")
            temporary.write_text(self.configurations[host](self.counts["reloads"] % 2 == 0))
            temporary.rename(host.configuration)
            host.process.send_signal(signal.SIGHUP)
        return 0.5

    def control(self):
        """Sends a control request, which sometimes ends the connection."""
        host = self.chance.choice(self.hosts)
        if self.chance.random() < 0.03:
            host.control("stop")
            self.counts["connections ended by ctl"] += 1
        else:
            host.control(*self.chance.choice(OPERATIONS))
        self.counts["control requests"] += 1
        return 0.1

    def bad_clients(self):
        """Connects a client that sends nothing, half a line, or nonsense."""
        host = self.chance.choice(self.hosts)
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
            client.settimeout(5)
            try:
                client.connect(str(host.socket))
                client.sendall(self.chance.choice((b"", b"{\"operation\":", b"\xff\x00nonsense\n", b"{}\n", b"[" * 5000)))
            except OSError:
                pass
        self.counts["bad control clients"] += 1
        return 0.3

    def start(self):
        """Starts all disturbances."""
        for thread in self.threads:
            thread.start()

    def stop(self):
        """Ends all disturbances."""
        self.ended.set()
        for thread in self.threads:
            thread.join(40)


def add_samples(table, name, samples):
    """Adds the rows about memory, descriptors, threads and latency of one host."""
    first, last = samples.quarters("memory")
    table.add(f"{name}: memory, first quarter and end", f"{first / 1024:.0f} -> {last / 1024:.0f} MB",
              "grows by at most 10% + 8 MB", last <= first * 1.1 + 8192)
    first, last = samples.quarters("descriptors")
    table.add(f"{name}: descriptors", f"{first:.0f} -> {last:.0f}", "at most 4 more", last <= first + 4)
    first, last = samples.quarters("threads")
    table.add(f"{name}: threads", f"{first:.0f} -> {last:.0f}", "at most 4 more", last <= first + 4)
    first, last = first_and_last(samples.p99)
    table.add(f"{name}: p99 of the latency", f"{first:.0f} -> {last:.0f} us", "at most three times + 2 ms",
              last <= first * 3 + 2000)


def soak(program, minutes, seed):
    """Runs the soak and returns its table."""
    table = Table(f"soak of {minutes:g} minutes, seed {seed}")
    chance = random.Random(seed)
    kernel = not permission_events()
    with make_directory() as name:
        directory = pathlib.Path(name)
        for watched in ("watched", "other"):
            (directory / watched).mkdir()
            for index in range(4):
                (directory / watched / f"{index}.txt").write_text("words\n")
                (directory / watched / f"{index}.secret").write_text("words\n")
        (directory / "scenario.toml").write_text(scenario(chance))
        scripted = Host(program, directory, "scripted")
        hosts, configurations = [scripted], {scripted: scripted_configuration}
        if kernel:
            hosts.append(Host(program, directory, "kernel"))
            configurations[hosts[1]] = kernel_configuration
        openers = [Opener(directory / "watched" / f"{i}.{'secret' if i % 2 else 'txt'}") for i in range(4)] if kernel else []
        try:
            samples = run_hosts(hosts, configurations, directory, chance, openers, minutes, table)
            endings = [host.stop() for host in hosts]
        finally:
            for opener in openers:
                opener.ended = True
            for host in hosts:
                host.kill()
    for host, sample, (code, summary) in zip(hosts, samples, endings):
        name = host.configuration.stem
        if summary is None:
            table.add(f"{name}: summary", "none", "printed", False)
            continue
        table.add(f"{name}: notifications", summary["notifications"]["delivered"], "more than 1000",
                  summary["notifications"]["delivered"] > 1000)
        table.add(f"{name}: totals", summary["notifications"]["sum"], "add up", adds_up(summary))
        table.add(f"{name}: connections", summary["connections"]["opened"])
        table.add(f"{name}: protocol violations", summary["protocol_violations"], "0",
                  summary["protocol_violations"] == 0)
        table.add(f"{name}: exit code", code, "0", code == 0)
        add_samples(table, name, sample)
    if kernel:
        add_openers(table, openers, endings[1][1])
    else:
        print(f"kernel events: skipped, because {permission_events()}")
    return table


def run_hosts(hosts, configurations, directory, chance, openers, minutes, table):
    """Starts the hosts and everything that disturbs them, and takes samples until the time is up."""
    for host in hosts:
        host.configuration.write_text(configurations[host](True))
        host.start()
    deadline = time.monotonic() + 30
    while any(host.summary_now() is None for host in hosts):
        if time.monotonic() > deadline:
            raise Failed("a host does not answer")
        time.sleep(0.1)
    if openers:
        while not is_refused(openers[1].path):
            if time.monotonic() > deadline:
                raise Failed("the host does not refuse the file")
            time.sleep(0.01)
    disturbances = Disturbances(hosts, configurations, directory, random.Random(chance.random()))
    disturbances.start()
    for opener in openers:
        opener.start()
    samples = [Samples(host) for host in hosts]
    end = time.monotonic() + minutes * 60
    while time.monotonic() < end:
        for host, sample in zip(hosts, samples):
            if host.process.poll() is not None:
                raise Failed(f"a host ended with {host.process.returncode}: {host.log()[-2000:]}")
            sample.take(host.summary_now())
        time.sleep(0.5)
    for opener in openers:
        opener.ended = True
    disturbances.stop()
    for opener in openers:
        opener.join(10)
    for name, count in disturbances.counts.items():
        table.add(name, count)
    for error in disturbances.errors:
        print(error, file=sys.stderr)
    table.add("disturbances that failed", len(disturbances.errors), "0", not disturbances.errors)
    return samples


def add_openers(table, openers, summary):
    """Adds the rows about the results of the openers."""
    let_through = sum(opener.opened for opener in openers if opener.path.endswith(".secret"))
    unjudged = sum(count for cause, count in summary["unjudged"].items() if cause != "own process")
    ordinary = sum(opener.refused for opener in openers if opener.path.endswith(".txt"))
    failed = sum(opener.failed for opener in openers)
    slowest = max(opener.slowest for opener in openers)
    table.add("opens", sum(opener.count() for opener in openers))
    table.add("refused files opened", let_through, f"at most the {unjudged} counted as not judged",
              let_through <= unjudged)
    table.add("ordinary files refused", ordinary, "0", ordinary == 0)
    table.add("opens that failed otherwise", failed, "0", failed == 0)
    table.add("slowest open", f"{slowest * 1000:.0f} ms", "at most 3000 ms", slowest <= 3)
    causes = ", ".join(f"{cause} {count}" for cause, count in summary["unjudged"].items())
    table.add("not judged, by cause", causes or "none")


def main():
    """Runs the soak that the command line describes and prints its table."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--minutes", type=float, required=True)
    parser.add_argument("--seed", type=int, required=True)
    arguments = parser.parse_args()
    try:
        table = soak(arguments.program, arguments.minutes, arguments.seed)
    except Failed as error:
        print(f"soak: FAILED: {error}", file=sys.stderr)
        return 1
    table.print()
    return 0 if table.passed() else 1


if __name__ == "__main__":
    code = main()
    sys.stdout.flush()
    sys.stderr.flush()
    os._exit(code)  # an opener that never returns must not keep the run from ending
