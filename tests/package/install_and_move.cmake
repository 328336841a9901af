file(REMOVE_RECURSE ${first} ${tree})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${build} --prefix ${first}
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
cmake_path(GET tree PARENT_PATH parent)
file(MAKE_DIRECTORY ${parent})
file(RENAME ${first} ${tree})
