"""The writer side of a namespace: <namespace>.writer.h and <namespace>.writer.cpp, the schema
as TuningWriter definition records (tools/generator/schemaset.h), so that tests write module data
from the schema the library reads."""

from paramgen.emitcpp import Writer, banner

ELEMENT_TYPES = {
    "int8": "Int8", "uint8": "UInt8", "int16": "Int16", "uint16": "UInt16", "int32": "Int32",
    "uint32": "UInt32", "int64": "Int64", "uint64": "UInt64", "float": "Float",
    "double": "Double",
}
# Counted fields take any number of elements up to what a u16 count allows.
COUNTED_MAXIMUM = 65535


def _qualified(decl):
    return decl.namespace + "::" + decl.cpp_path


def _counts(member):
    if member.shape == "single":
        return 1, 1
    if member.shape == "fixed":
        return member.length, member.length
    if member.shape == "optional":
        return 0, 1
    return member.minimum, COUNTED_MAXIMUM


class WriterEmitter:
    def __init__(self, namespace, schema_name):
        self.ns = namespace
        self.schema_name = schema_name

    def header(self):
        out = Writer()
        out.line(banner(self.schema_name).rstrip())
        out.line("#pragma once")
        out.line()
        out.line('#include "tools/generator/schemaset.h"')
        out.line()
        out.line("namespace ParamSchema::%s {" % self.ns.name)
        out.line()
        out.line("/// Adds the structures of %s (after those of the namespaces it uses) to set."
                 % self.ns.name)
        out.line("void Describe(TuningWriter::SchemaSet& set);")
        out.line()
        out.line("} // namespace ParamSchema::%s" % self.ns.name)
        return out.text()

    def source(self):
        out = Writer()
        out.line(banner(self.schema_name).rstrip())
        out.line('#include "paramgen/%s.writer.h"' % self.ns.name)
        out.line()
        for used in self.ns.uses:
            out.line('#include "paramgen/%s.writer.h"' % used)
        if self.ns.uses:
            out.line()
        out.line("namespace ParamSchema::%s {" % self.ns.name)
        out.line()
        out.line("void Describe(TuningWriter::SchemaSet& set)")
        out.line("{")
        out.depth += 1
        out.line("using TuningWriter::ElementType;")
        out.line("using TuningWriter::SchemaElement;")
        out.line('if (!set.Begin("%s"))' % self.ns.name)
        out.line("    return;")
        for used in self.ns.uses:
            out.line("ParamSchema::%s::Describe(set);" % used)
        for decl in self.ns.all_types():
            self.emit_structure(out, decl)
        out.depth -= 1
        out.line("}")
        out.line()
        out.line("} // namespace ParamSchema::%s" % self.ns.name)
        return out.text()

    def emit_structure(self, out, decl):
        qualified = _qualified(decl)
        elements = [m for m in decl.members if not m.hidden]
        if any(m.category == "structure" and m.type is decl for m in elements):
            # A type that holds itself names its own ID, known before its record is added.
            out.line("uint32_t const %sId = static_cast<uint32_t>(set.Structures().size() + 1);"
                     % decl.flat_name)
        out.line('set.AddStructure("%s", "%s", {' % (qualified, decl.name))
        out.depth += 1
        for member in elements:
            minimum, maximum = _counts(member)
            if member.category == "structure":
                element_type = "Structure"
                if member.type is decl:
                    structure = "%sId" % decl.flat_name
                else:
                    structure = 'set.Id("%s")' % _qualified(member.type)
            else:
                structure = "0"
                if member.category == "string":
                    element_type = "String"
                elif member.enum is not None:
                    element_type = "UInt32"
                else:
                    element_type = ELEMENT_TYPES[member.storage]
            out.line('SchemaElement("%s", ElementType::%s, %s, %d, %d),'
                     % (member.name, element_type, structure, minimum, maximum))
        out.depth -= 1
        out.line("});")
