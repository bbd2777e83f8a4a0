option(ORVEL_PRECOMPILE_HEADERS
       "Compile heavy headers once; for a build from nothing, without a compiler cache" OFF)

# Other builds do without precompiled headers, so that they detect missing includes.
function(orvel_precompile_headers target)
  if(ORVEL_PRECOMPILE_HEADERS)
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()
