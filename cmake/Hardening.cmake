# The flags that Debian uses for its packages, and those for shadow stacks and landing pads.
# tools/dev/check-hardening checks the built programs.
option(ORVEL_HARDEN "Build with the compiler's and the linker's defences" OFF)

if(ORVEL_HARDEN)
  include(CheckPIESupported)
  check_pie_supported()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  # -U comes first because some compilers define another value by default.
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong
                      -Wformat -Werror=format-security)
  add_link_options(-Wl,-z,relro -Wl,-z,now)
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    add_compile_options(-fcf-protection=full)
    # The linker marks a program only if all its objects are marked, but Debian's crt1.o is not. With
    # a shadow stack it works nevertheless. It has no landing pad, so IBT stays unmarked.
    add_link_options(-Wl,-z,shstk)
  endif()
  # Keeps absolute paths of the build machine out of the binaries.
  add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
endif()
