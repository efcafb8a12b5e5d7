# Installs the build tree into a scratch prefix, then configures, builds and runs the example
# programs against it through the CMake package, compiles the smallest one once more through
# pkg-config, and runs the installed kelto-hsi, which must find the installed libraries by itself.
# Inputs: BUILD_DIR, SOURCE_DIR (examples/), DATA_DIR (the bundled samples), WORK_DIR, GENERATOR,
# WITH_TOOLS, and CONSUMER_FLAGS: the options (a list) of a sanitizer build of the libraries,
# which the programs built against them need as well.

# Runs a program; its standard output goes to out_var.
function(run out_var)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  set(${out_var} "${out}" PARENT_SCOPE)
endfunction()

function(expect_in what text)
  foreach(wanted IN LISTS ARGN)
    string(FIND "${text}" "${wanted}" at)
    if(at EQUAL -1)
      message(FATAL_ERROR "${what} lacks \"${wanted}\":\n${text}")
    endif()
  endforeach()
endfunction()

set(prefix ${WORK_DIR}/prefix)
set(examples ${WORK_DIR}/examples)
set(calibration ${DATA_DIR}/calibrations/VKR9-MZT4x4-470_620.xml)
set(scene ${DATA_DIR}/scene/VKR9-MZT4x4-470_620.hdr)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
run(out ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

string(REPLACE ";" " " consumer_flags "${CONSUMER_FLAGS}")
run(out ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${examples} -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release
    "-DCMAKE_CXX_FLAGS=${consumer_flags}")
run(out ${CMAKE_COMMAND} --build ${examples})
run(out ${examples}/consumer/consumer)
expect_in("consumer" "${out}" "sensor block read, checked and written")

run(out ${examples}/list_calibration/list_calibration ${calibration})
expect_in("list_calibration" "${out}" "VKR9-MZT4x4-470_620: 16 bands"
          "band 15, zone 0, position 15" "620 nm (FWHM 13 nm, order 1)"
          "matrix \"true_peaks\", reflectance, 16 virtual bands at 470 480")

if(WITH_TOOLS)
  # The installed tool starts without help from the environment.
  unset(ENV{LD_LIBRARY_PATH})
  run(out ${prefix}/bin/kelto-hsi --version)
  expect_in("kelto-hsi --version" "${out}" "0.")
  run(out ${prefix}/bin/kelto-hsi check ${calibration})
  expect_in("kelto-hsi check" "${out}" "verdict:       sound")

  # The example's corrected spectrum is the tool's, digit for digit.
  run(tool ${prefix}/bin/kelto-hsi spectrum ${calibration} ${scene} --pixel 46,46)
  run(example ${examples}/correct_cube/correct_cube ${calibration} ${scene} 46 46)
  if(NOT example STREQUAL tool OR NOT example MATCHES "^wavelength,value\n470,")
    message(FATAL_ERROR "correct_cube gives\n${example}\nkelto-hsi spectrum\n${tool}")
  endif()

  # The example's matrix is the one kelto-hsi matrix computes with the same parameters.
  run(out ${examples}/compute_matrix/compute_matrix ${calibration} measured
      ${WORK_DIR}/example_matrix.xml)
  expect_in("compute_matrix" "${out}" "16 virtual bands at")
  run(out ${prefix}/bin/kelto-hsi matrix ${calibration} --name measured
      -o ${WORK_DIR}/tool_matrix.xml)
  foreach(made example tool)
    run(info ${prefix}/bin/kelto-hsi info ${WORK_DIR}/${made}_matrix.xml)
    string(REGEX MATCH "\"measured\".*" ${made}_rows "${info}")
    string(REGEX REPLACE "\nverdict:[^\n]*" "" ${made}_rows "${${made}_rows}")
  endforeach()
  if(NOT example_rows MATCHES "16 virtual bands\n( +[0-9]+  [0-9.]+ nm, FWHM [0-9.]+ nm, 16 coefficients\n)+"
     OR NOT example_rows STREQUAL tool_rows)
    message(FATAL_ERROR "compute_matrix made\n${example_rows}\nkelto-hsi matrix\n${tool_rows}")
  endif()
endif()

# pkg-config: the smallest program, compiled by hand against the .pc file.
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig:${prefix}/lib/x86_64-linux-gnu/pkgconfig)
  execute_process(COMMAND ${PKG_CONFIG} --cflags --libs kelto_hyperspectral
                  RESULT_VARIABLE rc OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "pkg-config does not know kelto_hyperspectral")
  endif()
  execute_process(COMMAND ${PKG_CONFIG} --variable=libdir kelto_hyperspectral
                  OUTPUT_VARIABLE libdir OUTPUT_STRIP_TRAILING_WHITESPACE)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  run(out c++ -std=c++17 ${CONSUMER_FLAGS} ${SOURCE_DIR}/consumer/main.cpp
      -o ${WORK_DIR}/consumer-pc ${flags} -Wl,-rpath,${libdir})
  run(out ${WORK_DIR}/consumer-pc)
endif()
