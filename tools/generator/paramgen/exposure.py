"""The repeated shapes of the exposure modules, as one-line member forms of a type or module body:
a trigger system of one to three levels, and a data bank with its payload rows.

    trigger-system N (end TYPE | payload TYPE) [databank] [levels PATTERN] [root NAME] [dup K]
    data-bank ROW [VALUE] [dup K]

Each form stands for member lines in its place and, ahead of the declaration that holds it, the
types it makes. The expansion is plain schema text whose lines keep the number of the form's
line, so an error in what a form makes names the line to fix. The text format is described in
tools/generator/README.md."""

import re

from paramgen.schema import SchemaError

# The namespace of the exposure language's shared types (ranges, bank references, bank headers).
SHARED = "aecxglobalelements"
MAX_LEVELS = 3
FORMS = ("trigger-system", "data-bank")

_NAME = re.compile(r"^[A-Za-z_][A-Za-z0-9_:]*$")


class _Form:
    """One form line: its number, indent and words, and the file for messages."""

    def __init__(self, path, number, indent, words):
        self.path, self.number, self.indent, self.words = path, number, indent, words

    def fail(self, message):
        raise SchemaError("%s:%d: %s" % (self.path, self.number, message))

    def options(self, flags, valued):
        """({flag: True}, {option: value}) of the words after the keyword and its positional
        words; flags stand alone, valued options take the next word."""
        found = {}
        index = 0
        words = self.rest
        while index < len(words):
            word = words[index]
            if word in flags:
                found[word] = True
                index += 1
            elif word in valued and index + 1 < len(words):
                if word in found:
                    self.fail("'%s' is given twice" % word)
                found[word] = words[index + 1]
                index += 2
            else:
                self.fail("unknown %s option '%s'" % (self.words[0], word))
        return found


def _dup(form, value):
    if value is None:
        return ""
    if not value.isdigit():
        form.fail("'dup' needs a number, not '%s'" % value)
    return " dup " + value


def _trigger_system(form, holder, shared):
    """(member lines, types) of 'trigger-system'. Levels are named by PATTERN with {n} standing for
    the level's number (default: the holder's name without Type, then Level{n}Type); level k holds
    'trigger' and trigger<k+1>Data, a counted array of level k+1. With 'end TYPE' the last level
    is that existing type (levels 1 to N-1 are made); with 'payload TYPE' level N is made too and
    holds trigger<N>Data, one TYPE."""
    words = form.words
    if len(words) < 2 or not words[1].isdigit() or not 1 <= int(words[1]) <= MAX_LEVELS:
        form.fail("a trigger system has 1 to %d levels: 'trigger-system N ...'" % MAX_LEVELS)
    count = int(words[1])
    form.rest = words[2:]
    found = form.options(("databank",), ("end", "payload", "levels", "root", "dup"))
    if ("end" in found) == ("payload" in found):
        form.fail("a trigger system ends in 'end TYPE' (a shared last level) or 'payload TYPE'")
    pattern = found.get("levels", re.sub(r"Type$", "", holder) + "Level{n}Type")
    if pattern.count("{n}") != 1 or not _NAME.match(pattern.replace("{n}", "1")):
        form.fail("level names are a pattern with one {n} for the level's number")
    made = count - 1 if "end" in found else count
    level = [None] + [pattern.replace("{n}", str(k)) for k in range(1, made + 1)]
    if "end" in found:
        level.append(found["end"])
    types = []
    for k in range(made, 0, -1):
        if k == count:
            below = "trigger%dData  %s" % (k, found["payload"])
        else:
            below = "trigger%dData  %s[]" % (k + 1, level[k + 1])
        types.append((level[k], ["trigger  %sStartEndType" % shared, below]))
    members = []
    for k in range(1, count + 1):
        if "databank" in found:
            members.append("trigger%dDataBank  %sDataBankType" % (k, shared))
        else:
            members.append("trigger%dType  Enum  uint32" % k)
    members.append("%s  %s[]%s" % (found.get("root", "trigger1Data"), level[1],
                                   _dup(form, found.get("dup"))))
    return members, types


def _data_bank(form, shared):
    """(member lines, types) of 'data-bank': the bank header dataBank and the rows, a counted
    array of ROW. With VALUE the row type is made: dataID, description, value."""
    words = form.words
    if len(words) < 2 or not _NAME.match(words[1]):
        form.fail("a data bank is 'data-bank ROW [VALUE] [dup K]'")
    row = words[1]
    value = words[2] if len(words) > 2 and words[2] != "dup" else None
    form.rest = words[3:] if value else words[2:]
    found = form.options((), ("dup",))
    types = []
    if value is not None:
        if "::" in row:
            form.fail("a row type made here belongs to this namespace")
        types.append((row, ["dataID  Int32  int32", "description  String", "value  " + value]))
    members = ["dataBank  %sVaritonalBankDataType" % shared,
               "data  %s[]%s" % (row, _dup(form, found.get("dup")))]
    return members, types


def expand_forms(path, lines):
    """The (number, text) lines of a schema with every form replaced by what it stands for."""
    namespace = None
    uses = set()
    result = []
    block_start = 0      # where in result the current column-0 declaration begins
    holder = None        # the name of the type or module type that declaration makes
    for number, raw in lines:
        code = raw.split("#", 1)[0].rstrip()
        words = code.split()
        indent = len(code) - len(code.lstrip(" "))
        if words and indent == 0:
            block_start = len(result)
            holder = words[1] if words[0] in ("type", "module") and len(words) > 1 else None
            if words[0] == "namespace" and len(words) > 1:
                namespace = words[1]
            elif words[0] == "uses" and len(words) > 1:
                uses.add(words[1])
        if not words or indent == 0 or words[0] not in FORMS:
            result.append((number, raw))
            continue
        form = _Form(path, number, indent, words)
        if holder is None:
            form.fail("'%s' belongs in the body of a type or module" % words[0])
        if namespace != SHARED and SHARED not in uses:
            form.fail("'%s' names the shared exposure types: add 'uses %s'" % (words[0], SHARED))
        shared = "" if namespace == SHARED else SHARED + "::"
        if words[0] == "trigger-system":
            members, types = _trigger_system(form, holder, shared)
        else:
            members, types = _data_bank(form, shared)
        result += [(number, " " * indent + text) for text in members]
        made = []
        for name, body in types:
            made += [(number, "type " + name)] + [(number, "  " + text) for text in body]
        result[block_start:block_start] = made
        block_start += len(made)
    return result
