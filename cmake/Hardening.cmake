# The flags that Debian uses for its packages.
option(ORVEL_HARDEN "Build with the compiler's and the linker's defences" OFF)

if(ORVEL_HARDEN)
  include(CheckPIESupported)
  check_pie_supported()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  # -U comes first because some compilers define another value by default.
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong
                      -Wformat -Werror=format-security)
  add_link_options(-Wl,-z,relro -Wl,-z,now)
  # Keeps absolute paths of the build machine out of the binaries.
  add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
endif()
