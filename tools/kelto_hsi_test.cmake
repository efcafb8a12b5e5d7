# Runs kelto-hsi as a user would and checks exit codes and output.
# Inputs: KELTO_HSI, DATA_DIR, WORK_DIR.

function(expect_run expected_code)
  cmake_parse_arguments(ARG "" "" "ARGS;CONTAINS" ${ARGN})
  execute_process(COMMAND ${KELTO_HSI} ${ARG_ARGS}
                  RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err TIMEOUT 20)
  if(NOT code EQUAL expected_code)
    message(FATAL_ERROR "kelto-hsi ${ARG_ARGS}: exit ${code}, expected ${expected_code}\n${out}\n${err}")
  endif()
  foreach(text IN LISTS ARG_CONTAINS)
    string(FIND "${out}${err}" "${text}" at)
    if(at EQUAL -1)
      message(FATAL_ERROR "kelto-hsi ${ARG_ARGS}: output lacks \"${text}\"\n${out}\n${err}")
    endif()
  endforeach()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

expect_run(0 ARGS --help CONTAINS "check")
expect_run(0 ARGS check ${DATA_DIR}/sensor_info_vkr9.xml
           CONTAINS "VKR9" "2048 x 1088" "ReadStart" "state: Ok")
file(GLOB samples ${DATA_DIR}/calibrations/*.xml)
foreach(sample IN LISTS samples)
  expect_run(0 ARGS check ${sample} CONTAINS "state: Ok")
endforeach()
expect_run(0 ARGS info ${DATA_DIR}/calibrations/VKR9-MZT4x4-470_620.xml
           CONTAINS "VKR9-MZT4x4-470_620" "17.4.4.1" "MOSAIC, area 0,0 2048 x 1088 px, pattern 4 x 4"
                    "601 sample points, 400 to 1000 nm" "470.0/10.0/1  940.0/20.0/2"
                    "1 matrix(es)" "\"true_peaks\", m0 1.0, reflectance, 16 virtual bands"
                    "66 records read" "state: Ok")
expect_run(0 ARGS info ${DATA_DIR}/calibrations/VKR9-QL150-470_900.xml
           CONTAINS "QL150-470_900, 2 zone(s), 150 bands" "zone 1:" "WEDGE")
expect_run(0 ARGS check ${DATA_DIR}/calibration_info_v1.xml
           CONTAINS "551 sample points, 450 to 1000 nm")
expect_run(2 ARGS check ${DATA_DIR}/sensor_info_defective.xml
           CONTAINS "MissingElement" "pixel_pitch_um" "0 < height_px" "state: Error")

file(WRITE ${WORK_DIR}/unversioned.xml
     "<sensor_info><width>640</width><height>512</height><pixelPitch>5.5</pixelPitch></sensor_info>")
expect_run(1 ARGS check ${WORK_DIR}/unversioned.xml CONTAINS "MissingVersion" "state: Warning")

file(WRITE ${WORK_DIR}/not_xml.xml "width=640\n")
expect_run(3 ARGS check ${WORK_DIR}/not_xml.xml CONTAINS "not XML")
expect_run(3 ARGS check ${WORK_DIR}/does_not_exist.xml CONTAINS "does not exist")
expect_run(3 ARGS check ${WORK_DIR} CONTAINS "directory")
file(WRITE ${WORK_DIR}/unknown.xml "<lens version=\"1\"/>")
expect_run(3 ARGS check ${WORK_DIR}/unknown.xml CONTAINS "unknown record \"lens\"")
