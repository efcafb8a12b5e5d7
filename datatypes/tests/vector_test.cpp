#include <kelto/datatypes/vector.h>

#include <gtest/gtest.h>

#include <new>
#include <utility>
#include <vector>

#include <kelto/datatypes/matrix.h>

namespace kelto::datatypes {
namespace {

std::vector<double> Values(Vector<double> const& v) {
  return {v.begin(), v.end()};
}

TEST(VectorConstruction, EmptyFilledBeyondTheLimitCopiedOrViewed) {
  const Vector<double> empty;
  EXPECT_FALSE(empty.owned);
  EXPECT_EQ(empty.data, nullptr);
  EXPECT_EQ(empty.size, 0u);

  const Vector<double> none(0, 1.0);
  EXPECT_FALSE(none.owned);
  EXPECT_EQ(none.data, nullptr);

  const ColumnVector<double> filled(3, 2.5);
  EXPECT_TRUE(filled.owned);
  EXPECT_EQ(Values(filled), (std::vector<double>{2.5, 2.5, 2.5}));

  // Sizes beyond the limit throw.
  EXPECT_THROW(Vector<double>(1UL << 60, 0.0), std::bad_array_new_length);
  Vector<double> v;
  EXPECT_THROW(v._Allocate(~0UL, false), std::bad_array_new_length);
  EXPECT_EQ(v.size, 0u);

  // A range is copied or viewed, and a copy of a view owns.
  double memory[4] = {1.0, 2.0, 3.0, 4.0};
  const Vector<double> copy(memory + 1, memory + 3, true);
  EXPECT_TRUE(copy.owned);
  EXPECT_NE(copy.data, memory + 1);
  EXPECT_EQ(Values(copy), (std::vector<double>{2.0, 3.0}));

  {
    // Freeing memory on the stack would abort here.
    ColumnVector<double> view(memory + 1, memory + 3, false);
    EXPECT_FALSE(view.owned);
    EXPECT_EQ(view.data, memory + 1);
    EXPECT_EQ(view.size, 2u);
    view[1] = 30.0;
  }
  EXPECT_EQ(memory[2], 30.0);
  EXPECT_EQ(memory[3], 4.0);

  // A copy of a view owns its elements.
  const RowVector<double> view(memory, memory + 2, false);
  RowVector<double> owner(view);
  EXPECT_TRUE(owner.owned);
  owner[0] = 5.0;
  EXPECT_EQ(memory[0], 1.0);
}

TEST(VectorAllocate, SameSizeKeepsEverythingAndKeepCarriesTheCommonPrefixOver) {
  for (bool keep : {false, true}) {
    Vector<double> v(3, 4.0);
    const double* before = v.data;
    v._Allocate(3, keep);
    EXPECT_EQ(v.data, before);
    EXPECT_EQ(Values(v), (std::vector<double>{4.0, 4.0, 4.0}));
  }
  Vector<double> v(2, 4.0);
  v._Allocate(5, true);
  EXPECT_EQ(v.size, 5u);
  EXPECT_EQ(std::make_pair(v[0], v[1]), std::make_pair(4.0, 4.0));
  v._Allocate(1, true);
  EXPECT_EQ(Values(v), std::vector<double>{4.0});

  // A view that resizes lets go of its memory.
  double memory[2] = {1.0, 2.0};
  Vector<double> view(memory, memory + 2, false);
  view._Allocate(3, true);
  EXPECT_TRUE(view.owned);
  EXPECT_NE(view.data, memory);
  view[0] = 9.0;
  EXPECT_EQ(memory[0], 1.0);
  EXPECT_EQ(view[1], 2.0);
}

TEST(VectorAssignment, SameSizeWritesThroughARowViewOtherSizeReplacesAndMultiplyOwns) {
  Matrix<double> m(2, 3, 0.0);
  RowVector<double> row(m.rows[1], m.rows[1] + 3, false);
  const RowVector<double> values(3, 7.0);
  row = values;
  EXPECT_FALSE(row.owned);
  EXPECT_EQ(row.data, m.rows[1]);
  EXPECT_EQ(std::vector<double>(m.data, m.data + 6),
            (std::vector<double>{0.0, 0.0, 0.0, 7.0, 7.0, 7.0}));
  // A temporary goes the same way: there is no move assignment that could detach the view.
  row = RowVector<double>(3, 1.0);
  EXPECT_EQ(m.rows[1][2], 1.0);

  // Another size replaces the array and leaves the matrix alone.
  row = RowVector<double>(2, 5.0);
  EXPECT_TRUE(row.owned);
  EXPECT_EQ(Values(row), (std::vector<double>{5.0, 5.0}));
  EXPECT_EQ(std::vector<double>(m.data, m.data + 6),
            (std::vector<double>{0.0, 0.0, 0.0, 1.0, 1.0, 1.0}));

  Vector<double> v(2, 1.0);
  const double* before = v.data;
  v = *&v;
  EXPECT_EQ(v.data, before);
  EXPECT_EQ(Values(v), (std::vector<double>{1.0, 1.0}));

  // A row times a factor is a new owned row.
  double memory[3] = {1.0, -2.0, 0.5};
  const RowVector<double> view(memory, memory + 3, false);
  const RowVector<double> scaled = view.Multiply(-2.0);
  EXPECT_TRUE(scaled.owned);
  EXPECT_EQ(Values(scaled), (std::vector<double>{-2.0, 4.0, -1.0}));
  EXPECT_EQ(memory[0], 1.0);
  EXPECT_EQ(RowVector<double>().Multiply(3.0).size, 0u);
}

}  // namespace
}  // namespace kelto::datatypes
