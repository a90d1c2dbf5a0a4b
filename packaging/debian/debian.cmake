# Debian packages, one per component: scripts/packages.sh. What lintian and policy ask of each stands in packaging/debian.
# They need gzip and files that nobody else wants: not without being asked.
option(ZRK4_DEBIAN_PACKAGES "Prepare Debian packages" OFF)
if(NOT ZRK4_DEBIAN_PACKAGES)
  return()
endif()
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "the maintainers of ZRK4bm")
set(CPACK_PACKAGE_CONTACT "ZRK4bm maintainers <maintainers@zrk4bm.invalid>" CACHE STRING "Maintainer of the packages")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

get_target_property(soversion ZRK4bm SOVERSION)
set(library_package libzrk4bm${soversion})
set(same_version "${library_package} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENTS_ALL library headers docs)

# zrk4_package(COMPONENT PACKAGE SECTION SUMMARY TEXT)
macro(zrk4_package component package section summary text)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${text}")
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/copyright DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES ${PROJECT_BINARY_DIR}/packaging/changelog.gz DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endmacro()

set(about "Processes of one host hand event data to each other in shared memory,\nwithout copying it.\n.\n")
zrk4_package(library ${library_package} libs "event-data buffer manager: shared libraries"
  "${about}These are the libraries that programs load.")
zrk4_package(headers libzrk4bm-dev libdevel "event-data buffer manager: development files"
  "${about}Headers, and what CMake and pkg-config need to find them.")
zrk4_package(docs zrk4bm-doc doc "event-data buffer manager: documentation and examples"
  "${about}Prose, the reference of the headers, and programs to start from.")
set(CPACK_DEBIAN_HEADERS_PACKAGE_DEPENDS ${same_version})
set(CPACK_DEBIAN_HEADERS_PACKAGE_SUGGESTS zrk4bm-doc)
set(CPACK_DEBIAN_DOCS_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)

if(TARGET bm)
  list(APPEND CPACK_COMPONENTS_ALL tools)
  zrk4_package(tools zrk4bm-tools utils "event-data buffer manager: operator's command and service"
    "${about}A command that shows, checks and mends an exchange,\nand its master as a service.")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ${same_version})
  set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/postinst)
endif()

# A changelog in the form that policy asks for, compressed without a date of its own.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${PROJECT_SOURCE_DIR}/packaging/debian/changelog.in ${PROJECT_BINARY_DIR}/packaging/changelog @ONLY)
execute_process(COMMAND gzip -9nkf ${PROJECT_BINARY_DIR}/packaging/changelog COMMAND_ERROR_IS_FATAL ANY)

# The site, where scripts/docs.sh has built it.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/build/docs/site/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/html COMPONENT docs
  EXCLUDE_FROM_ALL OPTIONAL)
include(CPack)
