# Helpers shared by the four libraries: one shared library per folder with its export header,
# warnings, version and install rules, and one test program per library.

# The options of a build with KELTO_SANITIZE_ADDRESS, for the family's targets and for the
# programs that the install-and-consume test builds against them.
set(KELTO_ADDRESS_SANITIZER_OPTIONS -fsanitize=address,undefined -fno-sanitize-recover=undefined
    -fno-omit-frame-pointer)

# Programs are slow to compile with these options and spend their time in the libraries: in a
# sanitizer build the tools and fuzz targets are not optimised, which halves their build, while
# the libraries they call are.
function(kelto_set_program_options target)
  if(KELTO_SANITIZE_ADDRESS)
    target_compile_options(${target} PRIVATE -O0)
  endif()
endfunction()

# Test programs likewise; their own code, made of assertion macros, also goes without the null
# and alignment checks, which double its build. The libraries they exercise keep every check.
function(kelto_set_test_options target)
  kelto_set_program_options(${target})
  if(KELTO_SANITIZE_ADDRESS)
    target_compile_options(${target} PRIVATE -fno-sanitize=alignment,null)
  endif()
endfunction()

function(kelto_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
  if(KELTO_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(KELTO_SANITIZE_THREAD)
    target_compile_options(${target} PRIVATE -fsanitize=thread)
    target_link_options(${target} PRIVATE -fsanitize=thread)
  endif()
  if(KELTO_SANITIZE_ADDRESS)
    target_compile_options(${target} PRIVATE ${KELTO_ADDRESS_SANITIZER_OPTIONS})
    target_link_options(${target} PRIVATE ${KELTO_ADDRESS_SANITIZER_OPTIONS})
  endif()
endfunction()

# kelto_add_library(<name> SOURCES ... [PUBLIC_LINKS ...] [PRIVATE_LINKS ...])
# Builds libkelto_<name>.so as target kelto_<name>, alias kelto::<name>, with the generated
# export header <kelto/<name>/export.h> and the macro KELTO_<NAME>_EXPORT.
function(kelto_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_LINKS;PRIVATE_LINKS" ${ARGN})
  set(target kelto_${name})
  string(TOUPPER ${name} upper)
  add_library(${target} SHARED ${ARG_SOURCES})
  add_library(kelto::${name} ALIAS ${target})
  generate_export_header(${target}
    BASE_NAME KELTO_${upper}
    EXPORT_FILE_NAME ${CMAKE_CURRENT_BINARY_DIR}/include/kelto/${name}/export.h)
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    $<BUILD_INTERFACE:${CMAKE_CURRENT_BINARY_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${target} PUBLIC ${ARG_PUBLIC_LINKS} PRIVATE ${ARG_PRIVATE_LINKS})
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    EXPORT_NAME ${name}
    INSTALL_RPATH "$ORIGIN")
  kelto_set_warnings(${target})
  install(TARGETS ${target} EXPORT kelto_hyperspectralTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/include/ ${CMAKE_CURRENT_BINARY_DIR}/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endfunction()

# kelto_add_tests(<name> SOURCES ... [LINKS ...])
# One GoogleTest program per library; every case is registered with ctest. Tests find their
# fixture files through the compile definition KELTO_TEST_DATA_DIR, and their shared helpers in
# kelto::test_support (tests/support).
function(kelto_add_tests name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  if(NOT KELTO_BUILD_TESTS)
    return()
  endif()
  set(target kelto_${name}_tests)
  add_executable(${target} ${ARG_SOURCES})
  target_link_libraries(${target} PRIVATE kelto::${name} kelto::test_support ${ARG_LINKS}
                                          GTest::gtest GTest::gmock GTest::gtest_main)
  target_compile_definitions(${target} PRIVATE
    KELTO_TEST_DATA_DIR="${CMAKE_CURRENT_SOURCE_DIR}/tests/data")
  kelto_set_warnings(${target})
  kelto_set_test_options(${target})
  gtest_discover_tests(${target} WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}
                       DISCOVERY_TIMEOUT 60)
endfunction()
