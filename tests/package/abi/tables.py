"""Prints the layouts that a host shares with the module, from the debug information of an object file that includes the
installed headers: the tables of operations with their slots and mangled signatures, the fields of structs and classes
with their offsets, and the values of enumerations. Only what is in the project's namespace.

Usage: tables.py READELF OBJECT
"""
import re
import subprocess
import sys

ENTRY = re.compile(r"^ <(\d+)><[0-9a-f]+>: Abbrev Number: \d+ \((DW_TAG_\w+)\)")
ATTRIBUTE = re.compile(r"^ +<[0-9a-f]+> +DW_AT_(\w+) *: (.*)$")


def entries(readelf, path):
    """The debug information as a list of (depth, tag, attributes)."""
    command = [readelf, "--debug-dump=info", "--wide", path]
    text = subprocess.run(command, check=True, capture_output=True, text=True, env={"LC_ALL": "C"}).stdout
    result = []
    for line in text.splitlines():
        entry = ENTRY.match(line)
        if entry:
            result.append((int(entry[1]), entry[2].removeprefix("DW_TAG_"), {}))
            continue
        attribute = ATTRIBUTE.match(line)
        if attribute and result:
            result[-1][2][attribute[1]] = attribute[2].strip()
    return result


def text_of(value):
    """The value of an attribute without its form: "(strp) (offset: 0x1f): name" or "(indirect string, …): name"."""
    return re.sub(r"^(\([^)]*\) *)*:? *", "", value)


def number_of(value):
    return int(text_of(value).split()[0], 0)


def slot_of(value):
    """"2 byte block: 10 3  (DW_OP_constu: 3)" or "(exprloc) 2 byte block: …"."""
    return int(re.search(r"DW_OP_constu: (\d+)", value)[1])


def describe(index, all_entries, name):
    """The lines of one struct, class, union or enumeration."""
    depth, tag, attributes = all_entries[index]
    slots, fields, values = [], [], []
    for child_depth, child_tag, child in all_entries[index + 1:]:
        if child_depth <= depth:
            break
        if child_depth != depth + 1:
            continue
        if child_tag == "subprogram" and "vtable_elem_location" in child:
            slots.append((slot_of(child["vtable_elem_location"]), text_of(child["linkage_name"])))
        elif child_tag == "member" and "data_member_location" in child and "_vptr" not in child.get("name", ""):
            fields.append((number_of(child["data_member_location"]), text_of(child.get("name", "(unnamed)"))))
        elif child_tag == "enumerator":
            values.append((number_of(child["const_value"]), text_of(child["name"])))
    size = number_of(attributes["byte_size"])
    lines = [f"{tag.removesuffix('_type')} {name}: {size} bytes"]
    lines += [f"  slot {slot}: {signature}" for slot, signature in sorted(slots)]
    lines += [f"  offset {offset}: {field}" for offset, field in sorted(fields)]
    lines += [f"  {value} = {enumerator}" for value, enumerator in sorted(values)]
    return lines


def layouts(all_entries):
    found = {}
    path = []  # (depth, name) of the enclosing namespaces and types
    for index, (depth, tag, attributes) in enumerate(all_entries):
        while path and path[-1][0] >= depth:
            path.pop()
        name = text_of(attributes["name"]) if "name" in attributes else ""
        is_type = tag in ("class_type", "structure_type", "union_type", "enumeration_type")
        if tag != "namespace" and not is_type:
            name = "(function)" if tag == "subprogram" else ""
            if not name:
                continue
        path.append((depth, name))
        full = "::".join(part for _, part in path)
        if is_type and full.startswith("fenlux::") and "(function)" not in full and "byte_size" in attributes and name:
            found[full] = describe(index, all_entries, full)
    return [line for name in sorted(found) for line in found[name]]


if __name__ == "__main__":
    print("\n".join(layouts(entries(sys.argv[1], sys.argv[2]))))
