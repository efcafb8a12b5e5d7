// The objective of the spectral inversion: the squared distance between a combination of band
// responses and a virtual filter. PM_SpectralCorrectionComputation keeps one per computation and
// solves with the F Ft and F v prepared here; Value and Gradient are what an iterative optimiser
// would minimise.
// Thread-safety: no lock; used under the lock of the module that owns it.
#pragma once

#include <vector>

#include <kelto/common/multi_dimensional_function.h>
#include <kelto/datatypes/matrix.h>
#include <kelto/datatypes/vector.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

// With F the responses (one row per band, one column per wavelength sample), v the virtual
// filter and x one coefficient per band:
//
//   value(x) = |Ft x - v|^2,  gradient(x) = 2 (F Ft x - F v).
//
// The dimension is the number of bands. F Ft is formed once, at construction, and F v once per
// filter, so that a gradient costs bands squared operations however many samples there are.
//
// Sizes are checked: a filter must have one element per sample and x one per band, and Value and
// Gradient need a filter; a mismatch is std::invalid_argument, a missing filter std::logic_error.
class KELTO_HYPERSPECTRAL_EXPORT CorrectionFunction : public common::MultiDimensionalFunction {
 public:
  // F is copied.
  explicit CorrectionFunction(const datatypes::Matrix<double>& responses);
  CorrectionFunction(const datatypes::Matrix<double>& responses,
                     const datatypes::ColumnVector<double>& virtual_filter);
  ~CorrectionFunction() override;

  // Takes v (the held filter itself may be passed back) and forms F v anew.
  void SetVirtualFilter(const datatypes::ColumnVector<double>& virtual_filter);

  void Value(double& value, const std::vector<double>& x) const override;
  // gradient gets the dimension as its size.
  void Gradient(std::vector<double>& gradient, const std::vector<double>& x) const override;

  const datatypes::Matrix<double>& GetResponseMatrix() const { return response_matrix_; }
  const datatypes::Matrix<double>& GetResponseMatrixTranspose() const {
    return response_matrix_transpose_;
  }
  // F Ft, bands by bands.
  const datatypes::Matrix<double>& GetGramMatrix() const { return gram_matrix_; }
  // v; empty before the first SetVirtualFilter.
  const datatypes::ColumnVector<double>& GetVirtualFilter() const { return virtual_filter_; }
  // F v, one element per band; empty before the first SetVirtualFilter.
  const datatypes::ColumnVector<double>& GetProjectedFilter() const { return projected_filter_; }

 private:
  void _CheckPoint(const std::vector<double>& x) const;

  datatypes::Matrix<double> response_matrix_;
  datatypes::Matrix<double> response_matrix_transpose_;
  datatypes::Matrix<double> gram_matrix_;
  datatypes::ColumnVector<double> virtual_filter_;
  datatypes::ColumnVector<double> projected_filter_;
};

}  // namespace kelto::hyperspectral
