// Several threads reading through one accessor. Run under ThreadSanitizer by the "tsan" test
// label (see hyperspectral/CMakeLists.txt), where a missing lock shows as a reported race.
#include <kelto/hyperspectral/access/data_accessor.h>

#include <kelto/datatypes/band_info.h>
#include <kelto/datatypes/band_storage.h>
#include <kelto/datatypes/hypercube.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace kelto::hyperspectral {
namespace {

using common::StatedObject;
using datatypes::BandImageDataFormat;
using datatypes::Hypercube;
using Pixel = DataAccessor::Pixel;
using Spectrum = std::vector<double>;
using Spectra = std::vector<std::vector<double>>;

constexpr unsigned long kWidth = 24;
constexpr unsigned long kHeight = 16;
constexpr unsigned long kBands = 8;
constexpr unsigned long kVirtualBands = 6;
constexpr int kThreads = 4;

const char* const kNotRunning =
    "controller \"Data access controller\" is stopped, it must be running";

// A normalised unsigned short cube, pixel interleaved, with distinct samples.
std::unique_ptr<Hypercube> MakeCube() {
  BandImageDataFormat format;
  format.data_type = BandImageDataFormat::kUnsignedShort;
  format.element_size = sizeof(unsigned short);
  format.width = kWidth;
  format.height = kHeight;
  format.interleave = BandImageDataFormat::kBandInterleavedByPixel;
  format.scale = 1000.0;
  format.fill_value = 65535.0;
  for (unsigned long b = 0; b < kBands; ++b) {
    format.AddBand(datatypes::HypercubeBandInfo(std::to_string(b), 480.0 + 20.0 * b, 15.0));
  }
  auto cube = std::make_unique<Hypercube>(format);
  cube->GetDataInfo().is_normalised = true;
  auto& storage = dynamic_cast<datatypes::BandStorage_BIP&>(*cube->GetBandStorage());
  for (unsigned long y = 0; y < kHeight; ++y) {
    for (unsigned long x = 0; x < kWidth; ++x) {
      for (unsigned long b = 0; b < kBands; ++b) {
        const auto value = static_cast<unsigned short>(300 + 211 * b + 17 * x + 29 * y);
        std::memcpy(storage.pixels[y][x] + b * sizeof(value), &value, sizeof(value));
      }
    }
  }
  return cube;
}

CorrectionMatrix MakeMatrix() {
  CorrectionMatrix matrix;
  for (unsigned long r = 0; r < kVirtualBands; ++r) {
    CorrectionMatrix::VirtualBand band;
    band.wavelength_nm = 490.0 + 30.0 * r;
    band.fwhm_nm = 12.0;
    for (unsigned long c = 0; c < kBands; ++c) {
      band.coefficients.push_back(0.37 * (r == c) - 0.011 * c + 0.023 * r);
    }
    matrix.virtual_bands.push_back(band);
  }
  return matrix;
}

std::vector<Pixel> AllPixels() {
  std::vector<Pixel> pixels;
  for (unsigned long y = 0; y < kHeight; ++y) {
    for (unsigned long x = 0; x < kWidth; ++x) {
      pixels.emplace_back(static_cast<int>(x), static_cast<int>(y));
    }
  }
  return pixels;
}

class DataAccessorConcurrency : public ::testing::Test {
 protected:
  DataAccessorConcurrency() : cube_(MakeCube()), matrix_(MakeMatrix()), accessor_(cube_.get()) {
    accessor_.SetCorrectionMatrix(&matrix_);
    accessor_.Start();
    pixels_ = AllPixels();
    for (const Pixel& pixel : pixels_) {
      single_thread_.push_back(accessor_.GetSpectrum(pixel));
    }
  }

  // Runs body(t) on kThreads threads that start together; an exception that escapes a body fails
  // the test.
  template <typename Body>
  void RunThreads(Body body) {
    std::atomic<int> ready{0};
    std::vector<std::string> errors(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        ready.fetch_add(1);
        while (ready.load() < kThreads) {
          std::this_thread::yield();
        }
        try {
          body(t);
        } catch (const std::exception& error) {
          errors[static_cast<std::size_t>(t)] = error.what();
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    for (int t = 0; t < kThreads; ++t) {
      EXPECT_EQ(errors[static_cast<std::size_t>(t)], "") << "thread " << t;
    }
  }

  std::unique_ptr<Hypercube> cube_;
  CorrectionMatrix matrix_;
  DataAccessor accessor_;
  std::vector<Pixel> pixels_;
  Spectra single_thread_;  // one thread's GetSpectrum of every pixel
};

TEST_F(DataAccessorConcurrency, ThreadsReadWhatOneThreadReads) {
  ASSERT_EQ(single_thread_.front().size(), kVirtualBands);
  ASSERT_EQ(accessor_.GetSpectrums(pixels_), single_thread_);
  const std::set<Spectrum> known(single_thread_.begin(), single_thread_.end());

  constexpr int kRounds = 20;
  std::vector<int> wrong_spectrum(kThreads, 0);
  std::vector<int> wrong_spectrums(kThreads, 0);
  std::vector<int> unknown_latest(kThreads, 0);
  std::vector<int> reads(kThreads, 0);
  RunThreads([&](int t) {
    for (int round = 0; round < kRounds; ++round) {
      // Each thread walks the pixels from another start, so that the reads interleave.
      const std::size_t offset = (pixels_.size() / kThreads) * static_cast<std::size_t>(t);
      for (std::size_t i = 0; i < pixels_.size(); ++i) {
        const std::size_t p = (i + offset) % pixels_.size();
        if (accessor_.GetSpectrum(pixels_[p]) != single_thread_[p]) {
          ++wrong_spectrum[t];
        }
        ++reads[t];
        if (i % 16 == 0) {
          // The latest correction of whichever thread came last: always a whole spectrum.
          Spectrum latest{0.0};
          accessor_.CorrectSpectrum(latest);
          if (known.count(latest) == 0) {
            ++unknown_latest[t];
          }
        }
      }
      const std::size_t begin = (7 * static_cast<std::size_t>(t + round)) % pixels_.size();
      const std::size_t end = std::min(pixels_.size(), begin + 64);
      const std::vector<Pixel> chunk(pixels_.begin() + static_cast<std::ptrdiff_t>(begin),
                                     pixels_.begin() + static_cast<std::ptrdiff_t>(end));
      const Spectra expected(single_thread_.begin() + static_cast<std::ptrdiff_t>(begin),
                             single_thread_.begin() + static_cast<std::ptrdiff_t>(end));
      if (accessor_.GetSpectrums(chunk) != expected) {
        ++wrong_spectrums[t];
      }
      if (accessor_.GetSpectrums(pixels_) != single_thread_) {
        ++wrong_spectrums[t];
      }
    }
  });
  for (int t = 0; t < kThreads; ++t) {
    SCOPED_TRACE("thread " + std::to_string(t));
    EXPECT_EQ(reads[t], kRounds * static_cast<int>(pixels_.size()));
    EXPECT_EQ(wrong_spectrum[t], 0);
    EXPECT_EQ(wrong_spectrums[t], 0);
    EXPECT_EQ(unknown_latest[t], 0);
  }
  EXPECT_EQ(accessor_.GetObjectState(), StatedObject::OS_RUNNING);
}

TEST_F(DataAccessorConcurrency, ReadsRacingAStopAreWholeOrRefused) {
  constexpr int kReadsAfterStop = 20;
  std::atomic<int> good_total{0};
  std::atomic<bool> stopped{false};
  std::vector<int> good(kThreads, 0);
  std::vector<int> refused(kThreads, 0);
  std::vector<int> wrong(kThreads, 0);
  std::vector<int> accepted_after_stop(kThreads, 0);
  RunThreads([&](int t) {
    if (t == 0) {
      // Let the readers get going, then stop under them.
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
      while (good_total.load() < 100 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
      }
      accessor_.Stop();
      stopped.store(true);
      return;
    }
    int reads_after_stop = 0;
    for (std::size_t i = 0; reads_after_stop < kReadsAfterStop; ++i) {
      // Seen before the read: the stop is complete, so the read must be refused.
      const bool after_stop = stopped.load();
      const std::size_t p = (i * 13 + static_cast<std::size_t>(t)) % pixels_.size();
      bool accepted = false;
      try {
        const Spectra spectra = (i % 2 == 0) ? Spectra{accessor_.GetSpectrum(pixels_[p])}
                                             : accessor_.GetSpectrums({pixels_[p]});
        accepted = true;
        if (spectra.size() == 1 && spectra.front() == single_thread_[p]) {
          ++good[t];
          good_total.fetch_add(1);
        } else {
          ++wrong[t];
        }
      } catch (const std::logic_error& error) {
        if (std::string(error.what()) == kNotRunning) {
          ++refused[t];
        } else {
          ++wrong[t];
        }
      }
      if (after_stop) {
        ++reads_after_stop;
        accepted_after_stop[t] += accepted ? 1 : 0;
      }
    }
  });
  int good_sum = 0;
  for (int t = 1; t < kThreads; ++t) {
    SCOPED_TRACE("thread " + std::to_string(t));
    EXPECT_EQ(wrong[t], 0);
    EXPECT_EQ(accepted_after_stop[t], 0);
    EXPECT_GE(refused[t], kReadsAfterStop);
    good_sum += good[t];
  }
  EXPECT_GE(good_sum, 100);
  EXPECT_EQ(accessor_.GetObjectState(), StatedObject::OS_STOPPED);
  EXPECT_THAT(
      [&] {
        accessor_.GetSpectrum({0, 0});
      },
      ::testing::ThrowsMessage<std::logic_error>(::testing::StrEq(kNotRunning)));
  EXPECT_THAT([&] { accessor_.GetSpectrums(pixels_); },
              ::testing::ThrowsMessage<std::logic_error>(::testing::StrEq(kNotRunning)));
  Spectrum spectrum{1.0};
  EXPECT_THAT([&] { accessor_.CorrectSpectrum(spectrum); },
              ::testing::ThrowsMessage<std::logic_error>(::testing::StrEq(kNotRunning)));
}

}  // namespace
}  // namespace kelto::hyperspectral
