option(ORVEL_PRECOMPILE_HEADERS
       "Compile heavy headers once; for a build from nothing, without a compiler cache" OFF)

# The builds without it find the header that a source forgot to include.
function(orvel_precompile_headers target)
  if(ORVEL_PRECOMPILE_HEADERS)
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()
