#!/usr/bin/env python3
"""validate.py NAME [FILE]: every line of the file (standard input) is JSON that docs/schema/NAME.schema.json takes.

Without an argument: every schema of the folder is one, and refuses an empty object.
"""
import json
import os
import sys
import warnings

import jsonschema

warnings.simplefilter("ignore", DeprecationWarning) # of resolvers; Debian 12 has nothing else

FOLDER = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", "..", "docs", "schema"))


def validator(name):
    with open(os.path.join(FOLDER, name), encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft7Validator.check_schema(schema)
    resolver = jsonschema.RefResolver(f"file://{FOLDER}/{name}", schema)
    return jsonschema.Draft7Validator(schema, resolver=resolver)


def main(arguments):
    if not arguments:
        for name in sorted(name for name in os.listdir(FOLDER) if name.endswith(".json")):
            if validator(name).is_valid({}) and name != "common.schema.json":
                sys.exit(f"{name} takes anything")
        return
    check = validator(arguments[0] + ".schema.json")
    with open(arguments[1] if len(arguments) > 1 else 0, encoding="utf-8") as file:
        lines = file.read().splitlines()
    if not lines:
        sys.exit("no JSON came")
    for line in lines:
        errors = [error.message for error in check.iter_errors(json.loads(line))]
        if errors:
            sys.exit(f"{line}\n" + "\n".join(errors))


main(sys.argv[1:])
