#!/usr/bin/env python3
"""Holds what an image's build is told about the service against the sources, and its files against each other:
nothing in this checkout builds those files.

usage: image_files_test.py CHECKOUT
"""
import pathlib
import re
import sys
import unittest

import blueprint

checkout = pathlib.Path(sys.argv.pop(1))
modules = blueprint.read_modules(checkout / "android/Android.bp")


def text_of(path):
    return (checkout / path).read_text()


def files_below(folder, *suffixes):
    return sorted(str(path.relative_to(checkout))
                  for path in (checkout / folder).rglob("*") if path.suffix in suffixes)


def sources_below(folder):
    """What the modules list below the folder, once for each time that it is listed."""
    return sorted(source for module in modules.values() for source in module.get("srcs", [])
                  if source.startswith(folder + "/") and "*" not in source)


class ImageFilesTest(unittest.TestCase):
    def test_everySourceIsBuiltOnceAndEveryListedSourceExists(self):
        for folder in ("base", "src"):
            self.assertEqual(sources_below(folder), files_below(folder, ".cpp", ".proto"))
        self.assertEqual(sources_below("android"), files_below("android", ".aidl", ".sysprop"))

    def test_everyNamedFileExists(self):
        keys = ("init_rc", "export_include_dirs", "local_include_dirs", "local_include_dir", "data", "path")
        for module in modules.values():
            for key in keys:
                paths = module.get(key, [])
                for path in [paths] if isinstance(paths, str) else paths:
                    self.assertTrue(list(checkout.glob(path)), f"{module['name']}, {key}: {path}")

    def test_everyProgramLinksAllThatItsLibrariesUse(self):
        # Soong links what the program itself names and no more.
        for name, module in modules.items():
            if module["kind"] in ("cc_binary", "cc_test"):
                program = blueprint.with_defaults(modules, module)
                for library in program["static_libs"]:
                    used = blueprint.with_defaults(modules, modules.get(library, {}))
                    for key in ("static_libs", "shared_libs"):
                        with self.subTest(program=name, library=library):
                            self.assertLessEqual(set(used.get(key, [])), set(program[key]))

    def test_flagsAreThoseThatTheServiceReads(self):
        names = re.compile(r'"(persist\.[^"]*)"')
        read = set(names.findall(text_of("src/sysprop/SharedOsServicesProperties.cpp")))
        declared = set(names.findall(text_of("android/sysprop/SharedOsServicesProperties.sysprop")))
        self.assertEqual(declared, read)
        prefix = text_of("android/sepolicy/private/property_contexts").split()[0]
        self.assertEqual([name for name in read if not name.startswith(prefix)], [])

    def test_policyLabelsTheProgramThatInitStartsAndTheServicesThatItOffers(self):
        program = "/system_ext/bin/diagnostics_collector_service"
        init = text_of("android/diagnostics_collector_service.rc")
        self.assertIn(f"\nservice diagnostics_collector_service {program}\n", init)
        self.assertIn("\n    capabilities\n", init, "an empty list takes all of them away")
        self.assertRegex(program, "^" + text_of("android/sepolicy/private/file_contexts").split()[0] + "$")

        headers = "".join(text_of(path) for path in files_below("src/aidl", ".h"))
        offered = re.findall(r'kServiceName\[\] = "(\w+)"', headers)
        labelled = re.findall(r"(\w+)\s+u:", text_of("android/sepolicy/private/service_contexts"))
        self.assertEqual(sorted(labelled), sorted(offered))


if __name__ == "__main__":
    unittest.main()
