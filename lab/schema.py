# SPDX-License-Identifier: Apache-2.0
"""Holds what a program prints against the JSON schema that it promises to keep."""

KINDS = {"object": dict, "array": list, "string": str, "boolean": bool, "null": type(None),
         "integer": int, "number": (int, float)}
KNOWN = {"$schema", "title", "description", "type", "enum", "required", "properties",
         "additionalProperties", "items", "minimum", "minLength"}


def violations(value, schema: dict, at: str = "$") -> list[str]:
    """Where a value is not as the schema says; a keyword that is not looked at is one, too."""
    found = [f"{at}: {word} is not looked at" for word in schema.keys() - KNOWN]
    kinds = schema.get("type", list(KINDS))
    kinds = [kinds] if isinstance(kinds, str) else kinds
    if not any(isinstance(value, KINDS[kind]) and (kind == "boolean" or value is not True
               and value is not False) for kind in kinds):
        return found + [f"{at}: {value!r} is no {' or '.join(kinds)}"]
    if value not in schema.get("enum", [value]):
        found.append(f"{at}: {value!r} is none of {schema['enum']}")
    if isinstance(value, (int, float)) and value < schema.get("minimum", value):
        found.append(f"{at}: {value} is below {schema['minimum']}")
    if isinstance(value, str) and len(value) < schema.get("minLength", 0):
        found.append(f"{at}: {value!r} is too short")
    if isinstance(value, list):
        for number, item in enumerate(value):
            found += violations(item, schema.get("items", {}), f"{at}[{number}]")
    if isinstance(value, dict):
        known = schema.get("properties", {})
        found += [f"{at}: {name} is missing" for name in schema.get("required", [])
                  if name not in value]
        for name, member in value.items():
            if name in known:
                found += violations(member, known[name], f"{at}.{name}")
            elif schema.get("additionalProperties") is False:
                found.append(f"{at}: {name} is not described")
    return found
