# Builds the consumer's two hosts with the flags that pkg-config gives, and runs them.

find_program(pkg_config NAMES pkg-config pkgconf REQUIRED)
set(ENV{PKG_CONFIG_LIBDIR} ${pkgconfig})

function(ask result)
  execute_process(COMMAND ${pkg_config} ${ARGN} kvl OUTPUT_VARIABLE answer
                  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(answer UNIX_COMMAND "${answer}")
  set(${result} ${answer} PARENT_SCOPE)
endfunction()

ask(found_version --modversion)
if(NOT found_version STREQUAL version)
  message(FATAL_ERROR "kvl.pc has version ${found_version}, the project ${version}")
endif()
ask(prefix --variable=prefix)
file(REAL_PATH ${prefix} prefix)
if(NOT prefix STREQUAL tree)
  message(FATAL_ERROR "kvl.pc has prefix ${prefix}, the tree is in ${tree}")
endif()
ask(cflags --cflags)
ask(libs --libs)

file(REMOVE_RECURSE ${output})
file(MAKE_DIRECTORY ${output})
function(build_and_run name compiler)
  execute_process(COMMAND ${compiler} ${ARGN} ${cflags} -o ${output}/${name}.exe ${libs}
                  COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${emulator} ${output}/${name}.exe COMMAND_ERROR_IS_FATAL ANY)
endfunction()
build_and_run(c_host ${c} -std=c99 -pedantic-errors ${sources}/c_host.c)
build_and_run(cpp_host ${cxx} -std=c++20 ${sources}/cpp_host.cpp)
