#!/usr/bin/env python3
"""Writes a JSON document from standard input as block-style YAML on standard output.

The peer benchmark parses the same tuning content as YAML; this is how that YAML is made from the
JSON dump. Strings and keys are written as double-quoted scalars, which YAML reads exactly as
JSON does; numbers, true, false and null are written as they stand."""
import json
import sys


def scalar(value):
    if isinstance(value, str):
        return json.dumps(value, ensure_ascii=False)
    return json.dumps(value)


def emit(value, indent, out):
    pad = "  " * indent
    if isinstance(value, dict):
        for key, item in value.items():
            if isinstance(item, (dict, list)) and item:
                out.append(f"{pad}{scalar(key)}:")
                emit(item, indent + 1, out)
            else:
                out.append(f"{pad}{scalar(key)}: {flow(item)}")
    else:
        for item in value:
            if isinstance(item, (dict, list)) and item:
                out.append(f"{pad}-")
                emit(item, indent + 1, out)
            else:
                out.append(f"{pad}- {flow(item)}")


def flow(value):
    if isinstance(value, dict):
        return "{}"
    if isinstance(value, list):
        return "[]"
    return scalar(value)


def main():
    document = json.load(sys.stdin)
    if not isinstance(document, (dict, list)) or not document:
        sys.stdout.write(flow(document) + "\n")
        return
    out = []
    emit(document, 0, out)
    sys.stdout.write("\n".join(out) + "\n")


if __name__ == "__main__":
    main()
