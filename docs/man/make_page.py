#!/usr/bin/env python3
"""Prints a manual page: the template, with what diagctl itself says put in for @OPTIONS@, @COMMANDS@ and @SETTINGS@.

usage: make_page.py DIAGCTL TEMPLATE VERSION
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

diagctl, template, version = sys.argv[1:]


class Help:
    """What `diagctl WORDS... --help` prints, taken apart: the description, the usage line, and for each section
    ("Options", "Subcommands", ...) its entries as pairs of name and text."""

    def __init__(self, words):
        text = subprocess.run([diagctl, *words, "--help"], check=True, capture_output=True, text=True).stdout
        self.words, self.sections, section = words, {}, None
        head, _, rest = text.partition("Usage: ")
        self.description = " ".join(head.split())
        self.usage, _, rest = rest.partition("\n")
        for line in rest.splitlines():
            if heading := re.fullmatch(r"(\w[\w ]*):", line):
                section = self.sections.setdefault(heading[1], [])
            elif entry := re.fullmatch(r" {2,4}(\S.*?)(?: {2,}(.*))?", line):
                section.append((entry[1], entry[2] or ""))
            elif line.strip():
                section[-1] = (section[-1][0], f"{section[-1][1]} {line.strip()}".strip())

    def entries(self, *sections):
        """The entries of these sections but --help, which every command has."""
        return [entry for name in sections for entry in self.sections.get(name, []) if not entry[0].startswith("-h,")]


def escaped(text):
    return text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq")


def listed(entries):
    return "".join(f".TP\n.B {escaped(name)}\n{escaped(text)}\n" for name, text in entries)


def options(words):
    return listed(Help(words).entries("Options"))


def commands(words):
    """A section of the page for every command below these words."""
    page = ""
    for name, _ in Help(words).entries("Subcommands"):
        command = Help([*words, name])
        if "Subcommands" in command.sections:
            page += commands([*words, name])
            continue
        page += f".SS {escaped(command.usage)}\n{escaped(command.description)}.\n"
        page += listed((name.split()[0], text) for name, text in command.entries("Positionals") if text)
        page += listed(command.entries("Options"))
    return page


def settings():
    """A row for each setting: its key, its type, and its value where no layer but the defaults answers."""
    with tempfile.TemporaryDirectory() as folder:
        configuration = pathlib.Path(folder, "system_ext/etc/torv_crashreporter.conf")
        configuration.parent.mkdir(parents=True)
        configuration.write_text("{}")
        document = subprocess.run([diagctl, "--json", "config"], check=True, capture_output=True, text=True,
                                  env=os.environ | {"TORV_DEVICE_ROOT": folder, "TORV_RUNTIME_DIR": folder}).stdout
    return "".join(f".TP\n.BR {escaped(key)} \" (\" {setting['type']} )\n"
                   f"{escaped(json.dumps(setting['value']))}\n" for key, setting in json.loads(document).items())


page = pathlib.Path(template).read_text().replace("@VERSION@", version)
for mark, text in (("@OPTIONS@\n", lambda: options([])), ("@COMMANDS@\n", lambda: commands([])),
                   ("@SETTINGS@\n", settings)):
    if mark in page:
        page = page.replace(mark, text())
print(page, end="")
