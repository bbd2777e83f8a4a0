# Run by the build: writes the name of the source revision to OUTPUT, but only when it is another
# one, so that nothing is compiled again without need. A REVISION that is given stands; it is for
# those who build from an archive.
if(NOT REVISION)
  set(REVISION unknown)
  # Nothing of a repository that only surrounds this folder.
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
