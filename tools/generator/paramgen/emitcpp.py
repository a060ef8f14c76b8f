"""The library side of a namespace: <namespace>.h and <namespace>.cpp.

Generated types state their layout once, as a constant member descriptor table; their Load,
Unload and value access forward to the framework routines that walk it
(parameterparser/parametermemberaccess.h, parameterparser/parametervaluepath.h)."""

from paramgen.schema import cpp_identifier, has_pointer

LAYOUT_VERSION = 1

CPP_STORAGE = {
    "int8": "int8_t", "uint8": "uint8_t", "int16": "int16_t", "uint16": "uint16_t",
    "int32": "int32_t", "uint32": "uint32_t", "int64": "int64_t", "uint64": "uint64_t",
    "float": "float", "double": "double",
}
STORAGE_ENUM = {
    "int8": "Int8", "uint8": "UInt8", "int16": "Int16", "uint16": "UInt16", "int32": "Int32",
    "uint32": "UInt32", "int64": "Int64", "uint64": "UInt64", "float": "Float",
    "double": "Double",
}
KINDS = {
    ("number", "single"): "Scalar", ("number", "fixed"): "FixedArray",
    ("number", "counted"): "CountedArray", ("number", "optional"): "OptionalScalar",
    ("structure", "single"): "Structure", ("structure", "fixed"): "StructureFixedArray",
    ("structure", "counted"): "StructureArray", ("structure", "optional"): "OptionalStructure",
    ("string", "single"): "String", ("string", "fixed"): "StringFixedArray",
    ("string", "optional"): "OptionalString", ("string", "counted"): "StringArray",
}


def banner(schema_name):
    return ("// Generated from %s by the module generator. Do not edit.\n" % schema_name)


class Writer:
    """Collects lines with indentation."""

    def __init__(self):
        self.lines = []
        self.depth = 0

    def line(self, text=""):
        self.lines.append(("    " * self.depth + text) if text else "")

    def blank(self):
        if self.lines and self.lines[-1] != "":
            self.lines.append("")

    def text(self):
        while self.lines and self.lines[-1] == "":
            self.lines.pop()
        return "\n".join(self.lines) + "\n"


def enum_type(enum_decl, namespace_of):
    return "::%s::%s" % (namespace_of(enum_decl), cpp_identifier(enum_decl.name))


def storage_type(member, owner_namespace, namespace_of):
    if member.enum is not None:
        return enum_type(member.enum, namespace_of)
    return CPP_STORAGE[member.storage]


def structure_type(member, holder):
    """How a structure member's type is spelled inside holder's definition."""
    target = member.type
    if target.parent is holder:
        return cpp_identifier(target.name)
    return "::%s::%s" % (target.namespace, "::".join(
        cpp_identifier(part) for part in target.cpp_path.split("::")))


def qualified(decl):
    return "::%s::%s" % (decl.namespace, "::".join(
        cpp_identifier(part) for part in decl.cpp_path.split("::")))


def local_path(decl):
    return "::".join(cpp_identifier(part) for part in decl.cpp_path.split("::"))


class CppEmitter:
    def __init__(self, namespace, schema_name):
        self.ns = namespace
        self.schema_name = schema_name
        self.enum_namespace = {}
        for decl in namespace.enums:
            self.enum_namespace[id(decl)] = namespace.name
        for name, used in namespace.used.items():
            for decl in used.enums:
                self.enum_namespace[id(decl)] = name
        self.top_types = {id(namespace.top_type(m)): m for m in namespace.modules}
        self.clones = any(module.clone for module in namespace.modules)

    def namespace_of(self, enum_decl):
        return self.enum_namespace[id(enum_decl)]

    # ---- header -------------------------------------------------------------------------

    def header(self):
        out = Writer()
        out.line(banner(self.schema_name).rstrip())
        out.line("#pragma once")
        out.line()
        out.line("#include <cstdint>")
        out.line()
        out.line('#include "parameterparser/parametermemberaccess.h"')
        out.line('#include "parameterparser/parametermodule.h"')
        out.line('#include "parameterparser/parameterparserinfo.h"')
        out.line('#include "parameterparser/plist.h"')
        for used in self.ns.uses:
            out.line('#include "paramgen/%s.h"' % used)
        out.line()
        out.line("class DefaultModule;")
        out.line("class ModuleData;")
        out.line("class ParameterFileSymbolTable;")
        out.line("struct ParameterLoadParameters;")
        out.line()
        out.line("static_assert(ParameterModuleLayoutVersion == %d," % LAYOUT_VERSION)
        out.line('              "generated for another module framework layout");')
        out.line()
        out.line("namespace %s {" % self.ns.name)
        for decl in self.ns.enums:
            out.blank()
            out.line("enum %s : unsigned int" % cpp_identifier(decl.name))
            out.line("{")
            out.depth += 1
            for name, value in decl.values:
                out.line("%s = %du," % (cpp_identifier(name), value))
            out.depth -= 1
            out.line("};")
        for decl in self.ns.types:
            out.blank()
            self.emit_struct(out, decl)
        for module in self.ns.modules:
            out.blank()
            self.emit_class(out, module)
        out.blank()
        out.line("} // namespace %s" % self.ns.name)
        return out.text()

    def emit_struct(self, out, decl):
        name = cpp_identifier(decl.name)
        out.line("struct PARAMETERPARSER_API %s" % name)
        out.line("{")
        out.depth += 1
        for inner in decl.nested:
            self.emit_struct(out, inner)
            out.blank()
        if decl.is_top:
            out.line("uint32_t symbolTableID; ///< bits 0-23 symbol table ID, 24-31 edits")
        for member in decl.members:
            self.emit_fields(out, decl, member)
        out.blank()
        out.line("void Load(ParameterLoadParameters& loadParams);")
        out.line("static void LoadArray(ParameterLoadParameters& loadParams, void* elements, "
                 "unsigned int elementCount);")
        out.line("static void* AllocArray(unsigned int elementCount);")
        if has_pointer(decl):
            out.line("void Unload(ParameterFileSymbolTable* symbolTable);")
        if self.ns.value_access:
            out.line("bool GetValue(char const* valuePath, char* outText, unsigned int outSize);")
            out.line("bool SetValue(char const* valuePath, char const* valueText);")
            out.line("bool GetInfo(char const* valuePath, PList<ParameterParserInfo>& infoList);")
        if self.clones:
            out.line("/// A copy with counted arrays of structures of its own (ParameterClone).")
            out.line("void CloneFrom(%s const& other);" % name)
            out.line("/// A new copy by CloneFrom; null when memory runs out. Free it with "
                     "ParameterClone::Destroy.")
            out.line("%s* Clone() const;" % name)
        if decl.is_top:
            out.line("char const* GetModuleName() const;")
            out.line("unsigned long GetModuleNameHash() const;")
            out.line("uint32_t GetModified() const;")
            out.line("void Release();")
        out.line()
        out.line("static ParameterTypeDescriptor const Descriptor;")
        out.depth -= 1
        out.line("};")

    def emit_fields(self, out, holder, member):
        name = member.cpp_name
        if member.category == "number":
            element = storage_type(member, self.ns.name, self.namespace_of)
        elif member.category == "string":
            element = "char*"
        else:
            element = structure_type(member, holder)
        shape = member.shape
        if shape == "single":
            out.line("%s %s;" % (element, name))
        elif shape == "fixed":
            out.line("%s %s[%d];" % (element, name, member.length))
        elif shape == "counted":
            out.line("uint32_t %sCount;" % member.name)
            out.line("uint32_t %sID;" % member.name)
            out.line("%s* %s;" % (element, name))
        else:
            out.line("%s %s;" % (element, name))
            out.line("uint32_t %sCount;" % member.name)
            out.line("uint32_t %sID;" % member.name)

    def emit_class(self, out, module):
        top = self.ns.top_type(module)
        cls = cpp_identifier(module.class_name)
        base = cpp_identifier(top.name)
        out.line("class PARAMETERPARSER_API %s final : public ParameterModule, public %s"
                 % (cls, base))
        out.line("{")
        out.line("public:")
        out.depth += 1
        out.line("/// The factory instance of a set manager's registry: no data.")
        out.line("explicit %s(char const* instanceName);" % cls)
        out.line("/// An instance for the module record data.")
        out.line("%s(char const* instanceName, ModuleData* moduleData);" % cls)
        out.line("~%s() override;" % cls)
        out.line()
        out.line("ParameterModule* Create(ModuleData* moduleData, DefaultModule* registry) "
                 "const override;")
        out.line("bool LoadModule(ParameterFileSymbolTable* symbolTable) override;")
        out.line("void UnloadModule() override;")
        if module.access:
            out.line("bool GetValue(char const* valuePath, char* outText, unsigned int outSize) "
                     "override;")
            out.line("bool SetValue(char const* valuePath, char const* valueText) override;")
            out.line("bool GetInfo(char const* valuePath, PList<ParameterParserInfo>& infoList) "
                     "override;")
        out.line("virtual char const* GetModuleName();")
        out.line("virtual unsigned long GetModuleNameHash();")
        out.line("void Release() { ParameterModule::Release(); }")
        if module.trigger_tree:
            out.line("static void UpdateTriggerType(%s* controlVariables, %s* triggerNode, "
                     "unsigned int triggerLevel);"
                     % (structure_type(module.control, top), qualified(module.root[-1].type)))
        out.depth -= 1
        out.line()
        out.line("private:")
        out.depth += 1
        out.line("static ParameterModule* Make(char const* instanceName, ModuleData* moduleData, "
                 "unsigned int symbolId);")
        out.depth -= 1
        out.line("};")

    # ---- source -------------------------------------------------------------------------

    def source(self):
        out = Writer()
        out.line(banner(self.schema_name).rstrip())
        out.line('#include "paramgen/%s.h"' % self.ns.name)
        out.line()
        out.line("#include <cstddef>")
        out.line("#include <mutex>")
        out.line()
        out.line('#include "parameterparser/moduledata.h"')
        if self.clones:
            out.line('#include "parameterparser/parameterclone.h"')
        out.line('#include "parameterparser/parameterlogging.h"')
        out.line('#include "parameterparser/parametervaluepath.h"')
        out.line()
        out.line("namespace %s {" % self.ns.name)
        types = self.ns.all_types()
        out.blank()
        out.line("namespace {")
        for decl in types:
            out.blank()
            self.emit_members_table(out, decl)
        out.blank()
        out.line("} // namespace")
        for decl in types:
            out.blank()
            self.emit_type_functions(out, decl)
        for module in self.ns.modules:
            out.blank()
            self.emit_class_functions(out, module)
        out.blank()
        out.line("} // namespace %s" % self.ns.name)
        return out.text()

    def emit_members_table(self, out, decl):
        path = local_path(decl)
        if not decl.members:
            return
        out.line("ParameterMemberDescriptor const %sMembers[] = {" % decl.flat_name)
        out.depth += 1
        for member in decl.members:
            kind = KINDS[(member.category, member.shape)]
            if member.category == "number":
                type_name = "ParameterTypeNames::" + member.reported
                storage = "UInt32" if member.enum is not None else STORAGE_ENUM[member.storage]
                precision = 10 if member.reported in ("Float", "Double") else 0
            else:
                type_name = "ParameterTypeNames::" + (
                    "String" if member.category == "string" else "Structure")
                storage = "UInt32"
                precision = 0
            if member.shape in ("counted", "optional"):
                count_offset = "offsetof(%s, %sCount)" % (path, member.name)
                id_offset = "offsetof(%s, %sID)" % (path, member.name)
            else:
                count_offset = id_offset = "0"
            target = "&%s::Descriptor" % qualified(member.type) \
                if member.category == "structure" else "nullptr"
            enumeration = "true" if member.enum is not None and member.shape == "counted" \
                else "false"
            out.line('{"%s", %s, 0x%016xUL, offsetof(%s, %s), %s, %s, %d, %d, %d,'
                     % (member.name, type_name, member.name_hash, path, member.cpp_name,
                        count_offset, id_offset, member.length, member.minimum
                        if member.shape == "counted" else 0, member.loc))
            out.line(" ParameterMemberKind::%s, ParameterStorage::%s, %d, %s, %s, %s},"
                     % (kind, storage, precision, enumeration,
                        "true" if member.hidden else "false", target))
        out.depth -= 1
        out.line("};")

    @staticmethod
    def function(out, signature, *body):
        out.blank()
        out.line(signature)
        out.line("{")
        for text in body:
            out.line("    " + text if text else "")
        out.line("}")

    def emit_type_functions(self, out, decl):
        path = local_path(decl)
        members = "%sMembers" % decl.flat_name if decl.members else "nullptr"
        out.line("ParameterTypeDescriptor const %s::Descriptor = {" % path)
        out.line('    "%s", sizeof(%s), %s, %s, %d, &%s::LoadArray, &%s::AllocArray, %s};'
                 % (decl.name, path, "sizeof(uint32_t)" if decl.is_top else "0", members,
                    len(decl.members), path, path, "true" if has_pointer(decl) else "false"))
        fn = self.function
        fn(out, "void %s::Load(ParameterLoadParameters& loadParams)" % path,
           "ParameterMemberAccess::Load(this, Descriptor, loadParams);")
        fn(out, "void %s::LoadArray(ParameterLoadParameters& loadParams, void* elements,\n"
                "    unsigned int elementCount)" % path,
           "ParameterMemberAccess::LoadArray(Descriptor, loadParams, elements, elementCount);")
        fn(out, "void* %s::AllocArray(unsigned int elementCount)" % path,
           "return ParameterMemberAccess::AllocArray(Descriptor, elementCount);")
        if has_pointer(decl):
            fn(out, "void %s::Unload(ParameterFileSymbolTable* symbolTable)" % path,
               "ParameterMemberAccess::Unload(this, Descriptor, symbolTable);")
        if self.ns.value_access:
            fn(out, "bool %s::GetValue(char const* valuePath, char* outText, unsigned int outSize)"
               % path,
               "return ParameterValuePath::GetValue(this, Descriptor, valuePath, outText, "
               "outSize);")
            fn(out, "bool %s::SetValue(char const* valuePath, char const* valueText)" % path,
               "return ParameterValuePath::SetValue(this, Descriptor, valuePath, valueText);")
            fn(out, "bool %s::GetInfo(char const* valuePath, PList<ParameterParserInfo>& infoList)"
               % path,
               "return ParameterValuePath::GetInfo(this, Descriptor, valuePath, infoList);")
        if self.clones:
            fn(out, "void %s::CloneFrom(%s const& other)" % (path, path),
               "ParameterClone::CloneFrom(this, &other, Descriptor);")
            fn(out, "%s* %s::Clone() const" % (path, path),
               "return static_cast<%s*>(ParameterClone::Clone(this, Descriptor));" % path)
        module = self.top_types.get(id(decl))
        if module is not None:
            # The top type exists only as a base of its class: these reach the class's record.
            cls = cpp_identifier(module.class_name)
            fn(out, "char const* %s::GetModuleName() const" % path,
               "return static_cast<%s const*>(this)->ParameterModule::moduleName;" % cls)
            fn(out, "unsigned long %s::GetModuleNameHash() const" % path,
               "return static_cast<%s const*>(this)->ParameterModule::moduleNameHash;" % cls)
            fn(out, "uint32_t %s::GetModified() const" % path,
               "return static_cast<%s const*>(this)->ParameterModule::modified;" % cls)
            fn(out, "void %s::Release()" % path,
               "static_cast<%s*>(this)->ParameterModule::Release();" % cls)

    def emit_class_functions(self, out, module):
        # Framework members are named through ParameterModule:: so that schema members of the
        # same name (data, version, mode ...) never make them ambiguous.
        top = self.ns.top_type(module)
        cls = cpp_identifier(module.class_name)
        base = cpp_identifier(top.name)
        major, minor, patch = module.version
        fn = self.function
        out.line("%s::%s(char const* instanceName) : %s(instanceName, nullptr)" % (cls, cls, cls))
        out.line("{")
        out.line("}")
        out.blank()
        out.line("%s::%s(char const* instanceName, ModuleData* moduleData)" % (cls, cls))
        out.line("    : ParameterModule(instanceName, %d, %d, %du, moduleData), %s()"
                 % (major, minor, patch, base))
        out.line("{")
        out.line("}")
        fn(out, "%s::~%s()" % (cls, cls),
           "if (ParameterModule::loaded)", "    UnloadModule();")
        fn(out, "ParameterModule* %s::Make(char const* instanceName, ModuleData* moduleData,\n"
                "    unsigned int symbolId)" % cls,
           "auto* instance = new %s(instanceName, moduleData);" % cls,
           "if (instance != nullptr)", "    instance->symbolTableID = symbolId;",
           "return instance;")
        # The messages name the class in their own literal, so that the format checks see the
        # whole text. The version decides first: a file written from another schema version is
        # refused as such even when its name differs too.
        fn(out, "ParameterModule* %s::Create(ModuleData* moduleData, DefaultModule* registry) const"
           % cls,
           "if (moduleData == nullptr)", "    return nullptr;",
           "if (moduleData->Version.Raw != ParameterModule::version.Raw) {",
           "    ParameterLogging::Write(RecordLogger(moduleData), ParameterLogging::LogError,",
           '        "Unable to create %s, binary version (%%lld) does not match source "' % cls,
           '        "version (%lld)\\n",',
           "        static_cast<long long>(moduleData->Version.Raw),",
           "        static_cast<long long>(ParameterModule::version.Raw));",
           "    return nullptr;",
           "}",
           "if (moduleData->NameHash != ParameterModule::moduleNameHash) {",
           "    ParameterLogging::Write(RecordLogger(moduleData), ParameterLogging::LogError,",
           '        "Unable to create %s, binary name hash (0x%%016llx) does not match "' % cls,
           '        "source name hash (0x%016llx)\\n",',
           "        static_cast<unsigned long long>(moduleData->NameHash),",
           "        static_cast<unsigned long long>(ParameterModule::moduleNameHash));",
           "    return nullptr;",
           "}",
           "return CreateInstance(moduleData, registry, &Make);")
        module_id = "symbolTableID & ModuleIdMask" if module.access else "symbolTableID"
        body = ["std::lock_guard<std::recursive_mutex> lock(ParameterModule::moduleMutex);",
                "if (ParameterModule::loaded)", "    return true;",
                'ParameterModuleLoad load(this, symbolTable, %s, "%s");' % (module_id, cls),
                "%s::Load(load.Parameters());" % base]
        if module.trigger_tree:
            roots = ".".join(m.cpp_name for m in module.root)
            count = ".".join([m.cpp_name for m in module.root[:-1]] +
                             [module.root[-1].name + "Count"])
            body += ["if (load.Found() && %s != nullptr) {" % roots,
                     "    for (unsigned int nodeIndex = 0; nodeIndex < %s; ++nodeIndex)" % count,
                     "        UpdateTriggerType(&%s, &%s[nodeIndex], 0);"
                     % (module.control.cpp_name, roots),
                     "}"]
        body.append("return load.Finish();")
        fn(out, "bool %s::LoadModule(ParameterFileSymbolTable* symbolTable)" % cls, *body)
        body = ["std::lock_guard<std::recursive_mutex> lock(ParameterModule::moduleMutex);"]
        if has_pointer(top):
            body += ["if (!ParameterModule::loaded)", "    return;",
                     "%s::Unload(UnloadTable());" % base]
        body.append("ParameterModule::loaded = false;")
        fn(out, "void %s::UnloadModule()" % cls, *body)
        if module.access:
            fn(out, "bool %s::GetValue(char const* valuePath, char* outText, unsigned int outSize)"
               % cls, "return %s::GetValue(valuePath, outText, outSize);" % base)
            fn(out, "bool %s::SetValue(char const* valuePath, char const* valueText)" % cls,
               "if (!%s::SetValue(valuePath, valueText))" % base, "    return false;",
               "symbolTableID = NextEditGeneration(symbolTableID);",
               "++ParameterModule::modified;", "return true;")
            fn(out, "bool %s::GetInfo(char const* valuePath, PList<ParameterParserInfo>& infoList)"
               % cls, "return %s::GetInfo(valuePath, infoList);" % base)
        fn(out, "char const* %s::GetModuleName()" % cls, "return ParameterModule::moduleName;")
        fn(out, "unsigned long %s::GetModuleNameHash()" % cls,
           "return ParameterModule::moduleNameHash;")
        if module.trigger_tree:
            node = module.root[-1].type
            kinds = next(m for m in module.control.type.members if m.name == "control_var_type")
            level = next(m for m in node.members if m.name == "level")
            kind = next(m for m in node.members if m.name == "type")
            trigger = next(m for m in node.members if m.name == "trigger")
            fn(out, "void %s::UpdateTriggerType(%s* controlVariables, %s* triggerNode,\n"
                    "    unsigned int triggerLevel)"
               % (cls, structure_type(module.control, top), qualified(node)),
               "// A level past the file's list of control variables keeps what was loaded.",
               "if (controlVariables == nullptr || triggerNode == nullptr ||",
               "    controlVariables->%s == nullptr ||" % kinds.cpp_name,
               "    triggerLevel >= controlVariables->%sCount)" % kinds.name,
               "    return;",
               "triggerNode->%s = triggerLevel;" % level.cpp_name,
               "triggerNode->%s = static_cast<decltype(triggerNode->%s)>(" % (kind.cpp_name,
                                                                           kind.cpp_name),
               "    controlVariables->%s[triggerLevel]);" % kinds.cpp_name,
               "for (unsigned int nodeIndex = 0;",
               "     triggerNode->%s != nullptr && nodeIndex < triggerNode->%sCount; ++nodeIndex)"
               % (trigger.cpp_name, trigger.name),
               "    UpdateTriggerType(controlVariables, &triggerNode->%s[nodeIndex],"
               % trigger.cpp_name,
               "                      triggerLevel + 1);")
