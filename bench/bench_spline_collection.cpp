// Each routine of the spline collection evaluated at 10,000 points on a curve of 601 knots (a
// response sampled at 1 nm from 400 to 1000 nm, slightly irregular), and the set-ups beside them.
// One item is one evaluation; the set-up's items are knots (for the least-squares fits, data).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include <kelto/hyperspectral/correction/spline.h>
#include <kelto/hyperspectral/correction/spline_collection.h>

namespace {

namespace kh = kelto::hyperspectral;
using Owned = std::unique_ptr<double[]>;

constexpr int kKnots = 601;
constexpr int kTargets = 10000;

double Response(double v) {
  return 0.05 + 0.6 * std::exp(-0.5 * std::pow((v - 620.0) / 12.0, 2.0)) + 0.1 * std::sin(v / 17.0);
}

struct Curve {
  std::vector<double> x, y, yp, targets, value, first;

  Curve() : x(kKnots), y(kKnots), yp(kKnots), targets(kTargets), value(kTargets), first(kTargets) {
    for (std::size_t i = 0; i < x.size(); ++i) {
      x[i] = 400.0 + static_cast<double>(i) + 0.3 * std::sin(static_cast<double>(i));
      y[i] = Response(x[i]);
      yp[i] = (Response(x[i] + 1e-3) - Response(x[i] - 1e-3)) / 2e-3;
    }
    x.front() = 400.0;
    x.back() = 1000.0;
    for (std::size_t k = 0; k < targets.size(); ++k) {
      targets[k] = 400.0 + 600.0 * static_cast<double>(k) / (kTargets - 1);
    }
  }
};

void Finish(benchmark::State& state, const Curve& c, std::int64_t items = kTargets) {
  benchmark::DoNotOptimize(c.value.data());
  state.SetItemsProcessed(state.iterations() * items);
}

void CubicValue(benchmark::State& state) {
  Curve c;
  const Owned ypp(kh::spline_cubic_set(kKnots, c.x.data(), c.y.data(), 3, 0.0, 3, 0.0));
  std::vector<double> second(kTargets);
  for (auto _ : state) {
    kh::spline_cubic_val(kKnots, c.x.data(), c.y.data(), ypp.get(), kTargets, c.targets.data(),
                         c.value.data(), c.first.data(), second.data());
    benchmark::ClobberMemory();
  }
  Finish(state, c);
}
BENCHMARK(CubicValue);

void BezierSingle(benchmark::State& state) {
  Curve c;
  std::vector<double> t(kTargets);
  for (std::size_t k = 0; k < t.size(); ++k) {
    t[k] = static_cast<double>(k) / (kTargets - 1);
  }
  for (auto _ : state) {
    kh::spline_bezier_val(c.y.data(), kTargets, t.data(), c.value.data());
    benchmark::ClobberMemory();
  }
  Finish(state, c);
}
BENCHMARK(BezierSingle);

// 601 = 3 * 200 + 1 control values: 200 segments.
void BezierPiecewise(benchmark::State& state) {
  Curve c;
  std::vector<double> s(kTargets);
  for (std::size_t k = 0; k < s.size(); ++k) {
    s[k] = 200.0 * static_cast<double>(k) / (kTargets - 1);
  }
  for (auto _ : state) {
    kh::spline_bezier_piecewise_val(kKnots, c.y.data(), kTargets, s.data(), c.value.data());
    benchmark::ClobberMemory();
  }
  Finish(state, c);
}
BENCHMARK(BezierPiecewise);

void BSpline(benchmark::State& state) {
  Curve c;
  std::vector<double> coefficients(kKnots + 2);
  for (std::size_t j = 0; j < coefficients.size(); ++j) {
    coefficients[j] = Response(399.0 + static_cast<double>(j));
  }
  for (auto _ : state) {
    kh::spline_bspline_val(kKnots, c.x.data(), coefficients.data(), kTargets, c.targets.data(),
                           c.value.data());
    benchmark::ClobberMemory();
  }
  Finish(state, c);
}
BENCHMARK(BSpline);

void HermiteSet(benchmark::State& state) {
  Curve c;
  for (auto _ : state) {
    const Owned coefficients(kh::spline_hermite_set(kKnots, c.x.data(), c.y.data(), c.yp.data()));
    benchmark::DoNotOptimize(coefficients.get());
  }
  Finish(state, c, kKnots);
}
BENCHMARK(HermiteSet);

void HermiteValue(benchmark::State& state) {
  Curve c;
  const Owned coefficients(kh::spline_hermite_set(kKnots, c.x.data(), c.y.data(), c.yp.data()));
  for (auto _ : state) {
    kh::spline_hermite_val(kKnots, c.x.data(), coefficients.get(), kTargets, c.targets.data(),
                           c.value.data(), c.first.data());
    benchmark::ClobberMemory();
  }
  Finish(state, c);
}
BENCHMARK(HermiteValue);

void Overhauser(benchmark::State& state) {
  Curve c;
  for (auto _ : state) {
    kh::spline_overhauser_val(kKnots, c.x.data(), c.y.data(), kTargets, c.targets.data(),
                              c.value.data());
    benchmark::ClobberMemory();
  }
  Finish(state, c);
}
BENCHMARK(Overhauser);

void PchipSet(benchmark::State& state) {
  Curve c;
  for (auto _ : state) {
    const Owned d(kh::spline_pchip_set(kKnots, c.x.data(), c.y.data()));
    benchmark::DoNotOptimize(d.get());
  }
  Finish(state, c, kKnots);
}
BENCHMARK(PchipSet);

void PchipValue(benchmark::State& state) {
  Curve c;
  const Owned d(kh::spline_pchip_set(kKnots, c.x.data(), c.y.data()));
  for (auto _ : state) {
    kh::spline_pchip_val(kKnots, c.x.data(), c.y.data(), d.get(), kTargets, c.targets.data(),
                         c.value.data(), c.first.data());
    benchmark::ClobberMemory();
  }
  Finish(state, c);
}
BENCHMARK(PchipValue);

// The least-squares spline with the 599 inner knots of the curve as interior knots, fitted to
// the 10,000 targets' values, and then evaluated there.
struct Fit : Curve {
  std::vector<double> data;
  Fit() : data(kTargets) {
    for (std::size_t k = 0; k < data.size(); ++k) {
      data[k] = Response(targets[k]) + 0.01 * std::sin(37.0 * static_cast<double>(k));
    }
  }
};

void LeastSquaresSplineSet(benchmark::State& state) {
  Fit f;
  for (auto _ : state) {
    const Owned coefficients(
        kh::spline_lsq_set(kTargets, f.targets.data(), f.data.data(), kKnots - 2, f.x.data() + 1));
    benchmark::DoNotOptimize(coefficients.get());
  }
  Finish(state, f);
}
BENCHMARK(LeastSquaresSplineSet);

void LeastSquaresSplineValue(benchmark::State& state) {
  Fit f;
  const Owned coefficients(
      kh::spline_lsq_set(kTargets, f.targets.data(), f.data.data(), kKnots - 2, f.x.data() + 1));
  for (auto _ : state) {
    kh::spline_bspline_val(kKnots, f.x.data(), coefficients.get(), kTargets, f.targets.data(),
                           f.value.data());
    benchmark::ClobberMemory();
  }
  Finish(state, f);
}
BENCHMARK(LeastSquaresSplineValue);

void LeastSquaresPolynomialSet(benchmark::State& state) {
  Fit f;
  double centre = 0.0;
  for (auto _ : state) {
    const Owned a(kh::polynomial_lsq_set(kTargets, f.targets.data(), f.data.data(), 5, &centre));
    benchmark::DoNotOptimize(a.get());
  }
  Finish(state, f);
}
BENCHMARK(LeastSquaresPolynomialSet);

void LeastSquaresPolynomialValue(benchmark::State& state) {
  Fit f;
  double centre = 0.0;
  const Owned a(kh::polynomial_lsq_set(kTargets, f.targets.data(), f.data.data(), 5, &centre));
  for (auto _ : state) {
    kh::polynomial_lsq_val(5, a.get(), centre, kTargets, f.targets.data(), f.value.data());
    benchmark::ClobberMemory();
  }
  Finish(state, f);
}
BENCHMARK(LeastSquaresPolynomialValue);

}  // namespace
