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
#include <vector>

#include <kelto/common/logger.h>

namespace kelto::common {
// Readable failure messages for event lists.
static void PrintTo(XMLSerializableInterface::ParsingResult::Event const& event, std::ostream* os) {
  *os << event.ToString();
}
}  // namespace kelto::common

namespace {

using kelto::common::Logger;
using kelto::common::XMLSerializableInterface;
using ParsingResult = XMLSerializableInterface::ParsingResult;
using Event = ParsingResult::Event;
using testing::HasSubstr;
using testing::Not;

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

void Expect(ParsingResult& result, bool found, Event::eEventSource source,
            std::string const& name) {
  if (!found) {
    result << Event(ParsingResult::Error, source, name);
  }
}

// A child record: its own tag is "band_info", its parent stores it as "band".
class Band : public XMLSerializableInterface {
 public:
  Band() = default;
  Band(int index_, double wavelength) : index(index_), wavelength_nm(wavelength) {}

  void ReadXML(ParsingResult& result, _xmlNode* const& node) override {
    result << Event(ParsingResult::Ok, Event::ReadStart, _GetTagName(node));
    if (_GetVersion(node) == -1) {
      result << Event(ParsingResult::Error, Event::MissingVersion, _GetTagName(node));
      return;
    }
    Expect(result, _GetAttribute(index, node, "index", 0), Event::MissingAttribute, "index");
    Expect(result, _GetValue(wavelength_nm, node, "wavelength_nm", 0.0), Event::MissingValue,
           "wavelength_nm");
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
    result << Event(ParsingResult::Ok, Event::ReadStart, _GetTagName(node));
    if (_GetVersion(node) != 2) {
      result << Event(ParsingResult::Error, Event::UnsupportedVersion, _GetTagName(node));
      return;
    }
    Expect(result, _GetAttribute(serial, node, "serial", std::string()), Event::MissingAttribute,
           "serial");
    Expect(result, _GetAttribute(channels, node, "channels", std::vector<int>()),
           Event::MissingAttribute, "channels");
    Expect(result, _GetAttribute(kind, node, "kind", std::string()), Event::MissingAttribute,
           "kind");
    Expect(result, _GetValue(name, node, "name", std::string("unnamed")), Event::MissingValue,
           "name");
    Expect(result, _GetValue(label, node, "label", std::wstring()), Event::MissingValue, "label");
    Expect(result, _GetValue(unit, node, "unit", std::string()), Event::MissingValue, "unit");
    Expect(result, _GetValue(gain, node, "gain", 1.0), Event::MissingValue, "gain");
    Expect(result, _GetValue(offset, node, "offset", 0), Event::MissingValue, "offset");
    Expect(result, _GetValue(count, node, "count", 0UL), Event::MissingValue, "count");
    Expect(result, _GetValue(enabled, node, "enabled", true), Event::MissingValue, "enabled");
    Expect(result, _GetValue(response, node, "response", 0.0), Event::MissingValue, "response");
    Expect(result, _GetValue(weights, node, "weights", 0.0), Event::MissingValue, "weights");
    bands.clear();
    _xmlNode* container = nullptr;
    if (!_GetElement(container, node, "bands", 0)) {
      result << Event(ParsingResult::Error, Event::MissingElement, "bands");
      return;
    }
    std::deque<_xmlNode*> items;
    _GetElements(items, container, "band");
    for (_xmlNode* item : items) {
      Band band;
      band.ReadXML(result, item);
      bands.push_back(band);
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

  std::string serial;
  std::vector<int> channels;
  std::string kind;
  std::string name = "unnamed";
  std::wstring label;
  std::string unit;
  double gain = 1.0;
  int offset = 0;
  unsigned long count = 0;
  bool enabled = true;
  std::vector<double> response;
  std::vector<double> weights;
  std::deque<Band> bands;
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

Gauge Sample() {
  Gauge gauge;
  gauge.serial = "S-17";
  gauge.channels = {4, -5, 6};
  gauge.kind = "reference";
  gauge.name = "probe 7";
  gauge.label = L"Spektralkanal \u00dc";
  gauge.unit = "nm";
  gauge.gain = 0.25;
  gauge.offset = -12;
  gauge.count = 3;
  gauge.enabled = false;
  gauge.response = {0.5, 0.25};
  gauge.weights = {1.0, 2.0, 3.0};
  gauge.bands = {Band(0, 470.5), Band(1, 480.25)};
  return gauge;
}

Gauge RoundTrip(Gauge const& gauge, ParsingResult& result) {
  Gauge copy;
  copy.ReadString(result, gauge.WriteString());
  return copy;
}

std::string Attribute(_xmlNode* node, const char* name) {
  xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
  std::string text = value == nullptr ? "<absent>" : reinterpret_cast<const char*>(value);
  xmlFree(value);
  return text;
}

// ---------------------------------------------------------------------------------------------
// The record idiom: what the getters promise a reader

TEST(XmlGetters, AbsentItemStoresDefaultAndReturnsFalse) {
  Doc doc("<r a=\"1\"><x b=\"1\">1</x></r>");
  ASSERT_NE(doc.Root(), nullptr);
  _xmlNode* node = doc.Root();

  std::string text = "stale";
  EXPECT_FALSE(Tools::_GetValue(text, node, "missing", std::string("dflt")));
  EXPECT_EQ(text, "dflt");
  std::wstring wide = L"stale";
  EXPECT_FALSE(Tools::_GetValue(wide, node, "missing", std::wstring(L"w")));
  EXPECT_EQ(wide, L"w");
  double number = 99.0;
  EXPECT_FALSE(Tools::_GetValue(number, node, "missing", 1.5));
  EXPECT_EQ(number, 1.5);
  int integer = 99;
  EXPECT_FALSE(Tools::_GetValue(integer, node, "missing", -4));
  EXPECT_EQ(integer, -4);
  unsigned long count = 99;
  EXPECT_FALSE(Tools::_GetValue(count, node, "missing", 8UL));
  EXPECT_EQ(count, 8UL);
  bool flag = false;
  EXPECT_FALSE(Tools::_GetValue(flag, node, "missing", true));
  EXPECT_TRUE(flag);
  std::vector<double> values = {1.0, 2.0};
  EXPECT_FALSE(Tools::_GetValue(values, node, "missing", 0.0));
  EXPECT_TRUE(values.empty());

  // An attribute of a child does not count as the node's own.
  text = "stale";
  EXPECT_FALSE(Tools::_GetAttribute(text, node, "b", std::string("dflt")));
  EXPECT_EQ(text, "dflt");
  integer = 99;
  EXPECT_FALSE(Tools::_GetAttribute(integer, node, "b", 3));
  EXPECT_EQ(integer, 3);
  count = 99;
  EXPECT_FALSE(Tools::_GetAttribute(count, node, "b", 5UL));
  EXPECT_EQ(count, 5UL);
  flag = true;
  EXPECT_FALSE(Tools::_GetAttribute(flag, node, "b", false));
  EXPECT_FALSE(flag);
  std::vector<int> ints = {9};
  EXPECT_FALSE(Tools::_GetAttribute(ints, node, "b", std::vector<int>{1, 2}));
  EXPECT_EQ(ints, (std::vector<int>{1, 2}));

  // A null node is an absent item too, not a crash.
  integer = 99;
  EXPECT_FALSE(Tools::_GetValue(integer, nullptr, "x", 7));
  EXPECT_EQ(integer, 7);
}

TEST(XmlGetters, UnconvertibleTextGivesFalseAndTheDefault) {
  Doc doc(
      "<r><d>1.5x</d><d2></d2><i>12.0</i><i2>99999999999</i2><u>-1</u><u2>-0</u2>"
      "<b>yes</b><good_d> 2.5 </good_d><good_i>+42</good_i><good_u>18446744073709551615</good_u>"
      "</r>");
  ASSERT_NE(doc.Root(), nullptr);
  _xmlNode* node = doc.Root();

  double number = 0.0;
  for (const char* name : {"d", "d2"}) {
    SCOPED_TRACE(name);
    number = 99.0;
    EXPECT_FALSE(Tools::_GetValue(number, node, name, -1.0));
    EXPECT_EQ(number, -1.0);
  }
  int integer = 0;
  for (const char* name : {"i", "i2"}) {
    SCOPED_TRACE(name);
    integer = 99;
    EXPECT_FALSE(Tools::_GetValue(integer, node, name, -1));
    EXPECT_EQ(integer, -1);
  }
  unsigned long count = 0;
  for (const char* name : {"u", "u2"}) {
    SCOPED_TRACE(name);
    count = 99;
    EXPECT_FALSE(Tools::_GetValue(count, node, name, 1UL));
    EXPECT_EQ(count, 1UL);
  }
  bool flag = true;
  EXPECT_FALSE(Tools::_GetValue(flag, node, "b", false));
  EXPECT_FALSE(flag);

  EXPECT_TRUE(Tools::_GetValue(number, node, "good_d", 0.0));
  EXPECT_EQ(number, 2.5);
  EXPECT_TRUE(Tools::_GetValue(integer, node, "good_i", 0));
  EXPECT_EQ(integer, 42);
  EXPECT_TRUE(Tools::_GetValue(count, node, "good_u", 0UL));
  EXPECT_EQ(count, std::numeric_limits<unsigned long>::max());
}

TEST(XmlGetters, BooleansAreTrueOrFalseOnly) {
  Doc doc(
      "<r><t>true</t><f>false</f><one>1</one><zero>0</zero><upper>TRUE</upper><yes>yes</yes>"
      "<empty/></r>");
  ASSERT_NE(doc.Root(), nullptr);
  bool flag = false;
  EXPECT_TRUE(Tools::_GetValue(flag, doc.Root(), "t", false));
  EXPECT_TRUE(flag);
  EXPECT_TRUE(Tools::_GetValue(flag, doc.Root(), "f", true));
  EXPECT_FALSE(flag);
  for (const char* name : {"one", "zero", "upper", "yes", "empty"}) {
    SCOPED_TRACE(name);
    flag = false;
    EXPECT_FALSE(Tools::_GetValue(flag, doc.Root(), name, true));
    EXPECT_TRUE(flag);
    flag = true;
    EXPECT_FALSE(Tools::_GetValue(flag, doc.Root(), name, false));
    EXPECT_FALSE(flag);
  }
}

TEST(XmlGetters, ElementsAreFoundByIndexAndInDocumentOrder) {
  Doc doc(
      "<r><a id=\"0\"/><b/><!-- a --><a id=\"1\">one &amp; <i>two</i></a>text<a id=\"2\"/>"
      "<c><a id=\"nested\"/></c></r>");
  ASSERT_NE(doc.Root(), nullptr);
  _xmlNode* node = doc.Root();

  _xmlNode* element = nullptr;
  ASSERT_TRUE(Tools::_GetElement(element, node, "a", 1));
  EXPECT_EQ(Attribute(element, "id"), "1");
  EXPECT_EQ(Tools::_GetTagName(element), "a");
  EXPECT_EQ(Tools::_GetData(element), "one & two");
  ASSERT_TRUE(Tools::_GetElement(element, node, "a", 0));
  EXPECT_EQ(Attribute(element, "id"), "0");
  EXPECT_FALSE(Tools::_GetElement(element, node, "a", 3));  // only direct children count
  EXPECT_FALSE(Tools::_GetElement(element, node, "a", -1));
  EXPECT_FALSE(Tools::_GetElement(element, node, "missing", 0));

  std::deque<_xmlNode*> elements = {node};
  EXPECT_TRUE(Tools::_GetElements(elements, node, "a"));
  ASSERT_EQ(elements.size(), 3u);
  EXPECT_EQ(Attribute(elements[0], "id"), "0");
  EXPECT_EQ(Attribute(elements[1], "id"), "1");
  EXPECT_EQ(Attribute(elements[2], "id"), "2");
  Tools::_GetElements(elements, node, "missing");
  EXPECT_TRUE(elements.empty());
}

TEST(XmlGetters, VersionIsMinusOneWhenAbsentOrNotANumber) {
  const std::vector<std::pair<std::string, int>> cases = {
      {"<r version=\"3\"/>", 3},    {"<r version=\"0\"/>", 0},    {"<r/>", -1},
      {"<r version=\"abc\"/>", -1}, {"<r version=\"2.5\"/>", -1}, {"<r version=\"\"/>", -1},
      {"<r version=\"3x\"/>", -1},  {"<r Version=\"3\"/>", -1},
  };
  for (auto const& [text, expected] : cases) {
    SCOPED_TRACE(text);
    Doc doc(text);
    ASSERT_NE(doc.Root(), nullptr);
    EXPECT_EQ(Tools::_GetVersion(doc.Root()), expected);
  }
}

TEST(XmlGetters, AttributesOfEveryType) {
  Doc doc(
      "<r s=\"a &lt;b&gt;\" i=\"-7\" u=\"12\" b=\"true\" v1=\"1 2 3\" v2=\"4, 5,6\" v3=\"\" "
      "bad_i=\"7.5\" bad_u=\"-3\" bad_b=\"1\" bad_v=\"1 x 3\"/>");
  _xmlNode* node = doc.Root();
  ASSERT_NE(node, nullptr);

  std::string text;
  EXPECT_TRUE(Tools::_GetAttribute(text, node, "s", std::string()));
  EXPECT_EQ(text, "a <b>");
  int integer = 0;
  EXPECT_TRUE(Tools::_GetAttribute(integer, node, "i", 0));
  EXPECT_EQ(integer, -7);
  unsigned long count = 0;
  EXPECT_TRUE(Tools::_GetAttribute(count, node, "u", 0UL));
  EXPECT_EQ(count, 12UL);
  bool flag = false;
  EXPECT_TRUE(Tools::_GetAttribute(flag, node, "b", false));
  EXPECT_TRUE(flag);

  std::vector<int> ints;
  EXPECT_TRUE(Tools::_GetAttribute(ints, node, "v1", std::vector<int>{9}));
  EXPECT_EQ(ints, (std::vector<int>{1, 2, 3}));
  EXPECT_TRUE(Tools::_GetAttribute(ints, node, "v2", std::vector<int>{9}));
  EXPECT_EQ(ints, (std::vector<int>{4, 5, 6}));
  EXPECT_TRUE(Tools::_GetAttribute(ints, node, "v3", std::vector<int>{9}));
  EXPECT_TRUE(ints.empty());

  integer = 0;
  EXPECT_FALSE(Tools::_GetAttribute(integer, node, "bad_i", 11));
  EXPECT_EQ(integer, 11);
  count = 0;
  EXPECT_FALSE(Tools::_GetAttribute(count, node, "bad_u", 11UL));
  EXPECT_EQ(count, 11UL);
  flag = true;
  EXPECT_FALSE(Tools::_GetAttribute(flag, node, "bad_b", false));
  EXPECT_FALSE(flag);
  EXPECT_FALSE(Tools::_GetAttribute(ints, node, "bad_v", std::vector<int>{9}));
  EXPECT_EQ(ints, (std::vector<int>{9}));
}

TEST(XmlGetters, ReadCsvInBothForms) {
  std::deque<double> all = {42.0};
  EXPECT_TRUE(Tools::_ReadCSV(all, " 1, 2.5 ,-3e2"));
  EXPECT_EQ(all, (std::deque<double>{1.0, 2.5, -300.0}));
  EXPECT_FALSE(Tools::_ReadCSV(all, "1,abc,3"));
  EXPECT_EQ(all, (std::deque<double>{1.0}));
  EXPECT_TRUE(Tools::_ReadCSV(all, ""));
  EXPECT_TRUE(all.empty());

  std::vector<double> exact = {42.0};
  EXPECT_TRUE(Tools::_ReadCSV(exact, "1,2,3", 3UL));
  EXPECT_EQ(exact, (std::vector<double>{1.0, 2.0, 3.0}));
  EXPECT_TRUE(Tools::_ReadCSV(exact, "1,2,3", 2UL));
  EXPECT_EQ(exact, (std::vector<double>{1.0, 2.0}));
  // Fewer values than asked: false, and nothing is padded to the count.
  EXPECT_FALSE(Tools::_ReadCSV(exact, "1,2,3", 5UL));
  EXPECT_EQ(exact, (std::vector<double>{1.0, 2.0, 3.0}));
  EXPECT_FALSE(Tools::_ReadCSV(exact, "1,x,3", 3UL));
  EXPECT_EQ(exact, (std::vector<double>{1.0}));
  // A count taken from a file never makes room the text can't fill.
  EXPECT_FALSE(Tools::_ReadCSV(exact, "7", std::numeric_limits<unsigned long>::max()));
  EXPECT_EQ(exact, (std::vector<double>{7.0}));
}

TEST(XmlRecordIdiom, RecordRoundTripsWithOnlyReadStartEvents) {
  const Gauge written = Sample();
  ParsingResult result;
  const Gauge read = RoundTrip(written, result);
  EXPECT_TRUE(read == written);
  EXPECT_EQ(result.state(), ParsingResult::Ok);
  const std::deque<Event> expected = {
      Event(ParsingResult::Ok, Event::ReadStart, "gauge"),
      Event(ParsingResult::Ok, Event::ReadStart, "band"),
      Event(ParsingResult::Ok, Event::ReadStart, "band"),
  };
  EXPECT_EQ(result.events(), expected);
}

TEST(XmlRecordIdiom, ReadingIntoAUsedRecordReplacesItsList) {
  Gauge record = Sample();
  record.bands.push_back(Band(9, 900.0));
  Gauge other;
  other.bands = {Band(5, 500.0)};
  ParsingResult result;
  record.ReadString(result, other.WriteString());
  ASSERT_EQ(record.bands.size(), 1u);
  EXPECT_EQ(record.bands[0], Band(5, 500.0));
}

TEST(XmlRecordIdiom, WideTextWithNonAsciiRoundTrips) {
  Gauge gauge;
  gauge.label = L"Gr\u00fc\u00dfe \u2713 \u65e5\u672c \U0001D11E";
  const std::string document = gauge.WriteString();
  // UTF-8 in the file, not character references or a narrowed copy.
  EXPECT_THAT(document, HasSubstr("<label>Gr\xC3\xBC\xC3\x9F"
                                  "e \xE2\x9C\x93 \xE6\x97\xA5\xE6\x9C\xAC "
                                  "\xF0\x9D\x84\x9E</label>"));
  ParsingResult result;
  Gauge read;
  read.ReadString(result, document);
  EXPECT_EQ(read.label, gauge.label);
}

TEST(XmlRecordIdiom, Latin1DocumentIsReadAsUtf8) {
  Gauge read;
  ParsingResult result;
  read.ReadString(result,
                  "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>"
                  "<gauge version=\"2\"><name>M\xFCller</name><label>\xC4</label></gauge>");
  EXPECT_EQ(read.name, "M\xC3\xBCller");
  EXPECT_EQ(read.label, L"\u00c4");
}

TEST(XmlRecordIdiom, ParserWarningsDoNotRefuseADocument) {
  std::string document = Sample().WriteString();
  const std::size_t root = document.find("<gauge ");
  ASSERT_NE(root, std::string::npos);
  document.replace(root, 7, "<gauge xmlns=\"relative/uri\" ");
  document.replace(0, document.find("?>"), "<?xml version=\"1.1\" encoding=\"UTF-8\"");
  Gauge read;
  ParsingResult result;
  testing::internal::CaptureStderr();
  read.ReadString(result, document);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(result.state(), ParsingResult::Ok);
  EXPECT_TRUE(read == Sample());
}

TEST(XmlRecordIdiom, StreamAndFileReadTheSameAsString) {
  const Gauge written = Sample();
  std::istringstream stream(written.WriteString());
  Gauge from_stream;
  ParsingResult stream_result;
  from_stream.ReadStream(stream_result, stream);
  EXPECT_TRUE(from_stream == written);
  EXPECT_EQ(stream_result.state(), ParsingResult::Ok);

  const std::filesystem::path path = std::filesystem::temp_directory_path() /
                                     ("kelto_xml_roundtrip_" + std::to_string(::getpid()) + ".xml");
  written.WriteFile(path);
  Gauge from_file;
  ParsingResult file_result;
  from_file.ReadFile(file_result, path);
  std::filesystem::remove(path);
  EXPECT_TRUE(from_file == written);
  EXPECT_EQ(file_result.state(), ParsingResult::Ok);

  EXPECT_THROW(written.WriteFile(path / "no" / "such" / "dir.xml"), std::runtime_error);
}

TEST(XmlRecordIdiom, ThrowOnErrorThrowsOnlyWhenTheReadEndsInError) {
  const std::string faulty =
      "<gauge version=\"2\" serial=\"s\" channels=\"1\" kind=\"k\"><name>n</name><label/>"
      "<unit/><gain>1</gain><offset>0</offset><count>0</count><enabled>true</enabled>"
      "<response nr_elements=\"0\" values=\"\"/><weights nr_elements=\"0\" values=\"\"/>"
      "<bands><band index=\"0\"><wavelength_nm>1</wavelength_nm></band></bands></gauge>";
  {
    Gauge record;
    ParsingResult result(false, false);
    EXPECT_NO_THROW(record.ReadString(result, faulty));
    EXPECT_EQ(result.state(), ParsingResult::Error);
    EXPECT_EQ(result.events().back(), Event(ParsingResult::Error, Event::MissingVersion, "band"));
  }
  {
    Gauge record;
    ParsingResult result(false, true);
    try {
      record.ReadString(result, faulty);
      ADD_FAILURE() << "a read ending in Error must throw with throw_on_error";
    } catch (std::runtime_error const& error) {
      EXPECT_THAT(error.what(), HasSubstr("MissingVersion"));
    }
    // What was read before the error stays in the record.
    EXPECT_EQ(record.name, "n");
  }
  {
    Gauge record;
    ParsingResult result(false, true);
    EXPECT_NO_THROW(record.ReadString(result, Sample().WriteString()));
    EXPECT_TRUE(record == Sample());
  }
}

// ---------------------------------------------------------------------------------------------
// Writing

TEST(XmlWriting, ElementNameWinsOverTheRecordsOwnTag) {
  Gauge gauge;
  gauge.bands = {Band(3, 550.0)};
  const std::string document = gauge.WriteString();
  EXPECT_THAT(document, HasSubstr("<band version=\"4\" index=\"3\">"));
  EXPECT_THAT(document, Not(HasSubstr("band_info")));
  // The record's own tag is what the root carries.
  EXPECT_THAT(document, HasSubstr("<gauge version=\"2\""));

  Doc doc(document);
  ASSERT_NE(doc.Root(), nullptr);
  _xmlNode* bands = nullptr;
  ASSERT_TRUE(Tools::_GetElement(bands, doc.Root(), "bands", 0));
  std::deque<_xmlNode*> items;
  ASSERT_TRUE(Tools::_GetElements(items, bands, "band"));
  ASSERT_EQ(items.size(), 1u);
  Band band;
  ParsingResult result;
  band.ReadXML(result, items[0]);
  EXPECT_EQ(band, Band(3, 550.0));
  EXPECT_EQ(result.events().front(), Event(ParsingResult::Ok, Event::ReadStart, "band"));
}

TEST(XmlWriting, CharPointerIsWrittenAsText) {
  const std::string document = Gauge().WriteString();
  EXPECT_THAT(document, HasSubstr("<unit>nm</unit>"));
  EXPECT_THAT(document, HasSubstr("kind=\"reference\""));
}

TEST(XmlWriting, ScalarDoublesRoundTripExactly) {
  const std::vector<double> values = {
      0.1,
      1.0 / 3.0,
      -2.0 / 3.0,
      1e-300,
      1e300,
      std::numeric_limits<double>::denorm_min(),
      std::numeric_limits<double>::min() / 3.0,
      std::numeric_limits<double>::min(),
      std::numeric_limits<double>::max(),
      std::numeric_limits<double>::lowest(),
      std::numeric_limits<double>::epsilon(),
      123456789.123456789,
      -0.0,
      0.0,
      std::numeric_limits<double>::infinity(),
      -std::numeric_limits<double>::infinity(),
  };
  for (double value : values) {
    SCOPED_TRACE(testing::Message() << "value " << value);
    Gauge gauge;
    gauge.gain = value;
    ParsingResult result;
    const Gauge read = RoundTrip(gauge, result);
    EXPECT_EQ(result.state(), ParsingResult::Ok);
    EXPECT_EQ(std::memcmp(&read.gain, &value, sizeof value), 0) << "read back " << read.gain;
  }
  Gauge gauge;
  gauge.gain = std::numeric_limits<double>::quiet_NaN();
  ParsingResult result;
  EXPECT_TRUE(std::isnan(RoundTrip(gauge, result).gain));
}

TEST(XmlWriting, VectorsKeepTheRequestedSignificantDigits) {
  Gauge gauge;
  gauge.response = {0.123456789012345, 1234.56789012345678, -1e-7, 1.0};
  gauge.weights = {0.123456789012345, 1234.56789012345678, 2.5};
  const std::string document = gauge.WriteString();
  EXPECT_THAT(document, HasSubstr("<response nr_elements=\"4\" "
                                  "values=\"0.123456789012 1234.56789012 -1e-07 1\"/>"));
  EXPECT_THAT(document, HasSubstr("<weights nr_elements=\"3\" values=\"0.123457 1234.57 2.5\"/>"));

  ParsingResult result;
  Gauge read;
  read.ReadString(result, document);
  EXPECT_EQ(result.state(), ParsingResult::Ok);
  EXPECT_EQ(read.response, (std::vector<double>{0.123456789012, 1234.56789012, -1e-7, 1.0}));
  EXPECT_EQ(read.weights, (std::vector<double>{0.123457, 1234.57, 2.5}));
}

TEST(XmlWriting, EmptyVectorIsCountZeroAndNoValues) {
  const Gauge gauge;
  const std::string document = gauge.WriteString();
  EXPECT_THAT(document, HasSubstr("<response nr_elements=\"0\" values=\"\"/>"));
  Doc doc(document);
  ASSERT_NE(doc.Root(), nullptr);
  std::vector<double> values = {1.0};
  EXPECT_TRUE(Tools::_GetValue(values, doc.Root(), "response", 0.0));
  EXPECT_TRUE(values.empty());
}

TEST(XmlWriting, MarkupCharactersRoundTrip) {
  Gauge gauge;
  gauge.name = "a<b & \"c\" 'd' >e ]]> &amp;";
  gauge.serial = "<x y=\"1\" z='2'>&lt;";
  gauge.label = L"<&>\"'";
  ParsingResult result;
  const Gauge read = RoundTrip(gauge, result);
  EXPECT_EQ(result.state(), ParsingResult::Ok);
  EXPECT_EQ(read.name, gauge.name);
  EXPECT_EQ(read.serial, gauge.serial);
  EXPECT_EQ(read.label, gauge.label);
}

TEST(XmlWriting, WhiteSpaceInTextAndAttributesRoundTrips) {
  Gauge gauge;
  gauge.name = "  tab\there\nline\r\ncrlf\rcr  ";
  gauge.serial = " tab\there\nline\r\ncrlf\rcr ";
  ParsingResult result;
  const Gauge read = RoundTrip(gauge, result);
  EXPECT_EQ(read.name, gauge.name);
  EXPECT_EQ(read.serial, gauge.serial);
}

TEST(XmlWriting, CharactersXmlCannotHoldAreReplacedNotWrittenRaw) {
  Gauge gauge;
  gauge.name = "bell\x07|bad\xFF|cut\xE2\x82|ok \xC3\xA4";
  gauge.serial = "esc\x1B";
  gauge.label = std::wstring(L"unit") + static_cast<wchar_t>(0x1F) + static_cast<wchar_t>(0xFFFF);
  ParsingResult result;
  const Gauge read = RoundTrip(gauge, result);
  EXPECT_EQ(result.state(), ParsingResult::Ok);
  EXPECT_EQ(read.name, "bell\uFFFD|bad\uFFFD|cut\uFFFD\uFFFD|ok \u00e4");
  EXPECT_EQ(read.serial, "esc\uFFFD");
  EXPECT_EQ(read.label, L"unit\uFFFD\uFFFD");
}

TEST(XmlWriting, TextFormOfAVectorReadsBackWithItsCount) {
  // The text form is not what records write, but files written by other tools hold it.
  Doc doc("<r><v nr_elements=\"3\">1, 2.5, -3</v><w>4 5</w><bad nr_elements=\"4\">1, 2</bad></r>");
  ASSERT_NE(doc.Root(), nullptr);
  std::vector<double> values;
  EXPECT_TRUE(Tools::_GetValue(values, doc.Root(), "v", 0.0));
  EXPECT_EQ(values, (std::vector<double>{1.0, 2.5, -3.0}));
  // Without a count the values can't be checked.
  EXPECT_FALSE(Tools::_GetValue(values, doc.Root(), "w", 0.0));
  EXPECT_LE(values.size(), 2u);
  EXPECT_FALSE(Tools::_GetValue(values, doc.Root(), "bad", 0.0));
  EXPECT_LE(values.size(), 2u);
}

// ---------------------------------------------------------------------------------------------
// ParsingResult

class XmlParsingResult : public testing::Test {
 protected:
  struct Line {
    Logger::eLevel level;
    std::string name;
    std::string message;
  };

  void SetUp() override {
    Logger::SetSink(
        [this](Logger::eLevel level, std::string const& name, std::string const& message) {
          lines_.push_back({level, name, message});
        });
  }
  void TearDown() override { Logger::SetSink({}); }

  std::vector<Line> lines_;
};

TEST_F(XmlParsingResult, StateIsRaisedAndNeverLowered) {
  ParsingResult result;
  EXPECT_EQ(result.state(), ParsingResult::Ok);
  EXPECT_TRUE(result.events().empty());
  result << Event(ParsingResult::Ok, Event::ReadStart, "a");
  EXPECT_EQ(result.state(), ParsingResult::Ok);
  result << Event(ParsingResult::Warning, Event::MissingVersion, "a");
  EXPECT_EQ(result.state(), ParsingResult::Warning);
  result << Event(ParsingResult::Ok, Event::ReadStart, "b");
  EXPECT_EQ(result.state(), ParsingResult::Warning);
  result << Event(ParsingResult::Error, Event::MissingElement, "c");
  EXPECT_EQ(result.state(), ParsingResult::Error);
  result << Event(ParsingResult::Warning, Event::LegacyDefault, "d")
         << Event(ParsingResult::Ok, Event::ReadStart, "e");
  EXPECT_EQ(result.state(), ParsingResult::Error);
  ASSERT_EQ(result.events().size(), 6u);
  EXPECT_EQ(result.events().front().detail, "a");
  EXPECT_EQ(result.events().back().detail, "e");
  EXPECT_TRUE(lines_.empty()) << "events are logged only on request";
}

TEST_F(XmlParsingResult, KeepFlagsFilterEventsButNotState) {
  struct Case {
    bool keep_ok, keep_warnings, keep_errors;
    std::vector<std::string> kept;
  };
  const std::vector<Case> cases = {
      {true, true, true, {"ok", "warning", "error"}},
      {false, true, true, {"warning", "error"}},
      {true, false, true, {"ok", "error"}},
      {true, true, false, {"ok", "warning"}},
      {false, false, false, {}},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(testing::Message() << c.keep_ok << c.keep_warnings << c.keep_errors);
    ParsingResult result(false, false, c.keep_ok, c.keep_warnings, c.keep_errors);
    result << Event(ParsingResult::Ok, Event::ReadStart, "ok")
           << Event(ParsingResult::Warning, Event::MissingVersion, "warning")
           << Event(ParsingResult::Error, Event::MissingValue, "error");
    std::vector<std::string> kept;
    for (Event const& event : result.events()) {
      kept.push_back(event.detail);
    }
    EXPECT_EQ(kept, c.kept);
    EXPECT_EQ(result.state(), ParsingResult::Error);
  }
}

TEST_F(XmlParsingResult, LogEventsWritesEachEventToTheLogger) {
  const Event info(ParsingResult::Ok, Event::ReadStart, "gauge");
  const Event warning(ParsingResult::Warning, Event::MissingVersion, "gauge");
  const Event error(ParsingResult::Error, Event::MissingAttribute, "sensor_id");
  // Logging does not depend on whether the event is kept.
  ParsingResult result(true, false, false, true, true);
  result << info << warning << error;
  ASSERT_EQ(lines_.size(), 3u);
  EXPECT_EQ(lines_[0].level, Logger::eLevel::Info);
  EXPECT_EQ(lines_[0].message, info.ToString());
  EXPECT_EQ(lines_[1].level, Logger::eLevel::Info);
  EXPECT_EQ(lines_[1].message, warning.ToString());
  EXPECT_EQ(lines_[2].level, Logger::eLevel::Error);
  EXPECT_EQ(lines_[2].message, error.ToString());
}

TEST_F(XmlParsingResult, EventToStringNamesStateSourceAndDetail) {
  const std::string error =
      Event(ParsingResult::Error, Event::MissingAttribute, "sensor_id").ToString();
  EXPECT_THAT(error, HasSubstr("Error"));
  EXPECT_THAT(error, HasSubstr("MissingAttribute"));
  EXPECT_THAT(error, HasSubstr("sensor_id"));
  const std::string warning =
      Event(ParsingResult::Warning, Event::LegacyDefault, "gain").ToString();
  EXPECT_THAT(warning, HasSubstr("Warning"));
  EXPECT_THAT(warning, HasSubstr("LegacyDefault"));
  EXPECT_THAT(warning, HasSubstr("gain"));
  EXPECT_NE(Event(ParsingResult::Ok, Event::SanityCheck, "0 < width_px").ToString(),
            Event(ParsingResult::Ok, Event::MissingValue, "0 < width_px").ToString());
}

TEST_F(XmlParsingResult, PushEventsToLoggerUsesTheGivenLogger) {
  const std::deque<Event> events = {
      Event(ParsingResult::Ok, Event::ReadStart, "sensor_info"),
      Event(ParsingResult::Error, Event::SanityCheck, "0 < width_px"),
      Event(ParsingResult::Warning, Event::MissingVersion, "filter_zone"),
  };
  Logger logger("calibration");
  ParsingResult::PushEventsToLogger(logger, events);
  ASSERT_EQ(lines_.size(), 3u);
  for (std::size_t i = 0; i < events.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(lines_[i].name, "calibration");
    EXPECT_EQ(lines_[i].message, events[i].ToString());
  }
  EXPECT_EQ(lines_[0].level, Logger::eLevel::Info);
  EXPECT_EQ(lines_[1].level, Logger::eLevel::Error);
  EXPECT_EQ(lines_[2].level, Logger::eLevel::Info);

  Logger::Parameters quiet;
  quiet.enabled = false;
  lines_.clear();
  Logger quiet_logger("quiet", quiet);
  ParsingResult::PushEventsToLogger(quiet_logger, events);
  EXPECT_TRUE(lines_.empty());
}

// ---------------------------------------------------------------------------------------------
// Bad input

class XmlBadInput : public testing::Test {
 protected:
  using Read = std::function<void(Gauge&, ParsingResult&)>;

  void SetUp() override {
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    dir_ = std::filesystem::temp_directory_path() /
           ("kelto_xml_" + std::to_string(::getpid()) + "_" + info->name());
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override {
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }

  std::filesystem::path WriteBytes(std::string const& name, std::string const& bytes) {
    const std::filesystem::path path = dir_ / name;
    std::ofstream stream(path, std::ios::binary);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path;
  }

  static Read FromString(std::string const& text) {
    return [text](Gauge& gauge, ParsingResult& result) { gauge.ReadString(result, text); };
  }
  static Read FromFile(std::filesystem::path const& path) {
    return [path](Gauge& gauge, ParsingResult& result) { gauge.ReadFile(result, path); };
  }

  struct Outcome {
    ParsingResult lenient;
    std::string thrown;
    Gauge lenient_record;
    Gauge strict_record;
  };

  // Reads once leniently and once with throw_on_error, checking what every refusal promises:
  // one Error event that says what is wrong, the same text in the exception, nothing printed,
  // the record untouched, and quick.
  static Outcome ExpectRefused(Read const& read, std::string const& what) {
    Outcome outcome{ParsingResult(), "", Sample(), Sample()};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    auto start = std::chrono::steady_clock::now();
    read(outcome.lenient_record, outcome.lenient);
    const auto lenient_time = std::chrono::steady_clock::now() - start;

    bool other_exception = false;
    start = std::chrono::steady_clock::now();
    ParsingResult strict(false, true);
    try {
      read(outcome.strict_record, strict);
    } catch (std::runtime_error const& error) {
      outcome.thrown = error.what();
    } catch (...) {
      other_exception = true;
    }
    const auto strict_time = std::chrono::steady_clock::now() - start;
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string err = testing::internal::GetCapturedStderr();

    EXPECT_LT(lenient_time, std::chrono::seconds(1));
    EXPECT_LT(strict_time, std::chrono::seconds(1));
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "");
    EXPECT_EQ(outcome.lenient.state(), ParsingResult::Error);
    EXPECT_EQ(outcome.lenient.events().size(), 1u);
    if (!outcome.lenient.events().empty()) {
      EXPECT_EQ(outcome.lenient.events().front().state, ParsingResult::Error);
      EXPECT_THAT(outcome.lenient.events().front().detail, HasSubstr(what));
    }
    EXPECT_FALSE(other_exception) << "throw_on_error must throw std::runtime_error";
    EXPECT_THAT(outcome.thrown, HasSubstr(what));
    EXPECT_TRUE(outcome.lenient_record == Sample());
    EXPECT_TRUE(outcome.strict_record == Sample());
    return outcome;
  }

  std::filesystem::path dir_;
};

TEST_F(XmlBadInput, NotXmlOrEmpty) {
  {
    SCOPED_TRACE("plain text");
    ExpectRefused(FromString("sensor=VKR9\nwidth=2048\n"), "not XML");
  }
  {
    SCOPED_TRACE("empty string");
    ExpectRefused(FromString(""), "empty");
  }
  {
    SCOPED_TRACE("empty file");
    ExpectRefused(FromFile(WriteBytes("empty.xml", "")), "empty");
  }
  {
    SCOPED_TRACE("blank file");
    ExpectRefused(FromFile(WriteBytes("blank.xml", " \n\t\n")), "empty");
  }
  {
    SCOPED_TRACE("binary with NUL bytes");
    ExpectRefused(FromString(std::string("<g\0a", 4)), "NUL");
  }
  {
    SCOPED_TRACE("truncated document");
    ExpectRefused(FromString("<gauge version=\"2\"><name>x</name>"), "not well-formed");
  }
  {
    SCOPED_TRACE("two roots");
    ExpectRefused(FromString("<gauge version=\"2\"/><gauge version=\"2\"/>"), "not well-formed");
  }
  {
    SCOPED_TRACE("undefined entity");
    ExpectRefused(FromString("<gauge version=\"2\"><name>&nope;</name></gauge>"),
                  "not well-formed");
  }
  {
    SCOPED_TRACE("stream");
    ExpectRefused(
        [](Gauge& gauge, ParsingResult& result) {
          gauge.ReadStream(result, std::istringstream("not <xml>"));
        },
        "not XML");
  }
}

TEST_F(XmlBadInput, PathsThatAreNotReadableDocuments) {
  {
    SCOPED_TRACE("missing file");
    ExpectRefused(FromFile(dir_ / "missing.xml"), "does not exist");
  }
  {
    SCOPED_TRACE("directory");
    ExpectRefused(FromFile(dir_), "directory");
  }
  {
    SCOPED_TRACE("fifo");
    const std::filesystem::path fifo = dir_ / "pipe.xml";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    ExpectRefused(FromFile(fifo), "not a regular file");
  }
  {
    SCOPED_TRACE("/dev/zero");
    ExpectRefused(FromFile("/dev/zero"), "not a regular file");
  }
  {
    SCOPED_TRACE("link to /dev/zero");
    std::filesystem::create_symlink("/dev/zero", dir_ / "zero.xml");
    ExpectRefused(FromFile(dir_ / "zero.xml"), "not a regular file");
  }
}

TEST_F(XmlBadInput, CompressedDocument) {
  // gzip -n of '<gauge version="2"/>\n'; a plain parser must not inflate it behind our back.
  const unsigned char gzipped[] = {0x1f, 0x8b, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x03, 0xb3,
                                   0x49, 0x4f, 0x2c, 0x4d, 0x4f, 0x55, 0x28, 0x4b, 0x2d, 0x2a, 0xce,
                                   0xcc, 0xcf, 0xb3, 0x55, 0x32, 0x52, 0xd2, 0xb7, 0xe3, 0x02, 0x00,
                                   0x5e, 0x75, 0xb7, 0x68, 0x15, 0x00, 0x00, 0x00};
  const std::string bytes(reinterpret_cast<const char*>(gzipped), sizeof gzipped);
  ExpectRefused(FromFile(WriteBytes("gauge.xml.gz", bytes)), "gzip");
  ExpectRefused(FromString(bytes), "gzip");
}

TEST_F(XmlBadInput, DeepNesting) {
  std::string text = "<gauge version=\"2\">";
  for (int i = 0; i < 300; ++i) {
    text += "<a>";
  }
  for (int i = 0; i < 300; ++i) {
    text += "</a>";
  }
  text += "</gauge>";
  ExpectRefused(FromString(text), "depth");

  // Far deeper than any stack would survive if the parser recursed without a limit.
  std::string deeper = "<gauge version=\"2\">";
  for (int i = 0; i < 100000; ++i) {
    deeper += "<a>";
  }
  ExpectRefused(FromString(deeper), "not well-formed");
}

TEST_F(XmlBadInput, EntityExpansionBomb) {
  std::string text = "<?xml version=\"1.0\"?>\n<!DOCTYPE gauge [\n<!ENTITY lol0 \"lol\">\n";
  for (int i = 1; i <= 9; ++i) {
    text += "<!ENTITY lol" + std::to_string(i) + " \"";
    for (int k = 0; k < 10; ++k) {
      text += "&lol" + std::to_string(i - 1) + ";";
    }
    text += "\">\n";
  }
  text += "]>\n<gauge version=\"2\"><name>&lol9;</name></gauge>\n";
  ExpectRefused(FromString(text), "DOCTYPE");
}

TEST_F(XmlBadInput, ExternalEntitiesAreNeverLoaded) {
  const std::string marker = "KELTO-SECRET-MARKER-5d1e";
  const std::filesystem::path secret = WriteBytes("secret.txt", marker);
  const std::filesystem::path dtd = WriteBytes("secret.dtd", "<!ENTITY leak \"" + marker + "\">");
  const std::vector<std::string> documents = {
      "<?xml version=\"1.0\"?>\n<!DOCTYPE gauge [<!ENTITY secret SYSTEM \"file://" +
          secret.string() +
          "\">]>\n<gauge version=\"2\" serial=\"&secret;\"><name>&secret;</name></gauge>",
      "<!DOCTYPE gauge SYSTEM \"file://" + dtd.string() +
          "\">\n<gauge version=\"2\"><name>&leak;</name></gauge>",
      "<!DOCTYPE gauge [<!ENTITY % p SYSTEM \"file://" + dtd.string() +
          "\"> %p;]>\n<gauge version=\"2\"><name>&leak;</name></gauge>",
  };
  for (std::string const& document : documents) {
    SCOPED_TRACE(document);
    const Outcome outcome = ExpectRefused(FromString(document), "DOCTYPE");
    for (Event const& event : outcome.lenient.events()) {
      EXPECT_THAT(event.detail, Not(HasSubstr(marker)));
    }
    EXPECT_THAT(outcome.thrown, Not(HasSubstr(marker)));
    EXPECT_THAT(outcome.lenient_record.WriteString(), Not(HasSubstr(marker)));
    EXPECT_THAT(outcome.strict_record.WriteString(), Not(HasSubstr(marker)));
  }
}

TEST_F(XmlBadInput, EncodingsOtherThanUtf8) {
  const std::vector<std::string> documents = {
      "<?xml version=\"1.0\" encoding=\"UTF-16\"?><gauge version=\"2\"/>",
      "<?xml version='1.0' encoding='Shift_JIS'?><gauge version=\"2\"><name>\x82\xA0\xFF\xFF"
      "</name></gauge>",
      "<?xml version=\"1.0\" encoding=\"EBCDIC-US\" ?>\n<gauge version=\"2\"/>",
      // Without the closing "?>" the parser still switches to the declared encoding.
      "<?xml version=\"1.0\" encoding=\"SHIFT_JIS\"\n<gauge version=\"2\"><name>\x82\xFF\xFF"
      "</name></gauge>",
      "<?xml version=\"1.0\" encoding=\"UTF-7\" <gauge version=\"2\"><name>+AGEAYgBj-</name>"
      "</gauge>",
  };
  for (std::string const& document : documents) {
    SCOPED_TRACE(document);
    ExpectRefused(FromString(document), "encoding");
  }
  // UTF-16 with its byte order mark.
  ExpectRefused(FromString(std::string("\xFF\xFE<\0g\0/\0>\0", 10)), "NUL");
}

TEST_F(XmlBadInput, InvalidUtf8) {
  const std::vector<std::string> documents = {
      "<gauge version=\"2\"><name>\xC3\x28</name></gauge>",
      "<gauge version=\"2\"><name>ok\xFF</name></gauge>",
      "<gauge version=\"2\" serial=\"\xE2\x82\"/>",
      "<gauge version=\"2\"><name>\xED\xA0\x80</name></gauge>",  // a UTF-16 surrogate
      "<g\xC0\xAE version=\"2\"/>",                              // overlong in a name
  };
  for (std::string const& document : documents) {
    SCOPED_TRACE(testing::PrintToString(document));
    ExpectRefused(FromString(document), "not well-formed");
  }
}

TEST_F(XmlBadInput, LargeTextIsReadWholeOrRefusedNeverCut) {
  // Some libxml2 builds stop at a text node over 10 MB and still call the document
  // well-formed; such a document must not pass as read with whatever came before the cut.
  Gauge large = Sample();
  large.name.assign(11u << 20, 'x');
  const std::string document = large.WriteString();
  Gauge read;
  ParsingResult result;
  const auto start = std::chrono::steady_clock::now();
  read.ReadString(result, document);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  if (result.state() == ParsingResult::Ok) {
    EXPECT_EQ(read.name.size(), large.name.size());
    EXPECT_TRUE(read == large);
  } else {
    ASSERT_EQ(result.events().size(), 1u);
    EXPECT_THAT(result.events().front().detail, HasSubstr("XML parser"));
    EXPECT_TRUE(read == Gauge());
  }
}

TEST_F(XmlBadInput, UndefinedNamespacePrefix) {
  ExpectRefused(FromString("<gauge version=\"2\"><x:name>n</x:name></gauge>"),
                "Namespace prefix x");
}

TEST_F(XmlBadInput, ReaderThatThrows) {
  const std::string document = Sample().WriteString();
  {
    ThrowingGauge gauge;
    ParsingResult result(false, false);
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(gauge.ReadString(result, document));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(result.state(), ParsingResult::Error);
    ASSERT_FALSE(result.events().empty());
    EXPECT_EQ(result.events().back().state, ParsingResult::Error);
    EXPECT_THAT(result.events().back().detail, HasSubstr("unknown unit \"parsec\""));
  }
  {
    ThrowingGauge gauge;
    ParsingResult result(false, true);
    try {
      gauge.ReadString(result, document);
      ADD_FAILURE() << "expected std::runtime_error";
    } catch (std::runtime_error const& error) {
      EXPECT_THAT(error.what(), HasSubstr("unknown unit \"parsec\""));
    }
    EXPECT_EQ(result.state(), ParsingResult::Error);
  }
}

// ---------------------------------------------------------------------------------------------
// Counts claimed by a file

TEST(XmlVectorCount, ClaimedCountNeverExceedsTheValuesHeld) {
  for (const char* claim : {"18446744073709551615", "99999999999", "-5", "abc", "", "4", "1e3"}) {
    SCOPED_TRACE(claim);
    Doc doc(std::string("<r><v nr_elements=\"") + claim + "\" values=\"1 2 3\"/></r>");
    ASSERT_NE(doc.Root(), nullptr);
    std::vector<double> values;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(Tools::_GetValue(values, doc.Root(), "v", 0.0));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_LE(values.size(), 3u);
    EXPECT_LE(values.capacity(), 1024u) << "a claimed count must not drive the allocation";
  }
}

TEST(XmlVectorCount, CountAgreesOrReadIsFalse) {
  Doc doc(
      "<r><exact nr_elements=\"3\" values=\" 1  2\t3 \"/><fewer nr_elements=\"2\" values=\"1 2 "
      "3\"/>"
      "<absent values=\"1 2\"/><junk nr_elements=\"3\" values=\"1 x 3\"/></r>");
  ASSERT_NE(doc.Root(), nullptr);
  std::vector<double> values;
  EXPECT_TRUE(Tools::_GetValue(values, doc.Root(), "exact", 0.0));
  EXPECT_EQ(values, (std::vector<double>{1.0, 2.0, 3.0}));
  EXPECT_FALSE(Tools::_GetValue(values, doc.Root(), "fewer", 0.0));
  EXPECT_EQ(values, (std::vector<double>{1.0, 2.0}));
  EXPECT_FALSE(Tools::_GetValue(values, doc.Root(), "absent", 0.0));
  EXPECT_LE(values.size(), 2u);
  EXPECT_FALSE(Tools::_GetValue(values, doc.Root(), "junk", 0.0));
  EXPECT_LE(values.size(), 1u);
}

}  // namespace
