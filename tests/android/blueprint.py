"""Reads android/Android.bp: the part of Soong's language that it uses (modules, maps, lists, strings, booleans)."""
import json
import re

TOKEN = re.compile(r'\s+|//[^\n]*|("(?:[^"\\]|\\.)*"|\w+|[{}\[\]:,])')


def read_modules(path):
    """The modules of the file by name, each a dictionary of its properties with the module's kind under "kind"."""
    tokens = _tokens(path.read_text())
    modules = {}
    while tokens:
        kind = tokens.pop(0)
        module = _value(tokens)
        if module["name"] in modules:
            raise ValueError(f"{path}: two modules have the name {module['name']}")
        modules[module["name"]] = module | {"kind": kind}
    return modules


def with_defaults(modules, module):
    """The module with the properties of its cc_defaults: lists are joined, the module's own single values win."""
    result = {}
    for name in module.get("defaults", []):
        _merge(result, with_defaults(modules, modules[name]))
    _merge(result, module)
    return result


def _merge(into, properties):
    for key, value in properties.items():
        into[key] = into.get(key, []) + value if isinstance(value, list) else value


def _tokens(text):
    tokens, at = [], 0
    while at < len(text):
        match = TOKEN.match(text, at)
        if match is None:
            raise ValueError(f"unexpected text: {text[at:at + 40]!r}")
        if match[1]:
            tokens.append(match[1])
        at = match.end()
    return tokens


def _value(tokens):
    token = tokens.pop(0)
    if token == "{":
        return dict(_items(tokens, "}", _property))
    if token == "[":
        return list(_items(tokens, "]", _value))
    return json.loads(token)  # strings and booleans are written as in JSON


def _items(tokens, end, item):
    while tokens[0] != end:
        yield item(tokens)
        if tokens[0] == ",":
            tokens.pop(0)
    tokens.pop(0)


def _property(tokens):
    name, colon = tokens.pop(0), tokens.pop(0)
    if colon != ":":
        raise ValueError(f"{name}: expected a colon, found {colon}")
    return name, _value(tokens)
