"""The catalogue report: one line per namespace, for reviewers of the catalogue."""

from paramgen.shape import describe


def report_line(namespace):
    """'<namespace>  gen G  <shape>  types T  members M  frames F': the generation, the core's
    shape and depth, the types and members (inline structures included), and how many of the
    types are frames whose members are only partly known."""
    generation, shape = describe(namespace)
    types = namespace.all_types()
    members = sum(len(decl.members) for decl in types)
    frames = sum(1 for decl in types if decl.open)
    return "%-32s gen %s  %-8s types %3d  members %4d  frames %d" % (
        namespace.name, generation, shape, len(types), members, frames)
