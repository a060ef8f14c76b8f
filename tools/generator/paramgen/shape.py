"""The shape of a module's core, read back from a resolved namespace: a nest of named trigger
levels, a recursive trigger tree, or no core. The catalogue report shows it and the nest check
compares it with control_var_type, for plain tables and families alike."""

import re

_CORE = re.compile(r"^varitonal_.*_core$")
# A pipeline block's namespace: the block and its version, <block>_<major>_<minor>[_<patch>].
_BLOCK_NAMESPACE = re.compile(r"^[A-Za-z0-9]+_\d+_\d+(_\d+)?$")


def _member(decl, name):
    return next((m for m in decl.members if m.name == name), None) if decl else None


def core_member(top):
    """The top type's varitonal_*_core member, or None."""
    return next((m for m in top.members if _CORE.match(m.name) and m.category == "structure"),
                None)


def nest_levels(top):
    """The level types of a first-generation nest, outermost first: each holds a trigger member
    and either a <dim>_dataStruct with one counted array of the next level in, or the region."""
    core = core_member(top)
    if core is None or core.type is None:
        return []
    levels = []
    holder = core.type
    while len(holder.members) == 1:
        array = holder.members[0]
        level = array.type
        if array.shape != "counted" or level is None or level in levels or \
                len(level.members) != 2:
            break
        levels.append(level)
        inner = level.members[1].type
        if inner is None or not inner.name.endswith("_dataStruct"):
            break
        holder = inner
    return levels


def control_var_type(top):
    """The control_variables.control_var_type member, or None."""
    control = _member(top, "control_variables")
    return _member(control.type, "control_var_type") if control else None


def describe(namespace):
    """(generation, shape) of a namespace's first module: generation 0, 1 or '-' (no trigger
    core), shape 'tree', 'nest N', 'nest ?' (a core whose levels are not known) or 'flat'."""
    if not namespace.modules:
        return "-", "types"
    module = namespace.modules[0]
    top = namespace.top_type(module)
    if module.trigger_tree:
        return 1, "tree"
    levels = nest_levels(top)
    if levels:
        return 0, "nest %d" % len(levels)
    core = core_member(top)
    if core is not None and core.type is not None and core.type.open and not core.type.members:
        return 0, "nest ?"
    if top.name.startswith("varitonal_") and _BLOCK_NAMESPACE.match(namespace.name):
        return (0 if module.version[2] == 0 else 1), "flat"
    return "-", "module"
