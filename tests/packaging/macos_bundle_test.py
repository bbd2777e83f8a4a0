#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks the macOS application's property lists, and that the scripts build, sign and notarize its
disk image in the right order. Fake tools record their calls.

usage: macos_bundle_test.py INFO_PLIST SOURCE_DIR VERSION
"""

import os
import plistlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

INFO_PLIST, SOURCE = (os.path.abspath(path) for path in sys.argv[1:3])
VERSION = sys.argv[3]
PACKAGING = os.path.join(SOURCE, "packaging", "macos")
APP = "Orvel Agent.app"

# A fake tool logs its name and arguments, then does the part that the scripts rely on.
TOOL = """#!/usr/bin/env bash
printf '%s' "$(basename "$0")" >>"$TOOL_LOG"
printf ' <%s>' "$@" >>"$TOOL_LOG"
echo >>"$TOOL_LOG"
"""

CMAKE = r"""
case $1 in
    --preset)
        mkdir -p "$QT/lib/cmake/Qt6" "$QT/plugins/platforms" "$QT/plugins/styles"
        printf '\xcf\xfa\xed\xfe' >"$QT/plugins/platforms/libqcocoa.dylib"
        touch "$QT/plugins/styles/libqmacstyle.dylib" "$QT/plugins/styles/libqother.dylib"
        printf 'Qt6_DIR:PATH=%s/lib/cmake/Qt6\n' "$QT" >"$4/CMakeCache.txt"
        ;;
    --install)
        app="$4/Orvel Agent.app/Contents"
        mkdir -p "$app/Resources"
        versions="$app/Frameworks/Sparkle.framework/Versions"
        mkdir -p "$app/MacOS" "$versions/B/XPCServices/Downloader.xpc" \
            "$versions/B/XPCServices/Installer.xpc" "$versions/B/Updater.app"
        ln -s B "$versions/Current"
        touch "$versions/B/Autoupdate"
        cp "$INFO_PLIST" "$app/Info.plist"
        mkdir -p "$app/MacOS"
        printf '#!/bin/bash\nPATH=/usr/bin:/bin\nenv >"%s/environment"\necho "$*"' "$4" \
            >"$app/MacOS/Orvel Agent"
        chmod +x "$app/MacOS/Orvel Agent"
        ;;
esac
"""

MACDEPLOYQT = r"""
mkdir -p "$1/Contents/Frameworks/QtCore.framework"
touch "$1/Contents/Frameworks/libfmt.dylib"
echo "$DEPLOYMENT" >&2
"""

# Each binary is linked with itself, a library of the bundle, one of the system, and one more.
OTOOL = r"""
case $1 in
    -D) printf '%s:\n/opt/homebrew/lib/identity.dylib\n' "$2" ;;
    -L)
        echo "$2:"
        for library in /opt/homebrew/lib/identity.dylib @executable_path/../Frameworks/libfmt.dylib \
            @rpath/libfmt.dylib /usr/lib/libSystem.B.dylib "$LIBRARY"; do
            printf '\t%s (compatibility version 1.0.0, current version 1.0.0)\n' "$library"
        done
        printf '\t/opt/none.dylib (compatibility version 1.0.0, current version 1.0.0, weak)\n'
        ;;
    -l)
        printf 'Load command 1\n      cmd LC_BUILD_VERSION\n  cmdsize 32\n platform 1\n'
        printf '    minos %s\n      sdk 15.5\n   ntools 1\n     tool 3\n  version 1.0\n' "$MINOS"
        for rpath in @loader_path/../../../../lib @loader_path/../../Frameworks /opt/homebrew/lib \
            @executable_path/../Frameworks; do
            printf 'Load command 2\n          cmd LC_RPATH\n      cmdsize 32\n'
            printf '         path %s (offset 12)\n' "$rpath"
        done
        ;;
esac
"""

QTPATHS = r"""
echo "$QT/plugins"
"""

PLUTIL = r"""
if [[ $4 == - ]]; then cat >/dev/null; fi
case $2 in
    CFBundleExecutable) echo "Orvel Agent" ;;
    LSMinimumSystemVersion) echo "13.3" ;;
    CFBundleShortVersionString)
        if [[ $4 == */Sparkle.framework/* ]]; then echo "$SPARKLE"; else echo "$VERSION"; fi
        ;;
    status) echo "$VERDICT" ;;
    id) echo submission ;;
esac
"""

XCRUN = r"""
if [[ $2 == log ]]; then echo "the reason" >&2; fi
"""

HDIUTIL = r"""
if (($(grep -c ^hdiutil "$TOOL_LOG") <= BUSY)); then
    echo "hdiutil: create failed - Resource busy" >&2
    exit 1
fi
touch "${@: -1}"
"""


class PropertyListsTest(unittest.TestCase):
    def setUp(self):
        with open(INFO_PLIST, "rb") as file:
            self.info = plistlib.load(file)
        with open(os.path.join(PACKAGING, "OrvelAgent.entitlements"), "rb") as file:
            self.entitlements_text = file.read()

    def test_the_application_has_no_dock_icon(self):
        self.assertIs(self.info["LSUIElement"], True)

    def test_the_use_of_contacts_is_explained(self):
        self.assertTrue(self.info["NSContactsUsageDescription"].endswith("."))

    def test_the_url_scheme_is_that_of_the_sign_in(self):
        schemes = [scheme for kind in self.info["CFBundleURLTypes"]
                   for scheme in kind["CFBundleURLSchemes"]]
        source = os.path.join(SOURCE, "OrvelAgent", "account", "DeviceAuth.cpp")
        with open(source, encoding="utf-8") as file:
            self.assertEqual(re.findall(r'session->start\([^"]*"(\w+)"', file.read()), schemes)

    def test_updates_have_a_feed_and_a_key(self):
        for key in ("SUFeedURL", "SUPublicEDKey"):
            self.assertIsInstance(self.info[key], str)
        self.assertIs(self.info["SUEnableAutomaticChecks"], True)

    def test_sparkle_accepts_only_a_signed_feed(self):
        self.assertIs(self.info["SURequireSignedFeed"], True)
        # Otherwise Sparkle does not start.
        self.assertIs(self.info["SUVerifyUpdateBeforeExtraction"], True)
        # Otherwise Sparkle accepts an unsigned feed after a while.
        self.assertEqual(self.info["SUSignedFeedFailureExpirationInterval"], 0)

    def test_the_minimum_system_is_the_deployment_target(self):
        for path, pattern in {"tools/dev/check-macos": r"-target arm64-apple-macos(\S+)",
                              "packaging/macos/install-dependencies":
                                  r"CMAKE_OSX_DEPLOYMENT_TARGET=(\S+)"}.items():
            with open(os.path.join(SOURCE, path), encoding="utf-8") as file:
                self.assertEqual(re.findall(pattern, file.read()),
                                 [self.info["LSMinimumSystemVersion"]], path)

    def test_the_version_is_the_projects(self):
        self.assertEqual(self.info["CFBundleShortVersionString"], VERSION)
        self.assertEqual(self.info["CFBundleVersion"], VERSION)

    def test_it_has_all_values_of_the_linux_property_list(self):
        with open(os.path.join(SOURCE, "resources", "Info.plist.in"), encoding="utf-8") as file:
            keys = re.findall(r"<key>(.*)</key>", file.read())
        self.assertEqual([key for key in keys if key not in self.info], [])

    def test_it_can_read_contacts_and_is_not_sandboxed(self):
        entitlements = plistlib.loads(self.entitlements_text)
        self.assertIs(entitlements["com.apple.security.personal-information.addressbook"], True)
        self.assertNotIn("com.apple.security.app-sandbox", entitlements)

    def test_entitlements_have_no_comment(self):
        # The kernel's parser rejects comments.
        self.assertNotIn(b"<!--", self.entitlements_text)


class ScriptTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = os.path.realpath(folder.name)
        self.tools = os.path.join(self.folder, "tools")
        self.qt = os.path.join(self.folder, "qt")
        self.log = os.path.join(self.folder, "log")
        os.makedirs(self.tools)
        os.makedirs(os.path.join(self.qt, "bin"))
        for name, rest in {"cmake": CMAKE, "codesign": "", "ditto": "", "hdiutil": HDIUTIL,
                           "iconutil": "", "install_name_tool": "", "otool": OTOOL,
                           "plutil": PLUTIL, "rsvg-convert": "", "sleep": "", "xattr": "",
                           "xcrun": XCRUN}.items():
            self.write_tool(os.path.join(self.tools, name), rest)
        self.write_tool(os.path.join(self.qt, "bin", "macdeployqt"), MACDEPLOYQT)
        self.write_tool(os.path.join(self.qt, "bin", "qtpaths"), QTPATHS)
        self.environment = {
            "PATH": self.tools + ":" + os.environ["PATH"], "TOOL_LOG": self.log, "QT": self.qt,
            "INFO_PLIST": INFO_PLIST, "VERSION": VERSION, "VERDICT": "Accepted",
            "SPARKLE": "2.9.6", "TMPDIR": self.folder, "DEPLOYMENT": "WARNING: nothing", "MINOS": "13.3", "BUSY": "0",
            "LIBRARY": "/System/Library/Frameworks/AppKit.framework/Versions/C/AppKit"}

    @staticmethod
    def write_tool(path, rest):
        with open(path, "w", encoding="utf-8") as file:
            file.write(TOOL + rest)
        os.chmod(path, 0o755)

    def run_script(self, name, *arguments, **environment):
        return subprocess.run(
            [os.path.join(PACKAGING, name), *arguments], cwd=self.folder, text=True,
            env=self.environment | environment, capture_output=True, check=False)

    def calls(self, tool):
        with open(self.log, encoding="utf-8") as file:
            return [line.rstrip("\n").replace(self.folder + "/image/", "") for line in file
                    if line.startswith(tool + " ")]


class MakeDmgTest(ScriptTest):
    signed = {"ORVEL_SIGNING_IDENTITY": "Developer ID Application: Somebody (TEAM)",
              "ORVEL_NOTARY_PROFILE": "profile"}

    def make(self, *arguments, **environment):
        return self.run_script("make-dmg", "--folder", "image", *arguments, **environment)

    def assert_refused(self, result, words):
        self.assertEqual(result.returncode, 2)
        self.assertIn(words, result.stderr)
        self.assertFalse(os.path.exists(self.log), "a tool was called")

    def test_help_names_every_environment_variable(self):
        text = self.run_script("make-dmg", "--help").stdout
        with open(os.path.join(PACKAGING, "make-dmg"), encoding="utf-8") as file:
            for name in sorted(set(re.findall(r"\bORVEL_[A-Z_]+", file.read()))
                               - {"ORVEL_BUILD_TESTS"}):
                self.assertIn(name, text)

    def test_a_missing_signing_identity_is_refused(self):
        self.assert_refused(self.make(), "ORVEL_SIGNING_IDENTITY is not set")

    def test_missing_notary_credentials_are_refused(self):
        self.assert_refused(
            self.make(ORVEL_SIGNING_IDENTITY="me", ORVEL_NOTARY_KEY="key.p8"),
            "Neither ORVEL_NOTARY_PROFILE nor ORVEL_NOTARY_KEY_ID is set")

    def test_an_unreadable_notary_key_is_refused(self):
        self.assert_refused(
            self.make(ORVEL_SIGNING_IDENTITY="me", ORVEL_NOTARY_KEY="/nonexistent/key.p8",
                      ORVEL_NOTARY_KEY_ID="id", ORVEL_NOTARY_ISSUER="issuer"),
            "/nonexistent/key.p8 cannot be read")

    @unittest.skipIf(shutil.which("hdiutil"), "a Mac, which has every tool")
    def test_a_missing_tool_is_refused(self):
        os.remove(os.path.join(self.tools, "hdiutil"))
        self.assert_refused(self.make(**self.signed), "hdiutil is missing")

    def test_inner_code_is_signed_first(self):
        self.assertEqual(self.make(**self.signed).returncode, 0)
        signed = [call.split(" <")[-1].rstrip(">") for call in self.calls("codesign")
                  if "<--sign>" in call]
        sparkle = f"stage/{APP}/Contents/Frameworks/Sparkle.framework"
        for inner, outer in [
                (f"{sparkle}/Versions/B/XPCServices/Downloader.xpc", sparkle),
                (f"{sparkle}/Versions/B/XPCServices/Installer.xpc", sparkle),
                (f"{sparkle}/Versions/B/Autoupdate", sparkle),
                (f"{sparkle}/Versions/B/Updater.app", sparkle),
                (sparkle, f"stage/{APP}"),
                (f"stage/{APP}/Contents/Frameworks/QtCore.framework", f"stage/{APP}"),
                (f"stage/{APP}/Contents/Frameworks/libfmt.dylib", f"stage/{APP}"),
                (f"stage/{APP}/Contents/PlugIns/platforms/libqcocoa.dylib", f"stage/{APP}"),
                (f"stage/{APP}", f"OrvelAgent-{VERSION}.dmg")]:
            self.assertLess(signed.index(inner), signed.index(outer), inner)

    def test_all_code_gets_the_hardened_runtime_and_only_the_application_entitlements(self):
        self.assertEqual(self.make(**self.signed).returncode, 0)
        calls = [call for call in self.calls("codesign") if "<--sign>" in call]
        for call in calls:
            self.assertIn("<--timestamp>", call)
            if not call.endswith(".dmg>"):
                self.assertIn("<--options> <runtime>", call)
        self.assertEqual([call.split(" <")[-1] for call in calls if "<--entitlements>" in call],
                         [f"stage/{APP}>"])

    def test_both_the_application_and_the_image_are_notarized_and_stapled(self):
        self.assertEqual(self.make(**self.signed).returncode, 0)
        self.assertEqual(
            [" ".join(re.findall(r"<([^>]*)>", call)[:3]) for call in self.calls("xcrun")],
            ["notarytool submit application.zip", f"stapler staple stage/{APP}",
             f"notarytool submit OrvelAgent-{VERSION}.dmg",
             f"stapler staple OrvelAgent-{VERSION}.dmg"])

    def test_a_refused_notarization_fails_with_its_log(self):
        result = self.make(**self.signed, VERDICT="Invalid")
        self.assertEqual(result.returncode, 1)
        self.assertIn("the reason", result.stderr)
        self.assertIn("was not notarized", result.stderr)
        self.assertEqual(self.calls("hdiutil"), [])

    def test_the_last_line_is_the_path_of_the_image(self):
        image = self.make(**self.signed).stdout.splitlines()[-1]
        self.assertEqual(image, os.path.join(self.folder, f"image/OrvelAgent-{VERSION}.dmg"))
        self.assertTrue(os.path.exists(image))

    def test_a_busy_volume_is_retried_after_a_pause(self):
        result = self.make(**self.signed, BUSY="2")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(len(self.calls("hdiutil")), 3)
        self.assertEqual(len(self.calls("sleep")), 2)
        self.assertTrue(os.path.exists(result.stdout.splitlines()[-1]))

    def test_a_volume_that_stays_busy_fails(self):
        result = self.make(**self.signed, BUSY="99")
        self.assertEqual(result.returncode, 1)
        self.assertIn("Could not create the disk image", result.stderr)
        self.assertEqual(len(self.calls("hdiutil")), 10)
        self.assertEqual([call for call in self.calls("codesign") if call.endswith(".dmg>")], [])

    def test_a_sparkle_that_does_not_check_the_feed_fails(self):
        for version in ("1.27.3", "2.2.0", "2.8.1"):
            result = self.make("--unsigned", SPARKLE=version)
            self.assertEqual(result.returncode, 1, version)
            self.assertIn(f"Sparkle {version} does not check the feed's signature", result.stderr)
            self.assertEqual(self.calls("hdiutil"), [])

    def test_a_sparkle_that_checks_the_feed_is_used(self):
        for version in ("2.9", "2.9.0", "2.9.6", "2.10.0", "3.0.0"):
            result = self.make("--unsigned", SPARKLE=version)
            self.assertEqual(result.returncode, 0, result.stderr)

    def test_only_needed_plugins_are_copied(self):
        self.assertEqual(self.make("--unsigned").returncode, 0)
        plugins = os.path.join(self.folder, "image", "stage", APP, "Contents", "PlugIns")
        self.assertEqual(
            sorted(os.path.relpath(os.path.join(folder, name), plugins)
                   for folder, _, names in os.walk(plugins) for name in names),
            ["platforms/libqcocoa.dylib", "styles/libqmacstyle.dylib"])
        self.assertIn("<-no-plugins>", self.calls("macdeployqt")[0])

    def test_an_error_while_collecting_libraries_fails(self):
        result = self.make("--unsigned", DEPLOYMENT="ERROR: no file at x")
        self.assertEqual(result.returncode, 1)
        self.assertIn("ERROR: no file at x", result.stdout)
        self.assertEqual(self.calls("hdiutil"), [])

    def test_a_library_outside_the_application_fails(self):
        for library in ("/opt/homebrew/lib/libx.dylib", "/usr/local/lib/libx.dylib",
                        "@rpath/libx.dylib", "@executable_path/../Frameworks/libx.dylib",
                        "@loader_path/libx.dylib"):
            result = self.make("--unsigned", LIBRARY=library)
            self.assertEqual(result.returncode, 1, library)
            self.assertIn(f"Contents/PlugIns/platforms/libqcocoa.dylib needs {library}",
                          result.stderr)
            self.assertEqual(self.calls("hdiutil"), [])

    def test_run_paths_outside_the_application_are_removed(self):
        self.assertEqual(self.make("--unsigned").returncode, 0)
        self.assertEqual(
            [re.findall(r"<([^>]*)>", call)[:2] for call in self.calls("install_name_tool")],
            [["-delete_rpath", "@loader_path/../../../../lib"],
             ["-delete_rpath", "/opt/homebrew/lib"]])

    def test_the_minimum_system_is_raised_to_that_of_the_libraries(self):
        def replaced():
            return [call for call in self.calls("plutil") if "<-replace>" in call]

        for version in ("13.3", "9.10", "13.0"):
            self.assertEqual(self.make("--unsigned", MINOS=version).returncode, 0)
            self.assertEqual(replaced(), [], version)
        self.assertEqual(self.make("--unsigned", MINOS="13.10").returncode, 0)
        self.assertIn("<LSMinimumSystemVersion> <-string> <13.10>", replaced()[0])

    def test_the_application_is_run_with_an_empty_environment(self):
        result = self.make("--unsigned")
        self.assertIn("\n--version\n", result.stdout)
        with open(os.path.join(self.folder, "image", "stage", "environment"),
                  encoding="utf-8") as file:
            self.assertNotIn("TMPDIR", file.read())

    def test_unsigned_needs_no_credentials_and_no_notary(self):
        self.assertEqual(self.make("--unsigned").returncode, 0)
        self.assertEqual(self.calls("xcrun"), [])
        for call in self.calls("codesign"):
            self.assertNotIn("<--timestamp>", call)

    def test_environment_variables_set_build_options(self):
        self.make("--unsigned", ORVEL_API_HOST="api.example.com")
        self.assertIn("<-DORVEL_API_HOST=api.example.com>", self.calls("cmake")[0])


CURL = r"""
mkdir -p "$TMPDIR/archive/top/ttf"
touch "$TMPDIR/archive/top/ttf/DejaVuSans.ttf" "$TMPDIR/archive/top/ttf/DejaVuSans-Bold.ttf"
while [[ $1 != --output ]]; do shift; done
tar -C "$TMPDIR/archive" -czf "$2" top
"""

SHASUM = r"""
cat >>"$TMPDIR/sums"
exit "$SHASUM"
"""


class InstallDependenciesTest(ScriptTest):
    def setUp(self):
        super().setUp()
        # The script installs into its own folder.
        self.copy = os.path.join(self.folder, "copy", "packaging", "macos")
        shutil.copytree(PACKAGING, self.copy)
        self.installed = os.path.join(self.folder, "copy", "build", "macos-dependencies")
        for name, rest in {"brew": "", "cmake": "", "curl": CURL, "ninja": "", "shasum": SHASUM,
                           "pkg-config": "", "rsvg-convert": ""}.items():
            self.write_tool(os.path.join(self.tools, name), rest)

    def install(self, **environment):
        return subprocess.run(
            [os.path.join(self.copy, "install-dependencies")], text=True, capture_output=True,
            check=False, env=self.environment | {"SHASUM": "0"} | environment)

    def test_existing_tools_are_not_installed(self):
        self.assertEqual(self.install().returncode, 0)
        for tool in ("cmake", "ninja", "pkgconf", "librsvg"):
            self.assertNotIn(f"<{tool}>", self.calls("brew")[0])

    def test_downloads_are_verified_and_installed_once(self):
        self.assertEqual(self.install().returncode, 0)
        with open(os.path.join(self.folder, "sums"), encoding="utf-8") as file:
            self.assertEqual(len(re.findall(r"^[0-9a-f]{64}  /", file.read(), re.MULTILINE)),
                             len(self.calls("curl")))
        self.assertEqual(sorted(os.listdir(os.path.join(self.installed, "share", "fonts"))),
                         ["DejaVuSans-Bold.ttf", "DejaVuSans.ttf"])
        downloads = self.calls("curl")
        self.assertEqual(self.install().returncode, 0)
        self.assertEqual(self.calls("curl"), downloads)

    def test_a_download_with_a_wrong_checksum_is_not_installed(self):
        result = self.install(SHASUM="1")
        self.assertEqual(result.returncode, 1)
        self.assertIn("the checksum of", result.stderr)
        self.assertEqual(self.calls("curl")[1:], [])
        self.assertFalse([call for call in self.calls("cmake") if "<-S>" in call])


class MakeIcnsTest(ScriptTest):
    def test_every_size_is_rendered(self):
        icon = os.path.join(self.folder, "AppIcon.icns")
        self.assertEqual(self.run_script("make-icns", "a.svg", icon).returncode, 0)
        drawn = {(int(size), os.path.basename(name)) for size, name in re.findall(
            r"<--width> <(\d+)> .* <--output> <([^>]*)>", "\n".join(self.calls("rsvg-convert")))}
        sizes = (16, 32, 128, 256, 512)
        self.assertEqual(drawn, {(size, f"icon_{size}x{size}.png") for size in sizes}
                         | {(2 * size, f"icon_{size}x{size}@2x.png") for size in sizes})
        self.assertIn(f"<--output> <{icon}>", self.calls("iconutil")[0])


class ShellTest(unittest.TestCase):
    scripts = [os.path.join(PACKAGING, name)
               for name in ("install-dependencies", "make-dmg", "make-icns")]

    def test_the_shell_can_parse_them(self):
        for script in self.scripts:
            subprocess.run(["bash", "-n", script], check=True)

    def test_they_use_no_features_that_bash_3_lacks(self):
        for script in self.scripts:
            with open(script, encoding="utf-8") as file:
                self.assertIsNone(
                    re.search(r"\b(mapfile|readarray|declare -A|coproc)\b|readlink -f|\$\{\w+,,",
                              file.read()), script)

    @unittest.skipUnless(shutil.which("shellcheck"), "no shellcheck here")
    def test_shellcheck_finds_nothing(self):
        subprocess.run(["shellcheck", *self.scripts], check=True)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
