#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that the agent knows every environment variable that its network libraries read.

usage: environment_names_test.py LISTS LIBRARY…

LISTS is platform/linux/network/LibraryVariables.h. The names are found in the libraries' code: the
argument of every call of getenv and its wrappers. The files named by the libraries are looked for
where the dynamic linker looks for them.

An unknown name in a version that was checked here fails: then the lists are wrong. In another
version it fails only where the variable CI is set. Elsewhere it is reported and the test skipped,
because the sources are not wrong only because the system has got a newer library.
"""

import ctypes
import os
import platform
import re
import struct
import subprocess
import sys
import unittest

LISTS = sys.argv[1]
LIBRARIES = sys.argv[2:]

# "call 12f70 <curl_getenv@plt>": address and name of the called function.
CALL = re.compile(r"^\s*([0-9a-f]+):\s+(?:notrack )?(call|jmp)\s+([0-9a-f]+) <([^>]+)>$")
LOAD = re.compile(r"lea\s+\S+\(%rip\),%(\w+)\s+# ([0-9a-f]+)")
MOVE = re.compile(r"mov\s+%(\w+),%(\w+)$")
FUNCTION = re.compile(r"^[0-9a-f]+ <([^>]+)>:$")
# The versions whose names were all examined, by the beginning of the file name.
CHECKED = {"libcurl": "7.88.1", "libssl": "3.0.19", "libcrypto": "3.0.19"}
# How far before a call its argument is looked for.
REACH = 40


def known_names():
    with open(LISTS, encoding="utf-8") as file:
        text = file.read()
    return {name: set(re.findall(r'^\s*"(\w+)",$', body, re.M))
            for name, body in re.findall(r"std::array (\w+)\{(.*?)\};", text, re.S)}


def path_of(library):
    if os.path.sep in library:
        return library
    listed = subprocess.run(["/sbin/ldconfig", "-p"], capture_output=True, text=True, check=True)
    return re.search(rf"^\s*{re.escape(library)} \(.*x86-64.*\) => (\S+)$", listed.stdout, re.M)[1]


def version_of(path):
    library = ctypes.CDLL(path)
    if os.path.basename(path).startswith("libcurl"):
        library.curl_version.restype = ctypes.c_char_p
        return library.curl_version().decode().split()[0].removeprefix("libcurl/")
    library.OpenSSL_version.restype = ctypes.c_char_p
    return library.OpenSSL_version(0).decode().split()[1]


def is_checked(path, version):
    return CHECKED[os.path.basename(path).split(".")[0].split("-")[0]] == version


def verdict(unknown, checked, strict):
    """What unknown names mean: "passed", "failed", or "skipped" after a warning."""
    if not unknown:
        return "passed"
    return "failed" if checked or strict else "skipped"


class Library:
    """The code and the constants of a library for x86-64."""

    def __init__(self, path):
        self.path = path
        with open(path, "rb") as file:
            self.content = file.read()
        self.lines = subprocess.run(
            ["objdump", "--disassemble", "--no-show-raw-insn", path],
            capture_output=True, text=True, check=True).stdout.splitlines()
        self.segments = self._segments()

    def _segments(self):
        start, = struct.unpack_from("<Q", self.content, 32)
        size, count = struct.unpack_from("<HH", self.content, 54)
        segments = []
        for index in range(count):
            kind, _, offset, address, _, length = struct.unpack_from(
                "<IIQQQQ", self.content, start + index * size)
            if kind == 1:
                segments.append((address, offset, length))
        return segments

    def text_at(self, address):
        for start, offset, length in self.segments:
            if start <= address < start + length:
                position = offset + address - start
                return self.content[position:self.content.index(b"\0", position)].decode("latin-1")
        return None

    def calls(self):
        """Indices of the lines that call a function which reads the environment."""
        wanted = {"getenv", "secure_getenv", "curl_getenv", "__secure_getenv"}
        # A function without a name that only passes its argument on is such a function too.
        passing = set()
        for index, line in enumerate(self.lines):
            found = CALL.match(line)
            if found and found[2] == "jmp" and self._name(found) in wanted:
                passing.add(found[1])
        for index, line in enumerate(self.lines):
            found = CALL.match(line)
            if found and (self._name(found) in wanted or found[3] in passing):
                if found[1] not in passing:
                    yield index

    @staticmethod
    def _name(call):
        return call[4].split("@")[0] if "+0x" not in call[4] else None

    def argument(self, index):
        """The constant in the first argument of the call, or None."""
        register = "rdi"
        for position in range(index - 1, max(index - REACH, 0), -1):
            line = self.lines[position]
            loaded = LOAD.search(line)
            if loaded and loaded[1] == register:
                return self.text_at(int(loaded[2], 16))
            moved = MOVE.search(line)
            if moved and moved[2] == register:
                register = moved[1]
                continue
            called = CALL.match(line)
            if called and called[2] == "call" and register == "rax":
                return self.result(self._name(called))
        return None

    def result(self, function):
        """The constant that the function returns, or None."""
        inside = False
        for line in self.lines:
            named = FUNCTION.match(line)
            if named:
                inside = named[1].split("@")[0] == function and not named[1].endswith("@plt")
            elif inside:
                loaded = LOAD.search(line)
                if loaded and loaded[1] == "rax":
                    return self.text_at(int(loaded[2], 16))
        return None

    def names(self):
        """The names read, and the number of calls whose argument is not a constant."""
        found = [self.argument(index) for index in self.calls()]
        return {name for name in found if name}, found.count(None)


@unittest.skipUnless(platform.machine() == "x86_64", "It reads the code of this processor only.")
class EnvironmentNamesTest(unittest.TestCase):
    def test_every_name_in_the_libraries_is_in_a_list(self):
        known = known_names()
        self.assertEqual(set(known), {"removed", "kept"})
        self.assertFalse(known["removed"] & known["kept"])
        every = set()
        warnings = []
        for library in LIBRARIES:
            with self.subTest(library):
                path = path_of(library)
                version = version_of(path)
                names, computed = Library(path).names()
                print(f"{library} {version}: {' '.join(sorted(names))}; {computed} computed",
                      file=sys.stderr)
                every |= names
                unknown = names - known["removed"] - known["kept"]
                found = verdict(unknown, is_checked(path, version), bool(os.environ.get("CI")))
                message = (f"{library} {version} reads {' '.join(sorted(unknown))}: decide about "
                           f"these in {LISTS}")
                self.assertNotEqual(found, "failed", message)
                if found == "skipped":
                    warnings.append(message)
        # Otherwise this test has lost the ability to find names.
        self.assertLessEqual({"SSLKEYLOGFILE", "OPENSSL_CONF", "OPENSSL_MODULES", "SSL_CERT_FILE",
                              "NO_PROXY"}, every)
        if warnings:
            print("\n".join("warning: " + text for text in warnings), file=sys.stderr)
            self.skipTest("a version that was not checked: " + "; ".join(warnings))


class VerdictTest(unittest.TestCase):
    def test_unknown_names_fail_in_a_checked_version_and_where_it_is_strict(self):
        cases = {(frozenset(), True, True): "passed", (frozenset(), False, False): "passed",
                 (frozenset({"NEW"}), True, False): "failed",
                 (frozenset({"NEW"}), False, True): "failed",
                 (frozenset({"NEW"}), False, False): "skipped"}
        for arguments, expected in cases.items():
            self.assertEqual(verdict(*arguments), expected, arguments)

    def test_a_version_is_checked_if_it_is_the_examined_one(self):
        self.assertTrue(is_checked("/usr/lib/libcurl.so.4", CHECKED["libcurl"]))
        self.assertFalse(is_checked("/usr/lib/libcurl.so.4", "8.0.0"))
        self.assertFalse(is_checked("/usr/lib/libcrypto.so.3", "3.0.0"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
