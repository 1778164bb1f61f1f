# cmake --install DIR: the workstation's build installs the station and the virtual phone, a cross build the service with
# its init file (the preset ndk where a phone's image has them: DESTDIR=image cmake --install build/ndk).
include(GNUInstallDirs)

if(CMAKE_CROSSCOMPILING)
  install(TARGETS diag_service RUNTIME DESTINATION bin)
  install(FILES android/diag_service.rc DESTINATION etc/init)
  return()
endif()

install(TARGETS station RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT station)
install(FILES docs/station.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT station)
install(FILES station/program/completion.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME station OPTIONAL COMPONENT station)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT station FILES_MATCHING PATTERN "*.md")

# The launcher finds everything from its own place, as in the source tree: so it keeps that layout, in a folder of its own.
set(phone_folder ${CMAKE_INSTALL_LIBEXECDIR}/diag_service)
set(phone_targets diag_service)
foreach(folder phone platform)
  get_property(targets DIRECTORY ${PROJECT_SOURCE_DIR}/${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target ${targets})
    get_target_property(type ${target} TYPE)
    if(type MATCHES "EXECUTABLE|SHARED_LIBRARY")
      list(APPEND phone_targets ${target})
    endif()
  endforeach()
endforeach()
set_target_properties(${phone_targets} PROPERTIES INSTALL_RPATH "$ORIGIN/../lib")
install(PROGRAMS script/phone DESTINATION ${phone_folder}/script COMPONENT phone)
install(DIRECTORY phone DESTINATION ${phone_folder} USE_SOURCE_PERMISSIONS COMPONENT phone
  PATTERN "*.cpp" EXCLUDE PATTERN "*.h" EXCLUDE PATTERN CMakeLists.txt EXCLUDE PATTERN sandbox EXCLUDE)
install(FILES android/diag_service.rc DESTINATION ${phone_folder}/android COMPONENT phone)
install(TARGETS ${phone_targets} COMPONENT phone RUNTIME DESTINATION ${phone_folder}/build/dev/bin
  LIBRARY DESTINATION ${phone_folder}/build/dev/lib)
file(RELATIVE_PATH launcher ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_PREFIX}/${phone_folder}/script/phone)
file(CREATE_LINK ${launcher} ${CMAKE_BINARY_DIR}/virtual-phone SYMBOLIC)
install(FILES ${CMAKE_BINARY_DIR}/virtual-phone DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT phone)
