#include <kelto/hyperspectral/calibration/rejection_filter.h>

#include <kelto/hyperspectral/calibration/calibration_info.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;

RejectionFilter Filter(double start, double end, double resolution, std::vector<double> curve) {
  RejectionFilter filter;
  filter.wavelength_start_nm = start;
  filter.wavelength_end_nm = end;
  filter.wavelength_resolution_nm = resolution;
  filter.type = RejectionFilters::RF_BANDPASS_600EO_975EO;
  filter.values.SetValues(std::move(curve));
  return filter;
}

std::string Document(const std::string& body) {
  return R"(<rejection_filter version="0">)" + body + "</rejection_filter>";
}

TEST(RejectionFilterReading, WrittenFormReadsBackWithTheWavelengthsByRunningAddition) {
  const RejectionFilter original =
      Filter(0.0, 1.0, 0.1, {0.1, 0.5, 0.25, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.75});
  const std::string text = original.WriteString();
  ExpectInOrder(text, {R"(<rejection_filter version="0">)", "<wavelength_start_nm>0<",
                       "<wavelength_end_nm>1<", "<wavelength_resolution_nm>0.1",
                       "<type>bandpass_600eo-975eo</type>",
                       R"(<filter_response nr_elements="11" values="0.1 0.5 0.25 0.5)"});
  RejectionFilter copy;
  EXPECT_EQ(Events(Read(copy, text)),
            (EventList{ReadStart("rejection_filter"), ReadStart("filter_response")}));
  EXPECT_EQ(copy.type, RejectionFilters::RF_BANDPASS_600EO_975EO);
  EXPECT_EQ(copy.wavelength_resolution_nm, 0.1);
  EXPECT_EQ(copy.values, original.values);
  // Each wavelength is the one before plus the resolution, with the rounding of that addition.
  ASSERT_EQ(copy.wavelengths.Size(), 11u);
  double sum = 0.0;
  for (unsigned long i = 0; i < 11; ++i) {
    EXPECT_EQ(copy.wavelengths[i], sum) << i;
    sum += 0.1;
  }
  EXPECT_NE(copy.wavelengths[10], 10 * 0.1);
}

TEST(RejectionFilterReading, MissingItemsUnknownNamesAndAZeroResolution) {
  RejectionFilter filter = Filter(1.0, 2.0, 1.0, {0.5});
  filter.wavelengths.SetValues({7.0});
  EXPECT_EQ(Events(Read(filter, R"(<rejection_filter version="0"/>)")),
            (EventList{ReadStart("rejection_filter"), Error(kMissingElement, "wavelength_start_nm"),
                       Error(kMissingElement, "wavelength_end_nm"),
                       Error(kMissingElement, "wavelength_resolution_nm"),
                       Error(kMissingElement, "type")}));
  EXPECT_EQ(filter.type, RejectionFilters::RF_NONE);
  // Without a curve, and with a zero resolution, the curve and its wavelengths stay as they were.
  EXPECT_EQ(filter.values.Values(), std::vector<double>{0.5});
  EXPECT_EQ(filter.wavelengths.Values(), std::vector<double>{7.0});

  EXPECT_EQ(NotOk(Read(filter, Document("<wavelength_start_nm>1</wavelength_start_nm>"
                                        "<wavelength_end_nm>2</wavelength_end_nm>"
                                        "<wavelength_resolution_nm>1</wavelength_resolution_nm>"
                                        "<type>bandpass_999zz</type>"))),
            EventList{});
  EXPECT_EQ(filter.type, RejectionFilters::RF_CUSTOM);
  EXPECT_EQ(filter.wavelengths.Values(), std::vector<double>{1.0});
}

TEST(RejectionFilterReading, OnlyVersionZeroIsRead) {
  const std::vector<std::pair<std::string, int>> cases = {
      {R"( version="1")", kUnsupportedVersion},
      {"", kMissingVersion},
      {R"( version="-3")", kUnsupportedVersion}};
  for (const auto& [attribute, source] : cases) {
    RejectionFilter filter;
    EXPECT_EQ(Events(Read(filter, "<rejection_filter" + attribute +
                                      "><type>custom</type></rejection_filter>")),
              Refused("rejection_filter", source))
        << attribute;
    EXPECT_EQ(filter.type, RejectionFilters::RF_NONE) << attribute;
  }
}

TEST(RejectionFilterReading, RangeWithoutAGridOfAFilterIsRefusedAndNothingKept) {
  const std::string sentence =
      "The wavelength range of rejection_filter gives no grid that a filter has";
  const std::vector<std::pair<std::string, std::string>> ranges = {
      {"0", "1e12"}, {"0", "1000000"}, {"600", "598"}, {"0", "nan"}, {"-inf", "0"}};
  for (const auto& [start, end] : ranges) {
    RejectionFilter filter;
    const auto result = Read(
        filter, Document("<wavelength_start_nm>" + start + "</wavelength_start_nm>" +
                         "<wavelength_end_nm>" + end + "</wavelength_end_nm>" +
                         "<wavelength_resolution_nm>1</wavelength_resolution_nm>"
                         "<type>custom</type><filter_response nr_elements=\"1\" values=\"1\"/>"));
    EXPECT_EQ(NotOk(result), (EventList{Check(sentence)})) << start << " " << end;
    EXPECT_EQ(filter.type, RejectionFilters::RF_NONE);
    EXPECT_EQ(filter.values.Size(), 0u);
    // Cleared back to no filter.
    EXPECT_EQ((std::vector<double>{filter.wavelength_start_nm, filter.wavelength_end_nm,
                                   filter.wavelength_resolution_nm}),
              (std::vector<double>{0.0, 0.0, 0.0}));
  }
  // The largest grid that a file may give, and a range that ends less than two nanometres below
  // its start, which has no point.
  RejectionFilter filter;
  EXPECT_EQ(NotOk(Read(filter, Document("<wavelength_start_nm>0</wavelength_start_nm>"
                                        "<wavelength_end_nm>999999</wavelength_end_nm>"
                                        "<wavelength_resolution_nm>0</wavelength_resolution_nm>"
                                        "<type>none</type>"))),
            EventList{});
  EXPECT_EQ(filter.Convert().sample_points_nm.size(), CalibrationInfo::kMaxSamplePoints);
  filter.wavelength_end_nm = -1.9;
  EXPECT_TRUE(filter.Convert().sample_points_nm.empty());
  filter.wavelength_end_nm = 1e7;
  EXPECT_THROW(filter.Convert(), std::invalid_argument);
}

TEST(RejectionFilterConvert, OneNanometreGridWhateverTheResolution) {
  OpticalComponent component = Filter(600.0, 975.0, 1.0, std::vector<double>(376, 0.8)).Convert();
  EXPECT_EQ(component.type, OpticalComponents::OC_BANDPASS_FILTER);
  EXPECT_EQ(component.tag, "bandpass_600eo-975eo");
  ASSERT_EQ(component.sample_points_nm.size(), 376u);
  EXPECT_EQ(component.sample_points_nm.front(), 600.0);
  EXPECT_EQ(component.sample_points_nm.back(), 975.0);
  EXPECT_EQ(component.response.size(), 376u);
  EXPECT_EQ(component.transmission_range_start_nm, 600.0);
  EXPECT_EQ(component.transmission_range_end_nm, 975.0);

  component = Filter(600.0, 975.0, 0.5, std::vector<double>(751, 0.8)).Convert();
  EXPECT_EQ(component.sample_points_nm.size(), 376u);
  EXPECT_EQ(component.response.size(), 751u);
}

TEST(RejectionFilterConvert, TransmissionRangeIsTheSpanAtOrAboveOneHalf) {
  // Never one half: the range starts past the end of the curve and ends at its start. Fewer
  // than two values: the start only.
  const std::vector<std::tuple<std::vector<double>, double, double>> cases = {
      {{0.1, 0.5, 0.9, 0.7, 0.2}, 625.0, 675.0},
      {{0.1, 0.2, 0.49}, 750.0, 600.0},
      {{0.9}, 600.0, 0.0}};
  for (const auto& [curve, start, end] : cases) {
    const OpticalComponent component = Filter(600.0, 700.0, 25.0, curve).Convert();
    EXPECT_EQ(component.transmission_range_start_nm, start) << curve.size();
    EXPECT_EQ(component.transmission_range_end_nm, end) << curve.size();
    EXPECT_EQ(component.response, curve) << curve.size();
  }
}

}  // namespace
}  // namespace kelto::hyperspectral
