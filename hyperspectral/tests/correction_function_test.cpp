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

Matrix<double> FromRows(const std::vector<std::vector<double>>& rows) {
  Matrix<double> matrix(rows.size(), rows.empty() ? 0 : rows[0].size(), 0.0);
  for (unsigned long i = 0; i < matrix.row_count; ++i) {
    for (unsigned long j = 0; j < matrix.column_count; ++j) {
      matrix.rows[i][j] = rows[i][j];
    }
  }
  return matrix;
}

ColumnVector<double> Column(std::vector<double> values) {
  return ColumnVector<double>(values.data(), values.data() + values.size(), true);
}

std::vector<double> Values(const ColumnVector<double>& vector) {
  return std::vector<double>(vector.begin(), vector.end());
}

// F selects the first two of three samples.
class CorrectionFunctionSelecting : public ::testing::Test {
 protected:
  CorrectionFunction function{FromRows({{1, 0, 0}, {0, 1, 0}}), Column({1, 2, 3})};
};

TEST_F(CorrectionFunctionSelecting, PreparesTransposeGramMatrixAndProjectedFilter) {
  EXPECT_EQ(function.dimension, 2u);
  const Matrix<double>& transpose = function.GetResponseMatrixTranspose();
  ASSERT_EQ(transpose.row_count, 3u);
  ASSERT_EQ(transpose.column_count, 2u);
  EXPECT_EQ(std::vector<double>(transpose.data, transpose.data + 6),
            (std::vector<double>{1, 0, 0, 1, 0, 0}));
  const Matrix<double>& gram = function.GetGramMatrix();
  ASSERT_EQ(gram.row_count, 2u);
  ASSERT_EQ(gram.column_count, 2u);
  EXPECT_EQ(std::vector<double>(gram.data, gram.data + 4), (std::vector<double>{1, 0, 0, 1}));
  EXPECT_EQ(Values(function.GetProjectedFilter()), (std::vector<double>{1, 2}));
}

TEST_F(CorrectionFunctionSelecting, ValueAndGradientAtTheOptimumAndAtZero) {
  double value = -1.0;
  std::vector<double> gradient;
  function.Value(value, {1, 2});
  function.Gradient(gradient, {1, 2});
  EXPECT_EQ(value, 9.0);  // only the third sample is missed
  EXPECT_EQ(gradient, (std::vector<double>{0, 0}));

  function.Value(value, {0, 0});
  function.Gradient(gradient, {0, 0});
  EXPECT_EQ(value, 14.0);
  EXPECT_EQ(gradient, (std::vector<double>{-2, -4}));
}

TEST_F(CorrectionFunctionSelecting, GradientOutputGetsTheDimension) {
  std::vector<double> too_short;
  function.Gradient(too_short, {1, 1});
  EXPECT_EQ(too_short, (std::vector<double>{0, -2}));
  std::vector<double> too_long(5, 7.0);
  function.Gradient(too_long, {1, 1});
  EXPECT_EQ(too_long, (std::vector<double>{0, -2}));
}

TEST_F(CorrectionFunctionSelecting, FilterCanBeSetAgainFromItself) {
  function.SetVirtualFilter(function.GetVirtualFilter());
  EXPECT_EQ(Values(function.GetVirtualFilter()), (std::vector<double>{1, 2, 3}));
  EXPECT_EQ(Values(function.GetProjectedFilter()), (std::vector<double>{1, 2}));

  function.SetVirtualFilter(Column({5, -1, 0}));
  EXPECT_EQ(Values(function.GetVirtualFilter()), (std::vector<double>{5, -1, 0}));
  EXPECT_EQ(Values(function.GetProjectedFilter()), (std::vector<double>{5, -1}));
}

TEST_F(CorrectionFunctionSelecting, RefusesMismatchedSizesAndKeepsItsFilter) {
  EXPECT_THROW(function.SetVirtualFilter(Column({1, 2})), std::invalid_argument);
  EXPECT_EQ(Values(function.GetVirtualFilter()), (std::vector<double>{1, 2, 3}));
  double value = 0.0;
  std::vector<double> gradient;
  EXPECT_THROW(function.Value(value, {1, 2, 3}), std::invalid_argument);
  EXPECT_THROW(function.Gradient(gradient, {1}), std::invalid_argument);
}

TEST(CorrectionFunction, NeedsAFilterBeforeEvaluation) {
  const CorrectionFunction function(FromRows({{1, 2}, {3, 4}}));
  EXPECT_EQ(function.GetVirtualFilter().size, 0u);
  double value = 0.0;
  std::vector<double> gradient;
  EXPECT_THROW(function.Value(value, {1, 1}), std::logic_error);
  EXPECT_THROW(function.Gradient(gradient, {1, 1}), std::logic_error);
}

// The gradient of a quadratic is what central differences of its value give, up to rounding;
// the two are computed by different routes (bands by bands against samples).
TEST(CorrectionFunction, GradientAgreesWithDifferencesOfTheValue) {
  std::mt19937 generator(7);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  const unsigned long bands = 5;
  const unsigned long samples = 40;
  Matrix<double> responses(bands, samples, 0.0);
  for (unsigned long i = 0; i < bands * samples; ++i) {
    responses.data[i] = uniform(generator);
  }
  ColumnVector<double> filter(samples, 0.0);
  for (double& element : filter) {
    element = uniform(generator);
  }
  const CorrectionFunction function(responses, filter);
  std::vector<double> x(bands);
  for (double& element : x) {
    element = uniform(generator);
  }

  std::vector<double> gradient;
  function.Gradient(gradient, x);
  ASSERT_EQ(gradient.size(), bands);
  const double step = 1e-3;
  for (unsigned long i = 0; i < bands; ++i) {
    std::vector<double> up = x;
    std::vector<double> down = x;
    up[i] += step;
    down[i] -= step;
    double value_up = 0.0;
    double value_down = 0.0;
    function.Value(value_up, up);
    function.Value(value_down, down);
    EXPECT_NEAR(gradient[i], (value_up - value_down) / (2.0 * step), 1e-8) << "band " << i;
  }
}

}  // namespace
