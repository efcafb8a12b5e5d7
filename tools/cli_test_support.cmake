# What the command-line tests share. run(PROGRAM EXPECTED_CODE OUT_VAR ARGS ... [CONTAINS ...])
# runs a tool, fails unless it exits with the expected code and its output and error hold every
# text of CONTAINS, and hands its standard output to OUT_VAR.

function(run program expected_code out_var)
  cmake_parse_arguments(ARG "" "" "ARGS;CONTAINS" ${ARGN})
  execute_process(COMMAND ${program} ${ARG_ARGS}
                  RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err TIMEOUT 120)
  if(NOT code EQUAL expected_code)
    message(FATAL_ERROR "${program} ${ARG_ARGS}: exit ${code}, expected ${expected_code}\n"
                        "${out}\n${err}")
  endif()
  foreach(text IN LISTS ARG_CONTAINS)
    string(FIND "${out}${err}" "${text}" at)
    if(at EQUAL -1)
      message(FATAL_ERROR "${program} ${ARG_ARGS}: output lacks \"${text}\"\n${out}\n${err}")
    endif()
  endforeach()
  set(${out_var} "${out}" PARENT_SCOPE)
endfunction()
