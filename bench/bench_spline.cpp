// Resampling of a measured response of 601 samples (1 nm steps) to the 3001 samples (0.2 nm steps)
// of a computation grid, as peak detection and the correction do for every band.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include <kelto/hyperspectral/correction/spline_interpolation.h>

namespace {

using kelto::hyperspectral::SplineInterpolation;

void ResampleResponse(benchmark::State& state) {
  const auto type = static_cast<SplineInterpolation::eType>(state.range(0));
  std::vector<double> x(601), y(601), xi(3001), out;
  for (std::size_t i = 0; i < x.size(); ++i) {
    x[i] = 400.0 + static_cast<double>(i);
    y[i] = 0.05 + 0.6 * std::exp(-0.5 * std::pow((x[i] - 620.0) / 12.0, 2.0)) +
           0.1 * std::sin(x[i] / 17.0);
  }
  for (std::size_t k = 0; k < xi.size(); ++k) {
    xi[k] = 400.0 + 0.2 * static_cast<double>(k);
  }
  const SplineInterpolation spline;
  for (auto _ : state) {
    spline.Process(out, x, y, xi, type, true, false);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(xi.size()));
}

BENCHMARK(ResampleResponse)
    ->ArgName("type")
    ->Arg(SplineInterpolation::IT_TARVIK_NATURAL_CUBIC)
    ->Arg(SplineInterpolation::IT_NOT_A_KNOT_CUBIC);

}  // namespace
