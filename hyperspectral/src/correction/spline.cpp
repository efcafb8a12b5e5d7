#include <kelto/hyperspectral/correction/spline.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace kelto::hyperspectral {

double* spline_cubic_set(int n, const double* t, const double* y, int ibcbeg, double /*ybcbeg*/,
                         int ibcend, double /*ybcend*/) {
  if (n < 2) {
    std::fprintf(stderr,
                 "\nSPLINE_CUBIC_SET - Fatal error!\n"
                 "  The number of data points N must be at least 2.\n"
                 "  The input value is %d.\n",
                 n);
    std::exit(1);
  }
  for (int i = 0; i < n - 1; ++i) {
    if (!(t[i] < t[i + 1])) {
      std::fprintf(stderr,
                   "\nSPLINE_CUBIC_SET - Fatal error!\n"
                   "  The knots must be strictly increasing, but\n"
                   "  T(%d) = %g\n"
                   "  T(%d) = %g\n",
                   i, t[i], i + 1, t[i + 1]);
      std::exit(1);
    }
  }
  if (ibcbeg != 3 || ibcend != 3) {
    throw std::invalid_argument(
        "spline_cubic_set: only the not-a-knot end condition 3 is supported");
  }
  if (n == 2) {
    // Not-a-knot on one interval leaves a straight line.
    return new double[2]{0.0, 0.0};
  }

  const auto size = static_cast<std::size_t>(n);
  std::vector<double> a1(size, 0.0), a2(size, 0.0), a3(size, 0.0), a4(size, 0.0), a5(size, 0.0),
      b(size, 0.0);
  // The third derivative is continuous across t[1]: the first two cubics are one polynomial.
  a3[0] = -(t[2] - t[1]);
  a4[0] = t[2] - t[0];
  a5[0] = -(t[1] - t[0]);
  for (std::size_t i = 1; i + 1 < size; ++i) {
    a2[i] = (t[i] - t[i - 1]) / 6.0;
    a3[i] = (t[i + 1] - t[i - 1]) / 3.0;
    a4[i] = (t[i + 1] - t[i]) / 6.0;
    b[i] = (y[i + 1] - y[i]) / (t[i + 1] - t[i]) - (y[i] - y[i - 1]) / (t[i] - t[i - 1]);
  }
  // And across t[n-2].
  const std::size_t last = size - 1;
  a1[last] = -(t[last] - t[last - 1]);
  a2[last] = t[last] - t[last - 2];
  a3[last] = -(t[last - 1] - t[last - 2]);
  return penta(n, a1.data(), a2.data(), a3.data(), a4.data(), a5.data(), b.data());
}

double* penta(int n, double* a1, double* a2, double* a3, double* a4, double* a5, double* b) {
  if (n < 2) {
    throw std::invalid_argument("penta: the system needs at least 2 equations");
  }
  for (int i = 0; i + 2 < n; ++i) {
    double f = a2[i + 1] / a3[i];
    a3[i + 1] -= f * a4[i];
    a4[i + 1] -= f * a5[i];
    b[i + 1] -= f * b[i];
    f = a1[i + 2] / a3[i];
    a2[i + 2] -= f * a4[i];
    a3[i + 2] -= f * a5[i];
    b[i + 2] -= f * b[i];
  }
  auto* x = new double[static_cast<std::size_t>(n)];
  const double f = a2[n - 1] / a3[n - 2];
  a3[n - 1] -= f * a4[n - 2];
  x[n - 1] = (b[n - 1] - f * b[n - 2]) / a3[n - 1];
  x[n - 2] = (b[n - 2] - a4[n - 2] * x[n - 1]) / a3[n - 2];
  for (int i = n - 3; i >= 0; --i) {
    x[i] = (b[i] - a4[i] * x[i + 1] - a5[i] * x[i + 2]) / a3[i];
  }
  return x;
}

}  // namespace kelto::hyperspectral
