#include <kelto/common/strings.h>

#include <gtest/gtest.h>
TEST(Strings, Dummy) { EXPECT_TRUE(true); }
