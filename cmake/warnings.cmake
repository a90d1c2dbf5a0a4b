# Every target of ours is built with these; a warning is an error in the presets.
option(ZRK4_WERROR "Treat warnings as errors" OFF)
add_compile_options(-Wall -Wextra -Wconversion -Wshadow)
# GCC 12 takes text + std::string for a copy onto itself, with offsets no program has; GCC 13 does not.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  add_compile_options(-Wno-restrict)
endif()
if(ZRK4_WERROR)
  add_compile_options(-Werror)
endif()
