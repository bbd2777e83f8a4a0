# SPDX-License-Identifier: Apache-2.0
#
# Writes a CTest script to OUTPUT with one test per suite of the GoogleTest program PROGRAM. One
# test per case would be slower: under the sanitizers, starting the program takes longer than most
# cases. orvel_add_tests runs this after linking. NAME is the prefix of the tests. Disabled cases
# are left out. A suite with a skipped case shows as skipped, unless another case fails. CTest would
# let the skip hide the failure, so the expression matches only if the output ends with a skipped
# case: GoogleTest lists failed cases after those.
# Suites that need root have the prefix "root." before NAME.
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
