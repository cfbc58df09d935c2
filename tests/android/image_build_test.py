#!/usr/bin/env python3
"""Compiles the sources of each module of android/Android.bp with clang and only the include folders that Soong gives
the module: its own and those that the libraries it names export. Debian's headers and those below platform/ stand
for the image's libraries.

usage: image_build_test.py CHECKOUT
"""
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import blueprint

checkout = pathlib.Path(sys.argv.pop(1)).resolve()
modules = blueprint.read_modules(checkout / "android/Android.bp")
debian = pathlib.Path("/usr/include/android")

# The image's libraries: their headers by the path that a source includes, and the libraries they export again.
LIBRARIES = {
    "bionic": ({"android/dlext.h": checkout / "platform/ossdk/include/android/dlext.h",
                "sys/system_properties.h": checkout / "platform/properties/include/sys/system_properties.h"}, []),
    "liblog": ({"log": debian / "log", "android/log.h": debian / "android/log.h"}, []),
    "libbase": ({"android-base": debian / "android-base"}, ["fmtlib"]),
    "libutils": ({name: debian / name for name in ("utils", "cutils", "system")}, []),
    "libbinder": ({"binder": debian / "binder"}, ["libbase", "libutils"]),
    "libjsoncpp": ({"json": pathlib.Path("/usr/include/jsoncpp/json")}, []),
    "libstatsd": ({"statsd": checkout / "platform/statsd/include/statsd"}, ["libprotobuf-cpp-full"]),
    "libosutils": ({"osutils": checkout / "platform/osutils/include/osutils"}, ["libbinder", "libstatsd"]),
    "libossdk_headers": ({"ossdk": checkout / "platform/ossdk/include/ossdk"}, []),
    "fmtlib": ({}, []),
    "libprotobuf-cpp-full": ({}, []),
    "libgmock": ({}, []),
    "libc++fs": ({}, []),
}
# Clang finds these headers without being given a folder, so the check looks for the library in what a module sees.
ALWAYS_FOUND = {"/usr/include/fmt/": "fmtlib", "/usr/include/google/protobuf/": "libprotobuf-cpp-full",
                "/usr/include/gmock/": "libgmock"}
DEPENDENCIES = ("static_libs", "shared_libs", "header_libs")


class ImageBuildTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.scratch = pathlib.Path(self.folder.name)
        for library, (headers, _) in LIBRARIES.items():
            for name, path in headers.items():
                link = self.scratch / library / name
                link.parent.mkdir(parents=True, exist_ok=True)
                link.symlink_to(path)

    def test_everyModuleCompilesWithTheFoldersThatItNames(self):
        compilations = [(module, source) for name, module in modules.items()
                        if module["kind"] in ("cc_library_static", "cc_binary", "cc_test")
                        for source in self.compiled_sources(name)]
        self.assertGreater(len(compilations), 0)
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            faults = [fault for fault in pool.map(lambda pair: self.compile(*pair), compilations) if fault]
        if faults:
            self.fail("\n\n".join(faults))

    def compiled_sources(self, name):
        """The module's C++ sources. Makes the code of its schemas, which clang sees only as headers."""
        paths = []
        for root, source in schema_roots(modules[name]):
            protoc(root, source, self.scratch / name)
        for pattern in blueprint.with_defaults(modules, modules[name]).get("srcs", []):
            if pattern.endswith(".cpp"):
                paths += sorted(checkout.glob(pattern))
        return paths

    def compile(self, module, source):
        """Returns what is wrong with the source, empty if it compiles."""
        whole = blueprint.with_defaults(modules, module)
        used = self.scratch / f"{module['name']}.{source.name}.d"
        command = ["clang++", "-fsyntax-only", f"-std={whole['cpp_std']}", "-fno-exceptions", "-ferror-limit=1",
                   "-MD", "-MF", used]
        command += [] if whole["rtti"] else ["-fno-rtti"]
        command += whole["cflags"] + [f"-I{checkout}"]  # Soong always gives the folder of Android.bp
        command += [f"-I{checkout / path}" for path in whole.get("local_include_dirs", [])]
        visible = self.visible(whole)
        for path in visible:
            command += ["-isystem" if path.is_relative_to(self.scratch) else "-I", path]
        result = subprocess.run(command + [source], capture_output=True, text=True)
        if result.returncode != 0:
            return f"{module['name']}: {result.stderr}"
        return "\n".join(f"{module['name']}: {source} includes {prefix}..., which is not among its folders"
                         for prefix, library in ALWAYS_FOUND.items()
                         if re.search(rf"\s{prefix}", used.read_text()) and self.scratch / library not in visible)

    def visible(self, module):
        folders = self.exported(module["name"]) + self.exported("bionic") + self.exported("liblog")
        for key in DEPENDENCIES:
            for name in module.get(key, []):
                folders += self.exported(name)
        return list(dict.fromkeys(folders))

    def exported(self, name):
        """The include folders that a module gets which names this library."""
        if name in LIBRARIES:
            folders, again = [self.scratch / name], LIBRARIES[name][1]
        else:
            module = blueprint.with_defaults(modules, modules[name])
            folders = [checkout / path for path in module.get("export_include_dirs", [])]
            if module.get("proto", {}).get("export_proto_headers"):
                folders.append(self.scratch / name)
            again = []
            for key in DEPENDENCIES:
                exports = module.get(f"export_{key.removesuffix('s')}_headers", [])
                self.assertLessEqual(set(exports), set(module.get(key, [])), f"{name} exports what it does not name")
                again += exports
        return folders + [folder for library in again for folder in self.exported(library)]


def schema_roots(module):
    """The module's schemas, each with the folder that Soong gives protoc as its root: the module's own, or that of a
    filegroup's path."""
    for source in module.get("srcs", []):
        if source.startswith(":"):
            group = modules[source[1:]]
            root = pathlib.PurePath(group.get("path", ""))
            yield from ((checkout / root, pathlib.PurePath(path).relative_to(root)) for path in group["srcs"])
        elif source.endswith(".proto"):
            yield checkout, source


def protoc(root, source, output):
    output.mkdir(parents=True, exist_ok=True)
    subprocess.run(["protoc", f"-I{root}", f"--cpp_out={output}", root / source], check=True)


if __name__ == "__main__":
    unittest.main()
