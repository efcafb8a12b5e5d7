# The two commands of the README, and a few helpers around them.
#   make demo   installs what is missing, builds, and runs kelto-hsi on the bundled sample data
#   make test   installs what is missing, builds, and runs every test under ctest

MAKEFLAGS  += --no-print-directory
BUILD_DIR  ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
KELTO_HSI  := $(BUILD_DIR)/tools/kelto-hsi
KELTO_SIM  := $(BUILD_DIR)/tools/kelto-sim
SAMPLES    := hyperspectral/tests/data

.PHONY: all deps configure build test demo samples bench format clean

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DKELTO_WARNINGS_AS_ERRORS=ON >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) --parallel $(JOBS)

test: build
	@ctest --test-dir $(BUILD_DIR) --output-on-failure --parallel $(JOBS)

demo: build
	@echo "== kelto-hsi info $(SAMPLES)/calibrations/VKR9-MZT4x4-470_620.xml"
	@$(KELTO_HSI) info $(SAMPLES)/calibrations/VKR9-MZT4x4-470_620.xml
	@echo
	@echo "== kelto-hsi spectrum: the vegetation patch of the sample scene, corrected"
	@$(KELTO_HSI) spectrum $(SAMPLES)/calibrations/VKR9-MZT4x4-470_620.xml $(SAMPLES)/scene/VKR9-MZT4x4-470_620.hdr --pixel 18,18
	@echo
	@echo "== kelto-sim evaluate: the same patch beside the truth, and the error over all patches"
	@$(KELTO_SIM) evaluate $(SAMPLES)/calibrations/VKR9-MZT4x4-470_620.xml $(SAMPLES)/scene/VKR9-MZT4x4-470_620.hdr --patch vegetation
	@echo
	@echo "== kelto-hsi check $(SAMPLES)/sensor_info_defective.xml (exit status 2 expected)"
	@$(KELTO_HSI) check $(SAMPLES)/sensor_info_defective.xml; echo "exit status $$?"

# Regenerates the sample calibrations and their scenes with the simulator; a test checks that the
# committed ones are current.
samples: build
	@$(KELTO_SIM) calibrations $(SAMPLES)/calibrations
	@$(KELTO_SIM) scene $(SAMPLES)/scene

bench: build
	@for b in $(BUILD_DIR)/bench/bench_*; do [ -x "$$b" ] && "$$b"; done

format:
	@git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	@rm -rf $(BUILD_DIR)
