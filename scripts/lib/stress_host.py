"""What the soak and the stress runs share: a host in its own directory, threads that open files, and the table."""
import errno
import json
import os
import pathlib
import re
import subprocess
import tempfile
import threading
import time

# Images that the module looks for and that this system does not have.
SYSTEM_IMAGES = ("[system_images]\n'system32\\csrss.exe' = \"${FENLUX_HOST_PROGRAM}\"\n"
                 "'system32\\services.exe' = \"${FENLUX_HOST_PROGRAM}\"\n")


class Failed(Exception):
    """The run could not be completed; the text says why."""


def make_directory():
    """A temporary directory of the run, readable by its owner only."""
    return tempfile.TemporaryDirectory(prefix="fenlux-stress-")


class Host:
    """A running fenlux-host with its own configuration, log and control socket."""

    def __init__(self, program, directory, name):
        self.program = str(program)
        self.directory = pathlib.Path(directory)
        self.configuration = self.directory / f"{name}.toml"
        self.socket = self.directory / f"{name}-control" / "host.sock"
        self.log_path = self.directory / f"{name}.log"
        self.summary_path = self.directory / f"{name}.summary"
        self.process = None

    def start(self, *arguments):
        """Starts the host with an empty log and summary."""
        command = [self.program, "run", "--config", str(self.configuration), "--socket", str(self.socket), "--json"]
        with open(self.summary_path, "wb") as out, open(self.log_path, "wb") as log:
            self.process = subprocess.Popen([*command, *arguments], stdin=subprocess.DEVNULL, stdout=out, stderr=log)

    def log(self):
        """What the host has logged so far."""
        return self.log_path.read_text(errors="replace")

    def wait_for_log(self, text, seconds=20.0):
        """Waits until the log contains the text."""
        end = time.monotonic() + seconds
        while text not in self.log():
            if self.process.poll() is not None:
                raise Failed(f"the host ended with {self.process.returncode}: {self.log()[-2000:]}")
            if time.monotonic() > end:
                raise Failed(f"the host did not log \"{text}\" within {seconds:.0f} s: {self.log()[-2000:]}")
            time.sleep(0.002)

    def processor_times(self):
        """Says how long the host's threads have run and have waited for a processor: a busy machine delays verdicts."""
        ran, waited = 0, 0
        for file in pathlib.Path(f"/proc/{self.process.pid}/task").glob("*/schedstat"):
            times = file.read_text().split()
            ran, waited = ran + int(times[0]), waited + int(times[1])
        return f"its threads ran for {ran / 1e9:.1f} s and waited {waited / 1e9:.1f} s for a processor"

    def control(self, *arguments, seconds=30):
        """Runs a ctl operation. Returns its exit code and its output."""
        run = subprocess.run([self.program, "ctl", "--socket", str(self.socket), "--json", *arguments],
                             capture_output=True, text=True, timeout=seconds, check=False)
        return run.returncode, run.stdout

    def summary_now(self):
        """The summary of the running host; None if it does not answer."""
        code, out = self.control("summary")
        return result_of(out) if code == 0 else None

    def stop(self, seconds=20):
        """Ends the host with SIGTERM. Returns its exit code and its summary, which may be None."""
        self.process.terminate()
        try:
            code = self.process.wait(seconds)
        except subprocess.TimeoutExpired as error:
            raise Failed(f"the host did not end within {seconds} s of SIGTERM") from error
        return code, self.summary()

    def summary(self):
        """The summary that an ended host has printed; None if there is none."""
        for line in reversed(self.summary_path.read_text(errors="replace").splitlines()):
            try:
                return json.loads(line)["summary"]
            except (ValueError, KeyError, TypeError):
                continue
        return None

    def kill(self):
        """Kills the host, even if it is stopped."""
        if self.process is not None and self.process.poll() is None:
            self.process.kill()
            self.process.wait()


def result_of(text):
    """The result in the output of a ctl operation, whose outermost object may wrap it."""
    try:
        found = json.loads(text)
    except ValueError:
        return None
    for name in ("result", "summary"):
        if isinstance(found, dict) and isinstance(found.get(name), dict):
            found = found[name]
    return found


def adds_up(summary):
    """Whether a summary's notifications add up, computed from its numbers."""
    n = summary["notifications"]
    parts = n["answered"] + n["unanswered_by_design"] + n["late"] + n["lost"] + n["in_flight"]
    return n["delivered"] == parts and n["in_flight"] == 0 and n["adds_up"]


def permission_events():
    """Why this machine delivers no permission events to the host; empty if it does."""
    if os.name != "posix" or os.geteuid() != 0:
        return "only root receives the kernel's permission events"
    return ""


class Opener(threading.Thread):
    """Opens one file repeatedly until told to stop, and counts the result of each attempt."""

    def __init__(self, path):
        super().__init__(daemon=True)
        self.path = str(path)
        self.opened = 0
        self.refused = 0
        self.failed = 0
        self.slowest = 0.0
        self.begun = 0.0  # when the open in progress began; 0 if there is none
        self.ended = False

    def run(self):
        while not self.ended:
            self.open_once()

    def open_once(self):
        """Opens the file once."""
        self.begun = time.monotonic()
        try:
            os.close(os.open(self.path, os.O_RDONLY))
            self.opened += 1
        except OSError as error:
            if error.errno == errno.EPERM:
                self.refused += 1
            else:
                self.failed += 1
        self.slowest = max(self.slowest, time.monotonic() - self.begun)
        self.begun = 0.0

    def count(self):
        """How many attempts have ended."""
        return self.opened + self.refused + self.failed


def is_refused(path):
    """Opens a file once and says whether the kernel refused it."""
    try:
        os.close(os.open(path, os.O_RDONLY))
    except OSError as error:
        if error.errno == errno.EPERM:
            return True
        raise
    return False


class ProcessFigures:
    """Resident memory in KiB, descriptors and threads of a process, right now."""

    def __init__(self, process_id):
        status = pathlib.Path(f"/proc/{process_id}/status").read_text()
        self.memory = int(re.search(r"VmRSS:\s+(\d+)", status).group(1))
        self.threads = int(re.search(r"Threads:\s+(\d+)", status).group(1))
        self.descriptors = len(os.listdir(f"/proc/{process_id}/fd"))


class Table:
    """The figures of a run, each with its limit; the run passes if all rows do."""

    def __init__(self, title):
        self.title = title
        self.rows = []

    def add(self, name, value, limit="", good=True):
        """Adds a row; `limit` says in words what the value must be."""
        self.rows.append((name, str(value), limit, "" if not limit else "ok" if good else "FAILED"))

    def passed(self):
        """Whether no row failed."""
        return all(row[3] != "FAILED" for row in self.rows)

    def print(self):
        """Prints the table and the verdict."""
        widths = [max(len(row[i]) for row in self.rows) for i in range(3)]
        print(self.title)
        for name, value, limit, verdict in self.rows:
            print(f"  {name:<{widths[0]}}  {value:>{widths[1]}}  {limit:<{widths[2]}}  {verdict}".rstrip())
        print("passed" if self.passed() else "FAILED", flush=True)
