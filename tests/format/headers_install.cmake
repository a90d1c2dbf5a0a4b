# Installs a build tree into an empty prefix and looks at what came. Variables: see the test's command.
cmake_minimum_required(VERSION 3.22)

file(REMOVE_RECURSE ${prefix})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${build} --prefix ${prefix} COMMAND_ERROR_IS_FATAL ANY
  OUTPUT_QUIET)

set(expected "")
foreach(header IN LISTS headers)
  cmake_path(GET header FILENAME name)
  list(APPEND expected ZRK4bm/${name})
endforeach()
file(GLOB_RECURSE installed RELATIVE ${prefix}/include ${prefix}/include/*)
list(SORT expected)
list(SORT installed)
if(NOT installed STREQUAL expected)
  message(FATAL_ERROR "headers installed: ${installed}\nexpected: ${expected}")
endif()

foreach(library IN ITEMS libZRK4bm.so libZRK4evutl.so)
  file(GLOB found RELATIVE ${prefix}/${libdir} ${prefix}/${libdir}/${library}*)
  list(LENGTH found count)
  if(NOT count EQUAL 3)   # the name to link with, the name to load, the file with its version
    message(FATAL_ERROR "${library} in ${libdir}: ${found}")
  endif()
endforeach()

execute_process(COMMAND ${compiler} ${flags} -I ${prefix}/include/ZRK4bm ${user} -o ${prefix}/user
  -L ${prefix}/${libdir} -Wl,-rpath,${prefix}/${libdir} -lZRK4bm COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${prefix}/user
  COMMAND_ERROR_IS_FATAL ANY)
