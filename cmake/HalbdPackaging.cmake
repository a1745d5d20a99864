# Debian packages of the build, made by CPack's DEB generator (cpack -G DEB in the build tree), one
# per install component:
#   libhal-switch-bd-ll-bcm<major>  component library: what a switch image carries
#   libhal-switch-bd-ll-bcm-dev     component development: headers, CMake package, pkg-config file
#   halbd-sim                       component sim: the simulated platform and halbd-sim
# The architecture is the build's: the host's (dpkg --print-architecture) or, cross-built, the
# switch's. The version is the project's.
set(HALBD_DEB_LIBRARY libhal-switch-bd-ll-bcm${PROJECT_VERSION_MAJOR})
set(HALBD_DEB_DEVELOPMENT libhal-switch-bd-ll-bcm-dev)
set(HALBD_DEB_SIM halbd-sim)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME halbd)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(HALBD_DEB_MAINTAINER "HAL bridge team <hal-bridge@switch.invalid>" CACHE STRING
    "Maintainer field of the Debian packages: the team's real address for a release")
set(CPACK_PACKAGE_CONTACT ${HALBD_DEB_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# A shlibs file and the ldconfig trigger for every package that carries a shared library, so that
# packages built against this one depend on it through their own shlibdeps.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# The dynamic loader's cache is refreshed through dpkg's ldconfig trigger. (CPack also writes
# postinst and postrm scripts that call ldconfig; with the trigger they are redundant and harmless.)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(HALBD_DEB_TRIGGERS ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
# Dependencies between the packages, at the same version: they are built from one tree.
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_COMPONENTS_ALL library development)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${HALBD_DEB_LIBRARY})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${HALBD_DEB_TRIGGERS})
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "layer-2 bridge library of the switch HAL
The bridge-port service (TPIDs, Q-in-Q, native VLAN, frame types, blocking,
VLAN translation rules), the bridge-domain service (VLAN membership of ports
and LAGs, broadcast groups, VLAN properties) and the VLAN orchestrator, for the
higher HAL modules of an Ethernet switch.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${HALBD_DEB_DEVELOPMENT})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "layer-2 bridge library of the switch HAL - development files
Public headers, the platform contract headers, the CMake package
(find_package(halbd)) and the pkg-config file hal-switch-bd-ll-bcm of the
layer-2 bridge library, for building HAL modules.")
if(HALBD_PLATFORM STREQUAL "sim")
  list(APPEND CPACK_COMPONENTS_ALL sim)
  set(CPACK_DEBIAN_SIM_PACKAGE_NAME ${HALBD_DEB_SIM})
  set(CPACK_DEBIAN_SIM_PACKAGE_SECTION devel)
  set(CPACK_DEBIAN_SIM_PACKAGE_CONTROL_EXTRA ${HALBD_DEB_TRIGGERS})
  # halbd-sim needs the library; the library, built against the simulated platform, needs it in
  # turn. The two are installed together.
  set(CPACK_COMPONENT_SIM_DEPENDS library)
  set(CPACK_COMPONENT_LIBRARY_DEPENDS sim)
  set(CPACK_COMPONENT_SIM_DESCRIPTION "simulated platform of the switch HAL's layer-2 bridge library
A behavioural model of the switch chip behind the SDK calls the bridge library
makes, substitutes of the HAL's companion libraries (with the CMake component
sim and the pkg-config file hal-sim-platform), and halbd-sim, the scenario
runner and interactive shell that drives the library on it.")
endif()

# Built for a switch (HALBD_PLATFORM=external), the library needs the platform's libraries, whose
# packages only the image's builder knows.
set(HALBD_DEB_PLATFORM_DEPENDS "" CACHE STRING
    "Debian packages of HALBD_PLATFORM_LIBRARIES, added to the library package's dependencies")

if(CMAKE_CROSSCOMPILING)
  # dpkg-shlibdeps cannot read the target's libraries here: the cross toolchain's C library and C++
  # runtime are installed as the host's *-powerpc-cross packages, which carry no package data for
  # the target architecture. The packages name the target's run-time packages instead, at the
  # versions of the cross packages the build linked against.
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "powerpc")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE powerpc)
  else()
    message(FATAL_ERROR "no Debian architecture known for ${CMAKE_SYSTEM_PROCESSOR}")
  endif()
  set(runtime_depends "")
  foreach(runtime libc6 libstdc++6 libgcc-s1)
    execute_process(
      COMMAND dpkg-query -W -f=\${Version} ${runtime}-${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}-cross
      OUTPUT_VARIABLE cross_version RESULT_VARIABLE rc ERROR_QUIET)
    string(REGEX REPLACE "cross[0-9]+$" "" cross_version "${cross_version}")
    if(rc EQUAL 0 AND cross_version)
      list(APPEND runtime_depends "${runtime} (>= ${cross_version})")
    else()
      list(APPEND runtime_depends "${runtime}")
    endif()
  endforeach()
  string(REPLACE ";" ", " CPACK_DEBIAN_PACKAGE_DEPENDS "${runtime_depends}")
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  # The packages' own libraries are found in the build tree; they belong to no installed package,
  # and the component dependencies above name them.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR} ${PROJECT_BINARY_DIR}/sim)
endif()

if(HALBD_DEB_PLATFORM_DEPENDS)
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS ${HALBD_DEB_PLATFORM_DEPENDS})
  if(CPACK_DEBIAN_PACKAGE_DEPENDS)
    string(PREPEND CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "${CPACK_DEBIAN_PACKAGE_DEPENDS}, ")
  endif()
endif()

# Every package carries its copyright file and changelog, as Debian requires.
string(TIMESTAMP HALBD_DEB_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} upper)
  set(HALBD_DEB_PACKAGE ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(doc_dir ${PROJECT_BINARY_DIR}/debian/${HALBD_DEB_PACKAGE})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in ${doc_dir}/changelog @ONLY)
  execute_process(COMMAND gzip -9nf ${doc_dir}/changelog COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright ${doc_dir}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${HALBD_DEB_PACKAGE} COMPONENT ${component})
endforeach()

include(CPack)
