# What a host needs besides the command: the master as a service, its user, kernel limits, completions.
if(NOT TARGET bm)
  return()
endif()
set(ZRK4_SYSTEMD_UNITS lib/systemd/system CACHE STRING "Where the unit of the master goes")
set(host_files ${PROJECT_BINARY_DIR}/packaging)
configure_file(${CMAKE_CURRENT_LIST_DIR}/zrk4bm-master.service.in ${host_files}/zrk4bm-master.service @ONLY)
install(FILES ${host_files}/zrk4bm-master.service
  DESTINATION ${ZRK4_SYSTEMD_UNITS} COMPONENT tools)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/zrk4bm.sysusers RENAME zrk4bm.conf DESTINATION lib/sysusers.d COMPONENT tools)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/60-zrk4bm.sysctl RENAME 60-zrk4bm.conf DESTINATION lib/sysctl.d COMPONENT tools)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/60-zrk4bm.logind RENAME 60-zrk4bm.conf DESTINATION lib/systemd/logind.conf.d COMPONENT tools)

# The command knows its options best.
foreach(completion IN ITEMS bash:bash-completion/completions/bm zsh:zsh/vendor-completions/_bm
                            fish:fish/vendor_completions.d/bm.fish)
  string(REPLACE ":" ";" completion ${completion})
  list(GET completion 0 shell)
  list(GET completion 1 place)
  set(file ${host_files}/completion.${shell})
  add_custom_command(OUTPUT ${file} COMMAND bm completion ${shell} > ${file} DEPENDS bm VERBATIM)
  list(APPEND completions ${file})
  cmake_path(GET place PARENT_PATH folder)
  cmake_path(GET place FILENAME name)
  install(FILES ${file} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/${folder} RENAME ${name} COMPONENT tools)
endforeach()
add_custom_target(bm_completions ALL DEPENDS ${completions})
