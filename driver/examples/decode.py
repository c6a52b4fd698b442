#!/usr/bin/env python3
"""Prints a record of the driver protocol as JSON, or checks itself against the test vectors.

    decode.py KIND FILE         prints the record in FILE; exits with 1 if it is malformed
    decode.py --check FOLDER    decodes every vector in the folder and compares the result with its JSON file

KIND is connect-context, request, version-reply, notification or reply. An example of how to use the test vectors. It
needs only Python 3.8, and reads records by their offsets, without the C header.
"""
import ipaddress
import json
import pathlib
import struct
import sys

CONNECT_MAGIC = 0x2518D52534AC4C62
REQUEST_MAGIC = 0x8F79FFE729A34AE3
REPLY_MAGIC = 0x5365C3B2B13342E4

CONNECT_VERSION = 200
REQUEST_SIZE = 65561
NOTIFICATION_FIXED_SIZE = 156
REPLY_FIXED_SIZE = 156
REPLY_CONTEXT_TAIL = 2  # bytes after the context data, counted in its size but not part of it
NO_PROCESS = 0xFFFFFFFFFFFFFFFF

CODES = (set(range(4097, 4119)) - {4115}) | set(range(8193, 8207))


class Malformed(Exception):
    """The record is invalid; the text says why."""


def require(holds, wrong):
    if not holds:
        raise Malformed(wrong)


def number(data, offset, size):
    return int.from_bytes(data[offset : offset + size], "little")


def u32(data, offset):
    return number(data, offset, 4)


def u64(data, offset):
    return number(data, offset, 8)


def hex64(value):
    """A 64-bit number as text, because not every JSON reader keeps 64 bits."""
    return f"0x{value:016x}"


def text(data):
    """The UTF-16 text at the beginning of the bytes: up to its NUL, or all of them if there is none."""
    end = 0
    while end + 1 < len(data) and data[end : end + 2] != b"\0\0":
        end += 2
    return data[:end].decode("utf-16-le", "surrogatepass")


def connect_context(data):
    require(len(data) == 16, "wrong size")
    magic, version, client_type = struct.unpack("<QII", data)
    require(magic == CONNECT_MAGIC, "wrong magic")
    require(version == CONNECT_VERSION, "unknown connect version")
    require(client_type in (1, 2), "unknown client type")
    return {"version": version, "clientType": client_type}


def add_monitor_object(data):
    object_type, path_flag = struct.unpack_from("<IB", data, 12)
    root_name, path = text(data[17:25]), text(data[25:])
    require(object_type in (1, 2, 3), "unknown object type")
    require(path_flag in (0, 1), "path flag is neither 0 nor 1")
    require(path, "empty path")
    return {"objectType": object_type, "pathFlag": path_flag, "rootName": root_name, "path": path}


def commit_monitor_objects(data):
    require(u32(data, 12) in (1, 2, 3), "unknown object type")
    return {"objectType": u32(data, 12)}


def client_switch(data):
    client_type, switch = struct.unpack_from("<IB", data, 12)
    require(client_type in (1, 2), "unknown client type")
    require(switch in (0, 1), "switch is neither 0 nor 1")
    return {"clientType": client_type, "switch": switch}


def grhara_switch(data):
    require(data[12] in (0, 1), "switch is neither 0 nor 1")
    return {"off": data[12]}


def spsp_state(data):
    return {f"switch{i + 1}": data[12 + i] for i in range(4)}


def net_control_mode(data):
    require(u32(data, 12) in (1, 2, 3, 4), "unknown network-control mode")
    return {"mode": u32(data, 12)}


def system_process(data):
    kind, process_id = struct.unpack_from("<IQ", data, 12)
    require(kind in (2, 3), "unknown kind of system process")
    require(process_id != NO_PROCESS, "process id means no process")
    return {"kind": kind, "processId": hex64(process_id)}


def net_item_list(data):
    require(u32(data, 12) in (1, 2, 3), "unknown list type")
    return {"listType": u32(data, 12)}


def net_item(data):
    return {**net_item_list(data), "opaque": data[16:64].hex(), "value": u32(data, 64)}


COMMANDS = {
    1: add_monitor_object,
    3: commit_monitor_objects,
    4: client_switch,
    6: client_switch,
    8: lambda data: {"value": u32(data, 12)},
    9: grhara_switch,
    11: lambda data: {},
    12: spsp_state,
    13: lambda data: {},
    19: net_control_mode,
    20: system_process,
    21: net_item_list,
    22: net_item,
    23: net_item_list,
    # The request does not say where the block ends: leave out the zeros at its end.
    24: lambda data: {"block": data[12:].rstrip(b"\0").hex()},
}


def request(data):
    require(len(data) == REQUEST_SIZE, "wrong size")
    require(u64(data, 0) == REQUEST_MAGIC, "wrong magic")
    command = u32(data, 8)
    require(command in COMMANDS, "unknown command")
    return {"command": command, **COMMANDS[command](data)}


def version_reply(data):
    """The module reads only the version, and treats a short reply as version 0."""
    return {"version": u32(data, 12) if len(data) >= REQUEST_SIZE else 0}


def endpoint(data):
    ipv6 = data[114]
    # Addresses are in network byte order.
    address = ipaddress.IPv6Address(data[117:133]) if ipv6 else ipaddress.IPv4Address(data[117:121])
    return {"ipv6": ipv6, "port": number(data, 115, 2), "address": address.exploded}


def remote(data):
    return {"remote": data[114], **{f"word{i}": hex64(u64(data, 115 + 8 * i)) for i in range(4)}}


def access(data):
    kind, value_a, value_b = struct.unpack_from("<BII", data, 147)
    return {"accessKind": kind, "valueA": value_a, "valueB": value_b}


DETAILS = {4097: access, 8193: access, 4114: endpoint, 4116: remote, 8205: remote}


def notification(data):
    require(len(data) >= NOTIFICATION_FIXED_SIZE, "wrong size")
    code = u32(data, 20)
    require(code in CODES, "unknown notification code")
    size1, size2, size3, has_further_path, has_identity = struct.unpack_from("<5I", data, 30)
    item2 = NOTIFICATION_FIXED_SIZE + size1
    item3 = item2 + size2
    item4 = item3 + size3

    def item_text(offset, present):
        if not present:
            return None
        require(offset < len(data), "wrong size")
        return text(data[offset:])

    # A further path is used instead of the path.
    further_path = item_text(item4, code == 8204 and has_further_path)
    path = item_text(NOTIFICATION_FIXED_SIZE, size1 and further_path is None)
    second_path = item_text(item2, size2)
    require(size3 == 0 or item4 <= len(data), "wrong size")
    return {
        "processId": hex64(u64(data, 12)),
        "code": code,
        "variant": data[24],
        "conditionA": data[25],
        "conditionB": data[27],
        "conditionC": data[28],
        "oplock": data[29],
        "identity": data[50:114].hex() if has_identity else None,
        **DETAILS.get(code, lambda _: {})(data),
        "path": path,
        "secondPath": second_path,
        "extraData": data[item3:item4].hex() if size3 else None,
        "furtherPath": further_path,
    }


def reply(data):
    require(len(data) >= REPLY_FIXED_SIZE, "wrong size")
    magic, fixed_size, verdict, context_size = struct.unpack_from("<QIII", data)
    require(magic == REPLY_MAGIC, "wrong magic")
    require(fixed_size == REPLY_FIXED_SIZE, "wrong size of the fixed part")
    require(2 <= verdict <= 8, "unknown verdict")
    if verdict != 6:
        require(len(data) == REPLY_FIXED_SIZE, "wrong size")
        return {"verdict": verdict, "context": None}
    require(context_size > REPLY_CONTEXT_TAIL, "context data does not match the verdict")
    require(len(data) == REPLY_FIXED_SIZE + context_size, "wrong size")
    return {"verdict": verdict, "context": data[REPLY_FIXED_SIZE:-REPLY_CONTEXT_TAIL].hex()}


KINDS = {
    "connect-context": connect_context,
    "request": request,
    "version-reply": version_reply,
    "notification": notification,
    "reply": reply,
}


def decode(kind, data):
    """The record as a dictionary; for a malformed one it contains "error"."""
    try:
        return {"record": kind, **KINDS[kind](data)}
    except Malformed as error:
        return {"record": kind, "error": str(error)}


def check(folder):
    checked = failed = 0
    for line in (folder / "index.txt").read_text(encoding="utf-8").splitlines():
        kind, name = line.split()
        decoded = decode(kind, (folder / f"{name}.bin").read_bytes())
        expected = json.loads((folder / f"{name}.json").read_text(encoding="utf-8"))
        checked += 1
        if decoded != expected:
            failed += 1
            print(f"{name}: decoded as\n{json.dumps(decoded, indent=2)}"[:2000])
    print(f"{checked} vectors checked, {failed} failed")
    return 0 if checked and not failed else 1


def main(arguments):
    if arguments in (["--help"], ["-h"]):
        print(__doc__)
        return 0
    if len(arguments) == 2 and arguments[0] == "--check":
        return check(pathlib.Path(arguments[1]))
    if len(arguments) != 2 or arguments[0] not in KINDS:
        print(__doc__, file=sys.stderr)
        return 2
    decoded = decode(arguments[0], pathlib.Path(arguments[1]).read_bytes())
    print(json.dumps(decoded, indent=2))
    return 1 if "error" in decoded else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
