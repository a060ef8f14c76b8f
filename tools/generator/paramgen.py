#!/usr/bin/env python3
"""The module generator: one schema table in, the C++ of its namespace out.

    paramgen.py SCHEMA --out-dir DIR [--schema-dir DIR ...] [--source-root DIR] [--depfile FILE]
    paramgen.py --manager LIST --out-dir DIR [--schema-dir DIR ...] [...]

Writes DIR/<namespace>.h, .cpp, .writer.h and .writer.cpp; with --manager, the concrete set
manager of a module list as DIR/<manager>.h, .cpp, .writer.h and .writer.cpp. A file whose text
would not change is left alone, so an unchanged namespace does not rebuild what includes it. The
formats are described in README.md beside this script."""

import argparse
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from paramgen.emitcpp import CppEmitter  # noqa: E402
from paramgen.emitmanager import ManagerEmitter  # noqa: E402
from paramgen.emitwriter import WriterEmitter  # noqa: E402
from paramgen.managerlist import load_manager  # noqa: E402
from paramgen.schema import SchemaError, load_namespace  # noqa: E402


def generate(schema_path, search_dirs, source_root=None):
    """The namespace of schema_path and its outputs as {file name: text}."""
    namespace = load_namespace(schema_path, search_dirs)
    shown = _shown_name(schema_path, source_root)
    cpp = CppEmitter(namespace, shown)
    writer = WriterEmitter(namespace, shown)
    outputs = {
        namespace.name + ".h": cpp.header(),
        namespace.name + ".cpp": cpp.source(),
        namespace.name + ".writer.h": writer.header(),
        namespace.name + ".writer.cpp": writer.source(),
    }
    return namespace, outputs


def generate_manager(list_path, search_dirs, source_root=None):
    """The set manager of the module list at list_path and its outputs as {file name: text}."""
    manager = load_manager(list_path, search_dirs)
    emitter = ManagerEmitter(manager, _shown_name(list_path, source_root))
    outputs = {
        manager.name + ".h": emitter.header(),
        manager.name + ".cpp": emitter.source(),
        manager.name + ".writer.h": emitter.writer_header(),
        manager.name + ".writer.cpp": emitter.writer_source(),
    }
    return manager, outputs


def _shown_name(path, source_root):
    if source_root:
        shown = os.path.relpath(os.path.abspath(path), os.path.abspath(source_root))
    else:
        shown = os.path.basename(path)
    return shown.replace(os.sep, "/")


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
    parser.add_argument("schema", help="a schema table, or with --manager a module list")
    parser.add_argument("--manager", action="store_true",
                        help="the input is a set manager's module list")
    parser.add_argument("--out-dir", required=True)
    parser.add_argument("--schema-dir", action="append", default=[],
                        help="where used namespaces are found (repeatable); the schema's own "
                             "folder is searched first")
    parser.add_argument("--source-root", help="the banner names the schema relative to this")
    parser.add_argument("--depfile", help="write the schemas read, for the build system")
    args = parser.parse_args(argv)

    search = [os.path.dirname(os.path.abspath(args.schema))] + args.schema_dir
    try:
        if args.manager:
            generated, outputs = generate_manager(args.schema, args.schema_dir, args.source_root)
        else:
            generated, outputs = generate(args.schema, search, args.source_root)
    except (SchemaError, OSError) as error:
        print("paramgen: %s" % error, file=sys.stderr)
        return 1
    os.makedirs(args.out_dir, exist_ok=True)
    for name, text in sorted(outputs.items()):
        write_if_changed(os.path.join(args.out_dir, name), text)
    if args.depfile:
        target = os.path.join(args.out_dir, generated.name + ".h")
        reads = [os.path.abspath(path).replace(" ", "\\ ") for path in generated.schemas_read]
        with open(args.depfile, "w", encoding="utf-8") as handle:
            handle.write("%s: %s\n" % (target.replace(" ", "\\ "), " ".join(reads)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
