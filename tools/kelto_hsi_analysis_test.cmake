# Runs `kelto-hsi peaks` and `kelto-hsi matrix` as a user would: on every sample calibration, with
# the matrix judged on its simulated scene, and on broken calibrations, parameters and outputs.
# Inputs: KELTO_HSI, KELTO_SIM, DATA_DIR, RESOURCE_DIR, WORK_DIR.

include(${CMAKE_CURRENT_LIST_DIR}/cli_test_support.cmake)

# A JSON number in percent as a whole number of thousandths, for integer comparisons.
function(thousandths value out_var)
  if(NOT value MATCHES "^([0-9]+)(\\.([0-9]*))?$")
    message(FATAL_ERROR "not a plain number: ${value}")
  endif()
  string(SUBSTRING "${CMAKE_MATCH_3}000" 0 3 fraction)
  math(EXPR result "${CMAKE_MATCH_1} * 1000 + ${fraction}")
  set(${out_var} ${result} PARENT_SCOPE)
endfunction()

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

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(C ${DATA_DIR}/calibrations)
set(mosaic ${C}/VKR9-MZT4x4-470_620.xml)

# Every sample: a matrix from the measured responses with the sample's own document, better than
# the bands alone and within 1.25 times the error of the matrix made from the true peaks.
foreach(type VKR9-MZT4x4-470_620 VKR9-MZT5x5-600_1000 VKR9-QL150-470_900 VKR9-TZT32-600_1000
             TEM480-MZT4x4-1100_1700)
  run(${KELTO_HSI} 0 out ARGS matrix ${C}/${type}.xml --name measured -o ${WORK_DIR}/${type}.xml
      --json)
  string(JSON parameters GET "${out}" parameters)
  string(JSON virtual_bands GET "${out}" virtual_bands)
  if(NOT parameters STREQUAL type OR virtual_bands LESS 10)
    message(FATAL_ERROR "matrix ${type}: parameters ${parameters}, ${virtual_bands} bands\n${out}")
  endif()
  run(${KELTO_SIM} 0 out ARGS evaluate ${WORK_DIR}/${type}.xml ${DATA_DIR}/scene/${type}.hdr
      --matrix measured --json)
  foreach(figure uncorrected true_peaks matrix)
    string(JSON value GET "${out}" ${figure}_rms_percent)
    thousandths(${value} ${figure})
  endforeach()
  math(EXPR limit "${true_peaks} * 5 / 4")
  message(STATUS "${type}: uncorrected ${uncorrected}, true peaks ${true_peaks}, "
                 "measured ${matrix} (thousandths of a percent)")
  if(NOT matrix LESS uncorrected OR matrix GREATER limit)
    message(FATAL_ERROR "${type}: the measured matrix errs by ${matrix}, the bands alone by "
                        "${uncorrected} and the true-peak matrix by ${true_peaks}\n${out}")
  endif()
endforeach()

# The same computation twice gives the same matrix, but for the times.
run(${KELTO_HSI} 0 out ARGS matrix ${WORK_DIR}/VKR9-MZT4x4-470_620.xml --name measured
    -o ${WORK_DIR}/again.xml)
file(READ ${WORK_DIR}/VKR9-MZT4x4-470_620.xml first_text)
file(READ ${WORK_DIR}/again.xml again_text)
foreach(text first_text again_text)
  string(REGEX REPLACE "(created|modified)=\"[^\"]*\"" "" ${text} "${${text}}")
endforeach()
if(NOT first_text STREQUAL again_text)
  message(FATAL_ERROR "two computations of the same matrix differ")
endif()
# Replaced under its name, not added.
string(REGEX MATCHALL "<name>measured</name>" names "${again_text}")
list(LENGTH names count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "the matrix \"measured\" is stored ${count} times")
endif()

# Peaks of every band, greatest contribution first, from a parameter file as well.
run(${KELTO_HSI} 0 out ARGS peaks ${mosaic} -o ${WORK_DIR}/peaks.xml --json
    --parameters ${RESOURCE_DIR}/VKR9-MZT4x4-470_620.xml)
string(JSON with_peaks GET "${out}" bands_with_peaks)
string(JSON parameters GET "${out}" parameters)
if(NOT with_peaks EQUAL 16 OR NOT parameters STREQUAL "${RESOURCE_DIR}/VKR9-MZT4x4-470_620.xml")
  message(FATAL_ERROR "peaks: ${with_peaks} bands with peaks, parameters ${parameters}\n${out}")
endif()
run(${KELTO_HSI} 0 out ARGS check ${WORK_DIR}/peaks.xml CONTAINS "verdict:       sound")

# Bands out of pattern order in a calibration with matrices: sorting them needs --force.
write_changed(${mosaic} ${WORK_DIR}/unsorted.xml "<band version=\"4\" index=\"0\""
              "<band version=\"4\" index=\"99\"")
run(${KELTO_HSI} 2 out ARGS peaks ${WORK_DIR}/unsorted.xml -o ${WORK_DIR}/sorted.xml
    CONTAINS "--force" "reorders")
if(EXISTS ${WORK_DIR}/sorted.xml)
  message(FATAL_ERROR "peaks wrote its output although it refused")
endif()
run(${KELTO_HSI} 0 out ARGS peaks ${WORK_DIR}/unsorted.xml -o ${WORK_DIR}/sorted.xml --force)

# Parameters that can't be used or read.
run(${KELTO_HSI} 2 out ARGS matrix ${mosaic} --name m -o ${WORK_DIR}/m.xml --parameters VKR9-X
    CONTAINS "no parameter file or key \"VKR9-X\"" "Known keys" "VKR9-MZT4x4-470_620")
file(WRITE ${WORK_DIR}/not_xml.xml "alpha = 0.01\n")
run(${KELTO_HSI} 3 out ARGS matrix ${mosaic} --name m -o ${WORK_DIR}/m.xml
    --parameters ${WORK_DIR}/not_xml.xml CONTAINS "cannot read parameter file")
run(${KELTO_HSI} 3 out ARGS matrix ${mosaic} --name m -o ${WORK_DIR}/m.xml
    --parameters ${mosaic} CONTAINS "holds a sensor_calibration record, not a parameter file")
write_changed(${RESOURCE_DIR}/VKR9-MZT4x4-470_620.xml ${WORK_DIR}/no_alpha.xml
              "<tikhonov_alpha>0.01</tikhonov_alpha>" "<alpha>0.01</alpha>")
run(${KELTO_HSI} 2 out ARGS matrix ${mosaic} --name m -o ${WORK_DIR}/m.xml
    --parameters ${WORK_DIR}/no_alpha.xml CONTAINS "MissingElement" "tikhonov_alpha")
write_changed(${RESOURCE_DIR}/VKR9-MZT4x4-470_620.xml ${WORK_DIR}/negative.xml
              "<shape_interpolation_factor>5" "<shape_interpolation_factor>0")
run(${KELTO_HSI} 2 out ARGS matrix ${mosaic} --name m -o ${WORK_DIR}/m.xml
    --parameters ${WORK_DIR}/negative.xml
    CONTAINS "filter interpolation factor must be strictly positive")
if(EXISTS ${WORK_DIR}/m.xml)
  message(FATAL_ERROR "matrix wrote its output although it refused")
endif()

# Calibrations that can't be read or analysed.
run(${KELTO_HSI} 3 out ARGS matrix ${WORK_DIR}/absent.xml --name m -o ${WORK_DIR}/m.xml
    CONTAINS "cannot read calibration")
run(${KELTO_HSI} 3 out ARGS peaks ${DATA_DIR}/sensor_info_vkr9.xml -o ${WORK_DIR}/m.xml
    CONTAINS "holds a sensor_info record, not a calibration")
file(READ ${mosaic} text)
string(REGEX MATCH "<response nr_elements=\"601\" values=\"[0-9.e-]+ " first_response "${text}")
write_changed(${mosaic} ${WORK_DIR}/short.xml "${first_response}"
              "<response nr_elements=\"600\" values=\"")
run(${KELTO_HSI} 2 out ARGS matrix ${WORK_DIR}/short.xml --name m -o ${WORK_DIR}/m.xml
    CONTAINS "band 0")
write_changed(${mosaic} ${WORK_DIR}/nan.xml "${first_response}"
              "<response nr_elements=\"601\" values=\"nan ")
run(${KELTO_HSI} 2 out ARGS matrix ${WORK_DIR}/nan.xml --name m -o ${WORK_DIR}/m.xml
    CONTAINS "band 0")
string(REGEX MATCH "<sample_points_nm nr_elements=\"601\" values=\"[^\"]*\"/>" grid "${text}")
write_changed(${mosaic} ${WORK_DIR}/four.xml "${grid}"
              "<sample_points_nm nr_elements=\"4\" values=\"400 401 402 403\"/>")
run(${KELTO_HSI} 2 out ARGS peaks ${WORK_DIR}/four.xml -o ${WORK_DIR}/m.xml)
if(EXISTS ${WORK_DIR}/m.xml)
  message(FATAL_ERROR "a refused calibration left an output")
endif()

# An output that can't be written leaves nothing, and a failed run never touches its input.
run(${KELTO_HSI} 10 out ARGS matrix ${mosaic} --name m -o ${WORK_DIR}/absent/m.xml
    CONTAINS "cannot write" "absent/m.xml")
file(GLOB leftovers ${WORK_DIR}/absent* ${WORK_DIR}/*.part)
if(leftovers)
  message(FATAL_ERROR "a failed write left ${leftovers}")
endif()
file(COPY_FILE ${mosaic} ${WORK_DIR}/input.xml)
file(SHA256 ${WORK_DIR}/input.xml before)
run(${KELTO_HSI} 2 out ARGS matrix ${WORK_DIR}/input.xml --name m -o ${WORK_DIR}/input.xml
    --parameters VKR9-X)
file(SHA256 ${WORK_DIR}/input.xml after)
if(NOT before STREQUAL after)
  message(FATAL_ERROR "a failed run changed its input")
endif()

# Every debug file of the computation on the wedge, whose document merges close bands.
run(${KELTO_HSI} 0 out ARGS matrix ${C}/VKR9-QL150-470_900.xml --name m -o ${WORK_DIR}/w.xml
    --debug-dir ${WORK_DIR}/debug)
foreach(name internal_components responses_with_internal_filters responses_prio_peak_detection
             initial_peaks_positions initial_peaks_qe initial_peaks_fwhm peak_wavelenghts
             peak_contributions peak_fit_errors peak_fwhms vf_peak_wavelengths vf_peak_fwhms
             correction_matrix new_correction_matrix new_vf_peak_wavelengths new_vf_peak_fwhms
             full_correction_matrix spectral_correction_computation/tikhonov_divisor
             spectral_correction_computation/algorithm_input_response_matrix
             peak_detection/corr_matrix_m_band_149_response_interp)
  if(NOT EXISTS ${WORK_DIR}/debug/${name}.csv)
    message(FATAL_ERROR "matrix --debug-dir wrote no ${name}.csv")
  endif()
endforeach()

# Optics in front of the system that a matrix assumes: the sample's own bandpass once more.
file(READ ${mosaic} text)
string(FIND "${text}" "<optical_component version" open_at)
string(FIND "${text}" "</optical_component>" close_at)
math(EXPR length "${close_at} + 20 - ${open_at}")
string(SUBSTRING "${text}" ${open_at} ${length} component)
file(WRITE ${WORK_DIR}/bandpass.xml "${component}")
run(${KELTO_HSI} 0 out ARGS matrix ${mosaic} --name behind_bandpass -o ${WORK_DIR}/optics.xml
    --external-optics ${WORK_DIR}/bandpass.xml)
file(READ ${WORK_DIR}/optics.xml with_optics)
string(REGEX MATCHALL "<part_id>BP-460-630</part_id>" parts "${with_optics}")
list(LENGTH parts count)
if(NOT count EQUAL 2)
  message(FATAL_ERROR "the matrix does not keep the optics it assumes (${count} bandpass records)")
endif()
run(${KELTO_HSI} 3 out ARGS matrix ${mosaic} --name m -o ${WORK_DIR}/m.xml
    --external-optics ${mosaic}
    CONTAINS "holds a sensor_calibration record, not an optical component")

# Usage.
run(${KELTO_HSI} 64 out ARGS matrix ${mosaic} -o ${WORK_DIR}/m.xml)
run(${KELTO_HSI} 64 out ARGS matrix ${mosaic} --name m -o ${WORK_DIR}/m.xml --mask some)
run(${KELTO_HSI} 64 out ARGS peaks ${mosaic})
run(${KELTO_HSI} 0 out ARGS matrix --help CONTAINS "--external-optics" "64 a usage error")
