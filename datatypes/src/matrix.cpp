#include <kelto/datatypes/matrix.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <kelto/common/utilities.h>

namespace kelto::datatypes {

namespace {

using Dense = Matrix<double>;

bool IsSymmetric(Dense const& a) {
  for (unsigned long i = 0; i < a.row_count; ++i) {
    for (unsigned long j = 0; j < i; ++j) {
      if (a.rows[i][j] != a.rows[j][i]) {
        return false;
      }
    }
  }
  return true;
}

// L with a = L Lt, or false when a pivot is not clearly positive: the matrix is then not
// positive definite, or too close to singular for this route to be trusted.
bool Cholesky(Dense const& a, double tolerance, Dense& l) {
  const unsigned long n = a.row_count;
  for (unsigned long j = 0; j < n; ++j) {
    double pivot = a.rows[j][j];
    for (unsigned long k = 0; k < j; ++k) {
      pivot -= l.rows[j][k] * l.rows[j][k];
    }
    if (!(pivot > tolerance)) {
      return false;
    }
    l.rows[j][j] = std::sqrt(pivot);
    for (unsigned long i = j + 1; i < n; ++i) {
      double value = a.rows[i][j];
      for (unsigned long k = 0; k < j; ++k) {
        value -= l.rows[i][k] * l.rows[j][k];
      }
      l.rows[i][j] = value / l.rows[j][j];
    }
  }
  return true;
}

// The inverse of a = P^-1 L U, column by column: L y = P e_c, then U x = y. factors holds L in
// its lower triangle and U in its upper one; unit_lower takes the diagonal of L as ones, the
// diagonal then belonging to U alone. order[i] is the row of a that row i of the factors stands
// for.
Dense InverseFromFactors(Dense const& factors, bool unit_lower,
                         std::vector<unsigned long> const& order) {
  const unsigned long n = factors.row_count;
  Dense inverse(n, n, 0.0);
  std::vector<double> column(n);
  for (unsigned long c = 0; c < n; ++c) {
    for (unsigned long i = 0; i < n; ++i) {
      double value = order[i] == c ? 1.0 : 0.0;
      for (unsigned long k = 0; k < i; ++k) {
        value -= factors.rows[i][k] * column[k];
      }
      column[i] = unit_lower ? value : value / factors.rows[i][i];
    }
    for (unsigned long i = n; i-- > 0;) {
      double value = column[i];
      for (unsigned long k = i + 1; k < n; ++k) {
        value -= factors.rows[i][k] * column[k];
      }
      column[i] = value / factors.rows[i][i];
    }
    for (unsigned long i = 0; i < n; ++i) {
      inverse.rows[i][c] = column[i];
    }
  }
  return inverse;
}

std::vector<unsigned long> Identity(unsigned long n) {
  std::vector<unsigned long> order(n);
  for (unsigned long i = 0; i < n; ++i) {
    order[i] = i;
  }
  return order;
}

// a = L Lt: Lt is L mirrored into the upper triangle, which Cholesky leaves zero.
Dense CholeskyInverse(Dense l) {
  for (unsigned long i = 0; i < l.row_count; ++i) {
    for (unsigned long k = 0; k < i; ++k) {
      l.rows[k][i] = l.rows[i][k];
    }
  }
  return InverseFromFactors(l, false, Identity(l.row_count));
}

Dense LuInverse(Dense lu, double tolerance) {
  const unsigned long n = lu.row_count;
  std::vector<unsigned long> order = Identity(n);
  for (unsigned long k = 0; k < n; ++k) {
    unsigned long pivot_row = k;
    for (unsigned long i = k + 1; i < n; ++i) {
      if (std::fabs(lu.rows[i][k]) > std::fabs(lu.rows[pivot_row][k])) {
        pivot_row = i;
      }
    }
    if (!(std::fabs(lu.rows[pivot_row][k]) > tolerance)) {
      throw std::runtime_error("Matrix::Inverse: the matrix is singular");
    }
    // lu is a private copy: permuting its row pointers stands for swapping the rows.
    std::swap(lu.rows[k], lu.rows[pivot_row]);
    std::swap(order[k], order[pivot_row]);
    for (unsigned long i = k + 1; i < n; ++i) {
      const double factor = lu.rows[i][k] / lu.rows[k][k];
      lu.rows[i][k] = factor;
      for (unsigned long j = k + 1; j < n; ++j) {
        lu.rows[i][j] -= factor * lu.rows[k][j];
      }
    }
  }
  return InverseFromFactors(lu, true, order);
}

}  // namespace

template <typename T>
Matrix<T> Matrix<T>::Inverse() const {
  if (row_count != column_count) {
    throw std::invalid_argument("Matrix::Inverse: the matrix is not square but " +
                                std::to_string(row_count) + " by " + std::to_string(column_count));
  }
  const unsigned long n = row_count;
  double largest = 0.0;
  for (unsigned long i = 0; i < n * n; ++i) {
    if (!std::isfinite(data[i])) {
      throw std::runtime_error("Matrix::Inverse: the matrix holds a value that is not finite");
    }
    largest = std::max(largest, std::fabs(data[i]));
  }
  // A pivot below this is rounding noise of the elimination, not information.
  const double tolerance =
      static_cast<double>(n) * std::numeric_limits<double>::epsilon() * largest;
  if (IsSymmetric(*this)) {
    Matrix l(n, n, T());
    if (Cholesky(*this, tolerance, l)) {
      return CholeskyInverse(std::move(l));
    }
  }
  return LuInverse(*this, tolerance);
}

template <typename T>
void Matrix<T>::WriteCsv(Matrix const& matrix, common::filesystem::Path const& path,
                         unsigned long precision) {
  common::Utilities::WriteCsv(matrix.data, matrix.row_count, matrix.column_count, path, precision);
}

template class Matrix<double>;

}  // namespace kelto::datatypes
