#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of tools/dev/lint: for every rule, text that breaks it and text that keeps it."""

import itertools
import os
import subprocess
import sys
import unittest

import tool_testing
from tool_testing import ROOT, load_tool

LINT = os.path.join(ROOT, "tools", "dev", "lint")

lint = load_tool("lint")

SOURCE = "// SPDX-License-Identifier: Apache-2.0\n"
HEADER = SOURCE + "#pragma once\n"


class RuleTest(unittest.TestCase):
    def findings(self, path, text):
        return [(finding.line, finding.message) for finding in lint.check_text(path, text)]

    def assert_clean(self, text, path="OrvelAgent/app/AppModel.cpp"):
        self.assertEqual(self.findings(path, SOURCE + text), [])

    def assert_found(self, expected, text, line=2, path="OrvelAgent/app/AppModel.cpp"):
        """One finding, on that line, whose message holds the expected words."""
        findings = self.findings(path, SOURCE + text)
        self.assertEqual(len(findings), 1, findings)
        self.assertEqual(findings[0][0], line)
        self.assertIn(expected, findings[0][1])


class IncludeTest(RuleTest):
    def test_core_ports_and_local_service_know_no_qt(self):
        for path in ("core/Text.cpp", "core/Text.h", "platform/Clock.h", "service/http/Server.cpp"):
            for name in ("QString", "QtCore/QString", "QCoroTask"):
                findings = self.findings(path, HEADER + f"#include <{name}>\n")
                self.assertEqual([line for line, _ in findings], [3], (path, name))
                self.assertIn("no Qt", findings[0][1])

    def test_the_systems_and_the_agent_may_use_qt(self):
        for path in (
                "platform/linux/support/SteadyClock.cpp", "OrvelAgent/base/Worker.cpp",
                "tests/a/B.cpp"):
            self.assert_clean("#include <QObject>\n", path)

    def test_qt_by_any_of_its_names(self):
        for header in ("QString", "QtGlobal", "QtCore", "QtCore/QString", "qstring.h", "QCoroTask"):
            with self.subTest(header=header):
                findings = self.findings("core/Text.cpp", SOURCE + f"#include <{header}>\n")
                self.assertEqual(len(findings), 1, findings)

    def test_a_quiet_name_is_no_qt(self):
        self.assert_clean("#include <Quiet/Thing.h>\n", "core/Text.cpp")

    def test_a_commented_include_is_none(self):
        self.assert_clean("// #include <QString>\n/*\n#include <QString>\n*/\n", "core/Text.cpp")

    def test_includes_are_written_from_the_root(self):
        self.assert_found("from the root", '#include "Worker.h"\n')
        self.assert_clean('#include "AppModel.moc"\n')

    def test_a_folder_that_is_in_no_layer_is_found(self):
        for path in ("OrvelAgent/other/A.cpp", "platform/linux/other/A.cpp", "core/other/A.cpp",
                     "other/A.cpp", "tools/A.cpp", "A.cpp"):
            with self.subTest(path=path):
                self.assert_found("is missing from LAYERS", "", line=1, path=path)


class LayersTest(RuleTest):
    """Plants an include for every ordered pair of folders."""

    def folders(self):
        return [*lint.LAYERS, *lint.ABOVE_ALL]

    def allowed(self, here, there):
        if here in lint.ABOVE_ALL:
            return there in lint.LAYERS
        return there in lint.LAYERS[here]

    def planted(self, here, there):
        return self.findings(f"{here}/Planted.cpp", SOURCE + f'#include "{there}/Other.h"\n')

    def test_every_forbidden_pair_is_refused(self):
        count = 0
        for here, there in itertools.permutations(self.folders(), 2):
            if self.allowed(here, there):
                continue
            message = f'{here} must not include {there}: "{there}/Other.h"'
            self.assertEqual(self.planted(here, there), [(2, message)])
            count += 1
        print(f"{count} forbidden includes planted, each refused", file=sys.stderr)
        self.assertGreater(count, len(lint.LAYERS) ** 2 / 2)

    def test_every_allowed_pair_passes(self):
        count = 0
        for here, there in itertools.permutations(self.folders(), 2):
            if self.allowed(here, there):
                self.assertEqual(self.planted(here, there), [], (here, there))
                count += 1
        print(f"{count} allowed includes planted, each passed", file=sys.stderr)
        self.assertGreater(count, len(lint.LAYERS))

    def test_every_folder_may_include_itself(self):
        for folder in self.folders():
            self.assertEqual(self.planted(folder, folder), [], folder)

    def test_subfolders_of_tests_fuzz_and_bench_need_no_row(self):
        self.assert_clean('#include "tests/support/fakes/FakeClock.h"\n', "tests/core/TextTest.cpp")
        self.assert_found("core must not include tests", '#include "tests/support/RunTask.h"\n',
                          path="core/Text.cpp")

    def test_no_folder_reaches_itself_through_others(self):
        def reached(folder):
            found, waiting = set(), [folder]
            while waiting:
                new = lint.LAYERS[waiting.pop()] - found
                found |= new
                waiting += new
            return found
        for folder in lint.LAYERS:
            self.assertNotIn(folder, reached(folder))

    def test_what_the_table_must_not_allow(self):
        """Repeats the main rules of the layers, so that a mistake in the table itself is found."""
        def under(*names):
            return [folder for folder in lint.LAYERS
                    if any(folder == name or folder.startswith(name + "/") for name in names)]
        core, service = under("core"), under("service")
        systems, agent = under("platform/linux", "platform/macos"), under("OrvelAgent")
        windows, programs = under("OrvelAgent/ui"), under("service", "tools")
        services = [folder for folder in agent
                    if folder not in windows and folder != "OrvelAgent"]
        outside_systems = [folder for folder in lint.LAYERS if folder not in systems]
        forbidden = [
            (core, ["platform", *systems, *agent, *programs]),
            (["platform"], [*systems, *agent, *programs]),
            (systems, [*agent, *programs]),
            (under("platform/linux"), under("platform/macos")),
            (under("platform/macos"), under("platform/linux")),
            (outside_systems, systems),
            (services, ["OrvelAgent", *windows]),
            (windows, ["OrvelAgent/network"]),
            (["OrvelAgent/account"], ["OrvelAgent/scan"]),
            (["OrvelAgent/scan"], ["OrvelAgent/account"]),
            (agent, programs),
            (service, [*systems, *agent]),
            # Only the service itself asks the system for the account of a connection.
            ([folder for folder in service if folder != "service"], ["platform"]),
        ]
        for including, included in forbidden:
            for here, there in itertools.product(including, included):
                self.assertNotIn(there, lint.LAYERS[here], here)

    def test_every_row_is_a_folder_of_the_tree_with_sources(self):
        for folder, allowed in lint.LAYERS.items():
            with self.subTest(folder=folder):
                names = os.listdir(os.path.join(ROOT, folder))
                self.assertTrue(any(name.endswith(lint.CPP_SUFFIXES) for name in names))
                self.assertLessEqual(allowed, set(lint.LAYERS))


class CoroutineLambdaTest(RuleTest):
    def test_a_capturing_coroutine_is_found(self):
        for capture in ("this", "&", "=", "value", "&value", "own = std::move(value)"):
            with self.subTest(capture=capture):
                self.assert_found(
                    "must not capture",
                    f"auto f = [{capture}]() -> QCoro::Task<> {{\n    co_await g();\n}};\n")

    def test_any_coroutine_word_makes_one(self):
        for body in ("co_return 1;", "co_yield 1;", "if (a) { co_return; }"):
            with self.subTest(body=body):
                self.assert_found("must not capture", f"auto f = [a] {{ {body} }};\n")

    def test_one_without_captures_is_fine(self):
        self.assert_clean("auto f = [](int a) -> QCoro::Task<int> { co_return a; };\n")

    def test_a_capturing_lambda_that_is_no_coroutine_is_fine(self):
        self.assert_clean("void f() {\n    g([a] { return a; });\n}\n")

    def test_the_coroutine_inside_does_not_make_the_lambda_outside_one(self):
        self.assert_clean("auto f = [a] { return [](int b) -> QCoro::Task<> { co_return; }; };\n")

    def test_subscripts_attributes_and_bindings_are_no_lambdas(self):
        self.assert_clean(
            "QCoro::Task<> f() {\n"
            "    [[maybe_unused]] const auto& [a, b] = values[i];\n"
            "    int c[2]{};\n"
            "    for (auto&& [k, v] : map) {\n        co_await g(k, v[0]);\n    }\n}\n")


class AwaitingStatementTest(RuleTest):
    def inside(self, statement):
        return f"QCoro::Task<> f() {{\n    {statement}\n}}\n"

    def test_a_braced_list_is_found(self):
        for statement in (
                "co_await g(Request{1});",
                "co_await g({1, 2});",
                "const auto x = co_await g(std::vector<int>{1});",
                "const Reply reply{co_await g()};",
                "co_return co_await g({});",
                "if (co_await g({1})) {\n        h();\n    }"):
            with self.subTest(statement=statement):
                self.assert_found("a braced list", self.inside(statement), line=3)

    def test_a_capturing_lambda_is_found(self):
        self.assert_found(
            "a capturing lambda", self.inside("co_await g([a] { return a; });"), line=3)

    def test_a_conditional_expression_is_found(self):
        self.assert_found(
            "a conditional expression", self.inside("auto x = a ? co_await g() : 1;"), line=3)
        self.assert_found(
            "a conditional expression", self.inside("co_await g(a ? 1 : 2);"), line=3)

    def test_the_statements_around_are_free(self):
        for statement in (
                "const Request request{1};\n    co_await g(request);",
                "h(a ? 1 : 2);\n    co_await g();\n    h({1, 2});",
                "for (const int i : {1, 2}) {\n        co_await g(i);\n    }",
                "if (a) {\n        co_await g();\n    } else {\n        h({1});\n    }",
                "h([a] { return a; });\n    co_await g();",
                "try {\n        co_await g();\n    } catch (...) {\n        h({});\n    }",
                "switch (a) {\n    case 1: {\n        co_await g();\n    }\n    }",
                "co_await g([] { return 1; });",
                "co_return Result{1};"):
            with self.subTest(statement=statement):
                self.assert_clean(self.inside(statement))

    def test_a_lambda_has_statements_of_its_own(self):
        self.assert_clean(self.inside("h({1}, [](int a) -> QCoro::Task<> { co_await g(a); });"))
        self.assert_clean(self.inside("co_await g([] { return Point{1, 2}; });"))

    def test_blocks_of_every_kind_are_told_from_lists(self):
        self.assert_clean(
            "namespace {\n"
            "class A final : public B<int> {\n"
            "    A() : a_{1}, b_(2) {}\n"
            "    enum class E { One, Two };\n"
            "    QCoro::Task<> f() const {\n        co_await g();\n    }\n"
            "    auto h() -> std::vector<int> {\n        return {1};\n    }\n"
            "    int a_ = 0;\n"
            "};\n"
            'extern "C" {\nint c();\n}\n'
            "} // namespace\n")

    def test_a_statement_as_a_macro_argument_is_no_list(self):
        self.assert_clean(self.inside("EXPECT_THROW({ co_await g(); }, Error);"))


class CoroutineResultTest(RuleTest):
    def test_members_are_found(self):
        for result in ("token_", "self->token", "state.token", "this->token_"):
            with self.subTest(result=result):
                self.assert_found("moves from a member", f"co_return {result};\n")

    def test_locals_and_values_are_fine(self):
        for result in ("", "token", "std::nullopt", "true", "token_.has_value()", "f(token_)",
                       "*token_", "co_await other_", "std::move(token_)"):
            with self.subTest(result=result):
                self.assert_clean(f"co_return {result};\n")


class CoroutineParameterTest(RuleTest):
    def test_references_and_views_are_found(self):
        for parameter in (
                "const std::string& a", "Value&& a", "std::string_view a",
                "std::span<const int> a", "int b, const X& a",
                "std::optional<std::string_view> a"):
            with self.subTest(parameter=parameter):
                self.assert_found("a coroutine", f"QCoro::Task<int> f({parameter});\n")

    def test_every_way_to_declare_one(self):
        for declaration in (
                "QCoro::Task<> Service::run(const X& a) {\n    co_return;\n}\n",
                "QCoro::Task<std::map<int, std::vector<int>>> f(X& a);\n",
                "TaskOf<T> retry(X& a);\n",
                "auto f = [](X& a) -> QCoro::Task<> { co_return; };\n",
                "auto f = [](X& a) { co_return; };\n"):
            with self.subTest(declaration=declaration):
                self.assert_found("by value", declaration)

    def test_values_and_pointers_are_fine(self):
        for parameters in (
                "", "std::string a, std::shared_ptr<X> b", "Clock* clock",
                "std::function<void(const std::string&)> a",
                "std::function<void(std::vector<int>)> a = [](const auto& b) { use(b); }",
                "int a = b & c"):
            with self.subTest(parameters=parameters):
                self.assert_clean(f"QCoro::Task<int> f({parameters});\n")

    def test_what_takes_a_task_is_no_coroutine(self):
        self.assert_clean("template <typename T>\nT run(QCoro::Task<T> task, const X& a);\n")

    def test_a_lambda_that_is_no_coroutine_may_take_references(self):
        self.assert_clean("auto f = [](const X& a) { return a; };\n")


class SystemConditionalTest(RuleTest):
    def test_outside_platform_it_is_found(self):
        for line in ("#ifdef __linux__", "#if defined(__APPLE__)", "#ifndef _WIN32",
                     "#  if A && defined(Q_OS_MACOS)"):
            with self.subTest(line=line):
                self.assert_found("outside platform/", f"{line}\n#endif\n")

    def test_platform_and_other_conditionals_are_free(self):
        self.assert_clean("#ifdef __linux__\n#endif\n", "platform/linux/support/SteadyClock.cpp")
        self.assert_clean("#ifdef __SANITIZE_ADDRESS__\n#endif\n// #ifdef __linux__\n")


class SleepTest(RuleTest):
    def test_a_sleeping_test_is_found(self):
        for call in ("std::this_thread::sleep_for(1s)", "usleep(1)", "QThread::msleep(5)",
                     "QTest::qSleep(5)", "QTest::qWait(5)", "::sleep(1)"):
            with self.subTest(call=call):
                self.assert_found("never sleeps", f"void f() {{ {call}; }}\n",
                                  path="tests/core/TextTest.cpp")
        text = "# " + lint.LICENCE + "\nimport time\ntime" + ".sleep(1)\n"
        self.assertEqual(self.findings("tests/e2e/run.py", text), [(3, "a test never sleeps")])

    def test_words_and_other_code_are_free(self):
        self.assert_clean('// usleep\nconst char* a = "usleep";\nauto t = sleepFor(clock);\n',
                          "tests/core/TextTest.cpp")
        self.assert_clean("void f() { usleep(1); }\n", "platform/linux/support/SteadyClock.cpp")


class TextTest(RuleTest):
    def test_the_licence_line_comes_first(self):
        self.assertEqual(self.findings("core/Text.cpp", "\n" + SOURCE)[0][0], 1)
        self.assertEqual(len(self.findings("tools/x", "#!/bin/sh\necho\n")), 1)
        self.assertEqual(self.findings("tools/x", "#!/bin/sh\n# " + lint.LICENCE + "\n"), [])
        self.assertEqual(self.findings("docs/x.md", "# A page\n"), [])

    def test_headers_are_guarded(self):
        self.assertEqual(self.findings("core/Text.h", SOURCE), [(1, "#pragma once is missing")])
        self.assertEqual(self.findings("core/Text.h", HEADER), [])

    def test_white_space(self):
        self.assert_found("trailing space", "int a; \n")
        self.assert_found("tab", "\tint a;\n")
        self.assert_found("carriage return", "int a;\r\n")
        self.assert_found("no newline", "int a;")
        self.assertEqual(self.findings("docs/x.md", "a line break  \nhere\n"), [])


class TreeTest(tool_testing.TreeTest):
    def run_on(self, files):
        for path, text in files.items():
            self.write(path, text)
        return subprocess.run(
            [sys.executable, LINT, "--root", self.root], capture_output=True, text=True)

    def test_a_clean_tree_passes_in_silence(self):
        result = self.run_on({"core/A.cpp": SOURCE, "build/B.cpp": "no licence"})
        self.assertEqual((result.returncode, result.stdout), (0, ""))

    def test_a_finding_is_printed_and_fails(self):
        result = self.run_on({"core/A.cpp": SOURCE + "#include <QString>\n"})
        self.assertEqual(result.returncode, 1)
        self.assertTrue(result.stdout.startswith("core/A.cpp:2: no Qt"), result.stdout)

    def test_documents_name_what_is_there(self):
        test = SOURCE + "TEST_F(\n    TextTest, Repairs) {}\n"
        good = "[a](../core/A.cpp#x), [b](https://a.example/b), `TextTest.Repairs`\n"
        self.assertEqual(
            lint.check_documents("/", {"tests/core/TextTest.cpp": test, "x.md": "`TextTest.X`\n"}),
            [("x.md", 1, "there is no test TextTest.X")])
        files = {"core/A.cpp": SOURCE, "tests/core/TextTest.cpp": test.replace("\n    ", "")}
        self.assertEqual(self.run_on({**files, "docs/x.md": good}).stdout, "")
        result = self.run_on({**files, "docs/x.md": "a\n[a](B.cpp)\n"})
        self.assertEqual(result.stdout, "docs/x.md:2: there is no file B.cpp\n")

    @unittest.skipUnless(lint.formatter(), "needs clang-format")
    def test_an_unformatted_file_is_found(self):
        result = self.run_on({"core/A.cpp": SOURCE + "int  a ;\n"})
        self.assertEqual(result.stdout, "core/A.cpp:2: not formatted: run clang-format -i\n")


if __name__ == "__main__":
    unittest.main(verbosity=2)
