# Sparkle, either its published release or a local copy.
set(ORVEL_SPARKLE_FRAMEWORK
    ""
    CACHE PATH "Sparkle.framework, version 2.9 or later; downloaded when empty")
if(NOT ORVEL_SPARKLE_FRAMEWORK)
  include(FetchContent)
  FetchContent_Declare(
    sparkle
    URL https://github.com/sparkle-project/Sparkle/releases/download/2.9.6/Sparkle-for-Swift-Package-Manager.zip
    URL_HASH SHA256=8d5fb41d960b43f4a68aa14126bf62b098544ec8d191cdcc73eb14e63a8e7606
    DOWNLOAD_EXTRACT_TIMESTAMP ON)
  FetchContent_MakeAvailable(sparkle)
  set(ORVEL_SPARKLE_FRAMEWORK
      ${sparkle_SOURCE_DIR}/Sparkle.xcframework/macos-arm64_x86_64/Sparkle.framework)
endif()

cmake_path(GET ORVEL_SPARKLE_FRAMEWORK PARENT_PATH sparkle_folder)
add_library(Sparkle INTERFACE)
target_compile_options(Sparkle INTERFACE "SHELL:-iframework \"${sparkle_folder}\"")
target_link_options(Sparkle INTERFACE "-F${sparkle_folder}")
target_link_libraries(Sparkle INTERFACE "-framework Sparkle")
# Lets programs find the framework in the build tree.
list(APPEND CMAKE_BUILD_RPATH ${sparkle_folder})
