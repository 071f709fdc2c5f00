#!/usr/bin/env python3
"""Holds a snapshot against its schema, which must know every field of it.

Usage: check_snapshot.py SCHEMA <SNAPSHOT
"""
import json
import sys

import jsonschema


def close(schema):
    """Lets no object have a field that the schema does not name."""
    if isinstance(schema, dict):
        if "properties" in schema:
            schema["additionalProperties"] = False
        for part in schema.values():
            close(part)
    elif isinstance(schema, list):
        for part in schema:
            close(part)


def main(path):
    with open(path, encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    close(schema)
    errors = list(jsonschema.Draft202012Validator(schema).iter_errors(json.load(sys.stdin)))
    for error in errors:
        print(f"{error.json_path}: {error.message}")
    return bool(errors)


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1]))
