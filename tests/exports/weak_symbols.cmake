# Fails when a vector object defines a symbol that the linker may share with other objects, or when
# a vector source of the folder has no object in the list.

set(vector_name "_(s?sse[0-9]+|avx[0-9a-z]*)\\.cpp")
file(GLOB_RECURSE sources ${folder}/*.cpp)
list(FILTER sources INCLUDE REGEX "${vector_name}$")
foreach(source ${sources})
  cmake_path(GET source FILENAME name)
  set(of_source ${objects})
  list(FILTER of_source INCLUDE REGEX "/${name}\\.(o|obj)$")
  list(LENGTH of_source count)
  if(NOT count EQUAL 1)
    message(SEND_ERROR "${source} has ${count} objects among ${objects}")
  endif()
endforeach()

list(FILTER objects INCLUDE REGEX "${vector_name}\\.(o|obj)$")
foreach(object ${objects})
  if(object MATCHES "\\.obj$")
    # COFF marks the section, not the symbol.
    execute_process(COMMAND ${objdump} -h ${object} OUTPUT_VARIABLE dump COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCHALL "[^ ]+ +[0-9a-f]+  [^\n]*\n[^\n]*LINK_ONCE" weak "${dump}")
  else()
    execute_process(COMMAND ${nm} --defined-only ${object} OUTPUT_VARIABLE dump
                    COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCHALL " [VWu] [^\n]+" weak "${dump}")
  endif()
  if(weak)
    message(SEND_ERROR "${object} defines weak symbols:\n${weak}")
  endif()
  message("checked ${object}")
endforeach()
