"""Finding and loading namespaces: a plain schema table holds one namespace (<name>.schema), a
family file (<block>.family) one per block and version. Each namespace is read and resolved once
per run, with the namespaces it uses."""

import os

from paramgen.exposure import expand_forms
from paramgen.family import expand, load_dimensions, parse_family
from paramgen.schema import SchemaError, numbered, parse_lines, resolve
from paramgen.shape import control_var_type, nest_levels

DIMENSION_TABLE = "triggerdimensions.table"


class Catalogue:
    """The namespaces found in search_dirs; the first folder that has a name wins."""

    def __init__(self, search_dirs):
        self.search_dirs = list(search_dirs)
        self.loaded = {}          # namespace name -> resolved Namespace
        self.families = {}        # family path -> {namespace name: schema lines}
        self.family_index = None  # namespace name -> family path
        self.dimension_path = None
        self.dimensions = None

    # ---- files ------------------------------------------------------------------------------

    def namespaces_of(self, path):
        """The namespace names that the schema table or family file at path holds, in order."""
        if path.endswith(".family"):
            return list(self.family_lines(path))
        return [self._plain(path)[0]]

    def load_file(self, path):
        """Every namespace of the file at path, resolved."""
        return [self.load(name, origin=path) for name in self.namespaces_of(path)]

    @staticmethod
    def _plain(path):
        """The namespace name of a schema table (its file name) and its numbered lines."""
        with open(path, encoding="utf-8") as handle:
            return os.path.splitext(os.path.basename(path))[0], numbered(handle.read())

    def family_lines(self, path):
        """{namespace name: (line number, text) pairs} of the family file at path."""
        path = os.path.abspath(path)
        if path not in self.families:
            with open(path, encoding="utf-8") as handle:
                family = parse_family(path, handle.read())
            self.families[path] = expand(family, self._dimension_table(path))
        return self.families[path]

    def _find_dimensions(self, near=None):
        """The trigger dimension table beside near or in the search folders; None if none."""
        if self.dimensions is None:
            folders = ([os.path.dirname(os.path.abspath(near))] if near else []) + \
                self.search_dirs
            for folder in folders:
                candidate = os.path.join(folder, DIMENSION_TABLE)
                if os.path.exists(candidate):
                    self.dimension_path = candidate
                    self.dimensions = load_dimensions(candidate)
                    break
        return self.dimensions

    def _dimension_table(self, family_path):
        table = self._find_dimensions(family_path)
        if table is None:
            raise SchemaError("%s: no %s beside it or in the schema folders"
                              % (family_path, DIMENSION_TABLE))
        return table

    def _find(self, name):
        """(path, lines) of namespace name from the search folders, or None."""
        for folder in self.search_dirs:
            candidate = os.path.join(folder, name + ".schema")
            if os.path.exists(candidate):
                return candidate, self._plain(candidate)[1]
        if self.family_index is None:
            self.family_index = {}
            for folder in self.search_dirs:
                if not os.path.isdir(folder):
                    continue
                for entry in sorted(os.listdir(folder)):
                    if entry.endswith(".family"):
                        path = os.path.abspath(os.path.join(folder, entry))
                        for namespace in self.family_lines(path):
                            self.family_index.setdefault(namespace, path)
        path = self.family_index.get(name)
        return (path, self.family_lines(path)[name]) if path else None

    def _selector_triggers(self):
        """Trigger member names of the levels that take no control variable."""
        table = self._find_dimensions() or {}
        return {d.trigger for d in table.values() if not d.control}

    def _check_nests(self, namespace):
        """A fixed control_var_type names one control variable per level of the core's nest."""
        for module in namespace.modules:
            top = namespace.top_type(module)
            kinds = control_var_type(top)
            levels = nest_levels(top)
            if kinds is None or kinds.shape != "fixed" or not levels:
                continue
            selectors = self._selector_triggers()
            controlled = [level for level in levels if level.members[0].name not in selectors]
            if kinds.length != len(controlled):
                raise SchemaError("%s:%d: control_var_type has %d entries but the core nests "
                                  "%d control levels (%s)"
                                  % (namespace.path, kinds.line, kinds.length, len(controlled),
                                     ", ".join(level.name for level in controlled)))

    # ---- namespaces -------------------------------------------------------------------------

    def load(self, name, origin=None, stack=(), user=None):
        """The resolved namespace name. origin, when given, is the file that holds it (so that a
        file is generated from itself even if a search folder holds another of that name); user
        is the file that names it, for the message when it is found nowhere."""
        if name in self.loaded:
            return self.loaded[name]
        if name in stack:
            raise SchemaError("%s: namespaces use each other in a circle: %s"
                              % (origin or name, " -> ".join(stack + (name,))))
        if origin is not None:
            if origin.endswith(".family"):
                path = os.path.abspath(origin)
                lines = self.family_lines(path)[name]
            else:
                path, lines = origin, self._plain(origin)[1]
        else:
            found = self._find(name)
            if found is None:
                raise SchemaError("%s: no schema for namespace '%s'" % (user or "paramgen", name))
            path, lines = found
        namespace = parse_lines(path, expand_forms(path, lines))
        if namespace.name != name:
            raise SchemaError("%s: the table of namespace %s must be called %s.schema"
                              % (path, namespace.name, namespace.name))
        reads = [path]
        if path.endswith(".family"):
            reads.append(self.dimension_path)

        def loader(used):
            found = self.load(used, stack=stack + (name,), user=path)
            for read in found.schemas_read:
                if read not in reads:
                    reads.append(read)
            return found

        resolve(namespace, loader)
        self._check_nests(namespace)
        namespace.schemas_read = reads
        self.loaded[name] = namespace
        return namespace
