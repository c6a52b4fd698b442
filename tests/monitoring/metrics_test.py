#!/usr/bin/env python3
"""Scrapes the built host while it has traffic: the counters move, the format is clean, every metric is documented.

  metrics_test.py FENLUX_HOST OPERATIONS_DOCUMENT

The check by promtool is skipped where that is not installed.
"""
import http.client
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

TIMEOUT = 240
CONFIG = """
[control]
socket = "control/host.sock"
[metrics]
listen = "127.0.0.1:0"
[emulator]
scenario = "scenario.toml"
[[judging.rules]]
name = 'says "no"\\'
path = "*.secret"
decision = 3
"""
SCENARIO = """
repeat = 0
[[steps]]
notify = 4098
path = "/srv/a.txt"
count = 5
[[steps]]
notify = 4098
path = "/srv/a.secret"
[[steps]]
pause_ms = 10
"""


def until(condition, what):
    deadline = time.monotonic() + TIMEOUT
    while time.monotonic() < deadline:
        result = condition()
        if result:
            return result
        time.sleep(0.05)
    sys.exit(f"timeout: {what}")


def request(port, method="GET", path="/metrics"):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=TIMEOUT)
    connection.request(method, path)
    response = connection.getresponse()
    return response.status, response.getheader("Content-Type"), response.read().decode("utf-8")


def value(text, series):
    found = re.search("^" + re.escape(series) + r" (\S+)$", text, re.MULTILINE)
    return float(found[1]) if found else 0.0


def beyond(text, moving, earlier):
    """The text if each of the series is greater than in the earlier text."""
    return text if all(value(text, series) > value(earlier, series) for series in moving) else None


def check_http(port):
    status, kind, _ = request(port)
    assert (status, kind) == (200, "text/plain; version=0.0.4; charset=utf-8"), (status, kind)
    assert request(port, path="/")[0] == 404
    assert request(port, method="POST")[0] == 405
    assert request(port, path="/metrics?x=1")[0] == 200
    # Clients that send nothing do not block others forever.
    idle = [socket.create_connection(("127.0.0.1", port)) for _ in range(4)]
    assert request(port)[0] == 200
    for one in idle:
        one.close()


def check_format(text):
    if shutil.which("promtool") is None:
        print("promtool is not installed (scripts/setup.sh --tools): its check is left out")
        return
    result = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, text=True, check=False)
    assert result.returncode == 0 and not result.stdout + result.stderr, result.stdout + result.stderr
    print("promtool check metrics: clean")


def check_documented(text, document):
    served = set(re.findall(r"^# TYPE (\S+)", text, re.MULTILINE))
    documented = set(re.findall(r"^\| `(fenlux_\w+)`", document, re.MULTILINE))
    assert served == documented, f"only served: {served - documented}; only documented: {documented - served}"
    print(f"{len(served)} metrics, all documented")


def main():
    host, document = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder:
        directory = pathlib.Path(folder)
        (directory / "host.toml").write_text(CONFIG, encoding="utf-8")
        (directory / "scenario.toml").write_text(SCENARIO, encoding="utf-8")
        log = directory / "log"
        with open(log, "wb") as errors, open(directory / "summary", "wb") as output:
            process = subprocess.Popen([host, "run", "--config", directory / "host.toml"], stderr=errors, stdout=output)
        try:
            place = until(lambda: re.search(r"metrics at http://127\.0\.0\.1:(\d+)/metrics", log.read_text()),
                          "the host does not say where its metrics are")
            port = int(place[1])
            # A notification is counted when it is delivered, its verdict and latency when it is answered.
            moving = ('fenlux_notifications_total{code="4098"}', 'fenlux_verdicts_total{code="4098",verdict="4"}',
                      "fenlux_latency_seconds_count")
            first = until(lambda: beyond(request(port)[2], moving, ""), "no refusal is counted")
            second = until(lambda: beyond(request(port)[2], moving, first), "the counters do not move")
            assert value(second, "fenlux_connected") == 1 and value(second, "fenlux_healthy") == 1
            check_http(port)
            check_format(second)
            check_documented(second, pathlib.Path(document).read_text(encoding="utf-8"))
        finally:
            process.send_signal(signal.SIGTERM)
            code = process.wait(TIMEOUT)
        assert code == 0, log.read_text()


main()
