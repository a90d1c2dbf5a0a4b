# ZRK4_SANITIZE: a list for -fsanitize, for instance "address,undefined" or "thread". ZRK4_COVERAGE: line counters.
set(ZRK4_SANITIZE "" CACHE STRING "Sanitizers to build with")
option(ZRK4_COVERAGE "Count executed lines" OFF)

set(ZRK4_SANITIZE_FLAGS "")   # also for tests that call the compiler themselves
if(ZRK4_SANITIZE)
  # A report ends the program: one that only prints would pass as a green test.
  set(ZRK4_SANITIZE_FLAGS -fsanitize=${ZRK4_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_compile_options(${ZRK4_SANITIZE_FLAGS})
  add_link_options(-fsanitize=${ZRK4_SANITIZE})
  # What the sanitizers insert misleads GCC: it then finds parts of standard templates uninitialised. The build without
  # them is where that warning counts.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()
if(ZRK4_COVERAGE)
  add_compile_options(--coverage -O0 -g)
  add_link_options(--coverage)
endif()
