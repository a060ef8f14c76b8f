"""Block families: one file that describes every version of a pipeline block, expanded into one
plain schema table per version.

A family states only what is particular to the block: its switches, its private information,
its region members and, per version, the shape of its core (a nest of trigger dimensions, a
recursive trigger tree or none). The level types, the <dim>_dataStruct holders, triggerType, the
core, control_variables and control_method and the dup numbers follow from the shape by fixed
rules. The expansion is plain schema text whose lines keep the numbers of the family lines that
made them, so every later error names the family file and the line to fix.

The text format is described in tools/generator/README.md."""

import re
from dataclasses import dataclass, field

from paramgen.schema import SchemaError

FIRST_DUP_TYPE = 8
TRIGGER_TYPES = "ispglobalelements::trigger_types"
COUPLET_TYPE = "ispglobalelements::trigger_pt_couplet_type"
# The tree's fixed dup types: child nodes, leaf data, root nodes.
TREE_DUPS = (8, 9, 10)

_NAME = re.compile(r"^[A-Za-z_][A-Za-z0-9_]*$")
_VERSION = re.compile(r"^(\d+)\.(\d+)(?:\.(\d+))?$")
# Sections that hold member lines, in the order the top type holds their members.
_BODY_SECTIONS = ("enable_section", "private_information", "reserve", "region")
_OPTIONS = ("clone", "optional-region", "passes", "omit", "name", "open")
# The dimensions of a nest whose levels are not known.
UNKNOWN_NEST = ["?"]
_OMITTABLE = ("enable_section", "control_method")


@dataclass
class Dimension:
    name: str
    control: bool      # takes an entry of control_var_type
    trigger: str       # the trigger member's name
    words: list        # the trigger member's type, as the words of a member line


def load_dimensions(path):
    """The trigger dimension table at path: {name: Dimension}."""
    with open(path, encoding="utf-8") as handle:
        text = handle.read()
    table = {}
    for number, raw in enumerate(text.splitlines(), 1):
        words = raw.split("#", 1)[0].split()
        if not words:
            continue
        if len(words) < 4 or words[1] not in ("control", "selector") or \
                not all(_NAME.match(word) for word in words[:3]):
            raise SchemaError("%s:%d: a dimension is 'NAME control|selector TRIGGER TYPE...'"
                              % (path, number))
        if words[0] in table:
            raise SchemaError("%s:%d: dimension '%s' repeats" % (path, number, words[0]))
        table[words[0]] = Dimension(words[0], words[1] == "control", words[2], words[3:])
    return table


@dataclass
class Entry:
    """One member of a section: its name and its lines (the member line, then its body), each
    (line number, indent relative to the section body, text)."""
    name: str
    lines: list


@dataclass
class Section:
    keyword: str
    line: int
    entries: list = field(default_factory=list)
    like: tuple = None       # region/reserve like VERSION: the version it starts from
    removed: list = field(default_factory=list)   # (line, name) of '- name' lines
    words: list = field(default_factory=list)     # one-line forms: the names after the keyword


@dataclass
class Version:
    text: str                # as written: 1.6.0, or 1.0 for the one namespace without a patch
    number: tuple            # (major, minor, patch)
    shape: str               # nest, tree or flat
    dims: list               # nest: dimension names, innermost first; UNKNOWN_NEST if unknown
    line: int
    sections: dict = field(default_factory=dict)
    types: list = field(default_factory=list)     # extra 'type' blocks: (line, [lines])
    clone: bool = False
    optional_region: bool = False
    open: bool = False       # the top type may hold members the family does not list
    passes: int = 0
    omit: list = field(default_factory=list)
    names: dict = field(default_factory=dict)     # generated name -> override
    name_lines: dict = field(default_factory=dict)


@dataclass
class Family:
    blocks: list
    path: str
    line: int
    uses: list = field(default_factory=list)
    sections: dict = field(default_factory=dict)
    types: list = field(default_factory=list)
    versions: list = field(default_factory=list)

    def namespaces(self):
        """(namespace name, block, Version) for every block and version, in file order."""
        result = []
        for block in self.blocks:
            for version in self.versions:
                result.append((namespace_name(block, version), block, version))
        return result


def namespace_name(block, version):
    return "%s_%s" % (block, version.text.replace(".", "_"))


def _lines(text):
    """(number, indent, stripped text) of every line that is not blank or a comment."""
    result = []
    for number, raw in enumerate(text.splitlines(), 1):
        if "\t" in raw:
            result.append((number, -1, raw))
            continue
        stripped = raw.split("#", 1)[0].rstrip()
        if stripped.strip():
            result.append((number, len(stripped) - len(stripped.lstrip(" ")), stripped.strip()))
    return result


class _Parser:
    def __init__(self, path, text):
        self.path = path
        self.lines = _lines(text)
        self.position = 0

    def fail(self, line, message):
        raise SchemaError("%s:%d: %s" % (self.path, line, message))

    def peek(self):
        return self.lines[self.position] if self.position < len(self.lines) else None

    def take_body(self, indent):
        """Every following line indented deeper than indent, relative to the first of them."""
        body = []
        base = None
        while True:
            line = self.peek()
            if line is None or line[1] <= indent:
                return body
            if line[1] < 0:
                self.fail(line[0], "tabs are not allowed; indent with spaces")
            base = line[1] if base is None else base
            if line[1] < base:
                self.fail(line[0], "unexpected indentation")
            body.append((line[0], line[1] - base, line[2]))
            self.position += 1

    def entries(self, section, body):
        """Splits a section body into members; '- name' lines remove a member of a 'like'."""
        for number, indent, text in body:
            words = text.split()
            if indent > 0:
                if not section.entries:
                    self.fail(number, "unexpected indentation")
                section.entries[-1].lines.append((number, indent, text))
                continue
            if words[0] == "-":
                if len(words) != 2 or section.like is None:
                    self.fail(number, "'- NAME' removes a member of a 'like' section")
                section.removed.append((number, words[1]))
                continue
            name = words[0]
            if words[0] == "tab" and len(words) >= 3:
                name = words[1] + "_tab"
            section.entries.append(Entry(name, [(number, 0, text)]))

    def section(self, number, indent, words):
        keyword = words[0]
        section = Section(keyword, number)
        rest = words[1:]
        if rest[:1] == ["like"]:
            if keyword not in ("region", "reserve", "private_information") or len(rest) != 2:
                self.fail(number, "'%s like VERSION' is not a section" % keyword)
            match = _VERSION.match(rest[1])
            if not match:
                self.fail(number, "'%s' is not a version" % rest[1])
            section.like = rest[1]
        elif rest:
            if keyword not in ("enable_section", "dynamic_enable_triggers"):
                self.fail(number, "'%s' takes no words on its line" % keyword)
            for word in rest:
                if not _NAME.match(word):
                    self.fail(number, "'%s' is not a switch name" % word)
            section.words = rest
        body = self.take_body(indent)
        if keyword == "dynamic_enable_triggers":
            if body or not rest:
                self.fail(number, "dynamic_enable_triggers names its switches on its line")
        elif not rest and not body and section.like is None:
            self.fail(number, "section '%s' has no members" % keyword)
        self.entries(section, body)
        return section

    def type_block(self, number, indent, words):
        if len(words) != 2 or not _NAME.match(words[1]):
            self.fail(number, "'type NAME'")
        body = self.take_body(indent)
        if not body:
            self.fail(number, "type '%s' has no members" % words[1])
        return (number, words[1], body)

    def version(self, number, words):
        if len(words) < 3:
            self.fail(number, "'version X.Y.Z nest DIM... | nest ? | tree | flat'")
        match = _VERSION.match(words[1])
        if not match:
            self.fail(number, "'%s' is not a version" % words[1])
        numbers = tuple(int(part or 0) for part in match.groups())
        shape = words[2]
        if shape not in ("nest", "tree", "flat"):
            self.fail(number, "unknown shape '%s' (nest, tree or flat)" % shape)
        dims = words[3:]
        if shape == "nest" and not dims:
            self.fail(number, "a nest names its dimensions, innermost first, or '?'")
        if "?" in dims and dims != UNKNOWN_NEST:
            self.fail(number, "a nest of unknown levels is 'nest ?' alone")
        if shape != "nest" and dims:
            self.fail(number, "only a nest names dimensions")
        if shape == "nest" and numbers[2] != 0:
            self.fail(number, "a nest is of the first generation: its patch number is 0")
        if shape == "tree" and numbers[2] == 0:
            self.fail(number, "a tree is of the second generation: its patch number is not 0")
        version = Version(words[1], numbers, shape, dims, number)
        while True:
            line = self.peek()
            if line is None or line[1] == 0:
                return version
            self.position += 1
            line_number, indent, text = line
            if indent < 0:
                self.fail(line_number, "tabs are not allowed; indent with spaces")
            self.version_line(version, line_number, indent, text.split())

    def version_line(self, version, number, indent, words):
        keyword = words[0]
        if keyword in _BODY_SECTIONS or keyword == "dynamic_enable_triggers":
            if keyword in version.sections:
                self.fail(number, "section '%s' repeats" % keyword)
            version.sections[keyword] = self.section(number, indent, words)
        elif keyword == "type":
            version.types.append(self.type_block(number, indent, words))
        elif keyword == "clone" and len(words) == 1:
            version.clone = True
        elif keyword == "optional-region" and len(words) == 1:
            version.optional_region = True
        elif keyword == "open" and len(words) == 1:
            version.open = True
        elif keyword == "passes" and len(words) == 2 and words[1].isdigit() and \
                int(words[1]) > 0:
            version.passes = int(words[1])
        elif keyword == "omit" and len(words) == 2 and words[1] in _OMITTABLE:
            version.omit.append(words[1])
        elif keyword == "name" and len(words) == 3 and all(_NAME.match(w) for w in words[1:]):
            if words[1] in version.names:
                self.fail(number, "the name of '%s' is overridden twice" % words[1])
            version.names[words[1]] = words[2]
            version.name_lines[words[1]] = number
        else:
            self.fail(number, "unknown version line '%s' (sections: %s; options: %s)"
                      % (" ".join(words), ", ".join(_BODY_SECTIONS + ("dynamic_enable_triggers",
                                                                        "type")),
                         ", ".join(_OPTIONS)))

    def family(self):
        first = self.peek()
        if first is None:
            raise SchemaError("%s: empty family" % self.path)
        number, indent, text = first
        words = text.split()
        if indent != 0 or words[0] != "family" or len(words) < 2 or \
                not all(_NAME.match(word) for word in words[1:]):
            self.fail(number, "a family starts with 'family BLOCK [BLOCK...]'")
        self.position += 1
        family = Family(words[1:], self.path, number)
        while self.peek() is not None:
            number, indent, text = self.peek()
            words = text.split()
            if indent < 0:
                self.fail(number, "tabs are not allowed; indent with spaces")
            if indent != 0:
                self.fail(number, "unexpected indentation")
            self.position += 1
            keyword = words[0]
            if keyword == "uses":
                if len(words) != 2 or not _NAME.match(words[1]):
                    self.fail(number, "'uses NAME'")
                if words[1] not in family.uses:
                    family.uses.append(words[1])
            elif keyword == "version":
                if family.versions and any(v.text == words[1] for v in family.versions):
                    self.fail(number, "version %s repeats" % words[1])
                family.versions.append(self.version(number, words))
            elif keyword == "type":
                family.types.append(self.type_block(number, 0, words))
            elif keyword in _BODY_SECTIONS or keyword == "dynamic_enable_triggers":
                if family.versions:
                    self.fail(number, "sections shared by every version stand before the first "
                                      "version")
                if keyword in family.sections:
                    self.fail(number, "section '%s' repeats" % keyword)
                section = self.section(number, 0, words)
                if section.like is not None:
                    self.fail(number, "a section shared by every version cannot be 'like' one")
                family.sections[keyword] = section
            else:
                self.fail(number, "unknown family line '%s'" % keyword)
        if not family.versions:
            self.fail(family.line, "a family needs at least one version")
        return family


def parse_family(path, text):
    """The family described by text (read from path, for messages)."""
    return _Parser(path, text).family()


class _Expansion:
    """The plain schema text of one version of a family, as (line number, text) pairs."""

    def __init__(self, family, block, version, dimensions):
        self.family = family
        self.block = block
        self.version = version
        self.dimensions = dimensions
        self.prefix = "%s%d%d" % (block, version.number[0], version.number[1])
        self.out = []
        self.uses = list(family.uses)
        self.used_names = set()

    def fail(self, line, message):
        raise SchemaError("%s:%d: %s" % (self.family.path, line, message))

    def name(self, generated):
        """A generated name, or the override the version gives for it."""
        self.used_names.add(generated)
        return self.version.names.get(generated, generated)

    def emit(self, line, indent, text):
        self.out.append((line, "  " * indent + text))

    def use(self, words):
        for word in words:
            space, separator, _ = word.partition("::")
            if separator and space not in self.uses:
                self.uses.append(space)

    def section(self, keyword):
        """The version's section, else the family's; a 'like' section resolved."""
        return self.resolve(self.version, keyword, ())

    def resolve(self, version, keyword, chain):
        section = version.sections.get(keyword) or self.family.sections.get(keyword)
        if section is None or section.like is None:
            return section
        if section.like in chain + (version.text,):
            self.fail(section.line, "'like' sections refer to each other in a circle")
        base_version = next((v for v in self.family.versions if v.text == section.like), None)
        if base_version is None:
            self.fail(section.line, "no version %s in this family" % section.like)
        base = self.resolve(base_version, keyword, chain + (version.text,))
        if base is None:
            self.fail(section.line, "version %s has no %s" % (section.like, keyword))
        entries = list(base.entries)
        for line, removed in section.removed:
            kept = [entry for entry in entries if entry.name != removed]
            if len(kept) == len(entries):
                self.fail(line, "version %s has no %s member '%s'" % (section.like, keyword,
                                                                     removed))
            entries = kept
        for entry in section.entries:
            position = next((i for i, e in enumerate(entries) if e.name == entry.name), None)
            if position is None:
                entries.append(entry)
            else:
                entries[position] = entry
        return Section(keyword, section.line, entries)

    def body(self, section, indent):
        for entry in section.entries:
            for line, relative, text in entry.lines:
                self.use(text.split())
                self.emit(line, indent + relative, text)

    def type_block(self, block):
        line, name, body = block
        self.emit(line, 0, "type " + name)
        for number, relative, text in body:
            self.use(text.split())
            self.emit(number, 1 + relative, text)

    def expand(self):
        """The namespace name and its schema lines."""
        v = self.version
        p = self.prefix
        line = v.line
        unknown = v.dims == UNKNOWN_NEST
        control = [] if unknown else [d for d in v.dims if self.dimension(d).control]
        if v.shape == "tree" or (v.shape == "nest" and not unknown):
            self.use([TRIGGER_TYPES])
        if v.shape == "nest" and not unknown:
            for dim in v.dims:
                self.use(self.dimensions[dim].words)
        for block in self.family.types + v.types:
            self.type_block(block)
        region = self.section("region")
        if unknown or v.shape == "flat":
            # Nothing places a region below levels that are not known, nor without a core.
            if "region" in v.sections:
                self.fail(v.sections["region"].line, "a %s places no region"
                          % ("nest of unknown levels" if unknown else "flat module"))
            region = None
        elif region is None:
            self.fail(line, "a %s needs a region" % v.shape)
        region_type = self.name("%s_rgn_dataType" % p)
        if region is not None:
            self.emit(region.line, 0, "type " + region_type)
            self.body(region, 1)
        if v.passes:
            if v.shape != "tree":
                self.fail(line, "passes below the leaf belong to a tree")
            pass_type = self.name("mod_%s_pass_dataType" % p)
            self.emit(line, 0, "type " + pass_type)
            self.emit(line, 1, "pass_trigger  Enum  uint32")
            self.emit(line, 1, "%s  %s" % (self.name("%s_rgn_data" % p), region_type))
            region_type = self.name("mod_%s_rgn_array_dataType" % p)
            self.emit(line, 0, "type " + region_type)
            self.emit(line, 1, "%s  %s[%d]" % (self.name("mod_%s_pass_data" % p), pass_type,
                                              v.passes))
        reserve = self.section("reserve")
        reserve_type = self.name("varitonal_%s_reserveType" % p)
        if reserve is not None:
            self.emit(reserve.line, 0, "type " + reserve_type)
            self.body(reserve, 1)
        core_type = self.name("varitonal_%s_coreType" % p)
        if unknown:
            self.emit(line, 0, "type " + core_type)
            self.emit(line, 1, "...")
        elif v.shape == "nest":
            self.nest(region_type, core_type)
        elif v.shape == "tree":
            self.tree(region_type, core_type)
        elif v.optional_region:
            self.fail(line, "only a tree has an optional region")
        self.top(control, reserve, reserve_type, core_type)
        for generated, number in v.name_lines.items():
            if generated not in self.used_names:
                self.fail(number, "'%s' is not a name this version generates" % generated)
        header = [(self.family.line, "namespace %s" % namespace_name(self.block, v))]
        header += [(self.family.line, "uses %s" % used) for used in self.uses]
        return namespace_name(self.block, v), header + self.out

    def dimension(self, name):
        found = self.dimensions.get(name)
        if found is None:
            self.fail(self.version.line, "unknown trigger dimension '%s'" % name)
        return found

    def nest(self, region_type, core_type):
        v = self.version
        p = self.prefix
        line = v.line
        if v.optional_region:
            self.fail(line, "only a tree has an optional region")
        inner_type = None
        inner_array = None
        for depth, dim_name in enumerate(v.dims):
            dim = self.dimension(dim_name)
            level_type = self.name("mod_%s_%s_dataType" % (p, dim.name))
            self.emit(line, 0, "type " + level_type)
            self.emit(line, 1, "%s  %s" % (dim.trigger, "  ".join(dim.words)))
            if inner_type is None:
                self.emit(line, 1, "%s  %s" % (self.name("%s_rgn_data" % p), region_type))
            else:
                self.emit(line, 1, "%s  %s" % (self.name("%s_data" % dim.name),
                                               self.name("%s_dataStruct" % dim.name)))
                self.emit(line, 2, "%s  %s[]  min 1 dup %d"
                          % (inner_array, inner_type, FIRST_DUP_TYPE + depth - 1))
            inner_type = level_type
            inner_array = self.name("mod_%s_%s_data" % (p, dim.name))
        self.emit(line, 0, "type " + core_type)
        self.emit(line, 1, "%s  %s[]  min 1 dup %d"
                  % (inner_array, inner_type, FIRST_DUP_TYPE + len(v.dims) - 1))

    def tree(self, region_type, core_type):
        v = self.version
        line = v.line
        node = self.name("triggerType")
        children, leaves, roots = TREE_DUPS
        self.emit(line, 0, "type " + node)
        self.emit(line, 1, "level    UInt32  uint32  hidden")
        self.emit(line, 1, "type     Enum    %s  hidden" % TRIGGER_TYPES)
        self.emit(line, 1, "start    Float   float")
        self.emit(line, 1, "end      Float   float")
        self.emit(line, 1, "trigger  %s[]  min 0 dup %d" % (node, children))
        if v.optional_region:
            self.emit(line, 1, "region   %s?" % region_type)
        else:
            self.emit(line, 1, "region   %s[]  min 0 dup %d" % (region_type, leaves))
        self.emit(line, 0, "type " + core_type)
        self.emit(line, 1, "%s  %s[]  min 0 dup %d"
                  % (self.name("mod_%s_trigger_data" % self.prefix), node, roots))

    def top(self, control, reserve, reserve_type, core_type):
        v = self.version
        p = self.prefix
        line = v.line
        top_type = self.name("varitonal_%sType" % p)
        module = "module %s class %s version %d.%d.%d" % (
            top_type, self.name(top_type + "Class"), v.number[0], v.number[1], v.number[2])
        if v.shape == "tree":
            module += " trigger-tree"
        if v.clone:
            module += " clone"
        self.emit(line, 0, module)
        enable = self.section("enable_section")
        if enable is not None and "enable_section" not in v.omit:
            self.emit(enable.line, 1, "enable_section  enable_sectionStruct")
            for switch in enable.words:
                self.emit(enable.line, 2, "%s  Int32  int32" % switch)
            self.body(enable, 2)
        self.emit(line, 1, "module_version  module_versionStruct")
        self.emit(line, 1, "parameter_version  parameter_versionStruct")
        if v.shape == "nest":
            self.emit(line, 1, "control_variables  control_variablesStruct")
            if v.dims == UNKNOWN_NEST:
                # One entry per control level: with the levels unknown, so is its length.
                self.emit(line, 2, "... control_var_type")
            else:
                self.emit(line, 2, "control_var_type  Enum  %s[%d]" % (TRIGGER_TYPES,
                                                                     len(control)))
            if "control_method" not in v.omit:
                self.emit(line, 1, "control_method  control_methodStruct")
                self.emit(line, 2, "aec_exp_control  Enum  uint32")
                self.emit(line, 2, "aec_hdr_control  Enum  uint32")
        elif v.shape == "tree":
            self.emit(line, 1, "control_variables  control_variablesStruct")
            self.emit(line, 2, "control_var_type  Enum  %s[]  min 0" % TRIGGER_TYPES)
        private = self.section("private_information")
        if private is not None:
            self.emit(private.line, 1, "private_information  private_informationStruct")
            self.body(private, 2)
        dynamic = self.section("dynamic_enable_triggers")
        if dynamic is not None:
            self.use([COUPLET_TYPE])
            self.emit(dynamic.line, 1, "dynamic_enable_triggers  dynamic_enable_triggersStruct")
            for switch in dynamic.words:
                self.emit(dynamic.line, 2, "%s  %sStruct" % (switch, switch))
                self.emit(dynamic.line, 3, "enable  Int32  int32")
                self.emit(dynamic.line, 3, "hyst_control_var  Enum  uint32")
                self.emit(dynamic.line, 3, "hyst_mode  Enum  uint32")
                self.emit(dynamic.line, 3, "hyst_trigger  %s" % COUPLET_TYPE)
        if reserve is not None:
            self.emit(reserve.line, 1, "%s  %s" % (self.name("varitonal_%s_reserve" % p),
                                                   reserve_type))
        if v.shape != "flat":
            self.emit(line, 1, "%s  %s" % (self.name("varitonal_%s_core" % p), core_type))
        if v.open:
            self.emit(line, 1, "...")


def expand(family, dimensions):
    """{namespace name: (line number, text) pairs of its plain schema}, in file order."""
    result = {}
    for name, block, version in family.namespaces():
        if name in result:
            raise SchemaError("%s:%d: namespace %s repeats" % (family.path, version.line, name))
        _, lines = _Expansion(family, block, version, dimensions).expand()
        result[name] = lines
    return result
