# Install rules of the CMake package kelto_hyperspectral and of kelto_hyperspectral.pc.

set(KELTO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kelto_hyperspectral)

install(EXPORT kelto_hyperspectralTargets
  NAMESPACE kelto::
  DESTINATION ${KELTO_CMAKE_DIR})

configure_package_config_file(
  ${CMAKE_CURRENT_SOURCE_DIR}/cmake/kelto_hyperspectralConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/kelto_hyperspectralConfig.cmake
  INSTALL_DESTINATION ${KELTO_CMAKE_DIR})
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/kelto_hyperspectralConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/kelto_hyperspectralConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/kelto_hyperspectralConfigVersion.cmake
  DESTINATION ${KELTO_CMAKE_DIR})

# The .pc file finds its prefix from its own place, so that an installation can be moved.
file(RELATIVE_PATH KELTO_PC_TO_PREFIX /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/kelto_hyperspectral.pc.in
               ${CMAKE_CURRENT_BINARY_DIR}/kelto_hyperspectral.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kelto_hyperspectral.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The package is tested as a user meets it: installed into a scratch prefix, then found by the
# example programs, which are configured, built and run against it beside the installed tools.
if(KELTO_BUILD_TESTS)
  set(KELTO_CONSUMER_FLAGS "")
  if(KELTO_SANITIZE_ADDRESS)
    set(KELTO_CONSUMER_FLAGS "${KELTO_ADDRESS_SANITIZER_OPTIONS}")
  endif()
  add_test(NAME InstallAndConsume
    COMMAND ${CMAKE_COMMAND}
      -DBUILD_DIR=${CMAKE_BINARY_DIR}
      -DSOURCE_DIR=${CMAKE_CURRENT_SOURCE_DIR}/examples
      -DDATA_DIR=${CMAKE_CURRENT_SOURCE_DIR}/hyperspectral/tests/data
      -DWITH_TOOLS=${KELTO_BUILD_TOOLS}
      -DWORK_DIR=${CMAKE_BINARY_DIR}/install-and-consume
      -DGENERATOR=${CMAKE_GENERATOR}
      "-DCONSUMER_FLAGS=${KELTO_CONSUMER_FLAGS}"
      -P ${CMAKE_CURRENT_SOURCE_DIR}/cmake/InstallAndConsume.cmake)
  set_tests_properties(InstallAndConsume PROPERTIES TIMEOUT 600 RUN_SERIAL TRUE)
endif()
