# Read by cpack before it makes packages.

# script/package can ask for another version than the project's, such as a lower one from which a
# test upgrades.
if(DEFINED ENV{TESSEL_PACKAGE_VERSION})
  set(CPACK_PACKAGE_VERSION $ENV{TESSEL_PACKAGE_VERSION})
  set(CPACK_DEBIAN_PACKAGE_VERSION $ENV{TESSEL_PACKAGE_VERSION})
endif()

# What the package tessel needs of others, by the versions of the C library's symbols.
set(work ${CPACK_TESSEL_BUILD}/documents/needs)
file(WRITE ${work}/debian/control "Source: tessel\n\nPackage: tessel\nArchitecture: any\n")
execute_process(COMMAND dpkg-shlibdeps -O ${CPACK_TESSEL_BUILD}/libtessel.so
    ${CPACK_TESSEL_BUILD}/tessel-host ${CPACK_TESSEL_BUILD}/tessel-report
  WORKING_DIRECTORY ${work} OUTPUT_VARIABLE needs ERROR_VARIABLE complaint)
if(NOT needs MATCHES "shlibs:Depends=([^\n]+)")
  message(FATAL_ERROR "dpkg-shlibdeps does not say what the package needs: ${needs}${complaint}")
endif()
set(CPACK_DEBIAN_TESSEL_PACKAGE_DEPENDS ${CMAKE_MATCH_1})
