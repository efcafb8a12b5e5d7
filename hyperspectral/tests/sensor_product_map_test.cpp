#include <kelto/hyperspectral/management/sensor_product_map.h>

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <sstream>
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

// The tag found at each die (lot, wafer, x, y), or "none".
std::vector<std::string> TagsAt(const SensorProductMap& map,
                                const std::vector<std::array<int, 4>>& dice) {
  std::vector<std::string> tags;
  for (const auto& [lot, wafer, x, y] : dice) {
    const SensorProduct* product = GetSensorProduct(map, lot, wafer, x, y);
    EXPECT_EQ(product != nullptr, HasSensorProduct(map, lot, wafer, x, y));
    tags.push_back(product == nullptr ? "none" : product->product_tag);
  }
  return tags;
}

// Every field of the product in one line.
std::string Fields(const SensorProduct& p) {
  std::ostringstream text;
  for (const int lot : p.lot) {
    text << lot << " ";
  }
  text << "/ ";
  for (const int wafer : p.wafer) {
    text << wafer << " ";
  }
  text << "/ " << p.x_start << " " << p.x_modulo << " " << p.y_start << " " << p.y_modulo << " / "
       << p.internal_product_number << " / " << p.product_tag << " / " << p.product_description;
  return text.str();
}

TEST(SensorProductReading, VersionOneReadsLatticeAndTextsVersionZeroNoTexts) {
  // A newer version is read as version 1; version 0 has no texts, and no event for them.
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"1", "7 8 / 1 2 3 / 5 2 -4 3 / IPN-1 / ql / line scan, 150 bands"},
      {"6", "7 8 / 1 2 3 / 5 2 -4 3 / IPN-1 / ql / line scan, 150 bands"},
      {"0", "7 8 / 1 2 3 / 5 2 -4 3 /  /  / "}};
  for (const auto& [version, fields] : cases) {
    SensorProduct product;
    product.product_tag = "left over";
    EXPECT_EQ(
        Events(Read(product, Replace(kProduct, R"(version="1")", "version=\"" + version + "\""))),
        (EventList{ReadStart("sensor_product")}));
    EXPECT_EQ(Fields(product), fields) << version;
  }
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

TEST(SensorProductLookup, LotWaferAndTheLatticeBothWaysFromItsStart) {
  SensorProductMap map;
  EXPECT_EQ(TagsAt(map, {{7, 1, 5, 5}}), std::vector<std::string>{"none"});
  // Lot and wafer must be listed; the wafer size plays no part.
  map.products.push_back(Product({7, 8}, {1, 2}, 0, 1, 0, 1, "any die"));
  map.x_max = 2;
  map.y_max = 2;
  EXPECT_EQ(TagsAt(map, {{7, 1, 5, 5}, {8, 2, -9, 1000}, {9, 1, 5, 5}, {7, 3, 5, 5}}),
            (std::vector<std::string>{"any die", "any die", "none", "none"}));
  // Below the start too: x 3 lies one pitch before x_start 5.
  map.products = {Product({1}, {1}, 5, 2, -4, 3, "odd")};
  const std::vector<std::array<int, 4>> dice = {{1, 1, 5, -4},   {1, 1, 7, 2},  {1, 1, 3, -4},
                                                {1, 1, -1, -10}, {1, 1, 4, -4}, {1, 1, 5, -3},
                                                {1, 1, 6, -5}};
  const std::vector<std::string> odd = {"odd", "odd", "odd", "odd", "none", "none", "none"};
  EXPECT_EQ(TagsAt(map, dice), odd);
  // A negative pitch describes the same lattice.
  map.products.front().x_modulo = -2;
  EXPECT_EQ(TagsAt(map, dice), odd);
}

TEST(SensorProductLookup, FirstMatchInFileOrderAndAZeroPitchNeverMatches) {
  SensorProductMap map;
  map.products = {Product({1}, {1}, 0, 0, 0, 1, "no columns"),
                  Product({1}, {1}, 0, 1, 0, 0, "no rows")};
  EXPECT_EQ(TagsAt(map, {{1, 1, 0, 0}, {1, 1, 3, 4}}), (std::vector<std::string>{"none", "none"}));
  map.products.push_back(Product({1}, {1}, 0, 2, 0, 2, "even"));
  map.products.push_back(Product({1}, {1}, 0, 1, 0, 1, "every"));
  map.products.push_back(Product({1}, {1}, 0, 4, 0, 4, "fourth"));
  EXPECT_EQ(TagsAt(map, {{1, 1, 0, 0}, {1, 1, 4, 8}, {1, 1, 4, 3}}),
            (std::vector<std::string>{"even", "even", "every"}));
  EXPECT_EQ(GetSensorProduct(map, 1, 1, 2, 2), &map.products[2]);
}

TEST(SensorProductLookup, ExtremePositionsDoNotOverflow) {
  SensorProductMap map;
  // INT_MIN minus INT_MAX is -(2^32 - 1), divisible by 3, 5 and 17 but not by 2.
  map.products = {Product({1}, {1}, INT_MAX, 2, INT_MIN, 2, "two"),
                  Product({1}, {1}, INT_MAX, 3, INT_MIN, 5, "three by five"),
                  Product({1}, {1}, INT_MIN, -1, INT_MAX, INT_MIN, "minus one")};
  // A pitch of -1 holds every column; a pitch of INT_MIN only the start row.
  EXPECT_EQ(TagsAt(map, {{1, 1, INT_MIN, INT_MAX},
                         {1, 1, INT_MAX, INT_MIN},
                         {1, 1, INT_MIN + 1, 1},
                         {1, 1, 0, INT_MAX},
                         {1, 1, 12345, INT_MAX},
                         {1, 1, 12346, -1},
                         {1, 1, 0, 0}}),
            (std::vector<std::string>{"three by five", "two", "none", "minus one", "minus one",
                                      "minus one", "none"}));
}

}  // namespace
}  // namespace kelto::hyperspectral
