# Run by the build: writes the name of the source revision to OUTPUT. An unchanged name leaves the
# file untouched, so that nothing is recompiled. A given REVISION has precedence; builds from an
# archive need it.
if(NOT REVISION)
  set(REVISION unknown)
  # Do not use the revision of an enclosing repository.
  if(EXISTS ${SOURCE_DIR}/.git)
    # The tree may be another user's: only a name is read from it.
    execute_process(
      COMMAND git -c safe.directory=* rev-parse --short=10 HEAD
      WORKING_DIRECTORY ${SOURCE_DIR}
      OUTPUT_VARIABLE name
      RESULT_VARIABLE result
      OUTPUT_STRIP_TRAILING_WHITESPACE
      ERROR_QUIET)
    if(result EQUAL 0)
      set(REVISION ${name})
    endif()
  endif()
endif()
file(
  CONFIGURE
  OUTPUT ${OUTPUT}
  CONTENT
    [[// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace orvel {

inline constexpr std::string_view sourceRevisionName = "@REVISION@";

} // namespace orvel
]]
  @ONLY)
