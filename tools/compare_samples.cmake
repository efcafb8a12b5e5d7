# Regenerates the sample calibrations and their scenes into WORK_DIR and compares them with the
# committed ones, file by file and byte for byte; a file left under a temporary name shows as a
# difference. Inputs: KELTO_SIM, SAMPLE_DIR (holding calibrations/ and scene/), WORK_DIR.

function(compare_directory kind)
  file(GLOB made RELATIVE ${WORK_DIR}/${kind} ${WORK_DIR}/${kind}/*)
  file(GLOB committed RELATIVE ${SAMPLE_DIR}/${kind} ${SAMPLE_DIR}/${kind}/*)
  if(NOT made STREQUAL committed)
    message(FATAL_ERROR "sample ${kind} differ: made [${made}], committed [${committed}]; "
                        "run 'make samples'")
  endif()
  foreach(name IN LISTS made)
    execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK_DIR}/${kind}/${name}
                            ${SAMPLE_DIR}/${kind}/${name} RESULT_VARIABLE differs)
    if(differs)
      message(FATAL_ERROR "${kind}/${name} differs from what the simulator writes; "
                          "run 'make samples'")
    endif()
  endforeach()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
foreach(kind calibrations scene)
  execute_process(COMMAND ${KELTO_SIM} ${kind} ${WORK_DIR}/${kind} RESULT_VARIABLE rc
                  OUTPUT_QUIET ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "kelto-sim ${kind} failed: ${err}")
  endif()
  compare_directory(${kind})
endforeach()
