#include <kelto/common/xml_serializable_interface.h>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <kelto/common/logger.h>

#include <kelto/test_support/event_list.h>
#include <kelto/test_support/log_capture.h>
#include <kelto/test_support/temporary_directory.h>

namespace {

using kelto::common::Logger;
using kelto::common::XMLSerializableInterface;
using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;
using testing::HasSubstr;
using testing::Not;
constexpr ParsingResult::eParserState kOk = ParsingResult::Ok;
constexpr ParsingResult::eParserState kWarning = ParsingResult::Warning;
constexpr ParsingResult::eParserState kError = ParsingResult::Error;

// The protected tools of the base, reachable from the tests.
class Tools : public XMLSerializableInterface {
 public:
  using XMLSerializableInterface::_GetAttribute;
  using XMLSerializableInterface::_GetData;
  using XMLSerializableInterface::_GetElement;
  using XMLSerializableInterface::_GetElements;
  using XMLSerializableInterface::_GetTagName;
  using XMLSerializableInterface::_GetValue;
  using XMLSerializableInterface::_GetVersion;
  using XMLSerializableInterface::_ReadCSV;
};

// A libxml2 document made from a literal, for the getters.
class Doc {
 public:
  explicit Doc(std::string const& text)
      : doc_(xmlReadMemory(text.data(), static_cast<int>(text.size()), "literal.xml", nullptr,
                           XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING)) {}
  Doc(Doc const&) = delete;
  Doc& operator=(Doc const&) = delete;
  ~Doc() { xmlFreeDoc(doc_); }
  _xmlNode* Root() const { return doc_ == nullptr ? nullptr : xmlDocGetRootElement(doc_); }

 private:
  xmlDoc* doc_;
};

// A child record: its own tag is "band_info", its parent stores it as "band".
class Band : public XMLSerializableInterface {
 public:
  Band() = default;
  Band(int index_, double wavelength) : index(index_), wavelength_nm(wavelength) {}

  void ReadXML(ParsingResult& result, _xmlNode* const& node) override {
    result << Event(kOk, Event::ReadStart, _GetTagName(node));
    if (_GetVersion(node) == -1) {
      result << Event(kError, Event::MissingVersion, _GetTagName(node));
      return;
    }
    _GetAttribute(index, node, "index", 0);
    _GetValue(wavelength_nm, node, "wavelength_nm", 0.0);
  }

  void WriteXML(_xmlNode*& node) const override {
    _SetTagName(node, "band_info");
    _SetVersion(node, 4UL);
    _SetAttribute(node, "index", index);
    _SetValue(node, "wavelength_nm", wavelength_nm);
  }

  bool operator==(Band const& other) const {
    return index == other.index && wavelength_nm == other.wavelength_nm;
  }

  int index = 0;
  double wavelength_nm = 0.0;
};

// A record with one item of every kind the base reads and writes.
class Gauge : public XMLSerializableInterface {
 public:
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override {
    result << Event(kOk, Event::ReadStart, _GetTagName(node));
    if (_GetVersion(node) != 2) {
      result << Event(kError, Event::UnsupportedVersion, _GetTagName(node));
      return;
    }
    // What the getters return is checked on its own; a record reads on with the default.
    _GetAttribute(serial, node, "serial", std::string());
    _GetAttribute(channels, node, "channels", std::vector<int>());
    _GetAttribute(kind, node, "kind", std::string());
    _GetValue(name, node, "name", std::string("unnamed"));
    _GetValue(label, node, "label", std::wstring());
    _GetValue(unit, node, "unit", std::string());
    _GetValue(gain, node, "gain", 1.0);
    _GetValue(offset, node, "offset", 0);
    _GetValue(count, node, "count", 0UL);
    _GetValue(enabled, node, "enabled", true);
    _GetValue(response, node, "response", 0.0);
    _GetValue(weights, node, "weights", 0.0);
    bands.clear();
    _xmlNode* container = nullptr;
    if (!_GetElement(container, node, "bands", 0)) {
      result << Event(kError, Event::MissingElement, "bands");
      return;
    }
    std::deque<_xmlNode*> items;
    _GetElements(items, container, "band");
    for (_xmlNode* item : items) {
      bands.emplace_back().ReadXML(result, item);
    }
  }

  void WriteXML(_xmlNode*& node) const override {
    _SetTagName(node, "gauge");
    _SetVersion(node, 2UL);
    _SetAttribute(node, "serial", serial);
    _SetAttribute(node, "channels", channels, VSM_ATTRIBUTES);
    _SetAttribute(node, "kind", "reference");
    _SetValue(node, "name", name);
    _SetValue(node, "label", label);
    _SetValue(node, "unit", "nm");
    _SetValue(node, "gain", gain);
    _SetValue(node, "offset", offset);
    _SetValue(node, "count", count);
    _SetValue(node, "enabled", enabled);
    _SetValue(node, "response", response, VSM_ATTRIBUTES, 12);
    _SetValue(node, "weights", weights, VSM_ATTRIBUTES, 6);
    _xmlNode* container = nullptr;
    _PutChild(container, node, "bands");
    for (Band const& band : bands) {
      _SetElement(container, "band", band);
    }
  }

  bool operator==(Gauge const& other) const {
    return serial == other.serial && channels == other.channels && kind == other.kind &&
           name == other.name && label == other.label && unit == other.unit &&
           std::memcmp(&gain, &other.gain, sizeof gain) == 0 && offset == other.offset &&
           count == other.count && enabled == other.enabled && response == other.response &&
           weights == other.weights && bands == other.bands;
  }

  // Every field away from what a reader falls back to, so that a read that changes the record
  // shows.
  std::string serial = "S-17";
  std::vector<int> channels = {4, -5, 6};
  std::string kind = "reference";
  std::string name = "probe 7";
  std::wstring label = L"Spektralkanal \u00dc";
  std::string unit = "nm";
  double gain = 0.25;
  int offset = -12;
  unsigned long count = 3;
  bool enabled = false;
  std::vector<double> response = {0.5, 0.25};
  std::vector<double> weights = {1.0, 2.0, 3.0};
  std::deque<Band> bands = {Band(0, 470.5), Band(1, 480.25)};
};

// A record whose reader gives up half-way with an exception, as an enumeration parser does on a
// name it does not know.
class ThrowingGauge : public Gauge {
 public:
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override {
    Gauge::ReadXML(result, node);
    throw std::invalid_argument("unknown unit \"parsec\"");
  }
};

Gauge RoundTrip(Gauge const& gauge, ParsingResult& result) {
  Gauge copy;
  copy.ReadString(result, gauge.WriteString());
  return copy;
}

// What a read threw as std::runtime_error ("" when nothing), checking that nothing was printed.
std::string Thrown(std::function<void()> const& read) {
  testing::internal::CaptureStderr();
  std::string thrown;
  try {
    read();
  } catch (std::runtime_error const& error) {
    thrown = error.what();
  } catch (...) {
    thrown = "an exception other than std::runtime_error";
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  return thrown;
}

// A read of a gauge from some source, so that every source is checked the same way.
using Reader = std::function<void(Gauge&, ParsingResult&)>;
Reader FromString(std::string const& text) {
  return [text](Gauge& gauge, ParsingResult& result) { gauge.ReadString(result, text); };
}
Reader FromStream(std::string const& text) {
  return [text](Gauge& gauge, ParsingResult& result) {
    gauge.ReadStream(result, std::istringstream(text));
  };
}
Reader FromFile(std::filesystem::path const& path) {
  return [path](Gauge& gauge, ParsingResult& result) { gauge.ReadFile(result, path); };
}

// A gauge document whose name element holds the text.
std::string Named(std::string const& text) {
  return "<gauge version=\"2\"><name>" + text + "</name></gauge>";
}

std::string Repeat(std::string const& text, int times) {
  std::string repeated;
  for (int i = 0; i < times; ++i) {
    repeated += text;
  }
  return repeated;
}

// Each case reads the named item over a field that held `stale`: whether it was found, and the
// field after. Get is _GetValue or _GetAttribute.
template <typename T>
using Cases = std::vector<std::tuple<const char*, bool, T>>;
const auto kValue = [](auto&... arguments) { return Tools::_GetValue(arguments...); };
const auto kAttribute = [](auto&... arguments) { return Tools::_GetAttribute(arguments...); };
template <typename T, typename D = T, typename Get>
void ExpectReads(Get get, _xmlNode* node, D const& fallback, T const& stale,
                 Cases<T> const& cases) {
  for (auto const& [name, found, expected] : cases) {
    T field = stale;
    EXPECT_EQ(get(field, node, name, fallback), found) << name;
    EXPECT_EQ(field, expected) << name;
  }
}

// ---------------------------------------------------------------------------------------------
// The record idiom: what the getters promise a reader

TEST(XmlGetters, ValuesAndAttributesOfEveryTypeOrTheDefault) {
  // Absent, empty or unconvertible items, and attributes of a child, give false and the default.
  Doc doc(
      "<r s=\"a &lt;b&gt;\" i=\"-7\" u=\"12\" b=\"true\" v1=\"1 2 3\" v2=\"4, 5,6\" v3=\"\" "
      "bad_i=\"7.5\" bad_u=\"-3\" bad_b=\"1\" bad_v=\"1 x 3\"><x c=\"1\">1</x><d>1.5x</d><d2></d2>"
      "<good_d> 2.5 </good_d><i>12.0</i><i2>99999999999</i2><good_i>+42</good_i><u>-1</u>"
      "<u2>-0</u2><good_u>18446744073709551615</good_u><t>true</t><f>false</f><one>1</one>"
      "<zero>0</zero><upper>TRUE</upper><yes>yes</yes><empty/></r>");
  _xmlNode* node = doc.Root();
  ASSERT_NE(node, nullptr);
  ExpectReads<std::string>(kValue, node, "dflt", "stale",
                           {{"missing", false, "dflt"}, {"x", true, "1"}});
  ExpectReads<std::wstring>(kValue, node, L"w", L"stale",
                            {{"missing", false, L"w"}, {"x", true, L"1"}});
  ExpectReads<double>(
      kValue, node, -1.0, 99.0,
      {{"missing", false, -1.0}, {"d", false, -1.0}, {"d2", false, -1.0}, {"good_d", true, 2.5}});
  ExpectReads<int>(
      kValue, node, -1, 99,
      {{"missing", false, -1}, {"i", false, -1}, {"i2", false, -1}, {"good_i", true, 42}});
  ExpectReads<unsigned long>(
      kValue, node, 1UL, 99UL,
      {{"missing", false, 1}, {"u", false, 1}, {"u2", false, 1}, {"good_u", true, ~0UL}});
  ExpectReads<std::vector<double>>(kValue, node, 0.0, {1.0, 2.0}, {{"missing", false, {}}});
  ExpectReads<int>(kValue, nullptr, 7, 99, {{"x", false, 7}});  // a null node is no crash

  ExpectReads<std::string>(kAttribute, node, "dflt", "stale",
                           {{"s", true, "a <b>"}, {"c", false, "dflt"}});
  ExpectReads<int>(kAttribute, node, 11, 0,
                   {{"i", true, -7}, {"bad_i", false, 11}, {"c", false, 11}});
  ExpectReads<unsigned long>(kAttribute, node, 11UL, 0UL,
                             {{"u", true, 12}, {"bad_u", false, 11}, {"c", false, 11}});
  ExpectReads<std::vector<int>>(kAttribute, node, {9}, {7},
                                {{"v1", true, {1, 2, 3}},
                                 {"v2", true, {4, 5, 6}},
                                 {"v3", true, {}},
                                 {"bad_v", false, {9}},
                                 {"c", false, {9}}});
  // Booleans are "true" or "false" only.
  for (bool fallback : {false, true}) {
    SCOPED_TRACE(fallback);
    Cases<bool> values = {{"t", true, true}, {"f", true, false}};
    for (const char* name : {"one", "zero", "upper", "yes", "empty", "missing"}) {
      values.emplace_back(name, false, fallback);
    }
    ExpectReads<bool>(kValue, node, fallback, !fallback, values);
    ExpectReads<bool>(kAttribute, node, fallback, !fallback,
                      {{"b", true, true}, {"bad_b", false, fallback}, {"c", false, fallback}});
  }
}

TEST(XmlGetters, VectorCountMustAgreeAndNeverDrivesTheAllocation) {
  // exact: the values must be these; otherwise the output holds at most a prefix of them.
  std::vector<std::tuple<std::string, bool, std::vector<double>, bool>> cases = {
      {"<v nr_elements=\"3\" values=\" 1  2\t3 \"/>", true, {1, 2, 3}, true},
      {"<v nr_elements=\"0\" values=\"\"/>", true, {}, true},
      {"<v nr_elements=\"2\" values=\"1 2 3\"/>", false, {1, 2}, true},
      {"<v values=\"1 2\"/>", false, {1, 2}, false},
      {"<v nr_elements=\"3\" values=\"1 x 3\"/>", false, {1}, false},
      // The text form is not what records write, but files written by other tools hold it.
      {"<v nr_elements=\"3\">1, 2.5, -3</v>", true, {1, 2.5, -3}, true},
      {"<v>4 5</v>", false, {4, 5}, false},
      {"<v nr_elements=\"4\">1, 2</v>", false, {1, 2}, false},
  };
  for (const char* claim : {"18446744073709551615", "99999999999", "-5", "abc", "", "4", "1e3"}) {
    cases.emplace_back(std::string("<v nr_elements=\"") + claim + "\" values=\"1 2 3\"/>", false,
                       std::vector<double>{1, 2, 3}, false);
  }
  for (auto const& [element, found, expected, exact] : cases) {
    SCOPED_TRACE(element);
    Doc doc("<r>" + element + "</r>");
    ASSERT_NE(doc.Root(), nullptr);
    std::vector<double> values = {9.0};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Tools::_GetValue(values, doc.Root(), "v", 0.0), found);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_LE(values.capacity(), 1024u) << "a claimed count must not drive the allocation";
    if (exact) {
      EXPECT_EQ(values, expected);
    } else {
      ASSERT_LE(values.size(), expected.size());
      EXPECT_TRUE(std::equal(values.begin(), values.end(), expected.begin()));
    }
  }
}

TEST(XmlGetters, ElementsAreFoundByIndexInDocumentOrderAndVersionsAsNumbers) {
  Doc doc(
      "<r><a id=\"0\"/><b/><!-- a --><a id=\"1\">one &amp; <i>two</i></a>text<a id=\"2\"/>"
      "<c><a id=\"nested\"/></c></r>");
  _xmlNode* node = doc.Root();
  ASSERT_NE(node, nullptr);
  const auto id = [](_xmlNode* element) {
    xmlChar* value = xmlGetProp(element, reinterpret_cast<const xmlChar*>("id"));
    std::string text = value == nullptr ? "<absent>" : reinterpret_cast<const char*>(value);
    xmlFree(value);
    return text;
  };
  _xmlNode* element = nullptr;
  ASSERT_TRUE(Tools::_GetElement(element, node, "a", 1));
  EXPECT_EQ(id(element), "1");
  EXPECT_EQ(Tools::_GetTagName(element), "a");
  EXPECT_EQ(Tools::_GetData(element), "one & two");
  ASSERT_TRUE(Tools::_GetElement(element, node, "a", 0));
  EXPECT_EQ(id(element), "0");
  EXPECT_FALSE(Tools::_GetElement(element, node, "a", 3));  // only direct children count
  EXPECT_FALSE(Tools::_GetElement(element, node, "a", -1));
  EXPECT_FALSE(Tools::_GetElement(element, node, "missing", 0));

  std::deque<_xmlNode*> elements = {node};
  EXPECT_TRUE(Tools::_GetElements(elements, node, "a"));
  ASSERT_EQ(elements.size(), 3u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(id(elements[i]), std::to_string(i));
  }
  Tools::_GetElements(elements, node, "missing");
  EXPECT_TRUE(elements.empty());

  // The version is -1 when absent or not a number.
  const std::vector<std::pair<std::string, int>> cases = {
      {"<r version=\"3\"/>", 3},    {"<r version=\"0\"/>", 0},    {"<r/>", -1},
      {"<r version=\"abc\"/>", -1}, {"<r version=\"2.5\"/>", -1}, {"<r version=\"\"/>", -1},
      {"<r version=\"3x\"/>", -1},  {"<r Version=\"3\"/>", -1},
  };
  for (auto const& [text, expected] : cases) {
    Doc doc(text);
    ASSERT_NE(doc.Root(), nullptr) << text;
    EXPECT_EQ(Tools::_GetVersion(doc.Root()), expected) << text;
  }
}

TEST(XmlGetters, ReadCsvInBothForms) {
  for (auto const& [text, ok, expected] :
       std::vector<std::tuple<std::string, bool, std::deque<double>>>{
           {" 1, 2.5 ,-3e2", true, {1.0, 2.5, -300.0}},
           {"1,abc,3", false, {1.0}},
           {"", true, {}}}) {
    std::deque<double> all = {42.0};
    EXPECT_EQ(Tools::_ReadCSV(all, text), ok) << text;
    EXPECT_EQ(all, expected) << text;
  }
  // Fewer values than asked: false, and nothing is padded to the count; a count taken from a
  // file never makes room the text can't fill.
  for (auto const& [text, count, ok, expected] :
       std::vector<std::tuple<std::string, unsigned long, bool, std::vector<double>>>{
           {"1,2,3", 3, true, {1, 2, 3}},
           {"1,2,3", 2, true, {1, 2}},
           {"1,2,3", 5, false, {1, 2, 3}},
           {"1,x,3", 3, false, {1}},
           {"7", std::numeric_limits<unsigned long>::max(), false, {7}}}) {
    std::vector<double> exact = {42.0};
    EXPECT_EQ(Tools::_ReadCSV(exact, text, count), ok) << text << " " << count;
    EXPECT_EQ(exact, expected) << text << " " << count;
  }
}

TEST(XmlRecordIdiom, EverySourceRoundTripsWithOnlyReadStartEvents) {
  const Gauge written;
  const kelto::testing::TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "gauge.xml";
  written.WriteFile(path);
  using kelto::testing::Replace;
  // Parser warnings (a relative namespace, XML 1.1) do not refuse a document.
  const std::string warned =
      Replace(Replace(written.WriteString(), "<gauge ", "<gauge xmlns=\"relative/uri\" "),
              "<?xml version=\"1.0\"", "<?xml version=\"1.1\"");
  for (Reader const& read : {FromString(written.WriteString()), FromStream(written.WriteString()),
                             FromFile(path), FromString(warned)}) {
    Gauge record;
    ParsingResult result;
    EXPECT_EQ(Thrown([&] { read(record, result); }), "");
    EXPECT_TRUE(record == written);
    EXPECT_EQ(result.state(), kOk);
    EXPECT_EQ(result.events(), (std::deque<Event>{Event(kOk, Event::ReadStart, "gauge"),
                                                  Event(kOk, Event::ReadStart, "band"),
                                                  Event(kOk, Event::ReadStart, "band")}));
  }
  EXPECT_THROW(written.WriteFile(path / "no" / "such" / "dir.xml"), std::runtime_error);
  // A Latin-1 document is read as UTF-8.
  Gauge read;
  kelto::testing::Read(read,
                       "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>"
                       "<gauge version=\"2\"><name>M\xFCller</name><label>\xC4</label></gauge>");
  EXPECT_EQ(read.name, "M\xC3\xBCller");
  EXPECT_EQ(read.label, L"\u00c4");
}

TEST(XmlRecordIdiom, ThrowOnErrorThrowsOnlyWhenTheReadEndsInError) {
  const std::string faulty =
      "<gauge version=\"2\" serial=\"s\" channels=\"1\" kind=\"k\"><name>n</name><label/>"
      "<unit/><gain>1</gain><offset>0</offset><count>0</count><enabled>true</enabled>"
      "<response nr_elements=\"0\" values=\"\"/><weights nr_elements=\"0\" values=\"\"/>"
      "<bands><band index=\"0\"><wavelength_nm>1</wavelength_nm></band></bands></gauge>";
  for (bool strict : {false, true}) {
    SCOPED_TRACE(strict ? "throw_on_error" : "lenient");
    Gauge record;
    ParsingResult result(false, strict);
    std::string thrown = Thrown([&] { record.ReadString(result, faulty); });
    EXPECT_EQ(thrown.empty(), !strict);
    EXPECT_THAT(thrown, HasSubstr(strict ? "MissingVersion" : ""));
    EXPECT_EQ(result.state(), kError);
    EXPECT_EQ(result.events().back(), Event(kError, Event::MissingVersion, "band"));
    EXPECT_EQ(record.name, "n");  // what was read before the error stays in the record

    // A reader that throws ends the read in Error too, and never escapes it.
    ThrowingGauge throwing;
    ParsingResult throwing_result(false, strict);
    thrown = Thrown([&] { throwing.ReadString(throwing_result, Gauge().WriteString()); });
    EXPECT_EQ(thrown.empty(), !strict);
    EXPECT_THAT(thrown, HasSubstr(strict ? "unknown unit \"parsec\"" : ""));
    EXPECT_EQ(throwing_result.state(), kError);
    ASSERT_FALSE(throwing_result.events().empty());
    EXPECT_EQ(throwing_result.events().back().state, kError);
    EXPECT_THAT(throwing_result.events().back().detail, HasSubstr("unknown unit \"parsec\""));

    Gauge good;
    ParsingResult good_result(false, strict);
    EXPECT_EQ(Thrown([&] { good.ReadString(good_result, Gauge().WriteString()); }), "");
    EXPECT_TRUE(good == Gauge());
  }
}

// ---------------------------------------------------------------------------------------------
// Writing

TEST(XmlWriting, ElementNameWinsOverTheRecordsOwnTagAndVectorsKeepTheirDigits) {
  Gauge gauge;
  gauge.bands = {Band(3, 550.0)};
  const std::string document = gauge.WriteString();
  EXPECT_THAT(document, Not(HasSubstr("band_info")));
  // The record's own tag is what the root carries; a char pointer is written as text.
  kelto::testing::ExpectInOrder(document, {"<gauge version=\"2\"", "kind=\"reference\"",
                                           "<unit>nm</unit>", "<band version=\"4\" index=\"3\">"});

  // Vectors keep the requested significant digits.
  gauge.response = {0.123456789012345, 1234.56789012345678, -1e-7, 1.0};
  gauge.weights = {0.123456789012345, 1234.56789012345678, 2.5};
  const std::string digits = gauge.WriteString();
  EXPECT_THAT(digits, HasSubstr("<response nr_elements=\"4\" "
                                "values=\"0.123456789012 1234.56789012 -1e-07 1\"/>"));
  EXPECT_THAT(digits, HasSubstr("<weights nr_elements=\"3\" values=\"0.123457 1234.57 2.5\"/>"));
  Gauge read;
  EXPECT_EQ(kelto::testing::Read(read, digits).state(), kOk);
  EXPECT_EQ(read.response, (std::vector<double>{0.123456789012, 1234.56789012, -1e-7, 1.0}));
  EXPECT_EQ(read.weights, (std::vector<double>{0.123457, 1234.57, 2.5}));
  gauge.response.clear();
  EXPECT_THAT(gauge.WriteString(), HasSubstr("<response nr_elements=\"0\" values=\"\"/>"));
}

TEST(XmlWriting, ScalarDoublesRoundTripExactly) {
  using Limits = std::numeric_limits<double>;
  for (double value :
       {0.1, 1.0 / 3.0, -2.0 / 3.0, 1e-300, 1e300, Limits::denorm_min(), Limits::min() / 3.0,
        Limits::min(), Limits::max(), Limits::lowest(), Limits::epsilon(), 123456789.123456789,
        -0.0, 0.0, Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN()}) {
    Gauge gauge;
    gauge.gain = value;
    ParsingResult result;
    const Gauge read = RoundTrip(gauge, result);
    EXPECT_EQ(result.state(), kOk) << value;
    if (std::isnan(value)) {
      EXPECT_TRUE(std::isnan(read.gain)) << read.gain;
    } else {
      EXPECT_EQ(std::memcmp(&read.gain, &value, sizeof value), 0) << value << " read " << read.gain;
    }
  }
}

TEST(XmlWriting, TextRoundTripsAndWhatXmlCannotHoldIsReplaced) {
  using Text = std::tuple<std::string, std::string, std::wstring>;  // name, serial, label
  // Markup, white space and non-ASCII come back as written; characters XML can't hold come back
  // as U+FFFD, never raw. An empty expectation means "as written".
  const std::vector<std::pair<Text, Text>> cases = {
      {{"a<b & \"c\" 'd' >e ]]> &amp;", "<x y=\"1\" z='2'>&lt;", L"<&>\"'"}, {}},
      {{"  tab\there\nline\r\ncrlf\rcr  ", " tab\there\nline\r\ncrlf\rcr ",
        L"Gr\u00fc\u00dfe \u2713 \u65e5\u672c \U0001D11E"},
       {}},
      {{"bell\x07|bad\xFF|cut\xE2\x82|ok \xC3\xA4", "esc\x1B", L"unit\x1F\xFFFF"},
       {"bell\uFFFD|bad\uFFFD|cut\uFFFD\uFFFD|ok \u00e4", "esc\uFFFD", L"unit\uFFFD\uFFFD"}},
  };
  for (auto const& [written, expected] : cases) {
    Gauge gauge;
    std::tie(gauge.name, gauge.serial, gauge.label) = written;
    ParsingResult result;
    Gauge read = RoundTrip(gauge, result);
    EXPECT_EQ(result.state(), kOk) << std::get<0>(written);
    EXPECT_EQ(std::tie(read.name, read.serial, read.label),
              std::get<0>(expected).empty() ? written : expected);
  }
  // UTF-8 in the file, not character references or a narrowed copy.
  Gauge gauge;
  gauge.label = std::get<2>(cases[1].first);
  EXPECT_THAT(gauge.WriteString(), HasSubstr("<label>Gr\xC3\xBC\xC3\x9F"
                                             "e \xE2\x9C\x93 \xE6\x97\xA5\xE6\x9C\xAC "
                                             "\xF0\x9D\x84\x9E</label>"));
}

// ---------------------------------------------------------------------------------------------
// ParsingResult

class XmlParsingResult : public testing::Test {
 protected:
  kelto::testing::LogCapture log_;
};

TEST_F(XmlParsingResult, StateIsRaisedAndNeverLoweredAndKeepFlagsFilterOnlyEvents) {
  const std::vector<std::pair<Event, ParsingResult::eParserState>> steps = {
      {Event(kOk, Event::ReadStart, "a"), kOk},
      {Event(kWarning, Event::MissingVersion, "a"), kWarning},
      {Event(kOk, Event::ReadStart, "b"), kWarning},
      {Event(kError, Event::MissingElement, "c"), kError},
      {Event(kWarning, Event::LegacyDefault, "d"), kError},
      {Event(kOk, Event::ReadStart, "e"), kError}};
  ParsingResult result;
  EXPECT_EQ(result.state(), kOk);
  std::deque<Event> kept;
  for (auto const& [event, state] : steps) {
    result << event;
    kept.push_back(event);
    EXPECT_EQ(result.state(), state) << event.ToString();
  }
  EXPECT_EQ(result.events(), kept);
  EXPECT_TRUE(log_.lines.empty()) << "events are logged only on request";

  // The keep flags filter the events but not the state.
  for (auto const& [keep_ok, keep_warnings, keep_errors, expected] :
       std::vector<std::tuple<bool, bool, bool, std::vector<std::string>>>{
           {true, true, true, {"ok", "warning", "error"}},
           {false, true, true, {"warning", "error"}},
           {true, false, true, {"ok", "error"}},
           {true, true, false, {"ok", "warning"}},
           {false, false, false, {}}}) {
    ParsingResult result(false, false, keep_ok, keep_warnings, keep_errors);
    result << Event(kOk, Event::ReadStart, "ok")
           << Event(kWarning, Event::MissingVersion, "warning")
           << Event(kError, Event::MissingValue, "error");
    std::vector<std::string> kept;
    for (Event const& event : result.events()) {
      kept.push_back(event.detail);
    }
    EXPECT_EQ(kept, expected) << keep_ok << keep_warnings << keep_errors;
    EXPECT_EQ(result.state(), kError);
  }
}

TEST_F(XmlParsingResult, EventsReachTheLoggerAtTheirLevelAsTheirText) {
  const std::deque<Event> events = {Event(kOk, Event::ReadStart, "sensor_info"),
                                    Event(kError, Event::SanityCheck, "0 < width_px"),
                                    Event(kWarning, Event::MissingVersion, "filter_zone")};
  const Logger::eLevel levels[] = {Logger::eLevel::Info, Logger::eLevel::Error,
                                   Logger::eLevel::Info};
  // With log_events, as they arrive, whether kept or not; then through a named logger.
  ParsingResult result(true, false, false, true, true);
  result << events[0] << events[1] << events[2];
  Logger logger("calibration");
  ParsingResult::PushEventsToLogger(logger, events);
  Logger::Parameters quiet;
  quiet.enabled = false;
  Logger quiet_logger("quiet", quiet);
  ParsingResult::PushEventsToLogger(quiet_logger, events);
  ASSERT_EQ(log_.lines.size(), 6u);
  for (std::size_t i = 0; i < log_.lines.size(); ++i) {
    EXPECT_EQ(log_.lines[i],
              std::make_tuple(levels[i % 3], i < 3 ? "" : "calibration", events[i % 3].ToString()))
        << i;
  }
  // An event's text names its state, source and detail.
  for (auto const& [event, parts] : std::vector<std::pair<Event, std::vector<std::string>>>{
           {Event(kError, Event::MissingAttribute, "sensor_id"),
            {"Error", "MissingAttribute", "sensor_id"}},
           {Event(kWarning, Event::LegacyDefault, "gain"), {"Warning", "LegacyDefault", "gain"}}}) {
    kelto::testing::ExpectInOrder(event.ToString(), parts);
  }
  EXPECT_NE(Event(kOk, Event::SanityCheck, "0 < width_px").ToString(),
            Event(kOk, Event::MissingValue, "0 < width_px").ToString());
}

// ---------------------------------------------------------------------------------------------
// Bad input

class XmlBadInput : public testing::Test {
 protected:
  std::filesystem::path WriteBytes(std::string const& name, std::string const& bytes) {
    const std::filesystem::path path = dir_.path() / name;
    std::ofstream stream(path, std::ios::binary);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path;
  }

  // Reads once leniently and once with throw_on_error, checking what every refusal promises:
  // one Error event that says what is wrong, the same text in the exception, nothing printed,
  // the record untouched, and quick. Returns the event's detail and the exception's text.
  static std::pair<std::string, std::string> ExpectRefused(Reader const& read,
                                                           std::string const& what) {
    Gauge lenient_record;
    Gauge strict_record;
    ParsingResult lenient;
    testing::internal::CaptureStdout();
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Thrown([&] { read(lenient_record, lenient); }), "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    start = std::chrono::steady_clock::now();
    const std::string thrown = Thrown([&] {
      ParsingResult strict(false, true);
      read(strict_record, strict);
    });
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(lenient.state(), kError);
    EXPECT_EQ(lenient.events().size(), 1u);
    std::string detail;
    if (!lenient.events().empty()) {
      EXPECT_EQ(lenient.events().front().state, kError);
      detail = lenient.events().front().detail;
      EXPECT_THAT(detail, HasSubstr(what));
    }
    EXPECT_THAT(thrown, HasSubstr(what));
    EXPECT_TRUE(lenient_record == Gauge());
    EXPECT_TRUE(strict_record == Gauge());
    return {detail, thrown};
  }

  kelto::testing::TemporaryDirectory dir_;
};

TEST_F(XmlBadInput, EveryKindIsRefusedTheSameWay) {
  // gzip -n of '<gauge version="2"/>\n'; a plain parser must not inflate it behind our back.
  const unsigned char gzipped[] = {0x1f, 0x8b, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x03, 0xb3,
                                   0x49, 0x4f, 0x2c, 0x4d, 0x4f, 0x55, 0x28, 0x4b, 0x2d, 0x2a, 0xce,
                                   0xcc, 0xcf, 0xb3, 0x55, 0x32, 0x52, 0xd2, 0xb7, 0xe3, 0x02, 0x00,
                                   0x5e, 0x75, 0xb7, 0x68, 0x15, 0x00, 0x00, 0x00};
  const std::string gzip(reinterpret_cast<const char*>(gzipped), sizeof gzipped);
  const std::string nested =
      "<gauge version=\"2\">" + Repeat("<a>", 300) + Repeat("</a>", 300) + "</gauge>";
  // Far deeper than any stack would survive if the parser recursed without a limit.
  const std::string deeper = "<gauge version=\"2\">" + Repeat("<a>", 100000);
  std::string bomb = "<?xml version=\"1.0\"?>\n<!DOCTYPE gauge [\n<!ENTITY lol0 \"lol\">\n";
  for (int i = 1; i <= 9; ++i) {
    bomb += "<!ENTITY lol" + std::to_string(i) + " \"" +
            Repeat("&lol" + std::to_string(i - 1) + ";", 10) + "\">\n";
  }
  bomb += "]>\n" + Named("&lol9;");
  // External entities are never loaded: no refusal may carry the marker.
  const std::string marker = "KELTO-SECRET-MARKER-5d1e";
  const std::string secret = WriteBytes("secret.txt", marker).string();
  const std::string dtd = WriteBytes("secret.dtd", "<!ENTITY leak \"" + marker + "\">").string();
  std::string many_attributes = "<gauge version=\"2\"";
  for (int i = 0; i < 100000; ++i) {
    many_attributes += " a" + std::to_string(i) + "=\"\"";
  }
  many_attributes += "/>";
  const std::filesystem::path fifo = dir_.path() / "pipe.xml";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::filesystem::create_symlink("/dev/zero", dir_.path() / "zero.xml");

  const std::vector<std::pair<std::string, std::string>> documents = {
      {"sensor=VKR9\nwidth=2048\n", "not XML"},
      {"", "empty"},
      {std::string("<g\0a", 4), "NUL"},
      {"<gauge version=\"2\"><name>x</name>", "not well-formed"},
      {"<gauge version=\"2\"/><gauge version=\"2\"/>", "not well-formed"},
      {Named("&nope;"), "not well-formed"},
      {"<gauge version=\"2\"><x:name>n</x:name></gauge>", "Namespace prefix x"},
      {gzip, "gzip"},
      {nested, "depth"},
      {deeper, "not well-formed"},
      {bomb, "DOCTYPE"},
      {"<?xml version=\"1.0\"?>\n<!DOCTYPE gauge [<!ENTITY secret SYSTEM \"file://" + secret +
           "\">]>\n<gauge version=\"2\" serial=\"&secret;\"><name>&secret;</name></gauge>",
       "DOCTYPE"},
      {"<!DOCTYPE gauge SYSTEM \"file://" + dtd + "\">\n" + Named("&leak;"), "DOCTYPE"},
      {"<!DOCTYPE gauge [<!ENTITY % p SYSTEM \"file://" + dtd + "\"> %p;]>\n" + Named("&leak;"),
       "DOCTYPE"},
      {"<?xml version=\"1.0\" encoding=\"UTF-16\"?><gauge version=\"2\"/>", "encoding"},
      {"<?xml version='1.0' encoding='Shift_JIS'?>" + Named("\x82\xA0\xFF\xFF"), "encoding"},
      // Without the closing "?>" the parser still switches to the declared encoding.
      {"<?xml version=\"1.0\" encoding=\"SHIFT_JIS\"\n" + Named("\x82\xFF\xFF"), "encoding"},
      {std::string("\xFF\xFE<\0g\0/\0>\0", 10), "NUL"},  // UTF-16 with its byte order mark
      {"<gauge version=\"2\" serial=\"\xE2\x82\"/>", "not well-formed"},
      {Named("\xED\xA0\x80"), "not well-formed"},         // a UTF-16 surrogate
      {"<g\xC0\xAE version=\"2\"/>", "not well-formed"},  // overlong in a name
      // About a megabyte each, of items that take 30 to 40 times their size as a tree.
      {"<gauge version=\"2\">" + Repeat("<x/>", 250000) + "</gauge>", "too many small items"},
      {"<gauge version=\"2\">" + Repeat("<x/>\n", 200000) + "</gauge>", "too many small items"},
      {"<gauge version=\"2\">" + Repeat("<!---->", 150000) + "</gauge>", "too many small items"},
      {"<gauge version=\"2\"><name>" + Repeat("<?p?>", 200000) + "</name></gauge>",
       "too many small items"},
      // libxml2 compares every attribute of a tag with the ones before it: minutes for this.
      {many_attributes, "more than 256 attributes"},
  };
  std::vector<std::tuple<std::string, Reader, std::string>> cases = {
      {"stream", FromStream("not <xml>"), "not XML"},
      {"empty file", FromFile(WriteBytes("empty.xml", "")), "empty"},
      {"blank file", FromFile(WriteBytes("blank.xml", " \n\t\n")), "empty"},
      {"missing file", FromFile(dir_.path() / "missing.xml"), "does not exist"},
      {"directory", FromFile(dir_.path()), "directory"},
      {"fifo", FromFile(fifo), "not a regular file"},
      {"/dev/zero", FromFile("/dev/zero"), "not a regular file"},
      {"link to /dev/zero", FromFile(dir_.path() / "zero.xml"), "not a regular file"},
      {"gzip file", FromFile(WriteBytes("gauge.xml.gz", gzip)), "gzip"},
  };
  for (auto const& [document, what] : documents) {
    cases.emplace_back(testing::PrintToString(document).substr(0, 200), FromString(document), what);
  }
  for (auto const& [label, read, what] : cases) {
    SCOPED_TRACE(label);
    const auto [detail, thrown] = ExpectRefused(read, what);
    EXPECT_THAT(detail, Not(HasSubstr(marker)));
    EXPECT_THAT(thrown, Not(HasSubstr(marker)));
  }
}

TEST_F(XmlBadInput, CutShortSaysItEndsEarlyAndLargeTextIsReadWholeOrRefusedNeverCut) {
  // A document cut at any point, as an interrupted copy leaves it, whatever libxml2 makes of the
  // place of the cut ("AttValue: ' expected", "Premature end of data", ...).
  const std::string whole =
      "<gauge version=\"2\" serial=\"A-17\">\n<name>flow <!-- main --> meter</name>\n</gauge>\n";
  for (const std::size_t cut : {std::size_t{9}, std::size_t{27}, std::size_t{36}, std::size_t{45},
                                std::size_t{52}, whole.size() - 4}) {
    SCOPED_TRACE(whole.substr(0, cut));
    const auto [detail, thrown] =
        ExpectRefused(FromString(whole.substr(0, cut)), "not well-formed XML: it ends early");
    EXPECT_THAT(detail, testing::MatchesRegex(".*ends early.*; line [0-9]+: .+"));
  }
  // A fault in the middle, or a wrong closing tag at the very end, is no cut.
  for (const std::string& faulty :
       {std::string("<gauge version=\"2\"><name>x</nam></gauge>\n"),
        std::string("<gauge version=\"2\"><name x=1>x</name></gauge>\n"),
        std::string("<gauge version=\"2\"><name>x</name></gaug>")}) {
    SCOPED_TRACE(faulty);
    const auto [detail, thrown] = ExpectRefused(FromString(faulty), "not well-formed XML: line 1");
    EXPECT_THAT(detail, Not(HasSubstr("ends early")));
  }
  // Some libxml2 builds stop at a text node over 10 MB and still call the document
  // well-formed; such a document must not pass as read with whatever came before the cut.
  Gauge large;
  large.name.assign(11u << 20, 'x');
  const std::string document = large.WriteString();
  Gauge read;
  const auto start = std::chrono::steady_clock::now();
  const ParsingResult result = kelto::testing::Read(read, document);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  if (result.state() == kOk) {
    EXPECT_EQ(read.name.size(), large.name.size());
    EXPECT_TRUE(read == large);
  } else {
    ASSERT_EQ(result.events().size(), 1u);
    EXPECT_THAT(result.events().front().detail, HasSubstr("XML parser"));
    EXPECT_TRUE(read == Gauge());
  }
}

}  // namespace
