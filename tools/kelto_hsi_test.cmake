# Runs kelto-hsi as a user would and checks exit codes and output.
# Inputs: KELTO_HSI, KELTO_SIM, DATA_DIR, WORK_DIR.

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
                    "65 records read" "state: Ok")
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

# spectrum: the simulated scene read through the calibration it was simulated with.
function(run_sim)
  execute_process(COMMAND ${KELTO_SIM} ${ARGN}
                  RESULT_VARIABLE code OUTPUT_QUIET ERROR_VARIABLE err TIMEOUT 60)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "kelto-sim ${ARGN}: exit ${code}\n${err}")
  endif()
endfunction()

# As expect_run, handing standard output and error to the caller.
function(run_hsi expected_code out_var err_var)
  execute_process(COMMAND ${KELTO_HSI} ${ARGN}
                  RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err TIMEOUT 20)
  if(NOT code EQUAL expected_code)
    message(FATAL_ERROR "kelto-hsi ${ARGN}: exit ${code}, expected ${expected_code}\n${out}\n${err}")
  endif()
  set(${out_var} "${out}" PARENT_SCOPE)
  set(${err_var} "${err}" PARENT_SCOPE)
endfunction()

# The "wavelength,value" lines of a CSV spectrum as a list of "wavelength;value" pairs joined by
# "|"; checks the header line and the shape of every line.
function(csv_rows csv rows_var)
  string(REGEX REPLACE "\n$" "" csv "${csv}")
  string(REPLACE "\n" ";" lines "${csv}")
  list(POP_FRONT lines header)
  if(NOT header STREQUAL "wavelength,value")
    message(FATAL_ERROR "spectrum: header line \"${header}\", expected \"wavelength,value\"")
  endif()
  set(rows "")
  foreach(line IN LISTS lines)
    if(NOT line MATCHES "^([0-9.]+),(-?[0-9.]+(e[-+][0-9]+)?)$")
      message(FATAL_ERROR "spectrum: malformed line \"${line}\" in\n${csv}")
    endif()
    list(APPEND rows "${CMAKE_MATCH_1}|${CMAKE_MATCH_2}")
  endforeach()
  set(${rows_var} "${rows}" PARENT_SCOPE)
endfunction()

run_sim(calibrations ${WORK_DIR}/calibrations)
run_sim(scene ${WORK_DIR}/scene)
set(mosaic ${WORK_DIR}/calibrations/VKR9-MZT4x4-470_620.xml)
set(scene ${WORK_DIR}/scene/VKR9-MZT4x4-470_620.hdr)
set(scene_data ${WORK_DIR}/scene/VKR9-MZT4x4-470_620.raw)
# The centre of the grey patch (reflectance 0.30 at every wavelength) and a corner of the
# no-data border.
set(grey 46,46)

# The scene holds the bands as measured under a flat illumination of 1, so that an irradiance
# matrix gives the reflectance back.
run_hsi(0 out err matrix ${mosaic} --name irradiance --type irradiance -o ${mosaic})
# Corrected: one line per virtual band, 470 to 620 nm, each within 10 % of the truth.
run_hsi(0 out err spectrum ${mosaic} ${scene} --pixel ${grey} --matrix irradiance)
if(NOT err STREQUAL "")
  message(FATAL_ERROR "spectrum of the grey patch: unexpected message \"${err}\"")
endif()
csv_rows("${out}" rows)
list(LENGTH rows count)
if(NOT count EQUAL 16)
  message(FATAL_ERROR "spectrum: ${count} values, expected 16\n${out}")
endif()
set(expected_wavelength 470)
foreach(row IN LISTS rows)
  string(REPLACE "|" ";" row "${row}")
  list(GET row 0 wavelength)
  list(GET row 1 value)
  # The fitted centres lie within a nanometre of the simulated ones.
  math(EXPR low "${expected_wavelength} - 1")
  math(EXPR high "${expected_wavelength} + 1")
  if(NOT wavelength GREATER low OR NOT wavelength LESS high OR value LESS 0.27 OR
     value GREATER 0.33)
    message(FATAL_ERROR "spectrum of the grey patch: ${wavelength},${value}, expected "
                        "${expected_wavelength},0.30 +- 10 %\n${out}")
  endif()
  math(EXPR expected_wavelength "${expected_wavelength} + 10")
endforeach()

# The same as a JSON document.
run_hsi(0 out err spectrum ${mosaic} ${scene} --pixel ${grey} --json --matrix irradiance)
string(JSON matrix GET "${out}" matrix)
string(JSON x GET "${out}" pixel x)
string(JSON y GET "${out}" pixel y)
string(JSON without_data GET "${out}" bands_without_data)
string(JSON count LENGTH "${out}" spectrum)
string(JSON first GET "${out}" spectrum 0 wavelength_nm)
string(JSON last GET "${out}" spectrum 15 wavelength_nm)
string(JSON value GET "${out}" spectrum 8 value)
if(NOT matrix STREQUAL "irradiance" OR NOT x EQUAL 46 OR NOT y EQUAL 46 OR
   NOT without_data EQUAL 0 OR NOT count EQUAL 16 OR first LESS 469 OR first GREATER 471 OR
   last LESS 619 OR last GREATER 621 OR value LESS 0.27 OR value GREATER 0.33)
  message(FATAL_ERROR "spectrum --json of the grey patch:\n${out}")
endif()

# Raw: each band's stored count divided by the "reflectance scale factor", compared with the bytes
# of the data file (unsigned 16 bits, little endian, band sequential, 64 x 64 pixels) in fixed
# point: value x 10^12 x scale against count x 10^12, to 10^-7 (8 digits are printed).
file(STRINGS ${scene} scale_line REGEX "^reflectance scale factor")
string(REGEX REPLACE "^.*= *" "" scale "${scale_line}")
run_hsi(0 out err spectrum ${mosaic} ${scene} --pixel 20,40 --raw)
csv_rows("${out}" rows)
set(band 0)
foreach(row IN LISTS rows)
  string(REPLACE "|" ";" row "${row}")
  list(GET row 1 value)
  if(NOT value MATCHES "^([0-9]+)\\.?([0-9]*)$")
    message(FATAL_ERROR "spectrum --raw: value \"${value}\" is not a plain decimal\n${out}")
  endif()
  set(whole "${CMAKE_MATCH_1}")
  set(fraction "${CMAKE_MATCH_2}000000000000")
  string(SUBSTRING "${fraction}" 0 12 fraction)
  string(REGEX REPLACE "^0+([0-9])" "\\1" fraction "${fraction}")
  math(EXPR offset "((${band} * 64 + 40) * 64 + 20) * 2")
  file(READ ${scene_data} bytes OFFSET ${offset} LIMIT 2 HEX)
  string(SUBSTRING "${bytes}" 0 2 low)
  string(SUBSTRING "${bytes}" 2 2 high)
  math(EXPR difference
       "(${whole} * 1000000000000 + ${fraction}) * ${scale} - 0x${high}${low} * 1000000000000")
  math(EXPR tolerance "0x${high}${low} * 100000 + ${scale}")
  if(difference GREATER tolerance OR difference LESS -${tolerance})
    message(FATAL_ERROR "spectrum --raw: band ${band} reads ${value}, the file holds "
                        "0x${high}${low} with scale ${scale}\n${out}")
  endif()
  math(EXPR band "${band} + 1")
endforeach()
if(NOT band EQUAL 16)
  message(FATAL_ERROR "spectrum --raw: ${band} values, expected 16\n${out}")
endif()

# A pixel of the border holds the fill value in every band: the values come with a warning.
expect_run(0 ARGS spectrum ${mosaic} ${scene} --pixel 0,0
           CONTAINS "wavelength,value" "warning: pixel 0,0 holds no data in 16 of 16 bands")
expect_run(0 ARGS spectrum ${mosaic} ${scene} --pixel 63,0 --json
           CONTAINS "\"bands_without_data\": 16")

# The pixel.
expect_run(7 ARGS spectrum ${mosaic} ${scene} --pixel 64,0
           CONTAINS "pixel 64,0 lies outside the image of 64 x 64 pixels")
expect_run(7 ARGS spectrum ${mosaic} ${scene} --pixel=0,-1 CONTAINS "pixel 0,-1 lies outside")
expect_run(64 ARGS spectrum ${mosaic} ${scene} --pixel 3 CONTAINS "--pixel wants X,Y" "\"3\"")
expect_run(64 ARGS spectrum ${mosaic} ${scene} --pixel 3,y CONTAINS "--pixel wants X,Y" "\"3,y\"")

# The correction matrix.
expect_run(8 ARGS spectrum ${mosaic} ${scene} --pixel ${grey} --matrix nope
           CONTAINS "has no correction matrix \"nope\"" "--raw")
expect_run(8 ARGS spectrum ${WORK_DIR}/calibrations/VKR9-TZT32-600_1000.xml ${scene}
                  --pixel ${grey}
           CONTAINS "correction matrix \"true_peaks\" weighs 32 bands" "has 16")
file(READ ${mosaic} without)
string(FIND "${without}" "<correction_matrices>" open_at)
string(FIND "${without}" "</correction_matrices>" close_at)
string(SUBSTRING "${without}" 0 ${open_at} before)
math(EXPR close_end "${close_at} + 22")
string(SUBSTRING "${without}" ${close_end} -1 after)
file(WRITE ${WORK_DIR}/without_matrix.xml "${before}<correction_matrices/>${after}")
expect_run(8 ARGS spectrum ${WORK_DIR}/without_matrix.xml ${scene} --pixel ${grey}
           CONTAINS "without_matrix.xml: holds no correction matrix")
# The scene's data with a header of 8 bands: the 16 bands of the matrix don't fit it.
file(MAKE_DIRECTORY ${WORK_DIR}/eight)
file(READ ${scene} header)
string(REPLACE "bands = 16" "bands = 8" header "${header}")
file(WRITE ${WORK_DIR}/eight/scene.hdr "${header}")
file(COPY_FILE ${scene_data} ${WORK_DIR}/eight/scene.raw)
expect_run(8 ARGS spectrum ${mosaic} ${WORK_DIR}/eight/scene.hdr --pixel ${grey}
           CONTAINS "weighs 16 bands" "has 8: they do not belong together")
run_hsi(0 out err spectrum ${mosaic} ${WORK_DIR}/eight/scene.hdr --pixel ${grey} --raw)
csv_rows("${out}" rows)
list(LENGTH rows count)
if(NOT count EQUAL 8)
  message(FATAL_ERROR "spectrum --raw of 8 bands: ${count} values\n${out}")
endif()

# The files.
expect_run(3 ARGS spectrum ${WORK_DIR}/not_xml.xml ${scene} --pixel ${grey} --raw)
expect_run(4 ARGS spectrum ${mosaic} ${WORK_DIR}/scene/absent.hdr --pixel ${grey}
           CONTAINS "absent.hdr: no such file")
expect_run(4 ARGS spectrum ${mosaic} ${mosaic} --pixel ${grey} CONTAINS "not an image cube")
file(MAKE_DIRECTORY ${WORK_DIR}/complex)
string(REPLACE "bands = 16" "bands = 2" header "${header}")
string(REPLACE "data type = 12" "data type = 6" header "${header}")
file(WRITE ${WORK_DIR}/complex/scene.hdr "${header}")
file(COPY_FILE ${scene_data} ${WORK_DIR}/complex/scene.raw)
expect_run(5 ARGS spectrum ${mosaic} ${WORK_DIR}/complex/scene.hdr --pixel ${grey} --raw
           CONTAINS "complex")
# A copy cut to a quarter of its samples, as an interrupted transfer leaves it.
find_program(HEAD_PROGRAM head REQUIRED)
file(MAKE_DIRECTORY ${WORK_DIR}/truncated)
file(COPY_FILE ${scene} ${WORK_DIR}/truncated/scene.hdr)
execute_process(COMMAND ${HEAD_PROGRAM} -c 32768 ${scene_data}
                OUTPUT_FILE ${WORK_DIR}/truncated/scene.raw RESULT_VARIABLE code)
file(SIZE ${WORK_DIR}/truncated/scene.raw size)
if(NOT code EQUAL 0 OR NOT size EQUAL 32768)
  message(FATAL_ERROR "cannot cut the scene to 32768 bytes (${code}, ${size} bytes)")
endif()
expect_run(6 ARGS spectrum ${mosaic} ${WORK_DIR}/truncated/scene.hdr --pixel ${grey}
           CONTAINS "header and data size disagree" "131072 bytes" "holds 32768")
