#!/usr/bin/env python3
"""Compares what tshark shows of a capture with what `fenlux-host decode` shows, field by field.

  dissector_test.py FENLUX_HOST DISSECTOR CAPTURE

Skipped where tshark is not installed.
"""
import ipaddress
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

REPLACEMENT = "\ufffd"
RENAMED = {("connect-context", "version"): "connect_version", ("version-reply", "version"): "driver_version",
           ("request", "kind"): "process_kind"}
KINDS = {"connect_context": 1, "request": 2, "request_reply": 3, "notification": 4, "notification_reply": 5,
         "judgement": 6, "closed": 7, "facts": 8, "call": 9}


def run(command):
    # A separate home directory, because the user's settings must not affect the output.
    with tempfile.TemporaryDirectory() as home:
        environment = dict(os.environ, HOME=home, XDG_CONFIG_HOME=home, LC_ALL="C.UTF-8")
        result = subprocess.run(command, capture_output=True, check=False, env=environment)
    if result.returncode != 0:
        sys.exit(f"{command[0]} ended with {result.returncode}: {result.stderr.decode()}")
    return result.stdout.decode()


def dissected(dissector, capture):
    """The fields of the fenlux layer by connection, exchange and kind, in the order of the file."""
    output = run(["tshark", "-X", f"lua_script:{dissector}", "-r", capture, "-T", "json"])
    frames = {}
    for frame in json.loads(output):
        layer = frame["_source"]["layers"].get("fenlux")
        if layer is None:
            sys.exit(f"frame without a fenlux layer: {frame}")
        key = tuple(int(layer[f"fenlux.{name}"]) for name in ("connection", "exchange", "kind"))
        frames.setdefault(key, []).append(layer)
    return frames


def expected_text(record, name, value):
    """What tshark shows for a field of `decode`."""
    if name in ("identity", "opaque", "block", "extraData", "context"):
        return ":".join(re.findall("..", value))
    if name == "processId":
        return str(int(value, 16))
    return str(value)


def tshark_name(record, name, fields):
    if name == "address":
        return "ipv6_address" if fields["ipv6"] else "ipv4_address"
    renamed = RENAMED.get((record, name))
    return renamed or re.sub("([A-Z])", lambda match: "_" + match[1].lower(), name)


def compare(fields, layer):
    """The differences between a record of `decode` and the dissector's layer, and how many fields were compared."""
    differences, compared = [], 0
    record = fields.get("record")
    is_malformed = "fenlux.malformed" in json.dumps(layer)
    if is_malformed != ("error" in fields):
        differences.append(f"{fields} is{'' if is_malformed else ' not'} marked as malformed")
    if "error" in fields or record is None:
        return differences, 1
    for name, value in fields.items():
        if name in ("record", "name") or value is None or value in ("", []):
            continue
        shown = layer.get("fenlux." + tshark_name(record, name, fields))
        expected = expected_text(record, name, value)
        compared += 1
        if name == "address":
            same = shown is not None and ipaddress.ip_address(shown) == ipaddress.ip_address(expected)
        elif REPLACEMENT in expected:  # a lone surrogate: each program replaces it in its own way
            same = shown is not None
        else:
            same = shown == expected
        if not same:
            differences.append(f"{record} {name}: decode shows {expected}, tshark {shown}")
    return differences, compared


def main():
    host, dissector, capture = sys.argv[1:]
    if shutil.which("tshark") is None:
        print("skipped, because tshark is not installed (scripts/setup.sh --tools)")
        return 0
    frames = dissected(dissector, capture)
    exchanges = [json.loads(line) for line in run([host, "decode", "--json", capture]).splitlines()]
    differences, compared = [], 0

    def check(exchange, kind, fields):
        nonlocal compared
        layer = frames[exchange["connection"], exchange["exchange"], kind].pop(0)
        found, count = compare(fields, layer)
        differences.extend(found)
        compared += count
        return layer

    for exchange in exchanges:
        kind = KINDS[exchange["kind"]]
        first = check(exchange, kind, exchange["message"])
        if "judgement" in exchange:
            check(exchange, 6, exchange["judgement"])
        if "latency_us" in exchange:
            layer = check(exchange, kind + 1, exchange["reply"] or {})
            latency = float(layer["fenlux.latency"]) * 1e6
            if abs(latency - exchange["latency_us"]) > 0.01:
                differences.append(f"{exchange}: tshark shows a latency of {latency} us")
        if exchange["kind"] == "closed" and first["fenlux.reason"] != exchange["message"]["reason"]:
            differences.append(f"reason {first['fenlux.reason']}")
    left = [key for key, layers in frames.items() if layers]
    if left:
        differences.append(f"decode does not show {left}")
    if compared < 30:
        differences.append(f"only {compared} fields were compared")
    print(f"{len(exchanges)} exchanges, {compared} fields compared")
    print("\n".join(differences))
    return 1 if differences else 0


sys.exit(main())
