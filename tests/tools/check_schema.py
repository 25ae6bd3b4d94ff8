"""Holds documents to a JSON schema: check_schema.py SCHEMA < "definition<TAB>document" lines.
A definition with "!" in front must refuse its document."""
import json
import sys

import jsonschema

with open(sys.argv[1], encoding="utf-8") as file:
    schema = json.load(file)
jsonschema.Draft7Validator.check_schema(schema)
wrong = 0
for line in sys.stdin:
    name, document = line.rstrip("\n").split("\t", 1)
    one = {"$ref": "#/definitions/" + name.lstrip("!"), "definitions": schema["definitions"]}
    errors = [error.message for error in jsonschema.Draft7Validator(one).iter_errors(json.loads(document))]
    if bool(errors) != name.startswith("!"):
        print(name + ": " + ("; ".join(errors) or "was not refused"))
        wrong = 1
sys.exit(wrong)
