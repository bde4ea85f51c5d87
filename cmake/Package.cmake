# What is installed beside the programs, and the Debian package: `cpack --config BUILD/CPackConfig.cmake -B DIRECTORY`.

# Everything that is installed. An installation builds it first (CMakeLists.txt).
add_custom_target(installed)
add_dependencies(installed korvandis headunit-program station-program pps sloginfo station-station.bash
                 station-korvandis.lua)

set(prepared)
# prepare(SOURCE OUTPUT DESTINATION command...): makes OUTPUT of SOURCE by the command, and installs it.
function(prepare source output destination)
  add_custom_command(OUTPUT ${output} COMMAND ${ARGN} DEPENDS ${source} ${PROJECT_SOURCE_DIR}/cmake/InstalledDocument.cmake)
  install(FILES ${output} DESTINATION ${destination})
  set(prepared ${prepared} ${output} PARENT_SCOPE)
endfunction()

set(documents ${CMAKE_BINARY_DIR}/documents)
file(MAKE_DIRECTORY ${documents}/docs)
file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.1)
foreach(page ${pages})
  get_filename_component(name ${page} NAME)
  if(TARGET station-${name})  # made of the table of commands
    set(page ${CMAKE_BINARY_DIR}/share/${name})
  endif()
  prepare(${page} ${documents}/${name}.gz ${CMAKE_INSTALL_MANDIR}/man1 gzip -9nc ${page} > ${documents}/${name}.gz)
endforeach()
set(changelog ${PROJECT_SOURCE_DIR}/cmake/debian/changelog)
prepare(${changelog} ${documents}/changelog.gz ${CMAKE_INSTALL_DOCDIR} gzip -9nc ${changelog} > ${documents}/changelog.gz)
install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR})

file(GLOB texts CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/docs/*.md)
list(PREPEND texts README.md)
list(JOIN texts "," installed)
foreach(text ${texts})
  get_filename_component(directory ${text} DIRECTORY)
  prepare(${PROJECT_SOURCE_DIR}/${text} ${documents}/${text} ${CMAKE_INSTALL_DOCDIR}/${directory}
          ${CMAKE_COMMAND} -DSOURCE=${PROJECT_SOURCE_DIR} -DDOCUMENT=${text} -DINSTALLED=${installed}
          -DOUTPUT=${documents}/${text} -P ${PROJECT_SOURCE_DIR}/cmake/InstalledDocument.cmake)
endforeach()
add_custom_target(documents ALL DEPENDS ${prepared})
add_dependencies(documents station-station.1)
add_dependencies(installed documents)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_CONTACT "Korvandis developers <developers@korvandis.invalid>")
set(CPACK_PACKAGE_DESCRIPTION
    "The test service of a car head unit, a simulated unit to run it on, and the\n test station with its\
 sequences, recordings and tools.")
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, wireshark | tshark")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
include(CPack)
