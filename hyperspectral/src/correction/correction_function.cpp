#include <kelto/hyperspectral/correction/correction_function.h>

#include <stdexcept>
#include <string>

namespace kelto::hyperspectral {

namespace {

using datatypes::ColumnVector;
using datatypes::Matrix;

Matrix<double> Transpose(const Matrix<double>& matrix) {
  Matrix<double> transpose(matrix.column_count, matrix.row_count, 0.0);
  for (unsigned long i = 0; i < matrix.row_count; ++i) {
    for (unsigned long j = 0; j < matrix.column_count; ++j) {
      transpose.rows[j][i] = matrix.rows[i][j];
    }
  }
  return transpose;
}

// A read-only view of x for Matrix::Multiply, which takes a vector but never writes it.
ColumnVector<double> View(const std::vector<double>& x) {
  auto* first = const_cast<double*>(x.data());
  return ColumnVector<double>(first, first + x.size(), false);
}

}  // namespace

CorrectionFunction::CorrectionFunction(const Matrix<double>& responses)
    : MultiDimensionalFunction(responses.row_count),
      response_matrix_(responses),
      response_matrix_transpose_(Transpose(responses)),
      gram_matrix_(response_matrix_.Multiply(response_matrix_transpose_)) {}

CorrectionFunction::CorrectionFunction(const Matrix<double>& responses,
                                       const ColumnVector<double>& virtual_filter)
    : CorrectionFunction(responses) {
  SetVirtualFilter(virtual_filter);
}

CorrectionFunction::~CorrectionFunction() = default;

void CorrectionFunction::SetVirtualFilter(const ColumnVector<double>& virtual_filter) {
  if (virtual_filter.size != response_matrix_.column_count) {
    throw std::invalid_argument(
        "CorrectionFunction: the virtual filter has " + std::to_string(virtual_filter.size) +
        " samples, the responses have " + std::to_string(response_matrix_.column_count));
  }
  virtual_filter_ = virtual_filter;
  projected_filter_ = response_matrix_.Multiply(virtual_filter_);
}

void CorrectionFunction::Value(double& value, const std::vector<double>& x) const {
  _CheckPoint(x);
  const ColumnVector<double> residual = response_matrix_transpose_.Multiply(View(x));
  double sum = 0.0;
  for (unsigned long i = 0; i < residual.size; ++i) {
    const double difference = residual[i] - virtual_filter_[i];
    sum += difference * difference;
  }
  value = sum;
}

void CorrectionFunction::Gradient(std::vector<double>& gradient,
                                  const std::vector<double>& x) const {
  _CheckPoint(x);
  const ColumnVector<double> product = gram_matrix_.Multiply(View(x));
  gradient.resize(dimension);
  for (unsigned long i = 0; i < dimension; ++i) {
    gradient[i] = 2.0 * (product[i] - projected_filter_[i]);
  }
}

void CorrectionFunction::_CheckPoint(const std::vector<double>& x) const {
  if (x.size() != dimension) {
    throw std::invalid_argument("CorrectionFunction: x has " + std::to_string(x.size()) +
                                " elements, the function " + std::to_string(dimension) +
                                " variables");
  }
  if (virtual_filter_.size != response_matrix_.column_count) {
    throw std::logic_error("CorrectionFunction: no virtual filter has been set");
  }
}

}  // namespace kelto::hyperspectral
