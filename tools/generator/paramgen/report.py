"""The catalogue report: one line per namespace, for reviewers of the catalogue."""

from paramgen.shape import describe


def report_line(namespace):
    """'<namespace>  gen G  <shape>  types T  members M  frames F  gaps N': the generation, the
    core's shape and depth, the types and members (inline structures included), how many of the
    types are frames whose members are only partly known, and how many members are known by
    name only."""
    generation, shape = describe(namespace)
    types = namespace.all_types()
    members = sum(len(decl.members) for decl in types)
    frames = sum(1 for decl in types if decl.open)
    gaps = sum(len(decl.gaps) for decl in types)
    return "%-32s gen %s  %-8s types %3d  members %4d  frames %d  gaps %d" % (
        namespace.name, generation, shape, len(types), members, frames, gaps)


def gap_lines(namespace):
    """'<namespace>::<type>  <member>' for each member the schema knows by name only."""
    return ["%s::%s  %s" % (namespace.name, decl.cpp_path, name)
            for decl in namespace.all_types() for name in decl.gaps]
