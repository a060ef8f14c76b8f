#!/usr/bin/env python3
"""The module generator: schema tables, block families and module lists in, C++ out.

    paramgen.py INPUT... --out-dir DIR [--schema-dir DIR ...] [--source-root DIR] [--depfile FILE]
    paramgen.py outputs INPUT...
    paramgen.py expand FAMILY [NAMESPACE ...] [--schema-dir DIR ...]
    paramgen.py report INPUT_OR_FOLDER... [--gaps] [--schema-dir DIR ...]
    paramgen.py synthetic --out-dir DIR [--schema-dir DIR ...]

An INPUT is a schema table (.schema: one namespace), a block family (.family: one namespace per
block and version) or a module list (.list: a concrete set manager). Each namespace is written as
DIR/<namespace>.h and .cpp, each manager as DIR/<manager>.h, .cpp, .writer.h and .writer.cpp (its
instances for the tuning-file writer); the namespaces' sources are compiled in units of about 16
(DIR/paramgen_unit_<n>.cpp, which include them). A file whose text would not change is left
alone, so an unchanged namespace does not rebuild what includes it. `outputs` prints the files
generation writes, each with its role, `expand` the plain schema text of a family's namespaces,
`report` one line per namespace for reviewers, `synthetic` placeholder families that fill the
catalogue of the schema folders up to its full size, for measuring the build. The formats are
described in README.md beside this script."""

import argparse
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from paramgen.catalogue import Catalogue  # noqa: E402
from paramgen.emitcpp import CppEmitter  # noqa: E402
from paramgen.emitmanager import ManagerEmitter  # noqa: E402
from paramgen.managerlist import load_manager  # noqa: E402
from paramgen.namehash import name_hash  # noqa: E402
from paramgen.report import gap_lines, report_line  # noqa: E402
from paramgen.schema import SchemaError  # noqa: E402
from paramgen.synthetic import synthetic_files  # noqa: E402

NAMESPACE_SUFFIXES = (".h", ".cpp")
MANAGER_SUFFIXES = (".h", ".cpp", ".writer.h", ".writer.cpp")
# A namespace's source is compiled inside a unit of about this many: the framework headers, most
# of a namespace's compile time on its own, are then read once per unit.
NAMESPACES_PER_UNIT = 16
UNIT_PREFIX = "paramgen_unit_"


def namespace_outputs(namespace, source_root=None):
    """The generated files of one resolved namespace as {file name: text}."""
    shown = _shown_name(namespace.path, source_root)
    cpp = CppEmitter(namespace, shown)
    return {namespace.name + ".h": cpp.header(), namespace.name + ".cpp": cpp.source()}


def generate(schema_path, search_dirs, source_root=None, catalogue=None):
    """The namespaces of a schema table or family and their outputs as {file name: text}."""
    catalogue = catalogue or Catalogue([os.path.dirname(os.path.abspath(schema_path))] +
                                       list(search_dirs))
    namespaces = catalogue.load_file(schema_path)
    outputs = {}
    for namespace in namespaces:
        outputs.update(namespace_outputs(namespace, source_root))
    return namespaces, outputs


def generate_manager(list_path, search_dirs, source_root=None, catalogue=None):
    """The set manager of the module list at list_path and its outputs as {file name: text}."""
    manager = load_manager(list_path, search_dirs, catalogue)
    emitter = ManagerEmitter(manager, _shown_name(list_path, source_root))
    outputs = {
        manager.name + ".h": emitter.header(),
        manager.name + ".cpp": emitter.source(),
        manager.name + ".writer.h": emitter.writer_header(),
        manager.name + ".writer.cpp": emitter.writer_source(),
    }
    return manager, outputs


def output_names(path, catalogue):
    """The file names that generating path writes, without reading more than path itself."""
    if path.endswith(".list"):
        return [os.path.splitext(os.path.basename(path))[0] + s for s in MANAGER_SUFFIXES]
    return [name + s for name in catalogue.namespaces_of(path) for s in NAMESPACE_SUFFIXES]


def _output_names(inputs, catalogue):
    """{input: its output names}; a namespace or manager made by two inputs is refused."""
    result = {}
    made_by = {}
    for path in inputs:
        names = output_names(path, catalogue)
        for name in names:
            if name in made_by:
                raise SchemaError("%s: %s is also made by %s" % (path, name, made_by[name]))
            made_by[name] = path
        result[path] = names
    return result


def units(namespace_names, per_unit=NAMESPACES_PER_UNIT):
    """{unit file name: namespace names} for the namespaces of one generator run. A namespace's
    unit follows from its name hash, so adding or removing a namespace changes only its own unit
    (until the count of units moves with the catalogue's size); empty units are not written."""
    count = max(1, -(-len(namespace_names) // per_unit))
    width = len(str(count - 1))
    result = {}
    for name in sorted(namespace_names):
        unit = "%s%0*d.cpp" % (UNIT_PREFIX, width, name_hash(name) % count)
        result.setdefault(unit, []).append(name)
    return dict(sorted(result.items()))


def unit_source(namespace_names):
    return ("// Generated by the module generator. Do not edit.\n"
            "// Namespace sources compiled as one translation unit; each is complete on its "
            "own.\n" + "".join('#include "paramgen/%s.cpp"\n' % name
                                for name in namespace_names))


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


def _inputs(paths):
    """The inputs named, folders replaced by their tables, families and lists in name order."""
    result = []
    for path in paths:
        if os.path.isdir(path):
            result += [os.path.join(path, entry) for entry in sorted(os.listdir(path))
                       if entry.endswith((".schema", ".family", ".list"))]
        else:
            result.append(path)
    return result


def _generate_all(args):
    inputs = _inputs(args.inputs)
    folders = []
    for path in inputs:
        folder = os.path.dirname(os.path.abspath(path))
        if not path.endswith(".list") and folder not in folders:
            folders.append(folder)
    catalogue = Catalogue(folders + args.schema_dir)
    first = _output_names(inputs, catalogue)[inputs[0]][0]
    outputs = {}
    reads = []
    made = []
    for path in inputs:
        if path.endswith(".list"):
            generated, produced = generate_manager(path, args.schema_dir, args.source_root,
                                                   catalogue)
            read = generated.schemas_read
        else:
            generated, produced = generate(path, [], args.source_root, catalogue)
            read = [r for namespace in generated for r in namespace.schemas_read]
            made += [namespace.name for namespace in generated]
        outputs.update(produced)
        reads += [r for r in read if r not in reads]
    for unit, names in units(made).items():
        outputs[unit] = unit_source(names)
    os.makedirs(args.out_dir, exist_ok=True)
    for name, text in sorted(outputs.items()):
        write_if_changed(os.path.join(args.out_dir, name), text)
    if args.depfile:
        target = os.path.join(args.out_dir, first)
        paths = [os.path.abspath(path).replace(" ", "\\ ") for path in reads]
        with open(args.depfile, "w", encoding="utf-8") as handle:
            handle.write("%s: %s\n" % (target.replace(" ", "\\ "), " ".join(paths)))


def _outputs(args):
    """Prints each output as ROLE NAME: `library` and `writer` for the translation units of the
    library and of the writer-side descriptions, `file` for what units include."""
    made = []
    for path, names in _output_names(_inputs(args.inputs), Catalogue(args.schema_dir)).items():
        for name in names:
            if path.endswith(".list") and name.endswith(".cpp"):
                print("%s %s" % ("writer" if name.endswith(".writer.cpp") else "library", name))
            else:
                print("file " + name)
        if not path.endswith(".list"):
            made += [name[:-len(".h")] for name in names if name.endswith(".h")]
    for unit in units(made):
        print("library " + unit)


def _expand(args):
    catalogue = Catalogue([os.path.dirname(os.path.abspath(args.family))] + args.schema_dir)
    names = catalogue.namespaces_of(args.family)
    for name in args.namespaces:
        if name not in names:
            raise SchemaError("%s: no namespace %s" % (args.family, name))
    chosen = args.namespaces or names
    for index, name in enumerate(chosen):
        if index:
            print()
        for _, text in catalogue.family_lines(args.family)[name]:
            print(text)


def _report(args):
    inputs = [p for p in _inputs(args.inputs) if not p.endswith(".list")]
    folders = []
    for path in inputs:
        folder = os.path.dirname(os.path.abspath(path))
        if folder not in folders:
            folders.append(folder)
    catalogue = Catalogue(folders + args.schema_dir)
    for path in inputs:
        for namespace in catalogue.load_file(path):
            for line in gap_lines(namespace) if args.gaps else [report_line(namespace)]:
                print(line)


def _synthetic(args):
    catalogue = Catalogue(args.schema_dir)
    existing = set()
    for folder in args.schema_dir:
        for path in _inputs([folder]):
            if not path.endswith(".list"):
                existing.update(catalogue.namespaces_of(path))
    os.makedirs(args.out_dir, exist_ok=True)
    for name, text in sorted(synthetic_files(existing).items()):
        write_if_changed(os.path.join(args.out_dir, name), text)


def main(argv=None):
    argv = sys.argv[1:] if argv is None else argv
    command = argv[0] if argv and argv[0] in ("outputs", "expand", "report", "synthetic") \
        else "generate"
    parser = argparse.ArgumentParser(prog="paramgen.py " + command if command != "generate"
                                     else "paramgen.py", description=__doc__.splitlines()[0])
    parser.add_argument("--schema-dir", action="append", default=[],
                        help="where used namespaces are found (repeatable); the inputs' own "
                             "folders are searched first")
    if command == "generate":
        parser.add_argument("inputs", nargs="+",
                            help="schema tables, families, module lists or folders of them")
        parser.add_argument("--out-dir", required=True)
        parser.add_argument("--source-root", help="banners name inputs relative to this")
        parser.add_argument("--depfile", help="write the files read, for the build system")
    elif command == "synthetic":
        argv = argv[1:]
        parser.add_argument("--out-dir", required=True)
    elif command == "expand":
        argv = argv[1:]
        parser.add_argument("family")
        parser.add_argument("namespaces", nargs="*", help="only these (default: all)")
    else:
        argv = argv[1:]
        parser.add_argument("inputs", nargs="+", help="schema tables, families or folders")
        if command == "report":
            parser.add_argument("--gaps", action="store_true",
                                help="list the members known by name only, one a line")
    args = parser.parse_args(argv)
    try:
        {"generate": _generate_all, "outputs": _outputs, "expand": _expand,
         "report": _report, "synthetic": _synthetic}[command](args)
    except (SchemaError, OSError) as error:
        print("paramgen: %s" % error, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
