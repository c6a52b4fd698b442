#!/usr/bin/env python3
"""The work of scripts/fleet.sh: fleet.py HOSTS FENLUX_HOST ALERT_RULES

Everything runs on loopback with its own ports, in a temporary directory, and ends with this program.
"""
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request

TIMEOUT = 120
INTERVAL = 1  # of scrapes, in seconds
REFUSED_ATTEMPTS = 4  # of the last host's first connections; the module tries again every five seconds
SLOW_MS = 20  # what the driver of the first host adds to every reply
COST_SCRAPES = 300

CONFIG = """
[control]
enabled = false
[log]
console = "off"
file = "log"
[metrics]
listen = "127.0.0.1:0"
[emulator]
scenario = "scenario.toml"
[emulator.faults]
{faults}
[[judging.rules]]
name = "keys stay closed"
path = "*.key"
decision = 3
[[judging.rules]]
name = "secrets stay closed"
path = "*.secret"
decision = 3
"""
SCENARIO = """
repeat = 0
threads = 2
[[steps]]
notify = 4098
path = "/srv/letter.txt"
count = 20
[[steps]]
notify = 4098
path = "/srv/diary.secret"
count = {secrets}
[[steps]]
notify = 4098
path = "/srv/server.key"
[[steps]]
pause_ms = 200
"""


class Process:
    """A child process that is killed, by its id, when this program ends."""

    def __init__(self, command, directory):
        with open(directory / "output", "wb") as output:
            self.child = subprocess.Popen(command, cwd=directory, stdout=output, stderr=output)

    def end(self):
        if self.child.poll() is None:
            self.child.send_signal(signal.SIGTERM)
            try:
                self.child.wait(20)
            except subprocess.TimeoutExpired:
                self.child.kill()
                self.child.wait()

    def cpu_seconds(self):
        fields = pathlib.Path(f"/proc/{self.child.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def resident_kib(self):
        status = pathlib.Path(f"/proc/{self.child.pid}/status").read_text()
        return int(re.search(r"VmRSS:\s+(\d+)", status)[1])


class Host(Process):
    def __init__(self, number, program, root, faults):
        self.name = f"host-{number:03}"
        directory = root / self.name
        directory.mkdir()
        (directory / "host.toml").write_text(CONFIG.format(faults=faults))
        (directory / "scenario.toml").write_text(SCENARIO.format(secrets=1 + number % 5))
        super().__init__([program, "run", "--config", "host.toml"], directory)
        self.log = directory / "log"
        self.port = None

    def find_port(self):
        text = self.log.read_text() if self.log.exists() else ""
        found = re.search(r"metrics at http://127\.0\.0\.1:(\d+)/", text)
        if self.child.poll() is not None:
            sys.exit(f"{self.name} ended with {self.child.returncode}: {text[-1000:]}")
        self.port = int(found[1]) if found else None
        return self.port

    def scrape(self):
        with urllib.request.urlopen(f"http://127.0.0.1:{self.port}/metrics", timeout=TIMEOUT) as response:
            return response.read()


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Prometheus(Process):
    def __init__(self, hosts, rules, root):
        directory = root / "prometheus"
        directory.mkdir()
        # The example's rules, with waiting times short enough for a demonstration.
        text = re.sub(r"for: \w+", "for: 3s", rules.read_text())
        (directory / "alerts.yml").write_text(text)
        groups = [{"targets": [f"127.0.0.1:{host.port}"], "labels": {"instance": host.name}} for host in hosts]
        (directory / "prometheus.yml").write_text(json.dumps({
            "global": {"scrape_interval": f"{INTERVAL}s", "evaluation_interval": f"{INTERVAL}s"},
            "rule_files": ["alerts.yml"],
            "scrape_configs": [{"job_name": "fenlux", "static_configs": groups}]}))
        self.url = f"http://127.0.0.1:{free_port()}"
        super().__init__(["prometheus", "--config.file=prometheus.yml", "--storage.tsdb.path=data",
                          f"--web.listen-address={self.url.removeprefix('http://')}"], directory)

    def get(self, path, **parameters):
        try:
            query = urllib.parse.urlencode(parameters)
            with urllib.request.urlopen(f"{self.url}/api/v1/{path}?{query}", timeout=TIMEOUT) as response:
                return json.load(response)["data"]
        except OSError:
            if self.child.poll() is not None:
                sys.exit("Prometheus ended")
            return None

    def query(self, text):
        """Labels and value of every series."""
        data = self.get("query", query=text)
        return [(row["metric"], float(row["value"][1])) for row in data["result"]] if data else []

    def firing(self, name, instance):
        data = self.get("alerts")
        return any(alert["state"] == "firing" and alert["labels"]["alertname"] == name
                   and alert["labels"].get("instance") == instance for alert in (data or {"alerts": []})["alerts"])


def until(condition, what):
    deadline = time.monotonic() + TIMEOUT
    while time.monotonic() < deadline:
        result = condition()
        if result:
            return result
        time.sleep(0.2)
    raise RuntimeError(f"timeout: {what}")


def show_queries(prometheus):
    queries = (
        ("slowest hosts (p99 of the last 30 s, ms)",
         "topk(3, 1000 * histogram_quantile(0.99, sum by (instance, le) (rate(fenlux_latency_seconds_bucket[30s]))))"),
        ("refusals by rule (per second, whole fleet)",
         "sum by (rule) (rate(fenlux_decisions_total{decision=\"3\"}[30s]))"),
        ("refusals by host (per second, first 3)",
         "topk(3, sum by (instance) (rate(fenlux_verdicts_total{verdict=\"4\"}[30s])))"),
        ("hosts without a driver", "fenlux_connected == 0"),
        ("unhealthy hosts", "fenlux_healthy == 0"),
        ("notifications per second, whole fleet", "sum(rate(fenlux_notifications_total[30s]))"))
    for title, query in queries:
        print(f"-- {title}\n   {query}")
        rows = prometheus.query(query)
        for labels, value in rows:
            name = labels.get("rule") or labels.get("instance", "fleet")
            print(f"     {name:<24} {value:.2f}")
        if not rows:
            print("     none")


def show_cost(prometheus, hosts, seconds):
    before = [host.cpu_seconds() for host in hosts]
    time.sleep(seconds)
    cpu = sum(host.cpu_seconds() for host in hosts) - sum(before)
    probe = hosts[1]
    start = probe.cpu_seconds()
    for _ in range(COST_SCRAPES):
        body = probe.scrape()
    # The host's own traffic continues; its cost is below the clock's resolution.
    scrape = (probe.cpu_seconds() - start) / COST_SCRAPES
    samples = [value for _, value in prometheus.query('scrape_samples_scraped{job="fenlux"}')]
    resident = [host.resident_kib() for host in hosts]
    print(f"-- cost per host, {len(hosts)} hosts, scraped every {INTERVAL} s\n"
          f"   CPU                 {100 * cpu / seconds / len(hosts):.2f} % of one processor, with its traffic\n"
          f"   CPU per scrape      {1000 * scrape:.2f} ms\n"
          f"   resident memory     {sum(resident) / len(resident) / 1024:.1f} MiB\n"
          f"   bytes per scrape    {len(body)}\n"
          f"   series              {max(samples):.0f}\n"
          f"   Prometheus memory   {prometheus.resident_kib() / 1024:.0f} MiB in all, for {sum(samples):.0f} series")


def run(count, program, rules, root, processes):
    for number in range(count):
        faults = f"delay_replies_ms = {SLOW_MS}" if number == 0 else ""
        if number == count - 1:
            faults = f"refuse_connects = {REFUSED_ATTEMPTS}"
        processes.append(Host(number, program, root, faults))
    hosts = list(processes)
    for host in hosts:
        until(host.find_port, f"{host.name} does not serve metrics")
    prometheus = Prometheus(hosts, rules, root)
    processes.append(prometheus)
    refused = hosts[-1].name
    print(f"-- {count} hosts and a Prometheus run; the driver of {refused} refuses its first connections")
    until(lambda: prometheus.firing("FenluxNoDriver", refused), "FenluxNoDriver does not fire")
    print(f"   FenluxNoDriver fires for {refused}")
    print("   hosts without a driver: " + ", ".join(
        labels["instance"] for labels, _ in prometheus.query("fenlux_connected == 0")))
    until(lambda: prometheus.query(f'fenlux_connected{{instance="{refused}"}} == 1'), f"{refused} does not connect")
    until(lambda: not prometheus.firing("FenluxNoDriver", refused), "FenluxNoDriver does not clear")
    print(f"   the driver accepts {refused}, and the alert clears")
    until(lambda: len(prometheus.query('up{job="fenlux"} == 1')) == count, "a host is not scraped")
    time.sleep(10)  # traffic of the last host, for the queries
    show_queries(prometheus)
    show_cost(prometheus, hosts, 10)
    problems = []
    slowest = prometheus.query("topk(1, histogram_quantile(0.99, sum by (instance, le) "
                               "(rate(fenlux_latency_seconds_bucket[30s]))))")
    if not slowest or slowest[0][0]["instance"] != hosts[0].name:
        problems.append(f"{hosts[0].name} is not the slowest host")
    if prometheus.query("fenlux_connected == 0"):
        problems.append("a host has no driver")
    return problems


def main():
    count = int(sys.argv[1])
    program, rules = (pathlib.Path(argument).resolve() for argument in sys.argv[2:])
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    processes = []
    with tempfile.TemporaryDirectory(prefix="fenlux-fleet.") as root:
        try:
            problems = run(count, program, rules, pathlib.Path(root), processes)
        except RuntimeError as error:
            problems = [str(error)]
        finally:
            for process in reversed(processes):
                process.end()
    if problems:
        print("fleet: not as expected: " + "; ".join(problems))
        return 1
    print("fleet: all as expected")
    return 0


sys.exit(main())
