option(ORVEL_SANITIZE "Build with the address and undefined-behaviour sanitizers" OFF)
option(ORVEL_SANITIZE_THREADS "Build with the thread sanitizer, instead of the others" OFF)

if(ORVEL_SANITIZE AND ORVEL_SANITIZE_THREADS)
  message(FATAL_ERROR "The thread sanitizer cannot be combined with the others.")
endif()

if(ORVEL_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # clang 14 cannot assemble coroutines with the function checks.
    add_compile_options(-fno-sanitize=function)
  endif()
endif()

if(ORVEL_SANITIZE_THREADS)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()

if(ORVEL_BUILD_FUZZERS)
  # libFuzzer needs coverage data from the code under test.
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()

if(ORVEL_COVERAGE)
  add_compile_options(-fprofile-instr-generate -fcoverage-mapping)
  add_link_options(-fprofile-instr-generate)
endif()
