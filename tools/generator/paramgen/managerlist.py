"""Reading a set manager's module list: which module instances a concrete set manager registers,
in registration order, and of which generated module type each one is.

The text format is described in tools/generator/README.md. Every type named must be the top type
of a module in its namespace's schema table; the schemas are read to find the module's class."""

import os
import re
from dataclasses import dataclass, field

from paramgen.catalogue import Catalogue
from paramgen.schema import SchemaError

_NAME = re.compile(r"^[A-Za-z_][A-Za-z0-9_]*$")
_CLASS_OPTIONS = ("live-tuning", "quiet")


@dataclass
class Instance:
    name: str
    namespace: str
    type_name: str
    line: int
    # Filled by resolution.
    module: object = None       # the ModuleDecl of the type
    schema: object = None       # the Namespace that holds it


@dataclass
class ManagerList:
    name: str
    path: str
    live_tuning: bool = False
    quiet: bool = False
    instances: list = field(default_factory=list)
    schemas_read: list = field(default_factory=list)

    def namespaces(self):
        """The namespaces of the instances, each once, in first-use order."""
        seen = []
        for instance in self.instances:
            if instance.namespace not in seen:
                seen.append(instance.namespace)
        return seen


def parse(path, text):
    """The list described by text (read from path, for messages)."""

    def fail(line, message):
        raise SchemaError("%s:%d: %s" % (path, line, message))

    manager = None
    names = set()
    for number, raw in enumerate(text.splitlines(), 1):
        words = raw.split("#", 1)[0].split()
        if not words:
            continue
        if manager is None:
            if words[0] != "manager" or len(words) < 2 or not _NAME.match(words[1]):
                fail(number, "a list starts with 'manager NAME [live-tuning] [quiet]'")
            manager = ManagerList(words[1], path)
            for option in words[2:]:
                if option not in _CLASS_OPTIONS:
                    fail(number, "unknown manager option '%s'" % option)
                setattr(manager, option.replace("-", "_"), True)
            continue
        if len(words) != 2:
            fail(number, "an instance is 'instanceName  namespace::TypeName'")
        name, qualified = words
        if not _NAME.match(name):
            fail(number, "'%s' is not an instance name" % name)
        if len(name) > 64:
            fail(number, "instance name '%s' is longer than 64 characters" % name)
        if name in names:
            fail(number, "instance '%s' repeats" % name)
        names.add(name)
        space, separator, type_name = qualified.partition("::")
        if not separator or not _NAME.match(space) or not _NAME.match(type_name):
            fail(number, "a type is written namespace::TypeName, not '%s'" % qualified)
        manager.instances.append(Instance(name, space, type_name, number))
    if manager is None:
        raise SchemaError("%s: empty list" % path)
    return manager


def load_manager(path, search_dirs, catalogue=None):
    """Reads the list at path and finds each instance's module in the schemas of search_dirs (or
    of catalogue, which keeps what it has read for the next list)."""
    with open(path, encoding="utf-8") as handle:
        manager = parse(path, handle.read())
    # The build names the outputs after the file before reading it.
    stem = os.path.splitext(os.path.basename(path))[0]
    if stem != manager.name:
        raise SchemaError("%s: the list of %s must be called %s.list" % (path, manager.name,
                                                                          manager.name))
    catalogue = catalogue or Catalogue(search_dirs)
    reads = [path]
    for instance in manager.instances:
        schema = catalogue.load(instance.namespace, user="%s:%d" % (path, instance.line))
        for read in schema.schemas_read:
            if read not in reads:
                reads.append(read)
        module = next((m for m in schema.modules if m.type_name == instance.type_name), None)
        if module is None:
            raise SchemaError("%s:%d: %s has no module type '%s'"
                              % (path, instance.line, instance.namespace, instance.type_name))
        instance.module = module
        instance.schema = schema
    manager.schemas_read = reads
    return manager
