# What belongs to an installation beside programs and library, and the Debian packages: tessel,
# tessel-lab and libtessel-dev, from the components tessel, lab and dev. script/package makes them.

set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(TESSEL_DOCUMENTS ${CMAKE_BINARY_DIR}/documents)

# Made when they are installed: what completes the words of a command line comes from the program's
# own --help, and the changelog has the version that the packages get.
install(CODE "
  execute_process(COMMAND \"${PROJECT_SOURCE_DIR}/packaging/documents\"
    --build \"${CMAKE_BINARY_DIR}\" --version ${PROJECT_VERSION} --interface ${TESSEL_INTERFACE}
    \"${TESSEL_DOCUMENTS}\"
    COMMAND_ERROR_IS_FATAL ANY)" ALL_COMPONENTS)

# tessel_install(COMPONENT PACKAGE [PROGRAM...] [MANUAL page...] [DOCS file...])
function(tessel_install component package)
  cmake_parse_arguments(PARSE_ARGV 2 its "" "" "PROGRAMS;MANUAL;DOCS")
  set(docs ${CMAKE_INSTALL_DATADIR}/doc/${package})
  install(FILES ${TESSEL_DOCUMENTS}/changelog.gz ${its_DOCS} DESTINATION ${docs} COMPONENT ${component})
  install(FILES ${TESSEL_DOCUMENTS}/${package}.copyright DESTINATION ${docs} COMPONENT ${component}
          RENAME copyright)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/${package}.overrides COMPONENT ${component}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${package})
  foreach(program IN LISTS its_PROGRAMS)
    install(FILES ${TESSEL_DOCUMENTS}/bash/${program} COMPONENT ${component}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES ${TESSEL_DOCUMENTS}/zsh/_${program} COMPONENT ${component}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
  endforeach()
  foreach(page IN LISTS its_MANUAL)
    string(REGEX MATCH "[0-9]$" section ${page})
    install(FILES ${TESSEL_DOCUMENTS}/man/${page}.gz COMPONENT ${component}
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
  endforeach()
endfunction()

set(docs ${PROJECT_SOURCE_DIR}/docs)
tessel_install(tessel tessel PROGRAMS tessel-host tessel-report
  MANUAL tessel.7 tessel-host.8 tessel-report.1
  DOCS ${docs}/FINDINGS.md ${docs}/FLEET.md ${docs}/JOURNAL.md ${docs}/RELIABILITY.md ${docs}/REPORT.md
       ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
tessel_install(lab tessel-lab PROGRAMS tessel-lab
  MANUAL tessel-capture.5 tessel-lab.1 tessel-lab-tool.1
  DOCS ${docs}/LAB.md)
tessel_install(dev libtessel-dev)
install(FILES ${PROJECT_SOURCE_DIR}/desk/show/report.schema.json
              ${PROJECT_SOURCE_DIR}/desk/show/merge.schema.json COMPONENT tessel
        DESTINATION ${CMAKE_INSTALL_DATADIR}/tessel)

# Ansible and systemd take them from where an administrator has copied them.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/packaging/fleet/ COMPONENT tessel
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tessel/examples
        PATTERN tessel-metrics PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
                GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# For hosts that are linked to the library.
install(FILES ${PROJECT_SOURCE_DIR}/include/tessel/tessel.h COMPONENT dev
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tessel)
include(CMakePackageConfigHelpers)
# Relative, so that the file is right wherever the installation is moved to.
file(RELATIVE_PATH TESSEL_FROM_PKGCONFIG ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/packaging/tessel.pc.in tessel.pc @ONLY)
configure_package_config_file(${PROJECT_SOURCE_DIR}/packaging/tessel-config.cmake.in tessel-config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tessel
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/tessel-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tessel.pc COMPONENT dev
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tessel-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/tessel-config-version.cmake COMPONENT dev
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tessel)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tessel)
set(CPACK_PACKAGE_VENDOR "")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
set(CPACK_STRIP_FILES ON)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/packaging/cpack.cmake)
set(CPACK_COMPONENTS_ALL tessel lab dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# cpack itself would run ldconfig from a script of the package, as soon as it has looked what the
# library depends on; so packaging/cpack.cmake looks.
set(CPACK_DEBIAN_TESSEL_PACKAGE_SHLIBDEPS OFF)
set(CPACK_TESSEL_BUILD ${CMAKE_BINARY_DIR})
set(CPACK_DEBIAN_TESSEL_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/triggers ${TESSEL_DOCUMENTS}/shlibs)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_LAB_DEPENDS tessel)
set(CPACK_COMPONENT_DEV_DEPENDS tessel)
set(CPACK_DEBIAN_TESSEL_PACKAGE_NAME tessel)
set(CPACK_DEBIAN_LAB_PACKAGE_NAME tessel-lab)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libtessel-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
file(STRINGS ${PROJECT_SOURCE_DIR}/packaging/maintainer CPACK_DEBIAN_PACKAGE_MAINTAINER LIMIT_COUNT 1)
foreach(component TESSEL LAB DEV)
  file(READ ${PROJECT_SOURCE_DIR}/packaging/${CPACK_DEBIAN_${component}_PACKAGE_NAME}.description text)
  string(STRIP "${text}" CPACK_DEBIAN_${component}_DESCRIPTION)
endforeach()
include(CPack)
