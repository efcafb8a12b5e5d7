#include <kelto/hyperspectral/correction/correction_matrix_parameters.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;
using Parameters = CorrectionMatrixParameters;

// Every block of the record with values that no record made in code has.
const std::string kDocument = [] {
  std::ifstream file(KELTO_TEST_DATA_DIR "/correction_matrix_parameters.xml");
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}();

// The document with `attribute` in place of every version attribute.
std::string WithVersion(const std::string& attribute) {
  std::string text = kDocument;
  const std::string from = R"( version="0")";
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
    text.replace(at, from.size(), attribute);
    at += attribute.size();
  }
  return text;
}

const EventList kAllStarted = {ReadStart("correction_matrix_parameters"),
                               ReadStart("peak_detection"),
                               ReadStart("peak_shape_fitting"),
                               ReadStart("band_selection"),
                               ReadStart("inversion"),
                               ReadStart("post_processing")};
const EventList kPeakDetectionChecks = {Check("distance_min_nm != 0.0"),
                                        Check("peaks_nr_max != 0")};
const EventList kUnknownTypeCheck = {
    Check("CorrectionMatrixTypes::eCorrectionMatrixType::CT_UNKNOWN != correction_matrix_type")};

void ExpectDocumentValues(const Parameters& p) {
  const auto& f = p.peak_shape_fitting;
  const auto& b = p.band_selection;
  EXPECT_EQ(
      (std::vector<double>{
          p.peak_detection.distance_min_nm, static_cast<double>(p.peak_detection.peaks_nr_max),
          f.fwhm_min, f.fwhm_max, f.qe_factor_min, f.qe_factor_max, f.wavelength_shift_max_nm,
          f.detection_window_nm, static_cast<double>(f.shape_interpolation_factor),
          static_cast<double>(f.nr_coarse_iterations), static_cast<double>(f.nr_fine_iterations),
          b.bands_minimum_distance, b.peak_fit_error_max, b.minimum_contribution,
          p.inversion.tikhonov_alpha, p.post_processing.bands_minimum_distance,
          p.post_processing.smoothing_gaussian_filter_width}),
      (std::vector<double>{0.5, 2, 1.5, 11, 0.9, 1.1, 4, 19.5, 3, 8, 20, 2.0, 0.035, 0.15, 0.02,
                           0.5, 0.0}));
  EXPECT_EQ(std::make_tuple(f.shape, b.peak_clustering, p.inversion.algorithm,
                            p.post_processing.spectral_resampling),
            std::make_tuple(Distributions::DB_GAUSSIAN, true,
                            InversionOptimizationAlgorithms::IOA_VARDELL, true));
}

TEST(CorrectionMatrixParametersChecks, OnlyPeakDetectionAndTheMatrixTypeAreChecked) {
  // Records made in code are not ready for use: a document must supply the peak detection.
  const Parameters p;
  EXPECT_EQ(Checks(p.peak_detection), kPeakDetectionChecks);
  EXPECT_EQ(Checks(Parameters::Generic()), kUnknownTypeCheck);
  EXPECT_TRUE(Checks(p).empty());
  EXPECT_TRUE(Checks(p.band_selection).empty());
  EXPECT_TRUE(Checks(p.inversion).empty());
  EXPECT_TRUE(Checks(p.post_processing).empty());
  Parameters::PeakShapeFitting fitting;
  fitting.fwhm_min = 40.0;
  fitting.fwhm_max = 1.0;
  EXPECT_TRUE(Checks(fitting).empty());

  // The two conditions are independent, and negative values pass.
  const std::vector<std::tuple<double, int, EventList>> cases = {
      {0.5, 2, {}},
      {0.0, 2, {kPeakDetectionChecks[0]}},
      {0.5, 0, {kPeakDetectionChecks[1]}},
      {-0.0, 0, kPeakDetectionChecks},
      {-3.0, -1, {}}};
  for (const auto& [distance_min_nm, peaks_nr_max, events] : cases) {
    Parameters::PeakDetection detection;
    detection.distance_min_nm = distance_min_nm;
    detection.peaks_nr_max = peaks_nr_max;
    EXPECT_EQ(Checks(detection), events) << distance_min_nm << " " << peaks_nr_max;
  }
}

TEST(CorrectionMatrixParametersReading, AnyVersionFromZeroUpReadsAsZero) {
  for (const std::string version : {"0", "7"}) {
    Parameters p;
    const auto result = Read(p, WithVersion(R"( version=")" + version + "\""));
    EXPECT_EQ(Events(result), kAllStarted) << version;
    EXPECT_EQ(result.state(), kOk);
    ExpectDocumentValues(p);
    EXPECT_EQ(p.post_processing.resampling_wavelengths,
              (std::vector<double>{470.0, 472.885906040268, 900.0}));
  }
}

TEST(CorrectionMatrixParametersReading, AbsentOrNegativeVersionReadsNothingButStillChecks) {
  Parameters p;
  EXPECT_EQ(Events(Read(p, WithVersion(""))), Refused("correction_matrix_parameters"));
  EXPECT_EQ(p.WriteString(), Parameters().WriteString());

  // The record keeps its values, and its checks judge those.
  const std::string unversioned = R"(<peak_detection>
      <distance_min_nm>0.5</distance_min_nm><peaks_nr_max>2</peaks_nr_max></peak_detection>)";
  Parameters::PeakDetection kept;
  kept.distance_min_nm = 1.5;
  kept.peaks_nr_max = 3;
  EXPECT_EQ(Events(Read(kept, unversioned)), Refused("peak_detection"));
  EXPECT_EQ(kept.distance_min_nm, 1.5);
  EXPECT_EQ(kept.peaks_nr_max, 3);

  Parameters::PeakDetection fresh;
  EventList expected = Refused("peak_detection");
  expected.insert(expected.end(), kPeakDetectionChecks.begin(), kPeakDetectionChecks.end());
  EXPECT_EQ(Events(Read(fresh, Replace(unversioned, "<peak_detection>",
                                       R"(<peak_detection version="-3">)"))),
            expected);
}

TEST(CorrectionMatrixParametersReading, ForeignTagIsReportedAndReadAllTheSame) {
  Parameters p;
  EventList expected = kAllStarted;
  expected[0] = ReadStart("parameters");
  expected.insert(expected.begin() + 1,
                  Check("The XML node is not of type CorrectionMatrixParameters"));
  EXPECT_EQ(
      Events(Read(p, Replace(Replace(kDocument, "<correction_matrix_parameters", "<parameters"),
                             "</correction_matrix_parameters>", "</parameters>"))),
      expected);
  ExpectDocumentValues(p);

  Parameters::Generic generic;
  Parameters::PeakDetection detection;
  Parameters::PeakShapeFitting fitting;
  Parameters::BandSelection selection;
  Parameters::Inversion inversion;
  Parameters::PostProcessing post;
  const std::vector<std::pair<common::XMLSerializableInterface*, std::string>> records = {
      {&generic, "Generic"},         {&detection, "PeakDetection"}, {&fitting, "PeakShapeFitting"},
      {&selection, "BandSelection"}, {&inversion, "Inversion"},     {&post, "PostProcessing"}};
  for (const auto& [record, name] : records) {
    const EventList events = Events(Read(*record, R"(<other version="0"/>)"));
    ASSERT_GE(events.size(), 2u) << name;
    EXPECT_EQ(
        (EventList{events[0], events[1]}),
        (EventList{ReadStart("other"),
                   Check("The XML node is not of type CorrectionMatrixParameters::" + name)}));
  }
}

TEST(CorrectionMatrixParametersReading, MissingElementsAreErrorsInFileOrderAndZeroTheFields) {
  Parameters p;
  Parameters::PeakShapeFitting fitting;
  Parameters::BandSelection selection;
  Parameters::PostProcessing post;
  post.spectral_resampling = true;
  post.resampling_wavelengths = {500.0};
  Parameters::Inversion inversion;
  // Each record, its tag, what the element holds and the names reported missing, in order.
  const std::vector<std::tuple<common::XMLSerializableInterface*, std::string, std::string>> cases =
      {{&p, "correction_matrix_parameters",
        "peak_detection peak_shape_fitting band_selection inversion post_processing"},
       {&fitting, "peak_shape_fitting",
        "shape fwhm_min fwhm_max qe_factor_min qe_factor_max wavelength_shift_max_nm "
        "detection_window_nm shape_interpolation_factor nr_coarse_iterations nr_fine_iterations"},
       {&selection, "band_selection",
        "bands_minimum_distance peak_clustering peak_fit_error_max minimum_contribution"},
       {&post, "post_processing",
        "bands_minimum_distance spectral_resampling resampling_wavelengths "
        "smoothing_gaussian_filter_width"},
       {&inversion, "inversion", "tikhonov_alpha"}};
  for (const auto& [record, tag, names] : cases) {
    EventList events = {ReadStart(tag)};
    std::istringstream words(names);
    for (std::string name; words >> name;) {
      events.push_back(Error(kMissingElement, name));
    }
    const std::string body = record == &inversion ? "<algorithm>Tikhonov</algorithm>" : "";
    EXPECT_EQ(Events(Read(*record, "<" + tag + " version=\"0\">" + body + "</" + tag + ">")),
              events);
  }
  EXPECT_EQ(std::make_tuple(fitting.shape, fitting.fwhm_max, fitting.nr_fine_iterations,
                            selection.minimum_contribution),
            std::make_tuple(Distributions::DB_UNKNOWN, 0.0, 0, 0.0));
  EXPECT_EQ(std::make_tuple(post.spectral_resampling, post.resampling_wavelengths.size(),
                            post.smoothing_gaussian_filter_width),
            std::make_tuple(false, std::size_t{0}, 0.0));
  // 0.0, not the 0.01 of a record made in code.
  EXPECT_EQ(inversion.tikhonov_alpha, 0.0);
  EXPECT_EQ(inversion.algorithm, InversionOptimizationAlgorithms::IOA_TIKHONOV);
}

TEST(CorrectionMatrixParametersReading, EnumerationTextsAreExactAndUnknownOnesAreMinusOne) {
  Parameters p;
  EXPECT_EQ(Events(Read(p, Replace(kDocument, "Gaussian", "Parabolic"))), kAllStarted);
  EXPECT_EQ(p.peak_shape_fitting.shape, Distributions::DB_UNKNOWN);

  for (const std::string text : {"tikhonov", "", "Tikhonov "}) {
    Parameters::Inversion inversion;
    EXPECT_EQ(Events(Read(inversion, R"(<inversion version="0"><algorithm>)" + text +
                                         "</algorithm><tikhonov_alpha>1</tikhonov_alpha>"
                                         "</inversion>")),
              (EventList{ReadStart("inversion")}))
        << text;
    EXPECT_EQ(inversion.algorithm, InversionOptimizationAlgorithms::IOA_UNKNOWN) << text;
  }

  // Only the matrix type is judged by a check; a known one is written and read back.
  const std::vector<std::pair<std::string, CorrectionMatrixTypes::eCorrectionMatrixType>> types = {
      {"irradiance", CorrectionMatrixTypes::CT_IRRADIANCE},
      {"absorbance", CorrectionMatrixTypes::CT_UNKNOWN},
      {"", CorrectionMatrixTypes::CT_UNKNOWN}};
  for (const auto& [text, type] : types) {
    Parameters::Generic generic;
    EventList expected = {ReadStart("generic")};
    if (type == CorrectionMatrixTypes::CT_UNKNOWN) {
      expected.push_back(kUnknownTypeCheck[0]);
    }
    const std::string written = R"(<generic version="0"><correction_matrix_type>)" + text +
                                "</correction_matrix_type></generic>";
    EXPECT_EQ(Events(Read(generic, written)), expected) << text;
    EXPECT_EQ(generic.correction_matrix_type, type) << text;
  }
  Parameters::Generic generic;
  generic.correction_matrix_type = CorrectionMatrixTypes::CT_IRRADIANCE;
  Parameters::Generic copy;
  EXPECT_EQ(Events(Read(copy, generic.WriteString())), (EventList{ReadStart("generic")}));
  EXPECT_EQ(copy.correction_matrix_type, CorrectionMatrixTypes::CT_IRRADIANCE);
}

TEST(CorrectionMatrixParametersReading, GenericElementInTheDocumentIsNotRead) {
  Parameters p;
  EXPECT_EQ(
      Events(Read(
          p,
          Replace(
              kDocument, "</correction_matrix_parameters>",
              R"(<generic version="0"><correction_matrix_type>reflectance</correction_matrix_type>
                                      </generic></correction_matrix_parameters>)"))),
      kAllStarted);
  EXPECT_EQ(p.WriteString().find("generic"), std::string::npos);
}

// The names of the elements of `text`, in the order they open.
std::vector<std::string> ElementOrder(const std::string& text) {
  const std::regex open("<([a-z_]+)");
  std::vector<std::string> names;
  for (std::sregex_iterator it(text.begin(), text.end(), open), end; it != end; ++it) {
    names.push_back((*it)[1]);
  }
  return names;
}

TEST(CorrectionMatrixParametersWriting, VersionZeroInFieldOrderRoundTrips) {
  Parameters original;
  Read(original, kDocument);
  const std::string text = original.WriteString();
  // Every element in the order of the document, each block as version 0.
  EXPECT_EQ(ElementOrder(text), ElementOrder(kDocument));
  ExpectInOrder(text,
                {R"(<correction_matrix_parameters version="0">)", R"(<peak_detection version="0">)",
                 R"(<peak_shape_fitting version="0">)", R"(<band_selection version="0">)",
                 R"(<inversion version="0">)", R"(<post_processing version="0">)",
                 R"(<resampling_wavelengths nr_elements="3" values="470 472.886 900"/>)"});

  // The wavelengths keep six significant digits, every other value comes back exactly.
  Parameters copy;
  EXPECT_EQ(Events(Read(copy, text)), kAllStarted);
  ExpectDocumentValues(copy);
  EXPECT_EQ(copy.post_processing.resampling_wavelengths,
            (std::vector<double>{470.0, 472.886, 900.0}));
  EXPECT_EQ(copy.WriteString(), text);

  Parameters::PostProcessing empty;
  ExpectInOrder(empty.WriteString(), {R"(<resampling_wavelengths nr_elements="0" values=""/>)"});
}

}  // namespace
}  // namespace kelto::hyperspectral
