add_library(orvel_warnings INTERFACE)
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
            $<$<BOOL:${ORVEL_WARNINGS_ARE_ERRORS}>:-Werror>)
target_compile_definitions(
  orvel_warnings INTERFACE QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII)
target_include_directories(orvel_warnings INTERFACE ${PROJECT_SOURCE_DIR})
