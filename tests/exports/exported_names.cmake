# Fails unless the library exports exactly the names of the list.

file(STRINGS ${list} wanted)
if(library MATCHES "\\.dll$")
  execute_process(COMMAND ${objdump} -p ${library} OUTPUT_VARIABLE dump
                  COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX REPLACE ".*\\[Ordinal/Name Pointer\\] Table" "" table "${dump}")
  string(REGEX REPLACE "\n\n.*" "" table "${table}")
  string(REGEX MATCHALL "[A-Za-z_][A-Za-z_0-9@?$]*(\n|$)" found "${table}")
else()
  execute_process(COMMAND ${nm} -D --defined-only ${library} OUTPUT_VARIABLE dump
                  COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "[^ \n]+(\n|$)" found "${dump}")
endif()
list(TRANSFORM found STRIP)

list(SORT wanted)
list(SORT found)
if(NOT wanted OR NOT "${found}" STREQUAL "${wanted}")
  message(FATAL_ERROR "${library} exports\n  ${found}\nand should export\n  ${wanted}")
endif()
message("${found}")
