# Runs kelto-hsi as a user would and checks exit codes and output.
# Inputs: KELTO_HSI, KELTO_SIM, DATA_DIR, WORK_DIR.

# expect_run(<exit code> ARGS <arguments> [CONTAINS <text>...] [OUT <text>...] [ERR <text>...]
#            [NOT_OUT <text>...] [NOT_ERR <text>...] [NO_OUT] [NO_ERR])
# CONTAINS looks in both streams, OUT and ERR in standard output and standard error alone; NO_OUT
# and NO_ERR want the stream empty.
function(expect_run expected_code)
  cmake_parse_arguments(ARG "NO_OUT;NO_ERR" "" "ARGS;CONTAINS;OUT;ERR;NOT_OUT;NOT_ERR" ${ARGN})
  execute_process(COMMAND ${KELTO_HSI} ${ARG_ARGS}
                  RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err TIMEOUT 20)
  set(context "kelto-hsi ${ARG_ARGS}: exit ${code}\nstandard output:\n${out}\nstandard error:\n${err}")
  if(NOT code EQUAL expected_code)
    message(FATAL_ERROR "expected exit ${expected_code}; ${context}")
  endif()
  set(text_of_CONTAINS "${out}${err}")
  set(text_of_OUT "${out}")
  set(text_of_ERR "${err}")
  foreach(kind CONTAINS OUT ERR)
    foreach(text IN LISTS ARG_${kind})
      string(FIND "${text_of_${kind}}" "${text}" at)
      if(at EQUAL -1)
        message(FATAL_ERROR "${kind} lacks \"${text}\"; ${context}")
      endif()
    endforeach()
  endforeach()
  foreach(text IN LISTS ARG_NOT_OUT)
    string(FIND "${out}" "${text}" at)
    if(NOT at EQUAL -1)
      message(FATAL_ERROR "standard output holds \"${text}\"; ${context}")
    endif()
  endforeach()
  foreach(text IN LISTS ARG_NOT_ERR)
    string(FIND "${err}" "${text}" at)
    if(NOT at EQUAL -1)
      message(FATAL_ERROR "standard error holds \"${text}\"; ${context}")
    endif()
  endforeach()
  if(ARG_NO_OUT AND NOT out STREQUAL "")
    message(FATAL_ERROR "standard output should be empty; ${context}")
  endif()
  if(ARG_NO_ERR AND NOT err STREQUAL "")
    message(FATAL_ERROR "standard error should be empty; ${context}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

# Writes the file with the text of the original where `from` is replaced by `to` once.
function(write_changed original target from to)
  file(READ ${original} text)
  string(FIND "${text}" "${from}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${original} lacks \"${from}\"")
  endif()
  string(LENGTH "${from}" length)
  string(SUBSTRING "${text}" 0 ${at} before)
  math(EXPR rest "${at} + ${length}")
  string(SUBSTRING "${text}" ${rest} -1 after)
  file(WRITE ${target} "${before}${to}${after}")
endfunction()

# The command line: --help ends with the table of exit codes; every usage error exits with 64.
expect_run(0 ARGS --help OUT "check" "spectrum" "64 a usage error" NO_ERR)
expect_run(0 ARGS spectrum --help
           OUT "Band k of the cube is band number k of the calibration" "9 a pixel without data")
expect_run(64 ARGS paint ${DATA_DIR}/sensor_info_vkr9.xml NO_OUT
           ERR "unknown command \"paint\"" "check, info, spectrum, peaks, matrix")
expect_run(64 ARGS NO_OUT ERR "subcommand is required")
expect_run(64 ARGS check NO_OUT ERR "FILE is required")
expect_run(64 ARGS check ${DATA_DIR}/sensor_info_vkr9.xml --frobnicate NO_OUT ERR "frobnicate")
expect_run(64 ARGS info NO_OUT)

# check: a summary, the events that tell of a problem and a one-line verdict; --verbose lists
# every event.
set(mosaic_sample ${DATA_DIR}/calibrations/VKR9-MZT4x4-470_620.xml)
expect_run(0 ARGS check ${DATA_DIR}/sensor_info_vkr9.xml
           OUT "VKR9" "2048 x 1088" "verdict:       sound, 1 record read, 0 errors, 0 warnings"
           NOT_OUT "ReadStart" "events:" NO_ERR)
expect_run(0 ARGS check ${DATA_DIR}/sensor_info_vkr9.xml --verbose
           OUT "events:" "Ok      ReadStart          sensor_info" "verdict:       sound")
file(GLOB samples ${DATA_DIR}/calibrations/*.xml)
foreach(sample IN LISTS samples)
  expect_run(0 ARGS check ${sample} OUT "verdict:       sound" NOT_OUT " Ok " NO_ERR)
endforeach()
execute_process(COMMAND ${KELTO_HSI} check ${mosaic_sample} OUTPUT_VARIABLE out)
string(REGEX MATCHALL "\n" lines "${out}")
list(LENGTH lines count)
if(count GREATER 20)
  message(FATAL_ERROR "check of a sound calibration prints ${count} lines:\n${out}")
endif()
expect_run(0 ARGS info ${mosaic_sample}
           OUT "VKR9-MZT4x4-470_620" "17.4.4.1" "MOSAIC, area 0,0 2048 x 1088 px, pattern 4 x 4"
               "601 sample points, 400 to 1000 nm" "470.0/10.0/1  940.0/20.0/2"
               "1 matrix(es)" "\"true_peaks\", m0 1.0, reflectance, 16 virtual bands"
               "verdict:       sound, 65 records read, 0 errors, 0 warnings"
           NOT_OUT "ReadStart")
expect_run(0 ARGS info ${DATA_DIR}/calibrations/VKR9-QL150-470_900.xml
           OUT "QL150-470_900, 2 zone(s), 150 bands" "zone 1:" "WEDGE")
expect_run(0 ARGS check ${DATA_DIR}/calibration_info_v1.xml
           OUT "551 sample points, 450 to 1000 nm")
expect_run(2 ARGS check ${DATA_DIR}/sensor_info_defective.xml
           OUT "MissingElement" "pixel_pitch_um" "0 < height_px" "verdict:       errors")

file(WRITE ${WORK_DIR}/unversioned.xml
     "<sensor_info><width>640</width><height>512</height><pixelPitch>5.5</pixelPitch></sensor_info>")
expect_run(1 ARGS check ${WORK_DIR}/unversioned.xml
           OUT "MissingVersion" "verdict:       warnings")

# check --json and info --json: the events as objects, the verdict and the exit code.
execute_process(COMMAND ${KELTO_HSI} check ${mosaic_sample} --json
                RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err)
string(JSON verdict GET "${out}" verdict)
string(JSON exit_code GET "${out}" exit_code)
string(JSON events LENGTH "${out}" events)
string(JSON records GET "${out}" records_read)
if(NOT code EQUAL 0 OR NOT verdict STREQUAL "sound" OR NOT exit_code EQUAL 0 OR
   NOT events EQUAL 0 OR NOT records EQUAL 65 OR NOT err STREQUAL "")
  message(FATAL_ERROR "check --json of a sound calibration (exit ${code}):\n${out}\n${err}")
endif()
execute_process(COMMAND ${KELTO_HSI} info ${DATA_DIR}/sensor_info_defective.xml --json
                RESULT_VARIABLE code OUTPUT_VARIABLE out)
string(JSON verdict GET "${out}" verdict)
string(JSON exit_code GET "${out}" exit_code)
string(JSON state GET "${out}" events 0 state)
string(JSON source GET "${out}" events 0 source)
string(JSON text GET "${out}" events 0 text)
if(NOT code EQUAL 2 OR NOT verdict STREQUAL "errors" OR NOT exit_code EQUAL 2 OR
   NOT state MATCHES "^(Error|Warning)$" OR source STREQUAL "" OR text STREQUAL "")
  message(FATAL_ERROR "info --json of a defective sensor block (exit ${code}):\n${out}")
endif()
execute_process(COMMAND ${KELTO_HSI} check ${DATA_DIR}/sensor_info_vkr9.xml --json --verbose
                OUTPUT_VARIABLE out)
string(JSON source GET "${out}" events 0 source)
if(NOT source STREQUAL "ReadStart")
  message(FATAL_ERROR "check --json --verbose lacks the events in state Ok:\n${out}")
endif()

# Files that can't be read.
file(WRITE ${WORK_DIR}/not_xml.xml "width=640\n")
expect_run(3 ARGS check ${WORK_DIR}/not_xml.xml ERR "not XML" NO_OUT)
expect_run(3 ARGS check ${WORK_DIR}/does_not_exist.xml ERR "does not exist" NO_OUT)
expect_run(3 ARGS check ${WORK_DIR} ERR "directory")
file(WRITE ${WORK_DIR}/unknown.xml "<lens version=\"1\"/>")
expect_run(3 ARGS check ${WORK_DIR}/unknown.xml ERR "unknown record \"lens\"")
execute_process(COMMAND ${KELTO_HSI} check ${WORK_DIR}/does_not_exist.xml --json
                RESULT_VARIABLE code OUTPUT_VARIABLE out)
string(JSON verdict GET "${out}" verdict)
string(JSON exit_code GET "${out}" exit_code)
if(NOT code EQUAL 3 OR NOT verdict STREQUAL "unreadable" OR NOT exit_code EQUAL 3)
  message(FATAL_ERROR "check --json of a missing file (exit ${code}):\n${out}")
endif()
# A copy cut short, as an interrupted transfer leaves it: said in plain words first, then the
# parser's detail with its line.
file(READ ${mosaic_sample} whole)
foreach(length 1000 1037 100000)
  string(SUBSTRING "${whole}" 0 ${length} part)
  file(WRITE ${WORK_DIR}/cut.xml "${part}")
  expect_run(3 ARGS check ${WORK_DIR}/cut.xml NO_OUT
             ERR "cut.xml: the document is not well-formed XML: it ends early" "; line ")
endforeach()

# The optics and correction matrices, which reading leaves unchecked, and what a correction
# can't survive. check and info find them; spectrum refuses such a matrix with the same words.
set(broken ${WORK_DIR}/broken)
file(MAKE_DIRECTORY ${broken})
write_changed(${mosaic_sample} ${broken}/not_finite.xml "values=\"1.24293 " "values=\"nan ")
write_changed(${mosaic_sample} ${broken}/short.xml
              "<coefficients nr_elements=\"16\" values=\"1.24293 -0.021064 "
              "<coefficients nr_elements=\"15\" values=\"1.24293 ")
write_changed(${mosaic_sample} ${broken}/outside.xml
              "<wavelength_nm>470</wavelength_nm>\n              <fwhm_nm>10</fwhm_nm>"
              "<wavelength_nm>1200</wavelength_nm>\n              <fwhm_nm>10</fwhm_nm>")
write_changed(${mosaic_sample} ${broken}/negative.xml
              "<wavelength_nm>480</wavelength_nm>\n              <fwhm_nm>10.199999999999999"
              "<wavelength_nm>-480</wavelength_nm>\n              <fwhm_nm>10.199999999999999")
set(not_finite_text
    "correction matrix \"true_peaks\": virtual band 0 has a coefficient that is not finite, nan for band 0")
set(short_text
    "correction matrix \"true_peaks\": virtual band 0 weighs 15 bands, the calibration has 16 bands")
set(outside_text "correction matrix \"true_peaks\": virtual band 0 at 1200 nm lies outside the calibration's grid, 400 to 1000 nm")
set(negative_text "0.0 <= wavelength_nm")
foreach(case not_finite short outside negative)
  foreach(command check info)
    expect_run(2 ARGS ${command} ${broken}/${case}.xml
               OUT "${${case}_text}" "verdict:       errors" NO_ERR)
  endforeach()
endforeach()
write_changed(${mosaic_sample} ${broken}/optics.xml
              "<measured>2026-01-10</measured>\n        <sample_points_nm nr_elements=\"601\" values=\"400 "
              "<measured>2026-01-10</measured>\n        <sample_points_nm nr_elements=\"601\" values=\"-400 ")
expect_run(1 ARGS check ${broken}/optics.xml
           OUT "Warning SanityCheck        0.0 <= sample_points_nm.front ()" "verdict:       warnings")
# A correction matrix on its own.
file(READ ${broken}/not_finite.xml text)
string(REGEX MATCH "<correction_matrix version.*</correction_matrix>" matrix_text "${text}")
file(WRITE ${broken}/matrix.xml "${matrix_text}")
expect_run(2 ARGS check ${broken}/matrix.xml
           OUT "correction matrix \"true_peaks\": virtual band 0 has a coefficient that is not finite"
               "verdict:       errors")
file(READ ${broken}/short.xml text)
string(REGEX MATCH "<correction_matrix version.*</correction_matrix>" matrix_text "${text}")
file(WRITE ${broken}/short_matrix.xml "${matrix_text}")
expect_run(2 ARGS check ${broken}/short_matrix.xml
           OUT "correction matrix \"true_peaks\": virtual band 1 weighs 16 bands, the first weighs 15 (and 14 more virtual bands)")

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
string(JSON without_data LENGTH "${out}" bands_without_data)
string(JSON no_data GET "${out}" no_data)
string(JSON count LENGTH "${out}" spectrum)
string(JSON first GET "${out}" spectrum 0 wavelength_nm)
string(JSON last GET "${out}" spectrum 15 wavelength_nm)
string(JSON value GET "${out}" spectrum 8 value)
if(NOT matrix STREQUAL "irradiance" OR NOT x EQUAL 46 OR NOT y EQUAL 46 OR
   NOT without_data EQUAL 0 OR no_data OR NOT count EQUAL 16 OR first LESS 469 OR first GREATER 471 OR
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

# A pixel of the border holds the fill value in every band: no spectrum, exit 9.
expect_run(9 ARGS spectrum ${mosaic} ${scene} --pixel 0,0 NO_OUT
           ERR "pixel 0,0 has no data in bands 0-15 (16 of 16 bands hold the fill value 65535)")
expect_run(9 ARGS spectrum ${mosaic} ${scene} --pixel 0,0 --raw NO_OUT ERR "bands 0-15")
run_hsi(9 out err spectrum ${mosaic} ${scene} --pixel 63,0 --json)
string(JSON no_data GET "${out}" no_data)
string(JSON without_data LENGTH "${out}" bands_without_data)
string(JSON count LENGTH "${out}" spectrum)
string(JSON value TYPE "${out}" spectrum 3 value)
string(JSON wavelength GET "${out}" spectrum 3 wavelength_nm)
if(NOT no_data OR NOT without_data EQUAL 16 OR NOT count EQUAL 16 OR NOT value STREQUAL "NULL" OR
   wavelength LESS 499 OR wavelength GREATER 501)
  message(FATAL_ERROR "spectrum --json of a pixel without data:\n${out}")
endif()
# The fill value in one band only (the header's no-data value made that band's sample at the
# grey patch): the pixel still has no spectrum, and the band is named.
math(EXPR offset "((3 * 64 + 46) * 64 + 46) * 2")
file(READ ${scene_data} bytes OFFSET ${offset} LIMIT 2 HEX)
string(SUBSTRING "${bytes}" 0 2 low)
string(SUBSTRING "${bytes}" 2 2 high)
math(EXPR sample "0x${high}${low}")
file(MAKE_DIRECTORY ${WORK_DIR}/hole)
file(READ ${scene} scene_header)
string(REPLACE "data ignore value = 65535" "data ignore value = ${sample}" hole_header
       "${scene_header}")
file(WRITE ${WORK_DIR}/hole/scene.hdr "${hole_header}")
file(COPY_FILE ${scene_data} ${WORK_DIR}/hole/scene.raw)
run_hsi(9 out err spectrum ${mosaic} ${WORK_DIR}/hole/scene.hdr --pixel ${grey} --json)
string(JSON first GET "${out}" bands_without_data 0)
string(JSON without_data LENGTH "${out}" bands_without_data)
if(NOT first EQUAL 3 OR NOT without_data LESS 16)
  message(FATAL_ERROR "spectrum --json with the fill value in band 3:\n${out}\n${err}")
endif()
expect_run(9 ARGS spectrum ${mosaic} ${WORK_DIR}/hole/scene.hdr --pixel ${grey} NO_OUT
           ERR "pixel 46,46 has no data in band" " 3" "hold the fill value ${sample}")

# The pixel.
expect_run(7 ARGS spectrum ${mosaic} ${scene} --pixel 64,0
           CONTAINS "pixel 64,0 lies outside the image of 64 x 64 pixels")
expect_run(7 ARGS spectrum ${mosaic} ${scene} --pixel=0,-1 CONTAINS "pixel 0,-1 lies outside")
expect_run(64 ARGS spectrum ${mosaic} ${scene} --pixel 3 CONTAINS "--pixel wants X,Y" "\"3\"")
expect_run(64 ARGS spectrum ${mosaic} ${scene} --pixel 3,y CONTAINS "--pixel wants X,Y" "\"3,y\"")
expect_run(64 ARGS spectrum ${mosaic} ${scene} --pixel 3,4,5 NO_OUT ERR "--pixel wants X,Y")
expect_run(64 ARGS spectrum ${mosaic} ${scene} NO_OUT ERR "--pixel is required")
expect_run(64 ARGS spectrum ${mosaic} --pixel ${grey} NO_OUT ERR "IMAGE is required")
expect_run(64 ARGS spectrum ${mosaic} ${scene} --pixel ${grey} --raw --matrix irradiance NO_OUT)

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
# Nor do its 16 wavelengths: they are dropped with a warning, and the 8 bands are numbered.
run_hsi(0 out err spectrum ${mosaic} ${WORK_DIR}/eight/scene.hdr --pixel ${grey} --raw)
string(REGEX MATCHALL "\n[0-9]+,[0-9.]+" rows "${out}")
list(LENGTH rows count)
if(NOT out MATCHES "^band,value\n" OR NOT count EQUAL 8
   OR NOT err MATCHES "the \"wavelength\" list has 16 values for 8 bands")
  message(FATAL_ERROR "spectrum --raw of 8 bands: ${count} values\n${out}\n${err}")
endif()

# A correction matrix that check finds broken is refused, in the same words.
foreach(case not_finite short outside negative)
  expect_run(8 ARGS spectrum ${broken}/${case}.xml ${DATA_DIR}/scene/VKR9-MZT4x4-470_620.hdr
                    --pixel ${grey} NO_OUT ERR "${${case}_text}")
endforeach()
# The broken matrix is not the one used: the spectrum is given.
expect_run(0 ARGS spectrum ${broken}/not_finite.xml ${DATA_DIR}/scene/VKR9-MZT4x4-470_620.hdr
                  --pixel ${grey} --raw OUT "wavelength,value")

# The cube's bands go with the calibration's by position. A cube without wavelengths is
# corrected with one warning, and --raw numbers its bands.
file(MAKE_DIRECTORY ${WORK_DIR}/no_wavelengths)
file(READ ${scene} scene_header)
string(REGEX REPLACE "\nwavelength units = [^\n]*" "" bare_header "${scene_header}")
string(REGEX REPLACE "\nwavelength = [^\n]*" "" bare_header "${bare_header}")
string(REGEX REPLACE "\nfwhm = [^\n]*" "" bare_header "${bare_header}")
file(WRITE ${WORK_DIR}/no_wavelengths/scene.hdr "${bare_header}")
file(COPY_FILE ${scene_data} ${WORK_DIR}/no_wavelengths/scene.raw)
run_hsi(0 out err spectrum ${mosaic} ${WORK_DIR}/no_wavelengths/scene.hdr --pixel ${grey}
        --matrix irradiance)
string(REGEX MATCHALL "warning" warnings "${err}")
list(LENGTH warnings count)
string(FIND "${err}" "gives no band wavelengths; its bands are taken for the calibration's bands in order" at)
if(NOT count EQUAL 1 OR at EQUAL -1)
  message(FATAL_ERROR "spectrum of a cube without wavelengths: ${count} warnings\n${err}")
endif()
csv_rows("${out}" rows)
list(LENGTH rows count)
if(NOT count EQUAL 16)
  message(FATAL_ERROR "spectrum of a cube without wavelengths:\n${out}")
endif()
run_hsi(0 out err spectrum ${mosaic} ${WORK_DIR}/no_wavelengths/scene.hdr --pixel ${grey} --raw)
if(NOT out MATCHES "^band,value\n0,[0-9.]+\n1,[0-9.]+\n" OR NOT out MATCHES "\n15,[0-9.]+\n$")
  message(FATAL_ERROR "spectrum --raw of a cube without wavelengths:\n${out}")
endif()
run_hsi(0 out err spectrum ${mosaic} ${WORK_DIR}/no_wavelengths/scene.hdr --pixel ${grey} --raw
        --json)
string(JSON wavelength TYPE "${out}" spectrum 2 wavelength_nm)
string(JSON band GET "${out}" spectrum 2 band)
if(NOT wavelength STREQUAL "NULL" OR NOT band EQUAL 2)
  message(FATAL_ERROR "spectrum --raw --json of a cube without wavelengths:\n${out}")
endif()
# A band farther from its calibration band than half the FWHM: one warning naming the first.
file(MAKE_DIRECTORY ${WORK_DIR}/shifted)
string(REPLACE "wavelength = {470, 480, 490, 500, 510" "wavelength = {470, 480, 590, 500, 610"
       shifted_header "${scene_header}")
file(WRITE ${WORK_DIR}/shifted/scene.hdr "${shifted_header}")
file(COPY_FILE ${scene_data} ${WORK_DIR}/shifted/scene.raw)
run_hsi(0 out err spectrum ${mosaic} ${WORK_DIR}/shifted/scene.hdr --pixel ${grey}
        --matrix irradiance)
string(REGEX MATCHALL "warning" warnings "${err}")
list(LENGTH warnings count)
string(FIND "${err}" "band 2 of ${WORK_DIR}/shifted/scene.hdr lies at 590 nm, but calibration band 2 peaks at 490 nm (FWHM 10.4 nm)" at)
string(FIND "${err}" "2 of 16 differ by more than half their FWHM" at_count)
if(NOT count EQUAL 1 OR at EQUAL -1 OR at_count EQUAL -1)
  message(FATAL_ERROR "spectrum of a cube at other wavelengths: ${count} warnings\n${err}")
endif()
csv_rows("${out}" rows)

# The files.
expect_run(3 ARGS spectrum ${WORK_DIR}/not_xml.xml ${scene} --pixel ${grey} --raw)
# A record of another kind is named as such, not read as a broken calibration.
expect_run(3 ARGS spectrum ${DATA_DIR}/sensor_info_vkr9.xml ${scene} --pixel ${grey} NO_OUT
           ERR "sensor_info_vkr9.xml holds a sensor_info record, not a calibration"
           NOT_ERR "UnsupportedVersion" "SanityCheck")
expect_run(3 ARGS spectrum ${WORK_DIR}/cut.xml ${scene} --pixel ${grey} NO_OUT
           ERR "not well-formed XML: it ends early")
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

# Header mistakes. A byte order that is neither 0 nor 1 is refused, naming the key.
set(mistakes ${WORK_DIR}/header_mistakes)
file(MAKE_DIRECTORY ${mistakes})
foreach(order 2 -1)
  write_changed(${scene} ${mistakes}/order${order}.hdr "byte order = 0" "byte order = ${order}")
  file(COPY_FILE ${scene_data} ${mistakes}/order${order}.raw)
  expect_run(4 ARGS spectrum ${mosaic} ${mistakes}/order${order}.hdr --pixel ${grey} --raw NO_OUT
             ERR "\"byte order\" is \"${order}\"")
endforeach()
# A wavelength list shorter than the bands is dropped with a warning, as if the cube had none:
# the same samples, numbered by band.
write_changed(${scene} ${mistakes}/short.hdr "wavelength = {470, 480, " "wavelength = {")
file(COPY_FILE ${scene_data} ${mistakes}/short.raw)
run_hsi(0 listed err spectrum ${mosaic} ${scene} --pixel ${grey} --raw)
run_hsi(0 out err spectrum ${mosaic} ${mistakes}/short.hdr --pixel ${grey} --raw)
string(FIND "${err}" "short.hdr: the \"wavelength\" list has 14 values for 16 bands" at)
string(FIND "${err}" "gives no band wavelengths" at_none)
string(REGEX REPLACE "\n[0-9]+," "\n," numbered "${out}")
string(REGEX REPLACE "\n[0-9]+," "\n," listed "${listed}")
string(REPLACE "wavelength,value" "band,value" listed "${listed}")
if(at EQUAL -1 OR at_none EQUAL -1 OR NOT numbered STREQUAL listed)
  message(FATAL_ERROR "spectrum with a short wavelength list:\n${out}\n${err}\nexpected\n${listed}")
endif()

# spectrum reads the pixel's samples alone: on a cube of 1 GiB (a sparse file) it takes no more
# memory than on the small scene.
find_program(TRUNCATE_PROGRAM truncate REQUIRED)
file(WRITE ${mistakes}/large.hdr "ENVI\nsamples = 8192\nlines = 4096\nbands = 16\n"
     "header offset = 0\nfile type = ENVI Standard\ndata type = 12\ninterleave = bsq\n"
     "byte order = 0\n")
execute_process(COMMAND ${TRUNCATE_PROGRAM} -s 1073741824 ${mistakes}/large.raw
                RESULT_VARIABLE code)
if(NOT code EQUAL 0)
  message(FATAL_ERROR "cannot make a sparse file of 1 GiB (${code})")
endif()
run_hsi(0 small err spectrum ${mosaic} ${scene} --pixel ${grey} --raw --json)
run_hsi(0 large err spectrum ${mosaic} ${mistakes}/large.hdr --pixel 8000,4000 --raw --json)
file(REMOVE ${mistakes}/large.raw)
string(JSON small_kib GET "${small}" peak_memory_kib)
string(JSON large_kib GET "${large}" peak_memory_kib)
string(JSON last GET "${large}" spectrum 15 value)
math(EXPR bound "${small_kib} + 16384")
message(STATUS "spectrum peak memory: ${small_kib} KiB on the scene, ${large_kib} KiB on 1 GiB")
if(large_kib GREATER bound OR NOT last EQUAL 0)
  message(FATAL_ERROR "spectrum of a pixel of 1 GiB took ${large_kib} KiB, more than ${bound}:\n"
                      "${large}")
endif()
