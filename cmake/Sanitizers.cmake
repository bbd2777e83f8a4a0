option(ORVEL_SANITIZE "Build with the address and undefined-behaviour sanitizers" OFF)

if(ORVEL_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # Coroutines do not assemble with the function checks of clang 14.
    add_compile_options(-fno-sanitize=function)
  endif()
endif()

if(ORVEL_BUILD_FUZZERS)
  # What is fuzzed must report the ways it takes.
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()
