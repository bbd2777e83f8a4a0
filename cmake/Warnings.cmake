add_library(orvel_warnings INTERFACE)
# GCC 12 reports false positives for std::string in optimized builds, which vary with inlining. The
# sanitizers find the real errors of these kinds.
set(optimizedGCC $<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release,RelWithDebInfo>>)
target_compile_options(
  orvel_warnings
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wshadow
            -Wconversion
            -Wold-style-cast
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            $<${optimizedGCC}:-Wno-array-bounds>
            $<${optimizedGCC}:-Wno-restrict>
            $<${optimizedGCC}:-Wno-stringop-overflow>
            $<${optimizedGCC}:-Wno-stringop-overread>
            $<$<BOOL:${ORVEL_WARNINGS_ARE_ERRORS}>:-Werror>)
target_compile_definitions(
  orvel_warnings INTERFACE QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII)
target_include_directories(orvel_warnings INTERFACE ${PROJECT_SOURCE_DIR})
