"""The record run of scripts/stress.sh: kills a host while it records, and decodes what it left."""
import pathlib
import random
import signal
import struct
import subprocess
import time

from stress_host import Failed, Host, Table, make_directory

CONFIGURATION = """
[emulator]
scenario = 'scenario.toml'
[judging]
log = 'off'
[[judging.rules]]
name = 'secrets'
path = '*.secret'
decision = 3
[capture]
{rotation}
"""
# As fast as the host can, so that the writer is busy when it is killed.
SCENARIO = """
repeat = 0
threads = 4
[[steps]]
notify = 4098
path = '/srv/a file of usual length.txt'
count = 500
[[steps]]
notify = 4098
path = '/srv/plan.secret'
count = 100
"""
# Every other host begins a new file after each MiB, so that some are killed while they do.
ROTATION = "file_size_mb = 1\nfiles = 4"
ENHANCED_PACKET = 6
NOTIFICATION, REPLY, JUDGEMENT = 4, 5, 6
LONGEST_RUN = 0.4  # seconds from the first block to the kill


class Blocks:
    """The whole blocks of a capture: how many notifications, and how many of their replies and judgements."""

    def __init__(self, content):
        self.notifications = self.replies = self.judgements = 0
        known = set()
        at = 0
        while at + 12 <= len(content):
            kind_of_block, length = struct.unpack_from("<II", content, at)
            if length < 12 or at + length > len(content):
                break
            if struct.unpack_from("<I", content, at + length - 4)[0] != length:
                raise Failed(f"the block at {at} states two lengths")
            if kind_of_block == ENHANCED_PACKET:
                _, kind, _, connection, exchange = struct.unpack_from("<BBHIQ", content, at + 28)
                self.count(kind, (connection, exchange), known)
            at += length
        self.rest = len(content) - at

    def count(self, kind, exchange, known):
        """Counts a message, unless it belongs to a notification in an earlier file."""
        if kind == NOTIFICATION:
            known.add(exchange)
            self.notifications += 1
        elif exchange in known:
            self.replies += kind == REPLY
            self.judgements += kind == JUDGEMENT


def difference(program, file, blocks):
    """How the output of `decode` differs from the file's whole blocks; empty if it does not."""
    run = subprocess.run([program, "decode", "--json", file], capture_output=True, check=False, timeout=300)
    if run.returncode != 0:
        return f"exit code {run.returncode}: {run.stderr.decode(errors='replace')[-500:]}"
    lines = [line for line in run.stdout.splitlines() if b'"kind":"notification"' in line]
    found = (len(lines), sum(b'"reply":{' in line for line in lines), sum(b'"judgement":{' in line for line in lines))
    expected = (blocks.notifications, blocks.replies, blocks.judgements)
    return "" if found == expected else f"{found} notifications, replies and judgements instead of {expected}"


def record_and_kill(program, directory, rotated, chance):
    """Runs a recording host and kills it. Returns its capture files."""
    folder = pathlib.Path(directory)
    folder.mkdir()
    host = Host(program, folder, "host")
    host.configuration.write_text(CONFIGURATION.format(rotation=ROTATION if rotated else ""))
    (folder / "scenario.toml").write_text(SCENARIO)
    capture = folder / "port.pcapng"
    try:
        host.start("--record", str(capture))
        host.wait_for_log("Driver Interact Ready.")
        end = time.monotonic() + 20
        while capture.stat().st_size < 4096:
            if time.monotonic() > end:
                raise Failed("nothing was recorded within 20 s")
            time.sleep(0.001)
        time.sleep(chance.uniform(0, LONGEST_RUN))
        host.process.send_signal(signal.SIGKILL)
        host.process.wait()
    finally:
        host.kill()
    return sorted(folder.glob("port*.pcapng"))


def record_runs(program, count, seed):
    """Kills the host while it records: every file must decode to its last whole block."""
    table = Table(f"kill -9 of the host while it records, {count} times")
    chance = random.Random(seed)
    files, torn, different, notifications, empty = 0, 0, 0, 0, 0
    with make_directory() as directory:
        for index in range(count):
            recorded = 0
            for file in record_and_kill(program, f"{directory}/{index}", index % 2 == 1, chance):
                blocks = Blocks(file.read_bytes())
                text = difference(program, file, blocks)
                if text:
                    print(f"kill {index + 1}, {file.name}: {text}")
                files += 1
                torn += blocks.rest > 0
                different += text != ""
                recorded += blocks.notifications
                file.unlink()
            notifications += recorded
            empty += recorded == 0
    table.add("kills", count)
    table.add("of them with nothing recorded", empty, "0", empty == 0)
    table.add("capture files", files)
    table.add("of them cut off in the middle of a block", torn)
    table.add("notifications recorded", notifications)
    table.add("files that do not decode to their last whole block", different, "0", different == 0)
    return table
