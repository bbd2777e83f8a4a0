# What Debian builds its own packages with.
option(ORVEL_HARDEN "Build with the compiler's and the linker's defences" OFF)

if(ORVEL_HARDEN)
  include(CheckPIESupported)
  check_pie_supported()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  # The first takes back the compiler's own default, which would be another value.
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong
                      -Wformat -Werror=format-security)
  add_link_options(-Wl,-z,relro -Wl,-z,now)
  # No folder of the machine that builds.
  add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
endif()
