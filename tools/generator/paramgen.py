#!/usr/bin/env python3
"""The module generator: one schema table in, the C++ of its namespace out.

    paramgen.py SCHEMA --out-dir DIR [--schema-dir DIR ...] [--source-root DIR] [--depfile FILE]

Writes DIR/<namespace>.h, .cpp, .writer.h and .writer.cpp. A file whose text would not change is
left alone, so an unchanged namespace does not rebuild what includes it. The format of the
schema is described in README.md beside this script."""

import argparse
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from paramgen.emitcpp import CppEmitter  # noqa: E402
from paramgen.emitwriter import WriterEmitter  # noqa: E402
from paramgen.schema import SchemaError, load_namespace  # noqa: E402


def generate(schema_path, search_dirs, source_root=None):
    """The namespace of schema_path and its outputs as {file name: text}."""
    namespace = load_namespace(schema_path, search_dirs)
    if source_root:
        shown = os.path.relpath(os.path.abspath(schema_path), os.path.abspath(source_root))
    else:
        shown = os.path.basename(schema_path)
    shown = shown.replace(os.sep, "/")
    cpp = CppEmitter(namespace, shown)
    writer = WriterEmitter(namespace, shown)
    outputs = {
        namespace.name + ".h": cpp.header(),
        namespace.name + ".cpp": cpp.source(),
        namespace.name + ".writer.h": writer.header(),
        namespace.name + ".writer.cpp": writer.source(),
    }
    return namespace, outputs


def write_if_changed(path, text):
    try:
        with open(path, encoding="utf-8") as handle:
            if handle.read() == text:
                return
    except FileNotFoundError:
        pass
    with open(path, "w", encoding="utf-8", newline="\n") as handle:
        handle.write(text)


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("schema")
    parser.add_argument("--out-dir", required=True)
    parser.add_argument("--schema-dir", action="append", default=[],
                        help="where used namespaces are found (repeatable); the schema's own "
                             "folder is searched first")
    parser.add_argument("--source-root", help="the banner names the schema relative to this")
    parser.add_argument("--depfile", help="write the schemas read, for the build system")
    args = parser.parse_args(argv)

    search = [os.path.dirname(os.path.abspath(args.schema))] + args.schema_dir
    try:
        namespace, outputs = generate(args.schema, search, args.source_root)
    except (SchemaError, OSError) as error:
        print("paramgen: %s" % error, file=sys.stderr)
        return 1
    os.makedirs(args.out_dir, exist_ok=True)
    for name, text in sorted(outputs.items()):
        write_if_changed(os.path.join(args.out_dir, name), text)
    if args.depfile:
        target = os.path.join(args.out_dir, namespace.name + ".h")
        reads = [os.path.abspath(path).replace(" ", "\\ ") for path in namespace.schemas_read]
        with open(args.depfile, "w", encoding="utf-8") as handle:
            handle.write("%s: %s\n" % (target.replace(" ", "\\ "), " ".join(reads)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
