# SPDX-License-Identifier: Apache-2.0
"""What the tests of the tools share: loading a tool as a module, and a temporary tree."""

import importlib.machinery
import importlib.util
import os
import tempfile
import unittest

ROOT = os.path.dirname(
    os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))


def load(path):
    """The program at the path, which has no ending, as a module."""
    name = os.path.basename(path).replace("-", "_")
    loader = importlib.machinery.SourceFileLoader(name, path)
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))
    loader.exec_module(module)
    return module


def load_tool(name):
    """A program of tools/dev."""
    return load(os.path.join(ROOT, "tools", "dev", name))


class TreeTest(unittest.TestCase):
    """A test with a temporary tree, which is empty at first."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = folder.name

    def write(self, path, text):
        """Creates missing folders. Returns the full path."""
        full = os.path.join(self.root, path)
        os.makedirs(os.path.dirname(full), exist_ok=True)
        with open(full, "w", encoding="utf-8") as file:
            file.write(text)
        return full
