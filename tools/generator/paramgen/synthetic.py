"""A synthetic catalogue of the full size, for measuring what the build of every namespace costs
before the catalogue is written: one placeholder family per pipeline block of the block list
(a first-generation version is a three-level nest, a second-generation one a tree, each with a
small region), and placeholder one-off modules up to the catalogue's count of namespaces."""

import os

from paramgen.schema import SchemaError

BLOCKS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "synthetic",
                      "blocks.txt")
# The namespaces of the whole catalogue: pipeline blocks, shared types, exposure, focus,
# flicker, white balance, sensor, detection and network modules.
CATALOGUE_NAMESPACES = 486
_NEST = "aec hdr_aec drc_gain"


def read_blocks(path=BLOCKS):
    """[(block, [version text...])] of the block list at path."""
    blocks = []
    with open(path, encoding="utf-8") as handle:
        for number, raw in enumerate(handle, 1):
            words = raw.split("#", 1)[0].split()
            if not words:
                continue
            if len(words) < 2:
                raise SchemaError("%s:%d: a block is 'NAME VERSION...'" % (path, number))
            blocks.append((words[0], words[1:]))
    return blocks


def _family(block, versions):
    lines = ["# Placeholder block %s: its shape by generation, a made-up region." % block,
             "family %s" % block, "enable_section enable", "region",
             "  strength  Float  float", "  tab lut  Int32  float[16]"]
    for version in versions:
        patch = version.split(".")[2] if version.count(".") == 2 else "0"
        lines.append("version %s %s" % (version, "nest " + _NEST if patch == "0" else "tree"))
    return "\n".join(lines) + "\n"


def synthetic_files(existing, total=CATALOGUE_NAMESPACES, blocks_path=BLOCKS):
    """{file name: text} of the synthetic catalogue: every block version whose namespace is not
    in existing (a set of names), then placeholder modules until existing and the synthetic
    namespaces number total."""
    files = {}
    count = len(existing)
    for block, versions in read_blocks(blocks_path):
        missing = [v for v in versions if "%s_%s" % (block, v.replace(".", "_")) not in existing]
        if missing:
            files[block + ".family"] = _family(block, missing)
            count += len(missing)
    others = ["placeholder%03d" % index for index in range(1, total - count + 1)]
    if others:
        files["placeholders.family"] = (
            "# Placeholder one-off modules: a version and a reserve each.\n"
            "family %s\nversion 1.0.0 flat\n  reserve\n    value  Float  float\n"
            "    label  String\n" % " ".join(others))
    return files
