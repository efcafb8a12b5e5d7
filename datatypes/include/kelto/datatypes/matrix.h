// A dense row-major matrix with one pointer per row, so that element (i, j) is rows[i][j] and a
// row can be handed out as a RowVector view. The spectral correction builds its response and
// correction matrices in it; Inverse gives the explicit inverse its debug output shows.
// Thread-safety: no lock; read by many threads while none writes, written by one.
#pragma once

#include <algorithm>
#include <cstring>
#include <new>
#include <type_traits>

#include <kelto/common/path.h>
#include <kelto/datatypes/export.h>
#include <kelto/datatypes/vector.h>

namespace kelto::datatypes {

template <typename T>
class KELTO_DATATYPES_EXPORT Matrix {
 public:
  static_assert(std::is_trivially_copyable_v<T>, "elements are moved as raw memory");

  Matrix() = default;

  // Owned, every element value. Both counts 0 allocate nothing; 0 rows with columns give an
  // empty element array.
  Matrix(unsigned long initial_rows, unsigned long initial_columns, const T& value) {
    _AllocateAll(initial_rows, initial_columns, false);
    std::fill(data, data + row_count * column_count, value);
  }

  // A deep copy, owned whatever the source is.
  Matrix(Matrix const& other) {
    _AllocateAll(other.row_count, other.column_count, false);
    _CopyFrom(other);
  }

  Matrix(Matrix&& other) noexcept { _Take(other); }

  ~Matrix() { _DeallocateAll(); }

  // Same shape: the elements are copied into the present storage. Otherwise new storage.
  Matrix& operator=(Matrix const& other) {
    if (this != &other) {
      _AllocateAll(other.row_count, other.column_count, false);
      _CopyFrom(other);
    }
    return *this;
  }

  // Takes the other's storage over, except that a target that does not own its elements and
  // has the same shape receives a copy, so that memory it stands for is written and not lost.
  Matrix& operator=(Matrix&& other) noexcept {
    if (this != &other) {
      if (!owned && row_count == other.row_count && column_count == other.column_count) {
        _CopyFrom(other);
      } else {
        _DeallocateAll();
        _Take(other);
      }
    }
    return *this;
  }

  // Nothing when both counts match. Otherwise a new element array, the row pointers reused when
  // the row count is unchanged, the old elements freed; owned afterwards. With keep the common
  // top-left block is carried over; new elements are not cleared.
  void _AllocateAll(unsigned long new_row_count, unsigned long new_column_count, bool keep) {
    if (new_row_count == row_count && new_column_count == column_count) {
      return;
    }
    if (new_column_count != 0 && new_row_count > Vector<T>::kMaximumSize / new_column_count) {
      throw std::bad_array_new_length();
    }
    T* fresh = new T[new_row_count * new_column_count];
    T** fresh_rows = rows;
    if (new_row_count != row_count) {
      try {
        fresh_rows = new T*[new_row_count];
      } catch (...) {
        delete[] fresh;
        throw;
      }
    }
    if (keep && data != nullptr) {
      const unsigned long kept_columns = std::min(column_count, new_column_count);
      for (unsigned long i = 0; i < std::min(row_count, new_row_count); ++i) {
        std::memmove(fresh + i * new_column_count, rows[i], kept_columns * sizeof(T));
      }
    }
    if (fresh_rows != rows) {
      delete[] rows;
    }
    if (owned) {
      delete[] data;
    }
    data = fresh;
    rows = fresh_rows;
    row_count = new_row_count;
    column_count = new_column_count;
    owned = true;
    for (unsigned long i = 0; i < row_count; ++i) {
      rows[i] = data + i * column_count;
    }
  }

  // Frees the row pointers, then the elements if owned, and leaves the matrix empty.
  void _DeallocateAll() {
    delete[] rows;
    if (owned) {
      delete[] data;
    }
    owned = false;
    data = nullptr;
    rows = nullptr;
    row_count = 0;
    column_count = 0;
  }

  // This matrix times v, one sum per row with the column index rising. The size of v is not
  // checked: it must have column_count elements.
  ColumnVector<T> Multiply(ColumnVector<T> const& v) const {
    ColumnVector<T> result(row_count, T());
    for (unsigned long i = 0; i < row_count; ++i) {
      T sum = T();
      for (unsigned long j = 0; j < column_count; ++j) {
        sum += rows[i][j] * v.data[j];
      }
      result.data[i] = sum;
    }
    return result;
  }

  // This matrix times other. Each element is accumulated from zero with the inner index rising;
  // the loops run row-wise through other for the cache, which keeps that order per element. The
  // inner sizes are not checked: other must have column_count rows.
  Matrix Multiply(Matrix const& other) const {
    Matrix result(row_count, other.column_count, T());
    for (unsigned long i = 0; i < row_count; ++i) {
      T* target = result.rows[i];
      for (unsigned long k = 0; k < column_count; ++k) {
        const T factor = rows[i][k];
        const T* source = other.rows[k];
        for (unsigned long j = 0; j < other.column_count; ++j) {
          target[j] += factor * source[j];
        }
      }
    }
    return result;
  }

  // The inverse of a square matrix: by Cholesky when the matrix is symmetric positive definite
  // (the regularised normal equations of the correction always are), otherwise by LU with
  // partial pivoting. Throws std::invalid_argument for a matrix that is not square and
  // std::runtime_error for one that is singular to working precision or holds a value that is
  // not finite.
  Matrix Inverse() const;

  // Comma-separated text, one line per row, precision significant digits. Throws
  // std::runtime_error when the file can't be written.
  static void WriteCsv(Matrix const& matrix, common::filesystem::Path const& path,
                       unsigned long precision);

  bool owned = false;
  T* data = nullptr;
  T** rows = nullptr;
  unsigned long row_count = 0;
  unsigned long column_count = 0;

 private:
  void _CopyFrom(Matrix const& other) {
    if (data != nullptr && other.data != nullptr && data != other.data) {
      std::memmove(data, other.data, row_count * column_count * sizeof(T));
    }
  }

  void _Take(Matrix& other) {
    owned = other.owned;
    data = other.data;
    rows = other.rows;
    row_count = other.row_count;
    column_count = other.column_count;
    other.owned = false;
    other.data = nullptr;
    other.rows = nullptr;
    other.row_count = 0;
    other.column_count = 0;
  }
};

extern template class Matrix<double>;

}  // namespace kelto::datatypes
