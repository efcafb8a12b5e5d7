#include <kelto/hyperspectral/correction/correction_function.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

using kelto::datatypes::ColumnVector;
using kelto::datatypes::Matrix;
using kelto::hyperspectral::CorrectionFunction;
using Values = std::vector<double>;

Matrix<double> FromRows(const std::vector<Values>& rows) {
  Matrix<double> matrix(rows.size(), rows[0].size(), 0.0);
  for (unsigned long i = 0; i < matrix.row_count; ++i) {
    std::copy(rows[i].begin(), rows[i].end(), matrix.rows[i]);
  }
  return matrix;
}

ColumnVector<double> Column(Values values) {
  return ColumnVector<double>(values.data(), values.data() + values.size(), true);
}

Values Elements(const ColumnVector<double>& vector) {
  return Values(vector.begin(), vector.end());
}
Values Elements(const Matrix<double>& matrix) {
  return Values(matrix.data, matrix.data + matrix.row_count * matrix.column_count);
}

TEST(CorrectionFunction, SelectingTwoOfThreeSamples) {
  CorrectionFunction function(FromRows({{1, 0, 0}, {0, 1, 0}}), Column({1, 2, 3}));
  // Transpose, Gram matrix and projected filter are prepared.
  EXPECT_EQ(function.dimension, 2u);
  const Matrix<double>& transpose = function.GetResponseMatrixTranspose();
  EXPECT_EQ(std::make_pair(transpose.row_count, transpose.column_count), std::make_pair(3ul, 2ul));
  EXPECT_EQ(Elements(transpose), (Values{1, 0, 0, 1, 0, 0}));
  const Matrix<double>& gram = function.GetGramMatrix();
  EXPECT_EQ(std::make_pair(gram.row_count, gram.column_count), std::make_pair(2ul, 2ul));
  EXPECT_EQ(Elements(gram), (Values{1, 0, 0, 1}));
  EXPECT_EQ(Elements(function.GetProjectedFilter()), (Values{1, 2}));

  // At the optimum only the third sample is missed; the gradient output gets the dimension.
  double value = -1.0;
  Values gradient(5, 7.0);
  const std::vector<std::pair<Values, std::pair<double, Values>>> cases = {
      {{1, 2}, {9.0, {0, 0}}}, {{0, 0}, {14.0, {-2, -4}}}, {{1, 1}, {10.0, {0, -2}}}};
  for (const auto& [x, expected] : cases) {
    function.Value(value, x);
    function.Gradient(gradient, x);
    EXPECT_EQ(value, expected.first) << x[0] << ", " << x[1];
    EXPECT_EQ(gradient, expected.second) << x[0] << ", " << x[1];
    gradient.clear();
  }

  // The filter may be set again from itself, and a wrong size keeps the old one.
  function.SetVirtualFilter(function.GetVirtualFilter());
  EXPECT_EQ(Elements(function.GetVirtualFilter()), (Values{1, 2, 3}));
  EXPECT_EQ(Elements(function.GetProjectedFilter()), (Values{1, 2}));
  function.SetVirtualFilter(Column({5, -1, 0}));
  EXPECT_EQ(Elements(function.GetProjectedFilter()), (Values{5, -1}));
  EXPECT_THROW(function.SetVirtualFilter(Column({1, 2})), std::invalid_argument);
  EXPECT_EQ(Elements(function.GetVirtualFilter()), (Values{5, -1, 0}));
  EXPECT_THROW(function.Value(value, {1, 2, 3}), std::invalid_argument);
  EXPECT_THROW(function.Gradient(gradient, {1}), std::invalid_argument);
}

TEST(CorrectionFunction, NeedsAFilterBeforeEvaluation) {
  const CorrectionFunction function(FromRows({{1, 2}, {3, 4}}));
  EXPECT_EQ(function.GetVirtualFilter().size, 0u);
  double value = 0.0;
  Values gradient;
  EXPECT_THROW(function.Value(value, {1, 1}), std::logic_error);
  EXPECT_THROW(function.Gradient(gradient, {1, 1}), std::logic_error);
}

// The gradient of a quadratic is what central differences of its value give, up to rounding;
// the two are computed by different routes (bands by bands against samples).
TEST(CorrectionFunction, GradientAgreesWithDifferencesOfTheValue) {
  std::mt19937 generator(7);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  const auto random = [&](unsigned long size) {
    Values values(size);
    for (double& element : values) {
      element = uniform(generator);
    }
    return values;
  };
  const unsigned long bands = 5;
  const unsigned long samples = 40;
  Matrix<double> responses(bands, samples, 0.0);
  const Values elements = random(bands * samples);
  std::copy(elements.begin(), elements.end(), responses.data);
  const CorrectionFunction function(responses, Column(random(samples)));
  const Values x = random(bands);
  const auto value_at = [&](unsigned long i, double step) {
    Values moved = x;
    moved[i] += step;
    double value = 0.0;
    function.Value(value, moved);
    return value;
  };

  Values gradient;
  function.Gradient(gradient, x);
  ASSERT_EQ(gradient.size(), bands);
  const double step = 1e-3;
  for (unsigned long i = 0; i < bands; ++i) {
    EXPECT_NEAR(gradient[i], (value_at(i, step) - value_at(i, -step)) / (2.0 * step), 1e-8)
        << "band " << i;
  }
}

}  // namespace
