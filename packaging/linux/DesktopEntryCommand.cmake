# The same escaping as desktopEntryValue() and desktopEntryCommand() in the agent.

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
    # GLib searches for the program before it unescapes "%%", so a shell must start it.
    string(REPLACE "%" "%%" command "${command}")
    set(shell [[/bin/sh -c "exec \"\$0\" \"\$@\""]])
    set(command "${shell} ${command}")
  endif()
  desktop_entry_value("${command}" value)
  set(${result} "${value}" PARENT_SCOPE)
endfunction()
