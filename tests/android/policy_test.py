#!/usr/bin/env python3
"""Compiles android/sepolicy with a stub of the platform's policy (platform_policy.m4), whose neverallow rules are
those that an image's build would break on.

usage: policy_test.py CHECKOUT
"""
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

checkout = pathlib.Path(sys.argv.pop(1))
policy = checkout / "android/sepolicy"
stub = pathlib.Path(__file__).with_name("platform_policy.m4")


def device_lines(*keywords):
    """The policy lines that android/README.md tells the device's maker to write."""
    blocks = re.findall(r"^ *```(\w*)\n(.*?)^ *```$", (checkout / "android/README.md").read_text(), re.S | re.M)
    lines = [line.strip() for kind, block in blocks if kind == "" for line in block.splitlines()]
    return [re.sub(r"<\w+>", "x", line) for line in lines if line.startswith(keywords)]


def compile_policy(rules, labels):
    """Returns checkpolicy's complaints about the stub with these rules and labels, empty if it compiles."""
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "subject").write_text("\n".join(rules) + "\n")
        (folder / "labels").write_text("\n".join(labels) + "\n")
        expanded = subprocess.run(
            ["m4", f"-DSUBJECT={folder}/subject", f"-DLABELS={folder}/labels", stub],
            check=True, capture_output=True, text=True).stdout
        (folder / "policy.conf").write_text(expanded)
        result = subprocess.run(["checkpolicy", "-M", "-o", folder / "policy", folder / "policy.conf"],
                                capture_output=True, text=True)
        return result.stdout + result.stderr if result.returncode != 0 else ""


def public_rules():
    return [path.read_text() for path in sorted(policy.glob("public/*.te"))]


class PolicyTest(unittest.TestCase):
    maxDiff = None

    def test_breaksNoRuleOfThePlatformAndDeclaresEveryTypeThatItLabelsWith(self):
        private = [path.read_text() for path in policy.rglob("*.te") if path.parent.name != "public"]
        contexts = "".join(path.read_text() for path in policy.rglob("*_contexts"))
        labels = [f"genfscon stub /{number} {label}"
                  for number, label in enumerate(re.findall(r"u:object_r:\w+:s0", contexts))]
        self.assertGreater(len(labels), 0)
        self.assertEqual(compile_policy(public_rules() + private, labels), "")

    def test_vendorPolicySeesEveryNameThatTheReadmeUses(self):
        rules, labels = device_lines("typeattribute", "allow"), device_lines("genfscon")
        domains = ["type crash_reporter, domain;"]
        self.assertEqual(compile_policy(public_rules() + domains + rules, labels), "")
        self.assertEqual(len(rules), 2, "a client's domain and the health HAL")
        self.assertEqual(len(labels), 3, "the GPU's counter and the battery's two charge files")


if __name__ == "__main__":
    unittest.main()
