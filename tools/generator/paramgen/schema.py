"""Reading schema tables into a model of one namespace, and resolving its references.

The text format is described in tools/generator/README.md. Errors carry the file and line and
stop the generation: a schema that cannot be read must not produce half a namespace."""

import re
from dataclasses import dataclass, field

from paramgen.namehash import name_hash

REPORTED_TYPES = ("Boolean", "Enum", "Int32", "Int64", "UInt8", "UInt16", "UInt32", "UInt64",
                  "Float", "Double")
INTEGER_STORAGE = ("int8", "uint8", "int16", "uint16", "int32", "uint32", "int64", "uint64")
SIMPLE_STORAGE = INTEGER_STORAGE + ("float", "double")
COUNTED_STORAGE = ("int32", "uint32", "float")
FIRST_DUP_TYPE = 8
DEFAULT_MINIMUM = 1

# Schema spellings that reach C++ but cannot be C++ identifiers there: keywords, and the names
# of the members every generated type declares itself.
CPP_KEYWORDS = frozenset("""
alignas alignof and and_eq asm auto bitand bitor bool break case catch char char16_t char32_t
char8_t class compl concept const const_cast consteval constexpr constinit continue co_await
co_return co_yield decltype default delete do double dynamic_cast else enum explicit export
extern false float for friend goto if inline int long mutable namespace new noexcept not not_eq
nullptr operator or or_eq private protected public register reinterpret_cast requires return
short signed sizeof static static_assert static_cast struct switch template this thread_local
throw true try typedef typeid typename union unsigned using virtual void volatile wchar_t while
xor xor_eq NULL
""".split())
GENERATED_MEMBERS = frozenset((
    "Load", "LoadArray", "AllocArray", "Unload", "GetValue", "SetValue", "GetInfo", "Descriptor",
    "symbolTableID", "GetModuleName", "GetModuleNameHash", "GetModified", "Release",
    # Parameter and local names of generated functions: a member of the same name would shadow.
    "loadParams", "elements", "elementCount", "symbolTable", "valuePath", "outText", "outSize",
    "valueText", "infoList", "instanceName", "moduleData", "registry", "symbolId",
    "controlVariables", "triggerNode", "triggerLevel", "instance", "lock", "load", "nodeIndex"))


class SchemaError(Exception):
    """A schema that cannot be generated, with where and why."""


def cpp_identifier(name):
    """The C++ spelling of a schema name: keywords and generated names get a trailing _."""
    if name in CPP_KEYWORDS or name in GENERATED_MEMBERS:
        return name + "_"
    return name


@dataclass
class EnumDecl:
    name: str
    values: list  # (name, value)
    line: int


@dataclass
class Member:
    name: str
    line: int
    category: str           # "number", "string" or "structure"
    shape: str              # "single", "fixed", "counted", "optional"
    length: int = 1         # fixed arrays
    reported: str = ""      # numbers: the type name value access reports
    storage: str = ""       # numbers: simple storage or enumeration reference
    type_ref: str = ""      # structures: the referenced type as written
    body: "TypeDecl" = None  # structures declared inline
    minimum: int = DEFAULT_MINIMUM
    dup: int = None         # pinned dup type
    hash_override: int = None
    hidden: bool = False
    # Filled by resolution.
    type: "TypeDecl" = None
    enum: EnumDecl = None
    loc: int = 0

    @property
    def cpp_name(self):
        return cpp_identifier(self.name)

    @property
    def name_hash(self):
        return self.hash_override if self.hash_override is not None else name_hash(self.name)

    @property
    def is_pointer(self):
        return self.shape == "counted" or self.category == "string"


@dataclass
class TypeDecl:
    name: str
    line: int
    members: list = field(default_factory=list)
    nested: list = field(default_factory=list)  # inline types, in declaration order
    parent: "TypeDecl" = None
    namespace: str = ""
    is_top: bool = False
    open: bool = False      # a frame: the schema knows only some of its members
    gaps: list = field(default_factory=list)  # members known by name only, left out of the code

    @property
    def cpp_path(self):
        """The type's name relative to its namespace (Outer::innerStruct)."""
        return self.name if self.parent is None else self.parent.cpp_path + "::" + self.name

    @property
    def qualified(self):
        return "::" + self.namespace + "::" + self.cpp_path

    @property
    def flat_name(self):
        """A name for namespace-level helpers of this type."""
        return self.cpp_path.replace("::", "_")


@dataclass
class ModuleDecl:
    type_name: str
    class_name: str
    version: tuple
    access: bool
    trigger_tree: bool
    root_path: str
    line: int
    clone: bool = False


@dataclass
class Namespace:
    name: str
    path: str
    uses: list = field(default_factory=list)
    enums: list = field(default_factory=list)
    types: list = field(default_factory=list)  # namespace-level types in order
    modules: list = field(default_factory=list)
    # Filled by resolution.
    used: dict = field(default_factory=dict)  # name -> Namespace
    schemas_read: list = field(default_factory=list)

    def find_type(self, name):
        for decl in self.types:
            if decl.name == name:
                return decl
        return None

    def find_enum(self, name):
        for decl in self.enums:
            if decl.name == name:
                return decl
        return None

    def all_types(self):
        """Every type in emission order: inline types ahead of the type that holds them."""
        result = []

        def walk(decl):
            for inner in decl.nested:
                walk(inner)
            result.append(decl)

        for decl in self.types:
            walk(decl)
        return result

    @property
    def value_access(self):
        """Types get value access unless every module of the namespace goes without."""
        return not self.modules or any(module.access for module in self.modules)

    def top_type(self, module):
        return self.find_type(module.type_name)


BUILTIN_BODIES = {
    "module_versionStruct": [("major_revision", "Int32", "int32"),
                             ("minor_revision", "Int32", "int32"),
                             ("incr_revision", "Int32", "int32")],
    "parameter_versionStruct": [("revision", "String", None)],
}

_SUFFIX = re.compile(r"^(?P<base>[A-Za-z_][A-Za-z0-9_:]*)(?P<suffix>\[\d*\]|\?)?$")
_NAME = re.compile(r"^[A-Za-z_][A-Za-z0-9_]*$")


def numbered(text):
    """The lines of text with their numbers, as parse_lines takes them."""
    return list(enumerate(text.splitlines(), 1))


class _Reader:
    def __init__(self, path, lines):
        self.path = path
        self.lines = []
        for number, raw in lines:
            if "\t" in raw:
                self.fail(number, "tabs are not allowed; indent with spaces")
            stripped = raw.split("#", 1)[0].rstrip()
            if stripped.strip():
                indent = len(stripped) - len(stripped.lstrip(" "))
                self.lines.append((number, indent, stripped.split()))
        self.position = 0

    def fail(self, line, message):
        raise SchemaError("%s:%d: %s" % (self.path, line, message))

    def peek(self):
        return self.lines[self.position] if self.position < len(self.lines) else None

    def next(self):
        line = self.peek()
        self.position += 1
        return line


def _split_suffix(reader, line, word):
    match = _SUFFIX.match(word)
    if not match:
        reader.fail(line, "cannot read type '%s'" % word)
    suffix = match.group("suffix")
    if suffix is None:
        return match.group("base"), "single", 1
    if suffix == "?":
        return match.group("base"), "optional", 1
    if suffix == "[]":
        return match.group("base"), "counted", 1
    length = int(suffix[1:-1])
    if length < 1:
        reader.fail(line, "a fixed array needs a length of at least 1")
    return match.group("base"), "fixed", length


def _parse_options(reader, line, member, words):
    index = 0
    while index < len(words):
        word = words[index]
        if word == "hidden":
            member.hidden = True
            index += 1
            continue
        if word not in ("min", "dup", "hash") or index + 1 >= len(words):
            reader.fail(line, "unknown option '%s'" % word)
        value = words[index + 1]
        try:
            number = int(value, 0)
        except ValueError:
            reader.fail(line, "option %s needs a number, not '%s'" % (word, value))
        if word == "min":
            if member.shape != "counted":
                reader.fail(line, "'min' applies to counted arrays only")
            member.minimum = number
        elif word == "dup":
            if not member.is_pointer:
                reader.fail(line, "'dup' applies to pointer members only")
            member.dup = number
        else:
            if not value.lower().startswith("0x") or number >= 1 << 64:
                reader.fail(line, "a hash is written as 0x and at most 16 hex digits")
            member.hash_override = number
        index += 2


def _parse_member(reader, line, indent, words, owner):
    if len(words) < 2:
        reader.fail(line, "a member needs a name and a type")
    name = words[0]
    if not _NAME.match(name):
        reader.fail(line, "'%s' is not a member name" % name)
    second = words[1]
    if second in REPORTED_TYPES:
        if len(words) < 3:
            reader.fail(line, "member '%s' needs a storage type after %s" % (name, second))
        storage, shape, length = _split_suffix(reader, line, words[2])
        member = Member(name, line, "number", shape, length, reported=second, storage=storage)
        rest = words[3:]
    else:
        base, shape, length = _split_suffix(reader, line, second)
        if base == "String":
            member = Member(name, line, "string", shape, length)
        else:
            member = Member(name, line, "structure", shape, length, type_ref=base)
        rest = words[2:]
    _parse_options(reader, line, member, rest)
    if member.shape == "counted" and member.category == "number" and member.reported == "":
        reader.fail(line, "counted numbers need a reported type")
    # An indented body makes this an inline structure.
    following = reader.peek()
    if following is not None and following[1] > indent:
        if member.category != "structure" or "::" in member.type_ref:
            reader.fail(following[0], "only a structure member can have a body")
        member.body = _parse_body(reader, TypeDecl(member.type_ref, line, parent=owner),
                                  following[1])
    elif member.category == "structure" and member.type_ref in BUILTIN_BODIES:
        body = TypeDecl(member.type_ref, line, parent=owner)
        for inner_name, reported, storage in BUILTIN_BODIES[member.type_ref]:
            if reported == "String":
                body.members.append(Member(inner_name, line, "string", "single"))
            else:
                body.members.append(Member(inner_name, line, "number", "single",
                                           reported=reported, storage=storage))
        member.body = body
    if member.body is not None:
        owner.nested.append(member.body)
    return member


def _parse_body(reader, decl, indent):
    while True:
        line = reader.peek()
        if line is None or line[1] < indent:
            return decl
        if line[1] > indent:
            reader.fail(line[0], "unexpected indentation")
        reader.next()
        words = line[2]
        if words[0] == "...":
            _parse_frame(reader, line[0], words[1:], decl)
            continue
        if _is_table(words):
            member = _parse_table(reader, line[0], line[1], words, decl)
        else:
            member = _parse_member(reader, line[0], line[1], words, decl)
        if member.name in decl.gaps:
            reader.fail(line[0], "member '%s' named twice in %s" % (member.name, decl.name))
        decl.members.append(member)


def _parse_frame(reader, line, names, decl):
    """'... [NAME...]': the structure holds more than the schema declares; the names are members
    known by name only (their types are not known), left out of the code and listed as gaps."""
    decl.open = True
    for name in names:
        if not _NAME.match(name):
            reader.fail(line, "'%s' is not a member name" % name)
        if name in decl.gaps or any(m.name == name for m in decl.members):
            reader.fail(line, "member '%s' named twice in %s" % (name, decl.name))
        decl.gaps.append(name)


def _is_table(words):
    """True for 'tab NAME Reported storage' or 'tab NAME TypeRef', not for a member named tab."""
    return len(words) >= 3 and words[0] == "tab" and _NAME.match(words[1]) is not None and \
        words[1] not in REPORTED_TYPES and words[1] != "String" and \
        words[2] not in ("min", "dup", "hash", "hidden")


def _parse_table(reader, line, indent, words, owner):
    """'tab NAME ...': the member NAME_tab of type NAME_tabStruct holding the one member NAME."""
    name = words[1]
    wrapper = Member(name + "_tab", line, "structure", "single", type_ref=name + "_tabStruct")
    wrapper.body = TypeDecl(name + "_tabStruct", line, parent=owner)
    following = reader.peek()
    if following is not None and following[1] > indent:
        reader.fail(following[0], "a 'tab' member has no body")
    wrapper.body.members.append(_parse_member(reader, line, indent, words[1:], wrapper.body))
    owner.nested.append(wrapper.body)
    return wrapper


def _parse_module(reader, line, words):
    if len(words) < 2:
        reader.fail(line, "a module needs a type name")
    module = ModuleDecl(words[1], words[1] + "Class", None, True, False, "", line)
    index = 2
    while index < len(words):
        word = words[index]
        if word == "clone":
            module.clone = True
            index += 1
            continue
        if word == "trigger-tree":
            module.trigger_tree = True
            if index + 1 < len(words) and \
                    words[index + 1] not in ("class", "version", "access", "clone"):
                module.root_path = words[index + 1]
                index += 1
            index += 1
            continue
        if index + 1 >= len(words):
            reader.fail(line, "'%s' needs a value" % word)
        value = words[index + 1]
        if word == "class":
            module.class_name = value
        elif word == "version":
            parts = value.split(".")
            if len(parts) != 3 or not all(part.isdigit() for part in parts):
                reader.fail(line, "a version is written X.Y.Z")
            module.version = tuple(int(part) for part in parts)
            if module.version[0] > 0xFFFF or module.version[1] > 0xFFFF or \
                    module.version[2] > 0xFFFFFFFF:
                reader.fail(line, "version part out of range")
        elif word == "access":
            if value not in ("value", "none"):
                reader.fail(line, "access is 'value' or 'none'")
            module.access = value == "value"
        else:
            reader.fail(line, "unknown module option '%s'" % word)
        index += 2
    if module.version is None:
        reader.fail(line, "a module needs a version")
    return module


def _parse_enum(reader, line, words):
    if len(words) != 2:
        reader.fail(line, "an enumeration is declared 'enum NAME'")
    decl = EnumDecl(words[1], [], line)
    following = reader.peek()
    if following is None or following[1] == 0:
        return decl
    indent = following[1]
    value = 0
    seen = set()
    while True:
        entry = reader.peek()
        if entry is None or entry[1] == 0:
            return decl
        if entry[1] != indent:
            reader.fail(entry[0], "unexpected indentation")
        reader.next()
        items = entry[2]
        if len(items) > 2 or not _NAME.match(items[0]):
            reader.fail(entry[0], "an enumerator is 'NAME [VALUE]'")
        if len(items) == 2:
            try:
                value = int(items[1], 0)
            except ValueError:
                reader.fail(entry[0], "'%s' is not a number" % items[1])
        if not 0 <= value <= 0xFFFFFFFF:
            reader.fail(entry[0], "an enumerator must fit 32 bits")
        if items[0] in seen:
            reader.fail(entry[0], "enumerator '%s' repeats" % items[0])
        seen.add(items[0])
        decl.values.append((items[0], value))
        value += 1


def parse(path, text):
    """The namespace described by text (read from path, for messages)."""
    return parse_lines(path, numbered(text))


def parse_lines(path, lines):
    """The namespace described by (line number, text) pairs; messages name path and those
    numbers, so that text expanded from another file points at the lines that made it."""
    reader = _Reader(path, lines)
    namespace = None
    while reader.peek() is not None:
        line, indent, words = reader.next()
        if indent != 0:
            reader.fail(line, "unexpected indentation")
        keyword = words[0]
        if namespace is None and keyword != "namespace":
            reader.fail(line, "a schema starts with 'namespace NAME'")
        if keyword == "namespace":
            if namespace is not None:
                reader.fail(line, "one namespace per schema")
            if len(words) != 2 or not _NAME.match(words[1]):
                reader.fail(line, "'namespace NAME'")
            namespace = Namespace(words[1], path)
        elif keyword == "uses":
            if len(words) != 2 or not _NAME.match(words[1]):
                reader.fail(line, "'uses NAME'")
            if words[1] not in namespace.uses:
                namespace.uses.append(words[1])
        elif keyword == "enum":
            decl = _parse_enum(reader, line, words)
            if namespace.find_enum(decl.name) or namespace.find_type(decl.name):
                reader.fail(line, "'%s' is declared twice" % decl.name)
            namespace.enums.append(decl)
        elif keyword in ("type", "module"):
            if keyword == "type":
                if len(words) != 2 or not _NAME.match(words[1]):
                    reader.fail(line, "'type NAME'")
                name = words[1]
            else:
                module = _parse_module(reader, line, words)
                namespace.modules.append(module)
                name = module.type_name
            if namespace.find_type(name) or namespace.find_enum(name):
                reader.fail(line, "'%s' is declared twice" % name)
            decl = TypeDecl(name, line, is_top=keyword == "module")
            following = reader.peek()
            if following is not None and following[1] > 0:
                _parse_body(reader, decl, following[1])
            namespace.types.append(decl)
        else:
            reader.fail(line, "unknown declaration '%s'" % keyword)
    if namespace is None:
        raise SchemaError("%s: empty schema" % path)
    return namespace


def _resolve_type(namespace, decl, member, reader_fail):
    ref = member.type_ref
    if member.body is not None:
        return member.body
    if "::" in ref:
        space, _, name = ref.partition("::")
        other = namespace.used.get(space)
        if other is None:
            reader_fail(member.line, "namespace '%s' is not named by 'uses'" % space)
        found = other.find_type(name)
        if found is None:
            reader_fail(member.line, "no type '%s' in %s" % (name, space))
        if found.is_top:
            reader_fail(member.line, "a module's top type cannot be a member")
        return found
    found = namespace.find_type(ref)
    if found is None:
        reader_fail(member.line, "unknown type '%s' (types are declared before use)" % ref)
    if found.is_top:
        reader_fail(member.line, "a module's top type cannot be a member")
    return found


def _resolve_enum(namespace, member, reader_fail):
    ref = member.storage
    if "::" in ref:
        space, _, name = ref.partition("::")
        other = namespace.used.get(space)
        if other is None:
            reader_fail(member.line, "namespace '%s' is not named by 'uses'" % space)
        found = other.find_enum(name)
    else:
        found = namespace.find_enum(ref)
    if found is None:
        reader_fail(member.line, "unknown storage '%s'" % ref)
    return found


def _check_number(member, reader_fail):
    reported, storage = member.reported, member.storage
    if member.enum is not None:
        if reported != "Enum":
            reader_fail(member.line, "an enumeration is reported as Enum")
        return
    if reported in ("Float", "Double"):
        if storage != reported.lower():
            reader_fail(member.line, "%s needs %s storage" % (reported, reported.lower()))
    elif reported == "Enum":
        if storage not in ("uint32", "int32"):
            reader_fail(member.line, "Enum needs uint32, int32 or an enumeration")
    elif storage not in INTEGER_STORAGE and not (storage == "float" and reported != "Boolean"):
        reader_fail(member.line, "%s cannot be stored as %s" % (reported, storage))


def resolve(namespace, loader):
    """Links references (loader(name) gives a used Namespace), checks the members and numbers
    the dup types."""

    def fail(line, message):
        raise SchemaError("%s:%d: %s" % (namespace.path, line, message))

    for used in namespace.uses:
        namespace.used[used] = loader(used)
    declared = set()
    pinned = set()
    for decl in namespace.all_types():
        decl.namespace = namespace.name
    for decl in namespace.all_types():
        names = set()
        holder_dups = {}
        for member in decl.members:
            if member.name in names:
                fail(member.line, "member '%s' repeats" % member.name)
            names.add(member.name)
            if member.category == "structure":
                member.type = _resolve_type(namespace, decl, member, fail)
                if member.type is decl:
                    if member.shape != "counted":
                        fail(member.line, "a type can hold itself only through a counted array")
                elif member.type.namespace == namespace.name and member.body is None and \
                        member.type.name not in declared:
                    fail(member.line, "type '%s' is used before it is declared" % member.type.name)
            elif member.category == "number":
                if member.storage not in SIMPLE_STORAGE:
                    member.enum = _resolve_enum(namespace, member, fail)
                _check_number(member, fail)
                # The reader sizes counted numbers at four bytes an element.
                if member.shape == "counted" and member.enum is None and \
                        member.storage not in COUNTED_STORAGE:
                    fail(member.line, "counted numbers are stored as int32, uint32, float or "
                                      "an enumeration")
            if member.hidden and (member.category != "number" or member.shape != "single"):
                fail(member.line, "only single numbers can be hidden")
            if member.dup is not None:
                if member.dup in holder_dups:
                    fail(member.line, "dup %d is already taken by '%s' in %s"
                         % (member.dup, holder_dups[member.dup], decl.name))
                holder_dups[member.dup] = member.name
                pinned.add(member.dup)
        # Generated count and ID members must not meet schema names.
        for member in decl.members:
            if member.shape in ("counted", "optional"):
                for extra in (member.name + "Count", member.name + "ID"):
                    if extra in names:
                        fail(member.line, "'%s' clashes with the generated member '%s'"
                             % (member.name, extra))
        declared.add(decl.name)
    number = FIRST_DUP_TYPE
    for decl in namespace.all_types():
        for member in decl.members:
            if not member.is_pointer:
                continue
            if member.dup is not None:
                member.loc = member.dup
                continue
            while number in pinned:
                number += 1
            member.loc = number
            number += 1
    for module in namespace.modules:
        _check_trigger_tree(namespace, module, namespace.top_type(module), fail)


def has_pointer(decl, seen=None):
    """True when the type holds a pointer, directly or through a member."""
    seen = set() if seen is None else seen
    if id(decl) in seen:
        return False
    seen.add(id(decl))
    for member in decl.members:
        if member.is_pointer:
            return True
        if member.category == "structure" and has_pointer(member.type, seen):
            return True
    return False


def _check_trigger_tree(namespace, module, top, fail):
    module.root = None
    module.control = None
    if not module.trigger_tree:
        return
    control = next((m for m in top.members if m.name == "control_variables"), None)
    if control is None or control.type is None:
        fail(module.line, "a trigger-tree module needs a control_variables member")
    kinds = next((m for m in control.type.members if m.name == "control_var_type"), None)
    if kinds is None or kinds.shape != "counted":
        fail(module.line, "control_variables needs a counted control_var_type")
    module.control = control
    module.root = trigger_roots(module, top, fail)


def trigger_roots(module, top, fail):
    """The member path to the counted array of root nodes, as a list of members."""
    if module.root_path:
        path = []
        decl = top
        for step in module.root_path.split("."):
            member = next((m for m in decl.members if m.name == step), None) if decl else None
            if member is None:
                fail(module.line, "no member '%s' on the trigger-tree path" % step)
            path.append(member)
            decl = member.type
    else:
        path = None
        for member in top.members:
            if member.category == "structure" and member.shape == "single" and \
                    re.match(r"^varitonal_.*_core$", member.name):
                for inner in member.type.members:
                    if re.match(r"^mod_.*_trigger_data$", inner.name):
                        path = [member, inner]
        if path is None:
            fail(module.line, "no varitonal_*_core.mod_*_trigger_data member; name the roots")
    roots = path[-1]
    if roots.shape != "counted" or roots.category != "structure":
        fail(module.line, "the trigger-tree roots must be a counted array of nodes")
    node = roots.type
    names = {m.name: m for m in node.members}
    for needed in ("level", "type", "trigger"):
        if needed not in names:
            fail(module.line, "the node type %s has no '%s'" % (node.name, needed))
    if names["trigger"].type is not node or names["trigger"].shape != "counted":
        fail(module.line, "the node's 'trigger' must be a counted array of the node type")
    return path
