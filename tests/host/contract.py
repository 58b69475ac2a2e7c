"""The contract of the commands: every reply that a test gets is held against its schema."""

import functools
import json
import pathlib

import jsonschema

FILE = pathlib.Path(__file__).resolve().parents[2] / "docs" / "commands.schema.json"
SCHEMA = json.loads(FILE.read_text())
COMMANDS = SCHEMA["properties"]
PAGES = {"/health": "#/$defs/Health", "/services": "#/$defs/Services"}
FAILURE, INVALID = "#/$defs/Failure", "#/$defs/InvalidCommand"


@functools.cache
def validator(*places):
    """Accepts what one of the forms at these places of the schema accepts."""
    jsonschema.Draft202012Validator.check_schema(SCHEMA)
    return jsonschema.Draft202012Validator(
        {"$defs": SCHEMA["$defs"], "properties": COMMANDS,
         "anyOf": [{"$ref": place} for place in places]})


def form(method, *members):
    return [f"#/properties/{method}/properties/{member}" for member in members]


def expected(text, path):
    """The forms that the reply to a text sent to a path may have."""
    if "/LoadZipFromBytes" in path:
        return form("LoadZipFromBytes", "reply", "failure")
    if "/CheckUpdateFile" in path:
        return form("CheckUpdateFile", "reply", "failure")
    if not path.startswith("/qtp/") or not text:
        return [INVALID]
    try:
        command = json.loads(text)
    except (ValueError, RecursionError):
        return [FAILURE]
    if not isinstance(command, dict) or {"event", "property"} & command.keys():
        return [FAILURE]
    method = command.get("method")
    if not isinstance(method, str) or method not in COMMANDS:
        return [FAILURE]
    fits = validator(*form(method, "parameter")).is_valid(command.get("parameter", []))
    return form(method, "reply", "failure") if fits else form(method, "failure")


def check(places, reply):
    """Raises for a reply that has none of the forms."""
    text = reply.decode() if isinstance(reply, bytes) else reply
    try:
        value = json.loads(text)
    except (ValueError, RecursionError):
        value = text  # what is no JSON stands in the schema as a text of the same characters
    errors = list(validator(*places).iter_errors(value))
    assert not errors, f"{text[:500]!r} is none of {places}: " + "; ".join(
        cause.message[:200] for error in errors for cause in (error.context or [error]))


def check_reply(text, reply, path="/qtp/"):
    check(expected(text, path), reply)


def check_page(path, reply):
    if path in PAGES:
        check([PAGES[path]], reply)
