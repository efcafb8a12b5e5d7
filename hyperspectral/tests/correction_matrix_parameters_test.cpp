#include <kelto/hyperspectral/correction/correction_matrix_parameters.h>

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <kelto/test_support/event_list.h>

namespace kelto::hyperspectral {
namespace {

using namespace kelto::testing;
using Parameters = CorrectionMatrixParameters;

const std::string kDocument = R"(<correction_matrix_parameters version="0">
  <peak_detection version="0"><distance_min_nm>0.5</distance_min_nm><peaks_nr_max>2</peaks_nr_max>
  </peak_detection>
  <peak_shape_fitting version="0"><shape>Gaussian</shape><fwhm_min>1.5</fwhm_min>
    <fwhm_max>11</fwhm_max><qe_factor_min>0.9</qe_factor_min><qe_factor_max>1.1</qe_factor_max>
    <wavelength_shift_max_nm>4</wavelength_shift_max_nm>
    <detection_window_nm>19.5</detection_window_nm>
    <shape_interpolation_factor>3</shape_interpolation_factor>
    <nr_coarse_iterations>8</nr_coarse_iterations><nr_fine_iterations>20</nr_fine_iterations>
  </peak_shape_fitting>
  <band_selection version="0"><bands_minimum_distance>2.0</bands_minimum_distance>
    <peak_clustering>true</peak_clustering><peak_fit_error_max>0.035</peak_fit_error_max>
    <minimum_contribution>0.15</minimum_contribution></band_selection>
  <inversion version="0"><algorithm>Vardell</algorithm><tikhonov_alpha>0.02</tikhonov_alpha>
  </inversion>
  <post_processing version="0"><bands_minimum_distance>0.5</bands_minimum_distance>
    <spectral_resampling>true</spectral_resampling>
    <resampling_wavelengths nr_elements="3" values="470 472.885906040268 900"/>
    <smoothing_gaussian_filter_width>0.0</smoothing_gaussian_filter_width></post_processing>
</correction_matrix_parameters>)";

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
  EXPECT_EQ(p.peak_detection.distance_min_nm, 0.5);
  EXPECT_EQ(p.peak_detection.peaks_nr_max, 2);
  EXPECT_EQ(p.peak_shape_fitting.shape, Distributions::DB_GAUSSIAN);
  EXPECT_EQ(p.peak_shape_fitting.fwhm_min, 1.5);
  EXPECT_EQ(p.peak_shape_fitting.fwhm_max, 11.0);
  EXPECT_EQ(p.peak_shape_fitting.qe_factor_min, 0.9);
  EXPECT_EQ(p.peak_shape_fitting.qe_factor_max, 1.1);
  EXPECT_EQ(p.peak_shape_fitting.wavelength_shift_max_nm, 4.0);
  EXPECT_EQ(p.peak_shape_fitting.detection_window_nm, 19.5);
  EXPECT_EQ(p.peak_shape_fitting.shape_interpolation_factor, 3);
  EXPECT_EQ(p.peak_shape_fitting.nr_coarse_iterations, 8);
  EXPECT_EQ(p.peak_shape_fitting.nr_fine_iterations, 20);
  EXPECT_EQ(p.band_selection.bands_minimum_distance, 2.0);
  EXPECT_TRUE(p.band_selection.peak_clustering);
  EXPECT_EQ(p.band_selection.peak_fit_error_max, 0.035);
  EXPECT_EQ(p.band_selection.minimum_contribution, 0.15);
  EXPECT_EQ(p.inversion.algorithm, InversionOptimizationAlgorithms::IOA_VARDELL);
  EXPECT_EQ(p.inversion.tikhonov_alpha, 0.02);
  EXPECT_EQ(p.post_processing.bands_minimum_distance, 0.5);
  EXPECT_TRUE(p.post_processing.spectral_resampling);
  EXPECT_EQ(p.post_processing.smoothing_gaussian_filter_width, 0.0);
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
  const auto missing = [](const std::string& tag, const std::vector<std::string>& names) {
    EventList events = {ReadStart(tag)};
    for (const std::string& name : names) {
      events.push_back(Error(kMissingElement, name));
    }
    return events;
  };
  Parameters p;
  EXPECT_EQ(
      Events(Read(p, R"(<correction_matrix_parameters version="0"/>)")),
      missing("correction_matrix_parameters", {"peak_detection", "peak_shape_fitting",
                                               "band_selection", "inversion", "post_processing"}));

  Parameters::PeakShapeFitting fitting;
  EXPECT_EQ(Events(Read(fitting, R"(<peak_shape_fitting version="0"/>)")),
            missing("peak_shape_fitting",
                    {"shape", "fwhm_min", "fwhm_max", "qe_factor_min", "qe_factor_max",
                     "wavelength_shift_max_nm", "detection_window_nm", "shape_interpolation_factor",
                     "nr_coarse_iterations", "nr_fine_iterations"}));
  EXPECT_EQ(fitting.shape, Distributions::DB_UNKNOWN);
  EXPECT_EQ(fitting.fwhm_max, 0.0);
  EXPECT_EQ(fitting.nr_fine_iterations, 0);

  Parameters::BandSelection selection;
  EXPECT_EQ(Events(Read(selection, R"(<band_selection version="0"/>)")),
            missing("band_selection", {"bands_minimum_distance", "peak_clustering",
                                       "peak_fit_error_max", "minimum_contribution"}));
  EXPECT_EQ(selection.minimum_contribution, 0.0);

  Parameters::PostProcessing post;
  post.spectral_resampling = true;
  post.resampling_wavelengths = {500.0};
  EXPECT_EQ(
      Events(Read(post, R"(<post_processing version="0"/>)")),
      missing("post_processing", {"bands_minimum_distance", "spectral_resampling",
                                  "resampling_wavelengths", "smoothing_gaussian_filter_width"}));
  EXPECT_FALSE(post.spectral_resampling);
  EXPECT_TRUE(post.resampling_wavelengths.empty());
  EXPECT_EQ(post.smoothing_gaussian_filter_width, 0.0);

  // 0.0, not the 0.01 of a record made in code.
  Parameters::Inversion inversion;
  EXPECT_EQ(Events(Read(inversion, R"(<inversion version="0"><algorithm>Tikhonov</algorithm>
                                      </inversion>)")),
            missing("inversion", {"tikhonov_alpha"}));
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
