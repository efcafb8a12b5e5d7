#include <kelto/hyperspectral/management/sensor_product_map.h>

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;
using utilities::GetSensorProduct;
using utilities::HasSensorProduct;

const std::string kProduct = R"(<sensor_product version="1" lot="7 8" wafer="1 2 3"
    x_start="5" x_modulo="2" y_start="-4" y_modulo="3">
  <internal_product_number>IPN-1</internal_product_number>
  <product_tag>ql</product_tag>
  <product_description>line scan, 150 bands</product_description>
</sensor_product>)";

SensorProduct Product(std::vector<int> lots, std::vector<int> wafers, int x_start, int x_modulo,
                      int y_start, int y_modulo, const std::string& tag) {
  SensorProduct product;
  product.lot = std::move(lots);
  product.wafer = std::move(wafers);
  product.x_start = x_start;
  product.x_modulo = x_modulo;
  product.y_start = y_start;
  product.y_modulo = y_modulo;
  product.product_tag = tag;
  return product;
}

std::string TagAt(const SensorProductMap& map, int lot, int wafer, int x, int y) {
  const SensorProduct* product = GetSensorProduct(map, lot, wafer, x, y);
  EXPECT_EQ(product != nullptr, HasSensorProduct(map, lot, wafer, x, y));
  return product == nullptr ? "none" : product->product_tag;
}

TEST(SensorProductReading, VersionOneReadsLatticeAndTexts) {
  SensorProduct product;
  EXPECT_EQ(Events(Read(product, kProduct)), (EventList{ReadStart("sensor_product")}));
  EXPECT_EQ(product.lot, (std::vector<int>{7, 8}));
  EXPECT_EQ(product.wafer, (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(product.x_start, 5);
  EXPECT_EQ(product.x_modulo, 2);
  EXPECT_EQ(product.y_start, -4);
  EXPECT_EQ(product.y_modulo, 3);
  EXPECT_EQ(product.internal_product_number, "IPN-1");
  EXPECT_EQ(product.product_tag, "ql");
  EXPECT_EQ(product.product_description, "line scan, 150 bands");

  // A newer version is read as version 1.
  SensorProduct newer;
  EXPECT_EQ(Events(Read(newer, Replace(kProduct, R"(version="1")", R"(version="6")"))),
            (EventList{ReadStart("sensor_product")}));
  EXPECT_EQ(newer.product_description, "line scan, 150 bands");
}

TEST(SensorProductReading, VersionZeroHasNoTextsAndNoEventForThem) {
  SensorProduct product;
  product.product_tag = "left over";
  EXPECT_EQ(Events(Read(product, Replace(kProduct, R"(version="1")", R"(version="0")"))),
            (EventList{ReadStart("sensor_product")}));
  EXPECT_EQ(product.wafer, (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(product.y_modulo, 3);
  EXPECT_EQ(product.internal_product_number, "");
  EXPECT_EQ(product.product_tag, "");
  EXPECT_EQ(product.product_description, "");
}

TEST(SensorProductReading, MissingItemsAreErrorsAndAZeroPitchFailsItsCheck) {
  SensorProduct product;
  EXPECT_EQ(
      Events(Read(product, R"(<sensor_product version="1"/>)")),
      (EventList{ReadStart("sensor_product"), Error(kMissingAttribute, "lot"),
                 Error(kMissingAttribute, "wafer"), Error(kMissingAttribute, "x_start"),
                 Error(kMissingAttribute, "x_modulo"), Error(kMissingAttribute, "y_start"),
                 Error(kMissingAttribute, "y_modulo"),
                 Error(kMissingValue, "internal_product_number"),
                 Error(kMissingValue, "product_tag"), Error(kMissingValue, "product_description"),
                 Check("0 != x_modulo"), Check("0 != y_modulo")}));

  SensorProduct flat;
  EXPECT_EQ(Events(Read(flat, Replace(kProduct, R"(y_modulo="3")", R"(y_modulo="0")"))),
            (EventList{ReadStart("sensor_product"), Check("0 != y_modulo")}));
  EXPECT_EQ(Checks(Product({1}, {1}, 0, 0, 0, 1, "")), (EventList{Check("0 != x_modulo")}));
  EXPECT_EQ(Checks(Product({1}, {1}, 0, -2, 0, 1, "")), EventList{});
}

TEST(SensorProductReading, WrongTagIsReportedAndReadAnywayNegativeVersionIsNot) {
  SensorProduct product;
  EXPECT_EQ(Events(Read(product, R"(<product version="1" lot="3" wafer="4" x_start="0"
      x_modulo="1" y_start="0" y_modulo="1"><internal_product_number/><product_tag>t</product_tag>
      <product_description/></product>)")),
            (EventList{ReadStart("product"),
                       Error(kSanityCheck, "The XML node is not of type SensorProduct")}));
  EXPECT_EQ(product.lot, (std::vector<int>{3}));
  EXPECT_EQ(product.product_tag, "t");

  for (const std::string version : {R"( version="-2")", ""}) {
    SensorProduct unread;
    EXPECT_EQ(Events(Read(unread, Replace(kProduct, R"( version="1")", version))),
              (EventList{ReadStart("sensor_product"), Error(kUnsupportedVersion, "sensor_product"),
                         Check("0 != x_modulo"), Check("0 != y_modulo")}))
        << version;
    EXPECT_TRUE(unread.lot.empty());
    EXPECT_EQ(unread.product_tag, "");
  }
}

TEST(SensorProductMapReading, ProductsInFileOrderWithTheirOwnEvents) {
  const std::string text = R"(<sensor_products version="0" x_max="40" y_max="30">)" + kProduct +
                           Replace(kProduct, R"(x_modulo="2")", R"(x_modulo="0")") +
                           R"(<other/></sensor_products>)";
  SensorProductMap map;
  map.products.push_back(SensorProduct());
  EXPECT_EQ(Events(Read(map, text)),
            (EventList{ReadStart("sensor_products"), ReadStart("sensor_product"),
                       ReadStart("sensor_product"), Check("0 != x_modulo")}));
  EXPECT_EQ(map.x_max, 40);
  EXPECT_EQ(map.y_max, 30);
  ASSERT_EQ(map.products.size(), 2u);
  EXPECT_EQ(map.products[0].x_modulo, 2);
  EXPECT_EQ(map.products[1].x_modulo, 0);
  EXPECT_EQ(map.products[1].product_tag, "ql");

  // Any version from 0 up is read alike.
  SensorProductMap newer;
  EXPECT_EQ(Events(Read(newer, Replace(text, R"(version="0")", R"(version="3")"))),
            Events(Read(map, text)));
  EXPECT_EQ(newer.products.size(), 2u);
}

TEST(SensorProductMapReading, MissingSizesWrongTagAndNegativeVersion) {
  SensorProductMap map;
  EXPECT_EQ(Events(Read(map, R"(<products version="0"/>)")),
            (EventList{ReadStart("products"),
                       Error(kSanityCheck, "The XML node is not of type SensorProductMap"),
                       Error(kMissingAttribute, "x_max"), Error(kMissingAttribute, "y_max")}));
  EXPECT_TRUE(map.products.empty());

  SensorProductMap unread;
  EXPECT_EQ(Events(Read(unread, R"(<sensor_products x_max="4" y_max="5">)" + kProduct +
                                    "</sensor_products>")),
            Refused("sensor_products"));
  EXPECT_EQ(unread.x_max, 0);
  EXPECT_TRUE(unread.products.empty());
}

TEST(SensorProductMapWriting, RoundTripInAttributeOrder) {
  SensorProductMap map;
  map.x_max = 60;
  map.y_max = 45;
  map.products.push_back(Product({7, 8}, {1, 25}, -3, 4, 2, 7, "mosaic"));
  map.products.back().internal_product_number = "IPN 2";
  map.products.back().product_description = "4 by 4 <mosaic> & more";
  map.products.push_back(Product({}, {}, 0, 1, 0, 1, ""));
  const std::string text = map.WriteString();
  ExpectInOrder(text, {R"(<sensor_products version="0" x_max="60" y_max="45">)",
                       R"(<sensor_product version="1" lot="7 8" wafer="1 25" x_start="-3" )"
                       R"(x_modulo="4" y_start="2" y_modulo="7">)",
                       "<internal_product_number>IPN 2</internal_product_number>",
                       "<product_tag>mosaic</product_tag>", "<product_description>",
                       R"(<sensor_product version="1")"});

  SensorProductMap copy;
  EXPECT_EQ(Events(Read(copy, text)),
            (EventList{ReadStart("sensor_products"), ReadStart("sensor_product"),
                       ReadStart("sensor_product")}));
  // Every field is written (above), so the same text again means every field came back.
  EXPECT_EQ(copy.WriteString(), text);
  EXPECT_EQ(copy.products[0].product_description, "4 by 4 <mosaic> & more");
}

TEST(SensorProductLookup, EmptyMapAndLotOrWaferNotListed) {
  SensorProductMap map;
  EXPECT_EQ(TagAt(map, 7, 1, 5, 5), "none");
  map.products.push_back(Product({7, 8}, {1, 2}, 0, 1, 0, 1, "any die"));
  EXPECT_EQ(TagAt(map, 7, 1, 5, 5), "any die");
  EXPECT_EQ(TagAt(map, 8, 2, -9, 1000), "any die");
  EXPECT_EQ(TagAt(map, 9, 1, 5, 5), "none");
  EXPECT_EQ(TagAt(map, 7, 3, 5, 5), "none");
  // The wafer size plays no part.
  map.x_max = 2;
  map.y_max = 2;
  EXPECT_EQ(TagAt(map, 7, 1, 5, 5), "any die");
}

TEST(SensorProductLookup, TheLatticeExtendsBothWaysFromItsStart) {
  SensorProductMap map;
  map.products.push_back(Product({1}, {1}, 5, 2, -4, 3, "odd"));
  EXPECT_EQ(TagAt(map, 1, 1, 5, -4), "odd");
  EXPECT_EQ(TagAt(map, 1, 1, 7, 2), "odd");
  // Below the start: x 3 lies one pitch before x_start 5.
  EXPECT_EQ(TagAt(map, 1, 1, 3, -4), "odd");
  EXPECT_EQ(TagAt(map, 1, 1, -1, -10), "odd");
  EXPECT_EQ(TagAt(map, 1, 1, 4, -4), "none");
  EXPECT_EQ(TagAt(map, 1, 1, 5, -3), "none");
  EXPECT_EQ(TagAt(map, 1, 1, 6, -5), "none");
  // A negative pitch describes the same lattice.
  map.products.front().x_modulo = -2;
  EXPECT_EQ(TagAt(map, 1, 1, 3, -4), "odd");
  EXPECT_EQ(TagAt(map, 1, 1, 4, -4), "none");
}

TEST(SensorProductLookup, FirstMatchInFileOrderWins) {
  SensorProductMap map;
  map.products.push_back(Product({1}, {1}, 0, 2, 0, 2, "even"));
  map.products.push_back(Product({1}, {1}, 0, 1, 0, 1, "every"));
  map.products.push_back(Product({1}, {1}, 0, 4, 0, 4, "fourth"));
  EXPECT_EQ(TagAt(map, 1, 1, 4, 8), "even");
  EXPECT_EQ(TagAt(map, 1, 1, 4, 3), "every");
  const SensorProduct* found = GetSensorProduct(map, 1, 1, 2, 2);
  EXPECT_EQ(found, &map.products[0]);
}

TEST(SensorProductLookup, AZeroPitchNeverMatchesAndTheSearchGoesOn) {
  SensorProductMap map;
  map.products.push_back(Product({1}, {1}, 0, 0, 0, 1, "no columns"));
  map.products.push_back(Product({1}, {1}, 0, 1, 0, 0, "no rows"));
  EXPECT_EQ(TagAt(map, 1, 1, 0, 0), "none");
  EXPECT_EQ(TagAt(map, 1, 1, 3, 4), "none");
  map.products.push_back(Product({1}, {1}, 0, 1, 0, 1, "next"));
  EXPECT_EQ(TagAt(map, 1, 1, 0, 0), "next");
}

TEST(SensorProductLookup, ExtremePositionsDoNotOverflow) {
  SensorProductMap map;
  // INT_MIN minus INT_MAX is -(2^32 - 1), divisible by 3, 5 and 17 but not by 2.
  map.products.push_back(Product({1}, {1}, INT_MAX, 2, INT_MIN, 2, "two"));
  map.products.push_back(Product({1}, {1}, INT_MAX, 3, INT_MIN, 5, "three by five"));
  map.products.push_back(Product({1}, {1}, INT_MIN, -1, INT_MAX, INT_MIN, "minus one"));
  EXPECT_EQ(TagAt(map, 1, 1, INT_MIN, INT_MAX), "three by five");
  EXPECT_EQ(TagAt(map, 1, 1, INT_MAX, INT_MIN), "two");
  EXPECT_EQ(TagAt(map, 1, 1, INT_MIN + 1, 1), "none");
  // A pitch of -1 holds every column; a pitch of INT_MIN only the start row.
  EXPECT_EQ(TagAt(map, 1, 1, 0, INT_MAX), "minus one");
  EXPECT_EQ(TagAt(map, 1, 1, 12345, INT_MAX), "minus one");
  EXPECT_EQ(TagAt(map, 1, 1, 12346, -1), "minus one");
  EXPECT_EQ(TagAt(map, 1, 1, 0, 0), "none");
}

}  // namespace
}  // namespace kelto::hyperspectral
