# For the installed entry, what desktopEntryValue() and desktopEntryCommand() give for the agent's.

function(desktop_entry_value text result)
  string(REPLACE [[\]] [[\\]] value "${text}")
  set(${result} "${value}" PARENT_SCOPE)
endfunction()

function(desktop_entry_command program result)
  set(command "${program}")
  if(program MATCHES [==[[ "'\><~|&;$*?#()`]]==])
    string(REGEX REPLACE [==[([\"`$])]==] [[\\\1]] command "${command}")
    set(command "\"${command}\"")
  endif()
  if(program MATCHES "%")
    # GLib looks for the program before it reads "%%" as one character.
    string(REPLACE "%" "%%" command "${command}")
    set(shell [[/bin/sh -c "exec \"\$0\" \"\$@\""]])
    set(command "${shell} ${command}")
  endif()
  desktop_entry_value("${command}" value)
  set(${result} "${value}" PARENT_SCOPE)
endfunction()
