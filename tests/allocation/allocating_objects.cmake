# Fails when an object refers to an allocator, or to the platform's table with its own, and its
# source is not in the list of those that are known to.

cmake_minimum_required(VERSION 3.25)
string(JOIN "|" allocators
       "_Zn[wa][a-zA-Z0-9_]*" "_ZNSt7__cxx11[a-zA-Z0-9_]*" "_ZN3kvl10g_platformE"
       "malloc|calloc|realloc|aligned_alloc|_aligned_malloc|posix_memalign|strdup|mmap")
execute_process(COMMAND ${nm} -A ${objects} OUTPUT_VARIABLE dump COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+ U (__imp_)?(${allocators})\n" references "${dump}")
foreach(reference ${references})
  string(REGEX REPLACE ".*/src/(.*)\\.(o|obj):.* U (.*)\n" "\\1;\\3" reference "${reference}")
  list(GET reference 0 source)
  if(NOT source IN_LIST known)
    message(SEND_ERROR "${source} takes memory, and has no case in the allocation tests: "
                       "${reference}")
  endif()
  message("${reference}")
endforeach()
if(NOT references)
  message(SEND_ERROR "No object takes memory: that cannot be")
endif()
