# The two commands of the README, and a few helpers around them.
#   make demo       installs what is missing, builds the two tools, and runs the main job on the
#                   bundled sample data
#   make test       installs what is missing, builds, and runs every test under ctest but the
#                   sanitizer builds
#   make sanitize   the sanitizer builds (slow; CI runs it too): the C++ test suite under
#                   AddressSanitizer and UndefinedBehaviorSanitizer, the concurrency tests under
#                   ThreadSanitizer, each built in a folder of the build tree
#   make fuzz       installs clang and libFuzzer, builds the fuzz targets in build-fuzz and runs
#                   each for FUZZ_SECONDS (default 60) seconds

MAKEFLAGS  += --no-print-directory
BUILD_DIR  ?= build
# Release: no debug information, which keeps a fresh build (and so the demo) short, and the
# optimisation the benchmarks measure. BUILD_TYPE=RelWithDebInfo gives a build to debug.
BUILD_TYPE ?= Release
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
KELTO_HSI  := $(BUILD_DIR)/tools/kelto-hsi
KELTO_SIM  := $(BUILD_DIR)/tools/kelto-sim
# Debian's interpreter, which has the Debian packages the Python package uses, whatever python3
# comes first on PATH.
PYTHON     := /usr/bin/python3
KELTO_PY   := PYTHONPATH=$(BUILD_DIR)/python MPLBACKEND=Agg $(PYTHON) -m kelto
SAMPLES    := hyperspectral/tests/data

.PHONY: all deps configure build test sanitize fuzz demo samples bench format clean

all: build

deps:
	@bash scripts/install-deps.sh

CONFIGURE := cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) \
             -DKELTO_WARNINGS_AS_ERRORS=ON >/dev/null

configure: deps
	@$(CONFIGURE)

build: configure
	@cmake --build $(BUILD_DIR) --parallel $(JOBS)

# The ctest labels of the cases that build a sanitizer copy of the libraries of their own, as a
# regular expression: slow, so they belong to make sanitize rather than make test.
SANITIZER_LABELS := ^(tsan|asan)$$

test: build
	@ctest --test-dir $(BUILD_DIR) --output-on-failure --parallel $(JOBS) \
	  --label-exclude '$(SANITIZER_LABELS)'

# The two builds run side by side: each leaves cores idle while it links or runs its tests.
sanitize: configure
	@ctest --test-dir $(BUILD_DIR) --output-on-failure --parallel 2 \
	  --label-regex '$(SANITIZER_LABELS)'

# The fuzz targets of fuzz/ under libFuzzer; scripts/fuzz.sh says what it prints and keeps.
FUZZ_SECONDS ?= 60
fuzz:
	@FUZZ_SECONDS=$(FUZZ_SECONDS) FUZZ_JOBS=$(JOBS) bash scripts/fuzz.sh

DEMO_DIR     := $(BUILD_DIR)/demo
DEMO_SAMPLE  := $(SAMPLES)/calibrations/VKR9-MZT4x4-470_620.xml
DEMO_SCENE   := $(SAMPLES)/scene/VKR9-MZT4x4-470_620.hdr
DEMO_MATRIX  := $(DEMO_DIR)/VKR9-MZT4x4-470_620.xml

# The main road on the bundled 4x4 mosaic sample: correction matrices from its measured responses,
# then corrected spectra of its simulated scene beside the truth. Writes only under $(DEMO_DIR).
# Builds no more than the two tools it runs, and keeps the compiler's progress in a log.
demo:
	@echo "== installing the packages the build needs, if any is missing"
	@bash scripts/install-deps.sh
	@echo "== configuring $(BUILD_DIR)"
	@$(CONFIGURE)
	@mkdir -p $(DEMO_DIR)
	@echo "== building kelto-hsi, kelto-sim and the Python package (compiler output in $(DEMO_DIR)/build.log)"
	@cmake --build $(BUILD_DIR) --parallel $(JOBS) --target kelto-hsi kelto-sim kelto_python \
	  >$(DEMO_DIR)/build.log 2>&1 || { tail -n 40 $(DEMO_DIR)/build.log; exit 1; }
	@echo
	@echo "== kelto-hsi matrix: a reflectance matrix from the measured band responses of the sample"
	@$(KELTO_HSI) matrix $(DEMO_SAMPLE) --name measured -o $(DEMO_MATRIX)
	@echo "   and an irradiance matrix, for bands as measured"
	@$(KELTO_HSI) matrix $(DEMO_MATRIX) --name measured_irradiance --type irradiance -o $(DEMO_MATRIX)
	@echo
	@echo "== kelto-hsi spectrum: the vegetation patch of the scene, corrected by the irradiance matrix"
	@echo "   (the scene is lit by a flat unit illumination, so this is its reflectance)"
	@$(KELTO_HSI) spectrum $(DEMO_MATRIX) $(DEMO_SCENE) --pixel 18,18 --matrix measured_irradiance
	@echo
	@echo "== kelto-sim evaluate: the reflectance matrix on the white-referenced scene, beside the truth"
	@$(KELTO_SIM) evaluate $(DEMO_MATRIX) $(DEMO_SCENE) --matrix measured --patch vegetation
	@echo
	@echo "== the real road: raw sensor frames to cubes, dark and white to reflectance, corrected"
	@for frame in raw dark white; do \
	  $(KELTO_HSI) cube $(DEMO_MATRIX) $(SAMPLES)/scene/VKR9-MZT4x4-470_620-$$frame.pgm \
	    -o $(DEMO_DIR)/$$frame.img || exit 1; done
	@$(KELTO_HSI) correct $(DEMO_MATRIX) $(DEMO_DIR)/raw.img --matrix measured \
	  --dark $(DEMO_DIR)/dark.img --white $(DEMO_DIR)/white.img -o $(DEMO_DIR)/reflectance.img
	@echo "   the vegetation patch of the corrected cube (compare the matrix column above):"
	@$(KELTO_HSI) spectrum $(DEMO_MATRIX) $(DEMO_DIR)/reflectance.img --pixel 18,18 --raw
	@echo
	@echo "== python3 -m kelto plot matrix: the measured matrix beside its synthesised responses"
	@$(KELTO_PY) plot matrix $(DEMO_MATRIX) --matrix measured -o $(DEMO_DIR)/measured-matrix.png
	@echo
	@echo "== kelto-hsi check $(SAMPLES)/sensor_info_defective.xml (exit status 2 expected)"
	@$(KELTO_HSI) check $(SAMPLES)/sensor_info_defective.xml; echo "exit status $$?"

# Regenerates the sample calibrations and their scenes with the simulator; a test checks that the
# committed ones are current.
samples: build
	@$(KELTO_SIM) calibrations $(SAMPLES)/calibrations
	@$(KELTO_SIM) scene $(SAMPLES)/scene

# The benchmarks, the numpy peer of the block correction, and kelto.correct beside numpy.
bench: build
	@for b in $(BUILD_DIR)/bench/bench_*; do [ -x "$$b" ] && "$$b"; done
	@$(PYTHON) bench/bench_block_correction.py
	@PYTHONPATH=$(BUILD_DIR)/python $(PYTHON) bench/bench_python_correct.py

format:
	@git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	@rm -rf $(BUILD_DIR)
