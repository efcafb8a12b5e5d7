// Dense vectors of the family: an owned array or a non-owning view of someone else's elements.
// The spectral correction reads and writes matrix rows through RowVector views and passes
// wavelength grids and filters as ColumnVectors; the two kinds differ only by type.
// Thread-safety: no lock; a view shares its elements with their owner, who must not change
// them while another thread reads.
#pragma once

#include <algorithm>
#include <cstring>
#include <new>
#include <type_traits>

#include <kelto/datatypes/export.h>

namespace kelto::datatypes {

template <typename T>
class KELTO_DATATYPES_EXPORT Vector {
 public:
  static_assert(std::is_trivially_copyable_v<T>, "elements are moved as raw memory");

  // Beyond this an element count could not be turned into a byte count safely.
  static constexpr unsigned long kMaximumSize = (1UL << 60) - 1;

  Vector() = default;

  // Owned, every element value; size 0 allocates nothing.
  Vector(unsigned long size, const T& value) {
    if (size != 0) {
      _Allocate(size, false);
      std::fill(data, data + size, value);
    }
  }

  // copy true: an owned copy of [first, last). copy false: a view of that range, which stays
  // the caller's memory and is never freed by this vector.
  Vector(T* first, T* last, bool copy) {
    const auto count = static_cast<unsigned long>(last - first);
    if (copy) {
      _Allocate(count, false);
      _CopyFrom(first, count);
    } else {
      data = first;
      size = count;
    }
  }

  // A copy always owns its elements, also the copy of a view.
  Vector(Vector const& other) {
    _Allocate(other.size, false);
    _CopyFrom(other.data, other.size);
  }

  // Takes the storage over as it is: a moved view stays a view.
  Vector(Vector&& other) noexcept : owned(other.owned), data(other.data), size(other.size) {
    other.owned = false;
    other.data = nullptr;
    other.size = 0;
  }

  virtual ~Vector() {
    if (owned) {
      delete[] data;
    }
  }

  // Same size: the elements are copied into the present array, so that assigning to a view
  // writes through to the memory it views. Other size: a new owned array replaces the old one.
  // There is deliberately no move assignment: it would detach a view from its matrix row.
  Vector& operator=(Vector const& other) {
    if (this != &other) {
      if (size != other.size) {
        _Allocate(other.size, false);
      }
      _CopyFrom(other.data, other.size);
    }
    return *this;
  }

  // Nothing when the size matches already. Otherwise a new owned array, with keep the first
  // min(old, new) elements moved over; new elements are not cleared.
  void _Allocate(unsigned long new_size, bool keep) {
    if (new_size == size) {
      return;
    }
    if (new_size > kMaximumSize) {
      throw std::bad_array_new_length();
    }
    T* fresh = new_size == 0 ? nullptr : new T[new_size];
    if (keep && fresh != nullptr && data != nullptr) {
      std::memmove(fresh, data, std::min(size, new_size) * sizeof(T));
    }
    if (owned) {
      delete[] data;
    }
    data = fresh;
    size = new_size;
    owned = true;
  }

  // Unchecked, as the standard containers.
  T& operator[](unsigned long index) { return data[index]; }
  const T& operator[](unsigned long index) const { return data[index]; }
  T* begin() { return data; }
  T* end() { return data + size; }
  const T* begin() const { return data; }
  const T* end() const { return data + size; }

  bool owned = false;
  T* data = nullptr;
  unsigned long size = 0;

 private:
  void _CopyFrom(const T* source, unsigned long count) {
    if (count != 0 && source != data) {
      std::memmove(data, source, count * sizeof(T));
    }
  }
};

template <typename T>
class KELTO_DATATYPES_EXPORT ColumnVector : public Vector<T> {
 public:
  using Vector<T>::Vector;
  ColumnVector() = default;
};

template <typename T>
class KELTO_DATATYPES_EXPORT RowVector : public Vector<T> {
 public:
  using Vector<T>::Vector;
  RowVector() = default;

  // A new owned row, each element times factor.
  RowVector Multiply(const T& factor) const {
    RowVector result(this->size, T());
    for (unsigned long i = 0; i < this->size; ++i) {
      result.data[i] = this->data[i] * factor;
    }
    return result;
  }
};

extern template class Vector<double>;
extern template class ColumnVector<double>;
extern template class RowVector<double>;

}  // namespace kelto::datatypes
