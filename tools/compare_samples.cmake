# Regenerates the sample calibrations into WORK_DIR and compares them with the committed ones.
# Inputs: KELTO_SIM, SAMPLE_DIR, WORK_DIR.
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${KELTO_SIM} calibrations ${WORK_DIR} RESULT_VARIABLE rc
                OUTPUT_QUIET ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "kelto-sim failed: ${err}")
endif()
file(GLOB made RELATIVE ${WORK_DIR} ${WORK_DIR}/*.xml)
file(GLOB committed RELATIVE ${SAMPLE_DIR} ${SAMPLE_DIR}/*.xml)
if(NOT made STREQUAL committed)
  message(FATAL_ERROR "sample files differ: made [${made}], committed [${committed}]; "
                      "run 'make samples'")
endif()
foreach(name IN LISTS made)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK_DIR}/${name}
                          ${SAMPLE_DIR}/${name} RESULT_VARIABLE differs)
  if(differs)
    message(FATAL_ERROR "${name} differs from what the simulator writes; run 'make samples'")
  endif()
endforeach()
