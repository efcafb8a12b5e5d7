#include <kelto/datatypes/matrix.h>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <kelto/test_support/temporary_directory.h>

namespace kelto::datatypes {
namespace {

Matrix<double> Make(const std::vector<std::vector<double>>& values) {
  Matrix<double> m(values.size(), values.empty() ? 0 : values[0].size(), 0.0);
  for (unsigned long i = 0; i < m.row_count; ++i) {
    for (unsigned long j = 0; j < m.column_count; ++j) {
      m.rows[i][j] = values[i][j];
    }
  }
  return m;
}

std::vector<double> Elements(Matrix<double> const& m) {
  return {m.data, m.data + m.row_count * m.column_count};
}

void ExpectRowPointersFollowData(Matrix<double> const& m) {
  for (unsigned long i = 0; i < m.row_count; ++i) {
    EXPECT_EQ(m.rows[i], m.data + i * m.column_count) << i;
  }
}

// a times b is the identity, to within tolerance.
void ExpectIdentity(Matrix<double> const& a, Matrix<double> const& b, double tolerance) {
  const Matrix<double> product = a.Multiply(b);
  for (unsigned long i = 0; i < product.row_count; ++i) {
    for (unsigned long j = 0; j < product.column_count; ++j) {
      EXPECT_NEAR(product.rows[i][j], i == j ? 1.0 : 0.0, tolerance) << i << "," << j;
    }
  }
}

TEST(MatrixConstruction, FilledRowMajorZeroByZeroAllocatesNothingCopyIsDeepMoveTakesOver) {
  const Matrix<double> filled(2, 3, 1.5);
  EXPECT_TRUE(filled.owned);
  EXPECT_EQ(Elements(filled), std::vector<double>(6, 1.5));
  ExpectRowPointersFollowData(filled);
  EXPECT_THROW(Matrix<double>(1UL << 31, 1UL << 31, 0.0), std::bad_array_new_length);

  const Matrix<double> none(0, 0, 1.0);
  EXPECT_EQ(
      std::make_tuple(none.data, none.rows, none.row_count, none.column_count),
      std::make_tuple(static_cast<double*>(nullptr), static_cast<double**>(nullptr), 0UL, 0UL));
  const Matrix<double> no_rows(0, 4, 1.0);
  EXPECT_EQ(std::make_pair(no_rows.row_count, no_rows.column_count), std::make_pair(0UL, 4UL));

  // A copy is deep; a move takes the storage over.
  Matrix<double> m = Make({{1, 2}, {3, 4}, {5, 6}});
  const Matrix<double> copy(m);
  EXPECT_NE(copy.data, m.data);
  ExpectRowPointersFollowData(copy);
  m.rows[0][0] = -1.0;
  EXPECT_EQ(Elements(copy), (std::vector<double>{1, 2, 3, 4, 5, 6}));

  const double* storage = m.data;
  Matrix<double> moved(std::move(m));
  EXPECT_EQ(moved.data, storage);
  EXPECT_EQ(m.data, nullptr);  // NOLINT: a moved-from matrix is left empty, safe to destroy
}

TEST(MatrixAssignment, CopyFillsThePresentStorageMoveTakesOverAllocationRepoints) {
  Matrix<double> target(2, 2, 0.0);
  const double* storage = target.data;
  const Matrix<double> other = Make({{5, 6}, {7, 8}});
  target = other;
  EXPECT_EQ(target.data, storage);
  EXPECT_EQ(Elements(target), (std::vector<double>{5, 6, 7, 8}));

  Matrix<double> source = Make({{1, 2}, {3, 4}});
  const double* source_storage = source.data;
  target = std::move(source);
  EXPECT_EQ(target.data, source_storage);
  EXPECT_EQ(Elements(target), (std::vector<double>{1, 2, 3, 4}));

  target = Make({{1, 2, 3}});
  EXPECT_EQ(target.row_count, 1u);
  EXPECT_EQ(Elements(target), (std::vector<double>{1, 2, 3}));
  ExpectRowPointersFollowData(target);
  target = Matrix<double>(3, 2, 0.5);
  EXPECT_EQ(Elements(target), std::vector<double>(6, 0.5));
  ExpectRowPointersFollowData(target);

  // Matching sizes keep everything; others repoint the rows.
  Matrix<double> grown = Make({{1, 2}, {3, 4}});
  const double* kept = grown.data;
  double** row_pointers = grown.rows;
  grown._AllocateAll(2, 2, false);
  EXPECT_EQ(grown.data, kept);
  EXPECT_EQ(Elements(grown), (std::vector<double>{1, 2, 3, 4}));

  grown._AllocateAll(2, 3, true);
  EXPECT_EQ(grown.rows, row_pointers);  // same row count: the pointer array is reused
  ExpectRowPointersFollowData(grown);
  EXPECT_EQ(std::make_tuple(grown.rows[0][0], grown.rows[0][1], grown.rows[1][0], grown.rows[1][1]),
            std::make_tuple(1.0, 2.0, 3.0, 4.0));

  grown._AllocateAll(3, 1, false);
  EXPECT_EQ(grown.row_count, 3u);
  ExpectRowPointersFollowData(grown);

  grown._DeallocateAll();
  EXPECT_EQ(grown.data, nullptr);
  EXPECT_EQ(grown.rows, nullptr);
  EXPECT_EQ(grown.row_count, 0u);
}

TEST(MatrixMultiply, MatrixTimesVectorAndMatrixTimesMatrix) {
  const Matrix<double> m = Make({{1, 2, 3}, {-1, 0, 0.5}});
  double raw[] = {2.0, -1.0, 4.0};
  const ColumnVector<double> v(raw, raw + 3, false);
  const ColumnVector<double> column = m.Multiply(v);
  EXPECT_TRUE(column.owned);
  EXPECT_EQ(std::vector<double>(column.begin(), column.end()), (std::vector<double>{12, 0}));

  const ColumnVector<double> empty = Matrix<double>(0, 3, 1.0).Multiply(v);
  EXPECT_EQ(empty.size, 0u);
  EXPECT_EQ(empty.data, nullptr);

  const Matrix<double> a = Make({{1, 2, 3}, {4, 5, 6}});
  const Matrix<double> b = Make({{7, 8}, {9, 10}, {11, 12}});
  const Matrix<double> product = a.Multiply(b);
  EXPECT_EQ(product.row_count, 2u);
  EXPECT_EQ(product.column_count, 2u);
  EXPECT_EQ(Elements(product), (std::vector<double>{58, 64, 139, 154}));

  // The sum of each element starts at 0.0 and adds with the inner index rising: here the big
  // terms cancel before the small one is added.
  const Matrix<double> order = Make({{1e16, -1e16, 1.0}}).Multiply(Make({{1}, {1}, {1}}));
  EXPECT_EQ(order.rows[0][0], 1.0);
}

TEST(MatrixInverse, SymmetricNonSymmetricAndIndefinite) {
  for (const Matrix<double>& spd :
       {Make({{2, 1}, {1, 2}}),
        Make({{4, 1, 0.5, 0}, {1, 3, 0.2, 0.1}, {0.5, 0.2, 2, -0.3}, {0, 0.1, -0.3, 1}})}) {
    ExpectIdentity(spd, spd.Inverse(), 1e-14);
  }

  // The regularised normal equations of an identity response: F Ft + alpha^2 I.
  const Matrix<double> regularised = Make({{1.0001, 0}, {0, 1.0001}}).Inverse();
  EXPECT_DOUBLE_EQ(regularised.rows[0][0], 1.0 / 1.0001);
  EXPECT_EQ(regularised.rows[0][1], 0.0);

  // A zero on the diagonal: elimination without row exchanges would divide by it.
  // A zero on the diagonal: elimination without row exchanges would divide by it.
  const Matrix<double> a = Make({{0, 1, 2}, {1, 0, 3}, {4, -3, 8}});
  const Matrix<double> inverse = a.Inverse();
  ExpectIdentity(a, inverse, 1e-14);
  ExpectIdentity(inverse, a, 1e-14);

  const Matrix<double> indefinite = Make({{1, 2}, {2, 1}});
  ExpectIdentity(indefinite, indefinite.Inverse(), 1e-15);

  Matrix<double> hilbert(6, 6, 0.0);
  for (unsigned long i = 0; i < 6; ++i) {
    for (unsigned long j = 0; j < 6; ++j) {
      hilbert.rows[i][j] = 1.0 / static_cast<double>(i + j + 1);
    }
  }
  ExpectIdentity(hilbert, hilbert.Inverse(), 1e-8);

  EXPECT_EQ(Matrix<double>().Inverse().row_count, 0u);
}

TEST(MatrixInverse, SingularAndMalformedMatricesThrow) {
  for (const Matrix<double>& singular :
       {Make({{1, 2}, {2, 4}}), Make({{1, 2, 3}, {4, 5, 6}, {7, 8, 9}}), Make({{0, 0}, {0, 0}}),
        Make({{1e-20, 2e-20}, {2e-20, 4e-20}})}) {
    try {
      singular.Inverse();
      ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), "Matrix::Inverse: the matrix is singular");
    }
  }
  EXPECT_THROW(Make({{1, 2, 3}, {4, 5, 6}}).Inverse(), std::invalid_argument);
  EXPECT_THROW(Make({{1, std::numeric_limits<double>::quiet_NaN()}, {0, 1}}).Inverse(),
               std::runtime_error);
}

TEST(MatrixCsv, OneLinePerRowWithTheGivenPrecision) {
  const kelto::testing::TemporaryDirectory directory;
  const std::filesystem::path file = directory.path() / "matrix.csv";
  Matrix<double>::WriteCsv(Make({{1, 2.5}, {-3, 1.0 / 3.0}}), file.string(), 6);
  std::ifstream stream(file);
  const std::string text((std::istreambuf_iterator<char>(stream)),
                         std::istreambuf_iterator<char>());
  EXPECT_EQ(text, "1,2.5\n-3,0.333333\n");
}

}  // namespace
}  // namespace kelto::datatypes
