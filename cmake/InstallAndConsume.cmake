# Installs the build tree into a scratch prefix, then configures, builds and runs the consumer
# project against it, once through the CMake package and once through pkg-config.
# Inputs: BUILD_DIR, SOURCE_DIR, WORK_DIR, GENERATOR.

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  message(STATUS "${out}")
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/consumer -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
run(${WORK_DIR}/consumer/consumer)

# pkg-config: the same program, compiled by hand against the .pc file.
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
  run(c++ -std=c++17 ${SOURCE_DIR}/main.cpp -o ${WORK_DIR}/consumer-pc ${flags}
      -Wl,-rpath,${libdir})
  run(${WORK_DIR}/consumer-pc)
endif()
