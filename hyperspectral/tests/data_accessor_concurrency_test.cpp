// Several threads reading through one accessor. Run under ThreadSanitizer by the "tsan" test
// label (see hyperspectral/CMakeLists.txt), where a missing lock shows as a reported race.
#include <kelto/hyperspectral/access/data_accessor.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "data_accessor_images.h"

namespace kelto::hyperspectral {
namespace {

using namespace kelto::hyperspectral::testing;
using common::StatedObject;
using Spectrum = std::vector<double>;
using Spectra = std::vector<std::vector<double>>;

// Large enough for the threads' reads to interleave.
constexpr unsigned long kImageWidth = 24;
constexpr unsigned long kImageHeight = 16;
constexpr unsigned long kBands = 8;
constexpr unsigned long kVirtualBands = 6;
constexpr int kThreads = 4;

class DataAccessorConcurrency : public ::testing::Test {
 protected:
  DataAccessorConcurrency()
      : cube_(MakeCube(kBands, true, BandImageDataFormat::kBandInterleavedByPixel, kImageWidth,
                       kImageHeight)),
        matrix_(MakeMatrix(kVirtualBands, kBands)),
        accessor_(cube_.get()) {
    accessor_.SetCorrectionMatrix(&matrix_);
    accessor_.Start();
    pixels_ = AllPixels(kImageWidth, kImageHeight);
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

  std::unique_ptr<datatypes::Hypercube> cube_;
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
  // Per thread: spectra that differ from one thread's, and latest corrections that are none of
  // them.
  std::vector<int> wrong(kThreads, 0);
  std::vector<int> reads(kThreads, 0);
  RunThreads([&](int t) {
    for (int round = 0; round < kRounds; ++round) {
      // Each thread walks the pixels from another start, so that the reads interleave.
      const std::size_t offset = (pixels_.size() / kThreads) * static_cast<std::size_t>(t);
      for (std::size_t i = 0; i < pixels_.size(); ++i) {
        const std::size_t p = (i + offset) % pixels_.size();
        wrong[t] += accessor_.GetSpectrum(pixels_[p]) != single_thread_[p];
        ++reads[t];
        if (i % 16 == 0) {
          // The latest correction of whichever thread came last: always a whole spectrum.
          Spectrum latest{0.0};
          accessor_.CorrectSpectrum(latest);
          wrong[t] += known.count(latest) == 0;
        }
      }
      const std::size_t begin = (7 * static_cast<std::size_t>(t + round)) % pixels_.size();
      const std::size_t end = std::min(pixels_.size(), begin + 64);
      const std::vector<Pixel> chunk(pixels_.begin() + static_cast<std::ptrdiff_t>(begin),
                                     pixels_.begin() + static_cast<std::ptrdiff_t>(end));
      const Spectra expected(single_thread_.begin() + static_cast<std::ptrdiff_t>(begin),
                             single_thread_.begin() + static_cast<std::ptrdiff_t>(end));
      wrong[t] += accessor_.GetSpectrums(chunk) != expected;
      wrong[t] += accessor_.GetSpectrums(pixels_) != single_thread_;
    }
  });
  for (int t = 0; t < kThreads; ++t) {
    SCOPED_TRACE("thread " + std::to_string(t));
    EXPECT_EQ(reads[t], kRounds * static_cast<int>(pixels_.size()));
    EXPECT_EQ(wrong[t], 0);
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
}

}  // namespace
}  // namespace kelto::hyperspectral
