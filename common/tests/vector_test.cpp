#include <kelto/common/vector.h>

#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <tuple>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace kelto::common {
namespace {

using namespace kelto::testing;  // NOLINT: the event short forms
using ParsingResult = XMLSerializableInterface::ParsingResult;

// Reads one document into a vector that held something before, so that every case also shows
// that a read replaces the content.
struct Read {
  explicit Read(const std::string& document) : vector({9, 9, 9, 9, 9, 9, 9, 9, 9, 9}) {
    vector.ReadString(result, document);
  }
  Vector vector;
  ParsingResult result;
};

TEST(Vector, RoundTripsWithSixSignificantDigitsAndResizesIndexesAndCompares) {
  for (auto const& [written, text, read] : std::vector<std::tuple<Vector, std::string, Vector>>{
           {Vector({1.5, -2.0, 470.123456789, 1e-9}),
            "<vector nr_elements=\"4\" values=\"1.5 -2 470.123 1e-09\"/>",
            Vector({1.5, -2.0, 470.123, 1e-9})},
           {Vector(), "<vector nr_elements=\"0\" values=\"\"/>", Vector()}}) {
    const std::string document = written.WriteString();
    EXPECT_NE(document.find(text), std::string::npos) << document;
    const Read back(document);
    EXPECT_EQ(back.vector, read);
    EXPECT_EQ(Events(back.result), EventList{ReadStart("vector")});
  }
}

TEST(VectorXml, InconsistentOrAbsentAttributesKeepOnlyWhatTheTextHolds) {
  const EventTriple count = Error(kMissingAttribute, "nr_elements");
  const EventTriple values = Error(kMissingAttribute, "values");
  const struct {
    const char* document;
    std::vector<double> kept;
    EventList events;
  } cases[] = {
      {R"(<v nr_elements="5" values="1 2"/>)", {1, 2}, {values}},
      // A count that no memory could hold must not be believed.
      {R"(<v nr_elements="18446744073709551615" values="1 2 3"/>)", {1, 2, 3}, {values}},
      {R"(<v nr_elements="2" values="1 2 3"/>)", {1, 2}, {count}},
      {R"(<v values="1 2"/>)", {1, 2}, {count}},
      {R"(<v nr_elements="-1" values=""/>)", {}, {count}},
      {R"(<v nr_elements="2"/>)", {}, {values}},
      {R"(<v nr_elements="3" values="1 x 3"/>)", {1}, {values}},
      {"<v/>", {}, {count, values}},
      // The attributes are the element's own, not those of a child.
      {R"(<v><vector nr_elements="1" values="5"/></v>)", {}, {count, values}},
  };
  for (const auto& c : cases) {
    const Read read(c.document);
    EXPECT_EQ(read.vector.Values(), c.kept) << c.document;
    EventList expected = {ReadStart("v")};
    expected.insert(expected.end(), c.events.begin(), c.events.end());
    EXPECT_EQ(Events(read.result), expected) << c.document;
  }

  Vector vector;
  EXPECT_EQ(vector.Begin(), vector.End());
  vector.Resize(3, 1.5);
  vector[1] = 4.0;
  vector.Resize(5, -1.0);
  EXPECT_EQ(vector.Values(), (std::vector<double>{1.5, 4.0, 1.5, -1.0, -1.0}));
  const Vector& view = vector;
  EXPECT_EQ(std::accumulate(view.Begin(), view.End(), 0.0), 5.0);
  EXPECT_EQ(view[3], -1.0);
  vector.Resize(2, 0.0);
  EXPECT_EQ(vector.Values(), (std::vector<double>{1.5, 4.0}));

  Vector copy = vector;
  EXPECT_EQ(copy, vector);
  copy[0] = 0.0;
  EXPECT_NE(copy, vector);
}

}  // namespace
}  // namespace kelto::common
