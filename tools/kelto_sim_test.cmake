# Runs kelto-sim on the scenes it writes, as a user would: the shape of the scenes, the figures of
# evaluate and its exit codes. Inputs: KELTO_SIM, WORK_DIR.

# Runs kelto-sim, expects the exit code, and hands standard output to out_var; the error output
# must contain each CONTAINS text.
function(run_sim expected_code out_var)
  cmake_parse_arguments(ARG "" "" "ARGS;CONTAINS" ${ARGN})
  execute_process(COMMAND ${KELTO_SIM} ${ARG_ARGS}
                  RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err TIMEOUT 60)
  if(NOT code EQUAL expected_code)
    message(FATAL_ERROR "kelto-sim ${ARG_ARGS}: exit ${code}, expected ${expected_code}\n${out}\n${err}")
  endif()
  foreach(text IN LISTS ARG_CONTAINS)
    string(FIND "${err}" "${text}" at)
    if(at EQUAL -1)
      message(FATAL_ERROR "kelto-sim ${ARG_ARGS}: error output lacks \"${text}\"\n${err}")
    endif()
  endforeach()
  set(${out_var} "${out}" PARENT_SCOPE)
endfunction()

# A figure of the evaluate document (a path of keys), which must be a finite number: the JSON
# writer turns NaN and infinity into null.
function(json_figure document result_var)
  string(JSON value GET "${document}" ${ARGN})
  if(NOT value MATCHES "^-?[0-9]+(\\.[0-9]+)?([eE][-+]?[0-9]+)?$")
    message(FATAL_ERROR "evaluate --json: ${ARGN} is \"${value}\", not a finite number\n${document}")
  endif()
  set(${result_var} "${value}" PARENT_SCOPE)
endfunction()

# The three figures of an evaluate document, overall and of every patch, as
# <prefix>_uncorrected, <prefix>_true_peaks and <prefix>_matrix, the patch's name after the prefix
# for a patch (mosaic_grey_uncorrected). Fails unless every patch is there.
function(evaluate_figures document prefix)
  foreach(kind uncorrected true_peaks matrix)
    json_figure("${document}" figure ${kind}_rms_percent)
    set(${prefix}_${kind} "${figure}" PARENT_SCOPE)
  endforeach()
  string(JSON count LENGTH "${document}" patches)
  if(NOT count EQUAL 4)
    message(FATAL_ERROR "evaluate --json: ${count} patches, expected 4\n${document}")
  endif()
  foreach(index RANGE 3)
    string(JSON name GET "${document}" patches ${index} name)
    foreach(kind uncorrected true_peaks matrix)
      json_figure("${document}" figure patches ${index} ${kind}_rms_percent)
      set(${prefix}_${name}_${kind} "${figure}" PARENT_SCOPE)
    endforeach()
  endforeach()
endfunction()

# A non-negative decimal number, as the JSON writer prints it, in whole thousandths (rounded
# down): CMake's arithmetic knows integers only.
function(thousandths value result_var)
  if(NOT value MATCHES "^([0-9]+)(\\.([0-9]+))?([eE]([-+]?[0-9]+))?$")
    message(FATAL_ERROR "\"${value}\" is not a non-negative decimal number")
  endif()
  set(digits "${CMAKE_MATCH_1}${CMAKE_MATCH_3}")
  string(LENGTH "${CMAKE_MATCH_3}" fraction_length)
  set(exponent "${CMAKE_MATCH_5}")
  if(exponent STREQUAL "")
    set(exponent 0)
  endif()
  math(EXPR shift "${exponent} + 3 - ${fraction_length}")
  if(shift GREATER_EQUAL 0)
    string(REPEAT "0" ${shift} zeros)
    string(APPEND digits "${zeros}")
  else()
    string(LENGTH "${digits}" length)
    math(EXPR keep "${length} + ${shift}")
    if(keep LESS_EQUAL 0)
      set(digits 0)
    else()
      string(SUBSTRING "${digits}" 0 ${keep} digits)
    endif()
  endif()
  string(REGEX REPLACE "^0+([0-9])" "\\1" digits "${digits}")
  set(${result_var} "${digits}" PARENT_SCOPE)
endfunction()

# Fails unless the figures a and b agree to 1 % of a (and a thousandth).
function(expect_close what a b)
  thousandths("${a}" a_milli)
  thousandths("${b}" b_milli)
  math(EXPR difference "${a_milli} - ${b_milli}")
  math(EXPR tolerance "${a_milli} / 100 + 1")
  if(difference GREATER tolerance OR difference LESS -${tolerance})
    message(FATAL_ERROR "${what}: ${b}, expected ${a} to 1 %")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
run_sim(0 out ARGS calibrations ${WORK_DIR}/calibrations)
run_sim(0 out ARGS scene ${WORK_DIR}/scene)
file(GLOB made RELATIVE ${WORK_DIR}/scene ${WORK_DIR}/scene/*)
file(GLOB calibrations RELATIVE ${WORK_DIR}/calibrations ${WORK_DIR}/calibrations/*.xml)
string(REPLACE ".xml" ".hdr" expected "${calibrations}")
string(REPLACE ".xml" ".raw" expected_data "${calibrations}")
list(APPEND expected ${expected_data})
# The mosaics' raw, dark and white frames.
foreach(mosaic TEM480-MZT4x4-1100_1700 VKR9-MZT4x4-470_620 VKR9-MZT5x5-600_1000)
  list(APPEND expected ${mosaic}-raw.pgm ${mosaic}-dark.pgm ${mosaic}-white.pgm)
endforeach()
list(SORT expected)
if(NOT made STREQUAL expected)
  message(FATAL_ERROR "scene: wrote [${made}], expected a .hdr and a .raw per calibration and "
                      "the mosaics' frames, [${expected}], and nothing else")
endif()

# The wedge's scene is the cube 64 frames of its line scan assemble: 64 lines of 64 pixels in
# 150 bands, each frame one line of every band.
set(wedge_scene ${WORK_DIR}/scene/VKR9-QL150-470_900.hdr)
foreach(field "samples = 64" "lines = 64" "bands = 150" "interleave = bil" "data type = 12")
  file(STRINGS ${wedge_scene} line REGEX "^${field}$")
  if(line STREQUAL "")
    message(FATAL_ERROR "${wedge_scene} lacks the line \"${field}\"")
  endif()
endforeach()
file(SIZE ${WORK_DIR}/scene/VKR9-QL150-470_900.raw size)
if(NOT size EQUAL 1228800)
  message(FATAL_ERROR "the wedge's scene holds ${size} bytes, expected 64 x 64 x 150 x 2")
endif()

# The 4x4 mosaic with the matrix it carries, computed from its true peaks.
set(mosaic ${WORK_DIR}/calibrations/VKR9-MZT4x4-470_620.xml)
set(mosaic_scene ${WORK_DIR}/scene/VKR9-MZT4x4-470_620.hdr)
run_sim(0 out ARGS evaluate ${mosaic} ${mosaic_scene} --json)
evaluate_figures("${out}" mosaic)
string(JSON matrix GET "${out}" matrix)
if(NOT matrix STREQUAL "true_peaks")
  message(FATAL_ERROR "evaluate judged \"${matrix}\", expected the first matrix, true_peaks")
endif()
if(NOT mosaic_uncorrected GREATER 0)
  message(FATAL_ERROR "evaluate: the bands alone of the 4x4 mosaic show no error\n${out}")
endif()
# A flat reflectance, white referenced, is itself in every band, whatever the band's shape.
if(NOT mosaic_grey_uncorrected LESS 0.1)
  message(FATAL_ERROR "evaluate: white-referenced bands of the grey patch are off by "
                      "${mosaic_grey_uncorrected} %\n${out}")
endif()
expect_close("the stored true-peak matrix against the one computed now" ${mosaic_true_peaks}
             ${mosaic_matrix})

# The wedge with a matrix that takes each white-referenced band as it is: its figures must be
# those of the bands alone, at every patch.
file(STRINGS ${wedge_scene} wavelength_line REGEX "^wavelength = ")
file(STRINGS ${wedge_scene} fwhm_line REGEX "^fwhm = ")
string(REGEX REPLACE "^.*{(.*)}$" "\\1" wavelengths "${wavelength_line}")
string(REGEX REPLACE "^.*{(.*)}$" "\\1" widths "${fwhm_line}")
string(REPLACE ", " ";" wavelengths "${wavelengths}")
string(REPLACE ", " ";" widths "${widths}")
set(bands "")
foreach(index RANGE 149)
  list(GET wavelengths ${index} wavelength)
  list(GET widths ${index} fwhm)
  math(EXPR after "149 - ${index}")
  string(REPEAT "0 " ${index} before_text)
  string(REPEAT " 0" ${after} after_text)
  string(APPEND bands "<virtual_band version=\"3\"><wavelength_nm>${wavelength}</wavelength_nm>"
         "<fwhm_nm>${fwhm}</fwhm_nm><coefficients nr_elements=\"150\" "
         "values=\"${before_text}1${after_text}\"/></virtual_band>\n")
endforeach()
file(READ ${WORK_DIR}/calibrations/VKR9-QL150-470_900.xml wedge)
string(REPLACE "<correction_matrices>"
       "<correction_matrices><correction_matrix version=\"6\" created=\"2026-01-15T09:30:00Z\">
<name>bands_alone</name><algorithm>m0</algorithm><algorithm_version>1.0</algorithm_version>
<type>reflectance</type><minimum_band_energy>1</minimum_band_energy><optical_components/>
<virtual_bands>${bands}</virtual_bands></correction_matrix>"
       wedge "${wedge}")
set(wedge_calibration ${WORK_DIR}/VKR9-QL150-470_900.xml)
file(WRITE ${wedge_calibration} "${wedge}")
run_sim(0 out ARGS evaluate ${wedge_calibration} ${wedge_scene} --matrix bands_alone --json)
evaluate_figures("${out}" wedge)
if(NOT wedge_uncorrected GREATER 0)
  message(FATAL_ERROR "evaluate: the bands alone of the wedge show no error\n${out}")
endif()
if(NOT wedge_grey_uncorrected LESS 0.1)
  message(FATAL_ERROR "evaluate: white-referenced bands of the wedge's grey patch are off by "
                      "${wedge_grey_uncorrected} %\n${out}")
endif()
expect_close("the wedge's bands through an identity matrix" ${wedge_uncorrected} ${wedge_matrix})
foreach(patch vegetation soil water grey)
  expect_close("the wedge's ${patch} patch through an identity matrix"
               ${wedge_${patch}_uncorrected} ${wedge_${patch}_matrix})
endforeach()
string(JSON listing ERROR_VARIABLE absent GET "${out}" patches 0 matrix)
if(absent STREQUAL "NOTFOUND")
  message(FATAL_ERROR "evaluate --json lists values without --patch\n${out}")
endif()
# Band by band, on the patch of the most structured spectrum: one times a band plus zero times the
# others is the band's value to the last digit.
run_sim(0 out ARGS evaluate ${wedge_calibration} ${wedge_scene} --matrix bands_alone --json
                   --patch vegetation)
string(JSON name GET "${out}" patches 0 name)
string(JSON band_rows GET "${out}" patches 0 bands)
string(JSON matrix_rows GET "${out}" patches 0 matrix)
string(REGEX MATCHALL "\"value\" : [^,}\n]+" band_values "${band_rows}")
string(REGEX MATCHALL "\"value\" : [^,}\n]+" matrix_values "${matrix_rows}")
list(LENGTH band_values count)
if(NOT name STREQUAL "vegetation" OR NOT count EQUAL 150 OR
   NOT band_values STREQUAL matrix_values)
  message(FATAL_ERROR "evaluate: the identity matrix does not give the wedge's band values back "
                      "(${count} bands)\nbands: ${band_values}\nmatrix: ${matrix_values}")
endif()

# The listing of a patch, in text and in JSON.
run_sim(0 out ARGS evaluate ${mosaic} ${mosaic_scene} --patch soil)
foreach(text "soil at 46,18:" "true-peak matrix:" "all patches")
  string(FIND "${out}" "${text}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "evaluate --patch soil: output lacks \"${text}\"\n${out}")
  endif()
endforeach()
run_sim(0 out ARGS evaluate ${mosaic} ${mosaic_scene} --patch soil --json)
string(JSON name GET "${out}" patches 1 name)
string(JSON count LENGTH "${out}" patches 1 bands)
json_figure("${out}" wavelength patches 1 bands 15 wavelength_nm)
if(NOT name STREQUAL "soil" OR NOT count EQUAL 16 OR NOT wavelength EQUAL 620)
  message(FATAL_ERROR "evaluate --patch soil --json: the soil patch lists ${count} bands\n${out}")
endif()

# Exit codes.
run_sim(2 out ARGS evaluate ${mosaic} ${mosaic_scene} --matrix nope
        CONTAINS "has no correction matrix \"nope\"")
file(READ ${WORK_DIR}/calibrations/VKR9-TZT32-600_1000.xml tiles)
string(FIND "${tiles}" "<correction_matrices>" open_at)
string(FIND "${tiles}" "</correction_matrices>" close_at)
string(SUBSTRING "${tiles}" 0 ${open_at} before)
math(EXPR close_end "${close_at} + 22")
string(SUBSTRING "${tiles}" ${close_end} -1 after)
file(WRITE ${WORK_DIR}/tiles_without_matrix.xml "${before}<correction_matrices/>${after}")
run_sim(2 out ARGS evaluate ${WORK_DIR}/tiles_without_matrix.xml
                   ${WORK_DIR}/scene/VKR9-TZT32-600_1000.hdr
        CONTAINS "holds no correction matrix")
run_sim(8 out ARGS evaluate ${mosaic} ${wedge_scene} CONTAINS "weighs 16 bands" "has 150")
# The short-wave infrared mosaic has 16 bands too, at other wavelengths.
run_sim(4 out ARGS evaluate ${mosaic} ${WORK_DIR}/scene/TEM480-MZT4x4-1100_1700.hdr
        CONTAINS "not the scene of that type")
file(WRITE ${WORK_DIR}/not_xml.xml "width=640\n")
run_sim(3 out ARGS evaluate ${WORK_DIR}/not_xml.xml ${mosaic_scene})
run_sim(4 out ARGS evaluate ${mosaic} ${WORK_DIR}/scene/absent.hdr CONTAINS "absent.hdr")
# A record of another kind is named as such, not read as a broken calibration.
file(WRITE ${WORK_DIR}/sensor.xml "<sensor_info version=\"2\" sensor_type=\"VKR9\"/>")
run_sim(3 out ARGS evaluate ${WORK_DIR}/sensor.xml ${mosaic_scene}
        CONTAINS "sensor.xml holds a sensor_info record, not a calibration")
if(NOT out STREQUAL "")
  message(FATAL_ERROR "evaluate of a sensor block printed \"${out}\"")
endif()
run_sim(0 out ARGS --help)
run_sim(0 out ARGS evaluate --help)
foreach(text "64 a usage error" "3 a calibration or record that can't be read")
  string(FIND "${out}" "${text}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "evaluate --help lacks \"${text}\"\n${out}")
  endif()
endforeach()
run_sim(64 out ARGS)
run_sim(64 out ARGS evaluate ${mosaic})
run_sim(64 out ARGS evaluate ${mosaic} ${mosaic_scene} --patch sky
        CONTAINS "sky" "vegetation,soil,water,grey,all")
run_sim(64 out ARGS evaluate ${mosaic} ${mosaic_scene} --frobnicate)
run_sim(64 out ARGS paint ${WORK_DIR}
        CONTAINS "unknown command \"paint\"" "calibrations, scene, evaluate")
