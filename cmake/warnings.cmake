# Every target of ours is built with these; a warning is an error in the presets.
option(ZRK4_WERROR "Treat warnings as errors" OFF)
add_compile_options(-Wall -Wextra -Wconversion -Wshadow)
if(ZRK4_WERROR)
  add_compile_options(-Werror)
endif()
