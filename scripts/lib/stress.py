"""The kill, stall, drop and cycle runs, and the table of all runs. scripts/stress.sh runs this."""
import argparse
import collections
import concurrent.futures
import os
import pathlib
import random
import signal
import statistics
import subprocess
import sys
import time

from stress_host import (Failed, Host, Opener, SYSTEM_IMAGES, Table, adds_up, is_refused, make_directory,
                         permission_events)
from stress_record import record_runs

WATCHED = ("[emulator]\nsource = 'fanotify'\n[log]\nconsole = 'event'\n[policy]\ndirectories = ['watched']\n"
           "[[judging.rules]]\nname = 'secrets'\npath = '*.secret'\ndecision = 3\n" + SYSTEM_IMAGES)


def milliseconds(seconds):
    """A duration as text."""
    return f"{seconds * 1000:.0f} ms"


def watching_host(program, directory, faults=""):
    """A host that refuses *.secret in a fresh directory; returns it with the directory."""
    host = Host(program, directory, "host")
    host.configuration.write_text(WATCHED + faults)
    watched = pathlib.Path(directory) / "watched"
    watched.mkdir()
    for index in range(40):
        (watched / f"{index}.txt").write_text("words\n")
        (watched / f"{index}.secret").write_text("words\n")
    return host, watched


def start_refusing(host, watched):
    """Starts the host and waits until it refuses a file. Returns the time since the start, and since the mark."""
    begin = time.monotonic()
    host.start()
    host.wait_for_log("[Add Monitor OK!][obj path]=")
    marked = time.monotonic()
    while not is_refused(watched / "0.secret"):
        if time.monotonic() - marked > 5:
            times = host.processor_times()
            raise Failed(f"the host does not refuse the file: {host.log()[-2000:]}; unjudged: "
                         f"{(host.summary_now() or {}).get('unjudged')}; {times}")
    return time.monotonic() - begin, time.monotonic() - marked


def kill_runs(program, count, seed):
    """Kills the host with openers in flight: they must all return, and the next host must work at once."""
    table = Table(f"kill -9 of the host with openers in flight, {count} times")
    with make_directory() as directory:
        # The delay keeps every opener waiting for its answer most of the time.
        host, watched = watching_host(program, directory, "[emulator.faults]\ndelay_replies_ms = 20\n")
        openers = [Opener(watched / f"{i}.{'secret' if i % 2 else 'txt'}") for i in range(8)]
        chance = random.Random(seed)
        in_flight, returned, started, working = 0, [], [], []
        try:
            started.append(start_refusing(host, watched)[0])
            for opener in openers:
                opener.start()
            for _ in range(count):
                time.sleep(chance.uniform(0.0, 0.05))
                host.process.send_signal(signal.SIGKILL)
                killed = time.monotonic()
                before = [(opener, opener.count()) for opener in openers if opener.begun]
                while any(opener.count() == seen and opener.begun for opener, seen in before):
                    if time.monotonic() - killed > 10:
                        raise Failed("an opener did not return within 10 s of the kill")
                    time.sleep(0.0005)
                returned.append(time.monotonic() - killed)
                in_flight += len(before)
                host.process.wait()
                whole, after_mark = start_refusing(host, watched)
                started.append(whole)
                working.append(after_mark)
            for opener in openers:
                opener.ended = True
            for opener in openers:
                opener.join(10)
            code, summary = host.stop()
        finally:
            for opener in openers:
                opener.ended = True
            host.kill()
    ordinary = sum(opener.refused for opener in openers if opener.path.endswith(".txt"))
    failed = sum(opener.failed for opener in openers)
    table.add("kills", count)
    table.add("openers in flight at the kills", in_flight, "at least one per kill", in_flight >= count)
    table.add("slowest return after a kill", milliseconds(max(returned)), "at most 2000 ms", max(returned) <= 2)
    table.add("median return after a kill", milliseconds(statistics.median(returned)))
    table.add("slowest start until a file is refused", milliseconds(max(started)), "at most 5000 ms", max(started) <= 5)
    table.add("median start until a file is refused", milliseconds(statistics.median(started)))
    table.add("slowest refusal after the mark was logged", milliseconds(max(working)), "at most 2000 ms",
              max(working) <= 2)
    table.add("opens", sum(opener.count() for opener in openers))
    table.add("ordinary files refused", ordinary, "0", ordinary == 0)
    table.add("opens that failed otherwise", failed, "0", failed == 0)
    table.add("exit code of the last host", code, "0", code == 0)
    table.add("totals of the last host", summary["notifications"]["sum"], "add up", adds_up(summary))
    return table


def stop_all_threads(process):
    """Sends SIGSTOP and returns once every thread is stopped: the signal reaches them one after the other."""
    process.send_signal(signal.SIGSTOP)
    deadline = time.monotonic() + 10
    tasks = pathlib.Path(f"/proc/{process.pid}/task")
    while any((task / "stat").read_text().rpartition(")")[2].split()[0] != "T" for task in tasks.iterdir()):
        if time.monotonic() > deadline:
            raise RuntimeError("the host did not stop within 10 s of SIGSTOP")
        time.sleep(0.001)


def stall_runs(program, count, _seed):
    """Stops the host with SIGSTOP while 40 openers wait, and lets it continue."""
    table = Table(f"SIGSTOP of the host with 40 blocked openers, {count} times")
    blocked, returned_early, slowest, let_through, ordinary_refused, failed, again = 0, 0, 0.0, 0, 0, 0, 0
    with make_directory() as directory:
        host, watched = watching_host(program, directory)
        try:
            start_refusing(host, watched)
            before = host.summary_now()
            for _ in range(count):
                openers = [Opener(watched / f"{i}.{'secret' if i % 2 else 'txt'}") for i in range(40)]
                for opener in openers:
                    opener.ended = True  # one open each
                stop_all_threads(host.process)
                for opener in openers:
                    opener.run = opener.open_once
                    opener.start()
                time.sleep(1.5)  # longer than the deadline of a reply
                returned_early += sum(opener.count() for opener in openers)
                blocked += sum(1 for opener in openers if opener.begun)
                host.process.send_signal(signal.SIGCONT)
                continued = time.monotonic()
                for opener in openers:
                    opener.join(20)
                slowest = max(slowest, time.monotonic() - continued)
                let_through += sum(opener.opened for opener in openers if opener.path.endswith(".secret"))
                ordinary_refused += sum(opener.refused for opener in openers if opener.path.endswith(".txt"))
                failed += sum(opener.failed for opener in openers) + sum(opener.is_alive() for opener in openers)
                again += is_refused(watched / "1.secret")
            after = host.summary_now()
            code, summary = host.stop()
        finally:
            host.kill()
    passed = sum(after["unjudged"].values()) - sum(before["unjudged"].values()) + (
        before["unjudged"].get("own process", 0) - after["unjudged"].get("own process", 0))
    table.add("blocked openers", blocked, f"{40 * count}", blocked == 40 * count)
    table.add("returned while the host was stopped", returned_early, "0", returned_early == 0)
    table.add("slowest return after SIGCONT", milliseconds(slowest), "at most 3000 ms", slowest <= 3)
    table.add("refused files", f"{20 * count}")
    table.add("of them opened", let_through, "at most those counted as not judged", let_through <= passed)
    table.add("counted as not judged", passed)
    table.add("ordinary files refused", ordinary_refused, "0", ordinary_refused == 0)
    table.add("opens that failed otherwise", failed, "0", failed == 0)
    table.add("refused again right after", again, f"{count}", again == count)
    table.add("exit code of the host", code, "0", code == 0)
    table.add("totals", summary["notifications"]["sum"], "add up", adds_up(summary))
    return table


CYCLE = ("stop_at_end = {stop}\n[emulator]\nscenario = 'scenario.toml'\n[log]\nconsole = 'problem'\n"
         "[policy]\ndirectories = ['.']\n" + SYSTEM_IMAGES)
CYCLE_SCENARIO = ("threads = 2\n[[steps]]\nnotify = 4098\npath = '/a/file'\ncount = 20\n"
                  "[[steps]]\nnotify = 4113\npath = '/a/file'\n")


def one_cycle(program, directory, index, seed):
    """Runs one process: load, init, start, stop. Returns what went wrong; empty if nothing did."""
    chance = random.Random(f"{seed} {index}")
    host = Host(program, directory, f"cycle{index}")
    # Every other host is stopped at a random moment, from before the module is loaded until after it is connected.
    interrupted = index % 2 == 1
    host.configuration.write_text(CYCLE.replace("{stop}", "false" if interrupted else "true"))
    try:
        host.start()
        if interrupted:
            end = time.monotonic() + 20
            while not host.socket.exists() and host.process.poll() is None and time.monotonic() < end:
                time.sleep(0.001)  # once the socket exists, SIGTERM is blocked
            time.sleep(chance.uniform(0.0, 0.06))
            host.process.terminate()
        code = host.process.wait(60)
        summary = host.summary()
        if code != 0:
            return f"exit code {code}: {host.log()[-1500:]}"
        if summary is None or not summary["fine"] or not adds_up(summary):
            return f"the summary is {summary}"
        return ""
    except (Failed, subprocess.TimeoutExpired, OSError) as error:
        return str(error)
    finally:
        host.kill()
        for path in (host.configuration, host.log_path, host.summary_path, host.socket):
            path.unlink(missing_ok=True)
        if host.socket.parent.exists():
            host.socket.parent.rmdir()


def cycle_runs(program, count, seed):
    """Runs the host repeatedly, each time in a new process, four at a time."""
    table = Table(f"load, init, start and stop, {count} times in a process each")
    begin = time.monotonic()
    endings = collections.Counter()
    with make_directory() as directory:
        (pathlib.Path(directory) / "scenario.toml").write_text(CYCLE_SCENARIO)
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            for ending in pool.map(lambda index: one_cycle(program, directory, index, seed), range(count)):
                endings[ending] += 1
    good = endings.pop("", 0)
    table.add("cycles", count)
    table.add("of them ended by a signal at a random moment", count // 2)
    table.add("ended well", good, f"{count}", good == count)
    table.add("seconds", f"{time.monotonic() - begin:.0f}")
    for ending, times in endings.most_common(5):
        print(f"{times} times: {ending}", file=sys.stderr)
    return table


def drop_runs(program, _count, _seed):
    """Runs the unit test that drops a thousand connections on the manual clock."""
    table = Table("1000 dropped connections on the manual clock")
    tests = pathlib.Path(program).parent / "fenlux_emulator_module_tests"
    begin = time.monotonic()
    run = subprocess.run([tests, "--gtest_filter=ModuleOnEmulator.ConnectsAgainAfterAThousandDroppedConnections"],
                         capture_output=True, text=True, check=False)
    passed = run.returncode == 0 and "[  PASSED  ] 1 test." in run.stdout
    if not passed:
        print(run.stdout, run.stderr, file=sys.stderr)
    table.add("the unit test", "passed" if passed else "failed", "passed", passed)
    table.add("seconds", f"{time.monotonic() - begin:.1f}")
    return table


RUNS = {"kill": (kill_runs, True), "stall": (stall_runs, True), "drops": (drop_runs, False),
        "cycles": (cycle_runs, False), "record": (record_runs, False)}


def main():
    """Runs what the command line requests and prints its table."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--count", type=int, required=True)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("run", choices=RUNS)
    arguments = parser.parse_args()
    run, needs_kernel = RUNS[arguments.run]
    if needs_kernel and permission_events():
        print(f"{arguments.run}: skipped, because {permission_events()}")
        return 0
    try:
        table = run(pathlib.Path(arguments.program), arguments.count, arguments.seed)
    except Failed as error:
        print(f"{arguments.run}: FAILED: {error}", file=sys.stderr)
        return 1
    table.print()
    return 0 if table.passed() else 1


if __name__ == "__main__":
    sys.stdout.flush()
    code = main()
    sys.stdout.flush()
    os._exit(code)  # an opener that never returns must not keep the run from ending
