# SPDX-License-Identifier: Apache-2.0
#
# Writes the CTest tests of a GoogleTest program to OUTPUT, one for each of its suites: a program
# that starts under the sanitizers takes longer than most cases. Run by orvel_add_tests after the
# program PROGRAM is linked; NAME is the tests' prefix. Cases that are disabled are for running by
# hand, and suites of nothing else are no tests. A suite that skips a case shows as skipped, unless
# one of its cases fails: CTest lets a skip outweigh a failure, so only the output's end counts,
# which lists what was skipped and, after that, what has failed. Suites that need root have the
# prefix "root." before NAME.
cmake_minimum_required(VERSION 3.25)

set(listing ${OUTPUT}.json)
execute_process(COMMAND ${PROGRAM} --gtest_list_tests --gtest_filter=-*DISABLED_*
                        --gtest_output=json:${listing}
                OUTPUT_QUIET TIMEOUT 60 COMMAND_ERROR_IS_FATAL ANY)
file(READ ${listing} json)
file(REMOVE ${listing})

set(script "")
string(JSON count LENGTH "${json}" testsuites)
math(EXPR last "${count} - 1")
foreach(index RANGE ${last})
  string(JSON suite GET "${json}" testsuites ${index} name)
  set(test ${NAME}.${suite})
  if(suite MATCHES "AsRootTest$")
    set(test root.${test})
  endif()
  string(APPEND script "add_test([==[${test}]==] [==[${PROGRAM}]==]"
                       " [==[--gtest_filter=${suite}.*-*DISABLED_*]==])\n"
                       "set_tests_properties([==[${test}]==] PROPERTIES TIMEOUT 300"
                       " SKIP_REGULAR_EXPRESSION [==[\\[  SKIPPED \\] [^\n]+\n$]==])\n")
endforeach()
file(WRITE ${OUTPUT} "${script}")
