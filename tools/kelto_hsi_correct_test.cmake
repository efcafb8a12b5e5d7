# Runs `kelto-hsi correct` as a user would on the sample scene, and on what it must refuse.
# Inputs: KELTO_HSI, DATA_DIR, WORK_DIR.

include(${CMAKE_CURRENT_LIST_DIR}/cli_test_support.cmake)

# The spectrum of the grey patch (reflectance 0.30) in a cube, checked band by band.
function(expect_grey cube low high)
  run(${KELTO_HSI} 0 out ARGS spectrum ${calibration} ${cube} --pixel 46,46 --raw)
  string(REGEX MATCHALL "\n[0-9.]+,[0-9.]+" rows "${out}")
  list(LENGTH rows count)
  if(NOT count EQUAL 16)
    message(FATAL_ERROR "the grey patch of ${cube} has ${count} values:\n${out}")
  endif()
  foreach(row IN LISTS rows)
    string(REGEX REPLACE "^\n[0-9.]+," "" value "${row}")
    if(value LESS low OR value GREATER high)
      message(FATAL_ERROR "the grey patch of ${cube} holds ${value}:\n${out}")
    endif()
  endforeach()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(scene ${DATA_DIR}/scene/VKR9-MZT4x4-470_620.hdr)
set(calibration ${WORK_DIR}/calibration.xml)
# The scene is lit by a flat unit illumination: an irradiance matrix gives its reflectance.
run(${KELTO_HSI} 0 out ARGS matrix ${DATA_DIR}/calibrations/VKR9-MZT4x4-470_620.xml --name irradiance
    --type irradiance -o ${calibration})

run(${KELTO_HSI} 0 out ARGS correct ${calibration} ${scene} --matrix irradiance -o ${WORK_DIR}/whole.img --json)
string(JSON virtual_bands GET "${out}" virtual_bands)
if(NOT virtual_bands EQUAL 16)
  message(FATAL_ERROR "correct: ${virtual_bands} virtual bands\n${out}")
endif()
file(READ ${WORK_DIR}/whole.hdr header)
foreach(item "data type = 4" "interleave = bip" "data ignore value = nan" "wavelength = {"
             "fwhm = {" "bands   = 16" "description = {\ncorrected by matrix irradiance}")
  string(FIND "${header}" "${item}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the corrected cube's header lacks \"${item}\":\n${header}")
  endif()
endforeach()
file(GLOB leftovers ${WORK_DIR}/.* ${WORK_DIR}/*.aux.xml)
if(leftovers)
  message(FATAL_ERROR "correct left ${leftovers}")
endif()

# Read back: the grey patch (reflectance 0.30) in every virtual band, the border without data.
expect_grey(${WORK_DIR}/whole.img 0.27 0.33)
run(${KELTO_HSI} 0 out ARGS spectrum ${calibration} ${WORK_DIR}/whole.img --pixel 0,0 --raw CONTAINS "nan")

# Small blocks on three threads, and GeoTIFF, give the same values.
run(${KELTO_HSI} 0 out ARGS correct ${calibration} ${scene} --matrix irradiance -o ${WORK_DIR}/blocks.img
    --block-lines 5 --threads 3)
file(SHA256 ${WORK_DIR}/whole.img whole)
file(SHA256 ${WORK_DIR}/blocks.img blocks)
if(NOT whole STREQUAL blocks)
  message(FATAL_ERROR "blocks of 5 lines on 3 threads give another cube than one block")
endif()
run(${KELTO_HSI} 0 out ARGS correct ${calibration} ${scene} --matrix irradiance -o ${WORK_DIR}/whole.tif
    --format GTiff)
run(${KELTO_HSI} 0 tif ARGS spectrum ${calibration} ${WORK_DIR}/whole.tif --pixel 20,20 --raw)
run(${KELTO_HSI} 0 img ARGS spectrum ${calibration} ${WORK_DIR}/whole.img --pixel 20,20 --raw)
if(NOT tif STREQUAL img)
  message(FATAL_ERROR "GeoTIFF and ENVI outputs differ:\n${tif}\n${img}")
endif()

# Refusals, each leaving nothing behind.
run(${KELTO_HSI} 8 out ARGS correct ${calibration} ${scene} --matrix nope -o ${WORK_DIR}/x.img
    CONTAINS "has no correction matrix \"nope\"")
run(${KELTO_HSI} 8 out ARGS correct ${DATA_DIR}/calibrations/VKR9-MZT5x5-600_1000.xml ${scene}
    -o ${WORK_DIR}/x.img CONTAINS "weighs 25 bands")
run(${KELTO_HSI} 4 out ARGS correct ${calibration} ${WORK_DIR}/absent.hdr -o ${WORK_DIR}/x.img
    CONTAINS "absent.hdr")
run(${KELTO_HSI} 3 out ARGS correct ${DATA_DIR}/sensor_info_vkr9.xml ${scene} -o ${WORK_DIR}/x.img
    CONTAINS "holds a sensor_info record, not a calibration")
run(${KELTO_HSI} 10 out ARGS correct ${calibration} ${scene} --matrix irradiance -o ${WORK_DIR}/no/x.img
    CONTAINS "cannot write")
run(${KELTO_HSI} 64 out ARGS correct ${calibration} ${scene} -o ${WORK_DIR}/x.img --dark ${scene}
    CONTAINS "both --dark and --white")
run(${KELTO_HSI} 64 out ARGS correct ${calibration} ${scene} -o ${WORK_DIR}/x.img --format PNG)
file(GLOB leftovers ${WORK_DIR}/x.* ${WORK_DIR}/.* ${WORK_DIR}/no)
if(leftovers)
  message(FATAL_ERROR "a refused correction left ${leftovers}")
endif()

# The scene as its own dark and white: white - dark is 0 in every band, so no pixel has a value.
run(${KELTO_HSI} 0 out ARGS correct ${calibration} ${scene} --matrix true_peaks -o ${WORK_DIR}/ones.img
    --dark ${scene} --white ${scene})
run(${KELTO_HSI} 0 out ARGS spectrum ${calibration} ${WORK_DIR}/ones.img --pixel 46,46 --raw CONTAINS "nan")

# The real road: raw frames of the mosaic to cubes, dark and white to reflectance, corrected.
set(frames ${DATA_DIR}/scene/VKR9-MZT4x4-470_620)
foreach(frame raw dark white)
  run(${KELTO_HSI} 0 out ARGS cube ${calibration} ${frames}-${frame}.pgm -o ${WORK_DIR}/${frame}.img --json)
  string(JSON pixels GET "${out}" pixels)
  string(JSON lines GET "${out}" lines)
  string(JSON bands GET "${out}" bands)
  if(NOT pixels EQUAL 64 OR NOT lines EQUAL 64 OR NOT bands EQUAL 16)
    message(FATAL_ERROR "cube of the ${frame} frame: ${pixels} x ${lines} x ${bands}\n${out}")
  endif()
endforeach()
run(${KELTO_HSI} 0 out ARGS matrix ${calibration} --name measured -o ${calibration})
run(${KELTO_HSI} 0 out ARGS correct ${calibration} ${WORK_DIR}/raw.img --matrix measured
    --dark ${WORK_DIR}/dark.img --white ${WORK_DIR}/white.img -o ${WORK_DIR}/reflectance.img)
expect_grey(${WORK_DIR}/reflectance.img 0.29 0.31)
# Two frames stack; a frame that holds no whole stripe of the wedge's zones is refused.
run(${KELTO_HSI} 0 out ARGS cube ${calibration} ${frames}-raw.pgm ${frames}-raw.pgm -o ${WORK_DIR}/two.img
    --json)
string(JSON lines GET "${out}" lines)
if(NOT lines EQUAL 128)
  message(FATAL_ERROR "two frames stacked give ${lines} lines")
endif()
run(${KELTO_HSI} 4 out ARGS cube ${DATA_DIR}/calibrations/VKR9-QL150-470_900.xml ${frames}-raw.pgm
    -o ${WORK_DIR}/wedge.img CONTAINS "holds no whole cube pixel")
run(${KELTO_HSI} 4 out ARGS cube ${calibration} ${scene} -o ${WORK_DIR}/wedge.img
    CONTAINS "a raw frame has one band")
if(EXISTS ${WORK_DIR}/wedge.img)
  message(FATAL_ERROR "a refused cube left its output")
endif()

# The georeferencing of the input goes to the output.
file(READ ${scene} header)
file(WRITE ${WORK_DIR}/mapped.hdr
     "${header}map info = {UTM, 1, 1, 500000, 4000000, 30, 30, 32, North, WGS-84}\n")
file(COPY_FILE ${DATA_DIR}/scene/VKR9-MZT4x4-470_620.raw ${WORK_DIR}/mapped.raw)
run(${KELTO_HSI} 0 out ARGS correct ${calibration} ${WORK_DIR}/mapped.hdr --matrix irradiance
    -o ${WORK_DIR}/mapped_out.img)
file(READ ${WORK_DIR}/mapped_out.hdr header)
if(NOT header MATCHES "map info = {UTM, 1, 1, 500000, 4000000, 30, 30, 32, North")
  message(FATAL_ERROR "the corrected cube lost the input's georeferencing:\n${header}")
endif()

# A cube of 64 MiB in blocks of 16 lines: the memory of the run is that of a run on the small
# scene plus the blocks in flight, not the cube.
run(${KELTO_HSI} 0 small ARGS correct ${calibration} ${scene} --matrix irradiance
    -o ${WORK_DIR}/small.img --threads 2 --json)
string(REPEAT "ABCDEFGHIJKLMNOP" 4194304 samples)
file(WRITE ${WORK_DIR}/large.raw "${samples}")
unset(samples)
file(WRITE ${WORK_DIR}/large.hdr "ENVI\nsamples = 2048\nlines = 2048\nbands = 16\n"
     "header offset = 0\nfile type = ENVI Standard\ndata type = 1\ninterleave = bip\n"
     "byte order = 0\n")
run(${KELTO_HSI} 0 large ARGS correct ${calibration} ${WORK_DIR}/large.hdr --matrix irradiance
    -o ${WORK_DIR}/large.img --threads 2 --block-lines 16 --json)
string(JSON small_kib GET "${small}" peak_memory_kib)
string(JSON large_kib GET "${large}" peak_memory_kib)
# 64 MiB and two blocks of 16 x 2048 pixels of 16 bytes in and 64 bytes out.
math(EXPR bound "${small_kib} + 65536 + 2 * 16 * 2048 * 80 / 1024")
message(STATUS "peak memory: ${small_kib} KiB on the scene, ${large_kib} KiB on 64 MiB (bound ${bound})")
if(large_kib GREATER bound)
  message(FATAL_ERROR "correcting 64 MiB took ${large_kib} KiB, more than ${bound}")
endif()
file(REMOVE ${WORK_DIR}/large.raw ${WORK_DIR}/large.img)
