#!/usr/bin/env python3
"""Checks that the schema tables 'paramctl schema' exported from a tuning file make modules that
read every member of that file: the generator turns the tables into C++, and the model it parses
from them matches the file's own definition table member by member (name hash, kind, count,
storage a reader takes the file's type into without conversion, nested structures alike).

    schemaroundtrip.py GENERATOR_DIR SCHEMA_DIR DOCUMENT.json TABLE_DIR OUT_DIR [MODULE=FILE...]

SCHEMA_DIR is the catalogue's schema folder, where the generator finds the trigger dimension
table that nest-shaped blocks are checked against. DOCUMENT.json is the file's 'paramctl dump
--json' document. A module list in TABLE_DIR is generated too, so each of its instances must name
a module the tables declare. Each MODULE=FILE names the file of TABLE_DIR that must declare the
module (a block's family, or a table of plain types). Exits 1 naming the first member that
differs."""

import json
import os
import subprocess
import sys

# The storages a reader fills from each file type directly (no conversion, nothing dropped).
DIRECT_STORAGE = {
    "Int8": {"int8"}, "UInt8": {"uint8"}, "ByteLike": {"uint8"},
    "Int16": {"int16"}, "UInt16": {"uint16"}, "ShortLike": {"uint16"},
    "Int32": {"int32"}, "IntLike": {"int32"},
    "UInt32": {"uint32"}, "UIntLike": {"uint32"}, "UIntLike2": {"uint32"},
    "Int64": {"int64"}, "UInt64": {"uint64"}, "LongLike": {"uint64"},
    "Float": {"float"}, "Double": {"double"},
}


def shape_of(member):
    low, high = member["min"], member["max"]
    if low >= 2 and high == low:
        return "fixed"
    if low == 0 and high == 1:
        return "optional"
    if (low == 0 and high != 0) or (low >= 1 and high >= 2):
        return "counted"
    return "single"


def compare(decl, structure_id, structures, name_hash, path, seen):
    if (id(decl), structure_id) in seen:
        return
    seen.add((id(decl), structure_id))
    members = [m for m in decl.members if not m.hidden]
    wanted = structures[structure_id]["members"]
    if len(members) != len(wanted):
        sys.exit("%s: %d members generated, the file has %d" % (path, len(members), len(wanted)))
    for generated, member in zip(members, wanted):
        at = path + "." + member["name"]
        if generated.name_hash != name_hash(member["name"]):
            sys.exit("%s: generated as %s, another name hash" % (at, generated.name))
        shape = shape_of(member)
        if generated.shape != shape or (shape == "fixed" and generated.length != member["max"]):
            sys.exit("%s: generated %s, the file holds %s" % (at, generated.shape, shape))
        if member["type"] == "Structure":
            if generated.category != "structure":
                sys.exit("%s: not generated as a structure" % at)
            compare(generated.type or generated.body, member["structure"], structures, name_hash,
                    at, seen)
        elif member["type"] == "String":
            if generated.category != "string":
                sys.exit("%s: not generated as a string" % at)
        else:
            storages = {"float"} if member.get("flags", 0) & 1 else DIRECT_STORAGE[member["type"]]
            # An enumeration is held in four bytes, as an unsigned number.
            storage = "uint32" if generated.enum is not None else generated.storage
            if storage not in storages:
                sys.exit("%s: generated as %s, the file holds %s" % (at, generated.storage,
                                                                     member["type"]))


def main():
    generator, schema_dir, document_path, tables, out = sys.argv[1:6]
    expected = dict(pair.split("=", 1) for pair in sys.argv[6:])
    sys.path.insert(0, generator)
    from paramgen.catalogue import Catalogue
    from paramgen.namehash import name_hash

    paths = sorted(os.path.join(tables, name) for name in os.listdir(tables))
    subprocess.run([sys.executable, os.path.join(generator, "paramgen.py")] + paths +
                   ["--out-dir", out, "--schema-dir", schema_dir], check=True)
    with open(document_path, encoding="utf-8") as handle:
        document = json.load(handle)
    structures = {record["id"]: record for record in document["definitions"]
                  if record["record"] == "structure"}
    modules = [record for record in document["definitions"] if record["record"] == "module"]
    versions = {row["name"]: tuple(int(n) for n in row["version"].split("."))
                for row in document["symbols"] if "name" in row and "version" in row}
    catalogue = Catalogue([tables, schema_dir])
    # Every module the tables declare, by top type name and version: a block comes back as a
    # version of its family, anything else as a namespace of its own.
    declared = {}
    for path in (p for p in paths if not p.endswith(".list")):
        for namespace in catalogue.load_file(path):
            for decl in namespace.modules:
                top = namespace.top_type(decl)
                declared.setdefault((top.name, tuple(decl.version)), (namespace, top))
    for module in modules:
        # A module without instances is exported at version 1.0.0.
        key = (structures[module["structure"]]["name"], versions.get(module["name"], (1, 0, 0)))
        if key not in declared:
            sys.exit("%s: no table declares %s version %s" % ((module["name"],) + key))
        namespace, top = declared[key]
        declared_in = os.path.basename(namespace.path)
        if expected.get(module["name"], declared_in) != declared_in:
            sys.exit("%s: declared in %s, not in %s" % (module["name"], declared_in,
                                                       expected[module["name"]]))
        compare(top, module["structure"], structures, name_hash, module["name"], set())
        print("%s: %s of %s, %d members, every one read"
              % (module["name"], namespace.name, declared_in, len(top.members)))
    missing = set(expected) - {module["name"] for module in modules}
    if missing:
        sys.exit("the file has no module %s" % ", ".join(sorted(missing)))


if __name__ == "__main__":
    main()
