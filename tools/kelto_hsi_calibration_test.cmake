# Runs `kelto-hsi scan`, `convert` and `rename` as a user would on the sample calibrations.
# Inputs: KELTO_HSI, DATA_DIR, WORK_DIR.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/cli_test_support.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/drawer)
file(GLOB samples ${DATA_DIR}/calibrations/*.xml)
file(COPY ${samples} DESTINATION ${WORK_DIR}/drawer)
set(mosaic ${WORK_DIR}/drawer/VKR9-MZT4x4-470_620.xml)

# Scan: all accepted, then a second file of one sensor, then a file in error.
run(${KELTO_HSI} 0 out ARGS scan ${WORK_DIR}/drawer
    CONTAINS "VKR9-MZT4x4-470_620.xml: accepted, sensor_id 17.4.4.1, standard name "
             "VKR9-MZT4x4-470_620-17.4.4.1.xml")
file(COPY_FILE ${mosaic} ${WORK_DIR}/drawer/zz_copy.xml)
run(${KELTO_HSI} 1 out ARGS scan ${WORK_DIR}/drawer
    CONTAINS "zz_copy.xml: skipped, duplicate sensor_id 17.4.4.1 of an earlier file")
file(COPY_FILE ${DATA_DIR}/sensor_info_defective.xml ${WORK_DIR}/drawer/0_broken.xml)
run(${KELTO_HSI} 2 out ARGS scan ${WORK_DIR}/drawer --json)
string(JSON verdict GET "${out}" files 0 verdict)
string(JSON file GET "${out}" files 0 file)
string(JSON code GET "${out}" exit_code)
if(NOT file STREQUAL "0_broken.xml" OR NOT verdict STREQUAL "refused" OR NOT code EQUAL 2)
  message(FATAL_ERROR "scan --json: ${file} ${verdict} ${code}\n${out}")
endif()
run(${KELTO_HSI} 3 out ARGS scan ${WORK_DIR}/absent CONTAINS "is not a directory")

# Convert: a file to a file, a directory into a directory; a record of another kind, an error
# without --force and an output that can't be written are refused and leave nothing.
run(${KELTO_HSI} 0 out ARGS convert ${mosaic} -o ${WORK_DIR}/one.xml)
run(${KELTO_HSI} 0 out ARGS check ${WORK_DIR}/one.xml CONTAINS "VKR9-MZT4x4-470_620")
file(REMOVE ${WORK_DIR}/drawer/zz_copy.xml)
run(${KELTO_HSI} 3 out ARGS convert ${WORK_DIR}/drawer -o ${WORK_DIR}/current
    CONTAINS "0_broken.xml: holds a sensor_info record, not a calibration")
file(GLOB converted RELATIVE ${WORK_DIR}/current ${WORK_DIR}/current/*)
list(LENGTH converted count)
if(NOT count EQUAL 5 OR "0_broken.xml" IN_LIST converted)
  message(FATAL_ERROR "convert wrote [${converted}]")
endif()
file(READ ${mosaic} text)
string(REPLACE "<filter_zones>" "<filter_zones><filter_zone version=\"3\" layout=\"MOSAIC\" index=\"0\"/>" text "${text}")
file(WRITE ${WORK_DIR}/in_error.xml "${text}")
run(${KELTO_HSI} 2 out ARGS convert ${WORK_DIR}/in_error.xml -o ${WORK_DIR}/in_error_out.xml
    CONTAINS "refused" "--force")
if(EXISTS ${WORK_DIR}/in_error_out.xml)
  message(FATAL_ERROR "convert wrote a refused calibration")
endif()
run(${KELTO_HSI} 0 out ARGS convert ${WORK_DIR}/in_error.xml -o ${WORK_DIR}/in_error_out.xml
    --force)
run(${KELTO_HSI} 10 out ARGS convert ${mosaic} -o ${WORK_DIR}/absent/one.xml
    CONTAINS "not written")

# Rename: the standard name, applied, refused when taken or when it would not parse back.
run(${KELTO_HSI} 0 out ARGS rename ${mosaic} CONTAINS "VKR9-MZT4x4-470_620-17.4.4.1.xml")
run(${KELTO_HSI} 0 out ARGS rename ${mosaic} --apply)
if(NOT EXISTS ${WORK_DIR}/drawer/VKR9-MZT4x4-470_620-17.4.4.1.xml OR EXISTS ${mosaic})
  message(FATAL_ERROR "rename --apply did not rename")
endif()
file(COPY_FILE ${WORK_DIR}/one.xml ${mosaic})
run(${KELTO_HSI} 10 out ARGS rename ${mosaic} --apply CONTAINS "exists already")
file(READ ${WORK_DIR}/one.xml text)
string(REGEX REPLACE "sensor_id=\"[^\"]*\"" "sensor_id=\"0.0.0.0\"" text "${text}")
file(WRITE ${WORK_DIR}/anonymous.xml "${text}")
run(${KELTO_HSI} 2 out ARGS rename ${WORK_DIR}/anonymous.xml CONTAINS "0.0.0.0")

# Every old calibration converts; the one without version needs --force for the error its form
# always reports. Converted once more, each stays as it is, but that a matrix type unknown in an
# old matrix reads as reflectance in the current form.
file(GLOB legacy ${DATA_DIR}/legacy/calibration_*.xml)
run(${KELTO_HSI} 2 out ARGS convert ${legacy} -o ${WORK_DIR}/legacy
    CONTAINS "calibration_unversioned.xml: refused" "!filter_zones.empty ()")
run(${KELTO_HSI} 0 out ARGS convert ${legacy} -o ${WORK_DIR}/legacy --force)
run(${KELTO_HSI} 0 out ARGS convert ${WORK_DIR}/legacy -o ${WORK_DIR}/again --force)
foreach(old IN LISTS legacy)
  get_filename_component(name ${old} NAME)
  file(READ ${WORK_DIR}/legacy/${name} first)
  file(READ ${WORK_DIR}/again/${name} second)
  string(REPLACE "<type>unknown</type>" "<type>reflectance</type>" first "${first}")
  if(NOT first STREQUAL second)
    message(FATAL_ERROR "${name} converted twice is not the same")
  endif()
endforeach()
