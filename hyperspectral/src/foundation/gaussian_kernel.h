// The Gaussian smoothing over wavelength that the spectral correction applies across virtual
// filters and the data accessor along a spectrum, so that both weigh neighbours alike.
#pragma once

#include <vector>

#include <kelto/common/three_parameters_function.h>
#include <kelto/datatypes/matrix.h>

namespace kelto::hyperspectral {

// n by n for n positions (nm): row i holds the weights of all positions around positions[i], a
// Gaussian of full width at half maximum fwhm_nm (height 1, as only the ratios matter), scaled so
// that the row sums to 1 (summed with the column rising, then each weight times 1 / sum).
inline datatypes::Matrix<double> GaussianKernel(const std::vector<double>& positions,
                                                double fwhm_nm) {
  const unsigned long n = positions.size();
  datatypes::Matrix<double> kernel(n, n, 0.0);
  const common::GaussDistribution gauss;
  const double width = gauss.FWHMToParam(fwhm_nm);
  for (unsigned long i = 0; i < n; ++i) {
    double* row = kernel.rows[i];
    double sum = 0.0;
    for (unsigned long j = 0; j < n; ++j) {
      row[j] = gauss(positions[i], width, 1.0, positions[j]);
      sum += row[j];
    }
    const double factor = 1.0 / sum;
    for (unsigned long j = 0; j < n; ++j) {
      row[j] *= factor;
    }
  }
  return kernel;
}

}  // namespace kelto::hyperspectral
