#include <kelto/hyperspectral/foundation/enumerations.h>

#include <kelto/common/translator.h>

namespace kelto::hyperspectral {
namespace {

using common::Translator;

// Only the text forms registered here are ever written. Older names are mapped in FromString
// instead, so that a file read with one is written back with the current name.

class CorrectionAlgorithmsTranslator
    : public Translator<CorrectionAlgorithms::eCorrectionAlgorithm> {
 public:
  CorrectionAlgorithmsTranslator() {
    Register("unknown", CorrectionAlgorithms::CA_UNKNOWN);
    Register("tacktile_0", CorrectionAlgorithms::CA_TACKTILE_0);
    Register("pitchfork_0", CorrectionAlgorithms::CA_PITCHFORK_0);
    Register("m0", CorrectionAlgorithms::CA_M0);
    Register("m1", CorrectionAlgorithms::CA_M1);
  }
};

class CorrectionMatrixTypesTranslator
    : public Translator<CorrectionMatrixTypes::eCorrectionMatrixType> {
 public:
  CorrectionMatrixTypesTranslator() {
    Register("unknown", CorrectionMatrixTypes::CT_UNKNOWN);
    Register("reflectance", CorrectionMatrixTypes::CT_REFLECTANCE);
    Register("irradiance", CorrectionMatrixTypes::CT_IRRADIANCE);
  }
};

class DistributionsTranslator : public Translator<Distributions::eDistribution> {
 public:
  DistributionsTranslator() {
    Register("unknown", Distributions::DB_UNKNOWN);
    Register("none", Distributions::DB_NONE);
    Register("Gaussian", Distributions::DB_GAUSSIAN);
    Register("Lorentzian", Distributions::DB_LORENTZIAN);
    Register("Fabry-Perot", Distributions::DB_FABRY_PEROT);
  }
};

class OpticalComponentsTranslator : public Translator<OpticalComponents::eType> {
 public:
  OpticalComponentsTranslator() {
    Register("unknown", OpticalComponents::OC_UNKNOWN);
    Register("none", OpticalComponents::OC_NONE);
    Register("shortpass_filter", OpticalComponents::OC_SHORTPASS_FILTER);
    Register("longpass_filter", OpticalComponents::OC_LONGPASS_FILTER);
    Register("bandpass_filter", OpticalComponents::OC_BANDPASS_FILTER);
    Register("notch_filter", OpticalComponents::OC_NOTCH_FILTER);
    Register("linear_polarizer", OpticalComponents::OC_LINEAR_POLARIZER);
    Register("circular_polarizer", OpticalComponents::OC_CIRCULAR_POLARIZER);
    Register("source", OpticalComponents::OC_SOURCE);
  }
};

class RejectionFiltersTranslator : public Translator<RejectionFilters::eRejectionFilters> {
 public:
  RejectionFiltersTranslator() {
    Register("none", RejectionFilters::RF_NONE);
    Register("custom", RejectionFilters::RF_CUSTOM);
    Register("bandpass_450eo", RejectionFilters::RF_BANDPASS_450EO);
    Register("bandpass_460xi-650xi", RejectionFilters::RF_BANDPASS_460XI_650XI);
    Register("bandpass_600eo-875eo", RejectionFilters::RF_BANDPASS_600EO_875EO);
    Register("bandpass_600eo-975eo", RejectionFilters::RF_BANDPASS_600EO_975EO);
    Register("bandpass_675eo-975eo", RejectionFilters::RF_BANDPASS_675EO_975EO);
    Register("bandpass_600xi-975xi", RejectionFilters::RF_BANDPASS_600XI_975XI);
    Register("bandpass_600xi-875eo", RejectionFilters::RF_BANDPASS_600XI_875EO);
    Register("bandpass_600xi-875lc", RejectionFilters::RF_BANDPASS_600XI_875LC);
    // 11 before 10 on purpose: the numbers are stored in files and must not follow this order.
    Register("bandpass_600eo-875lc", RejectionFilters::RF_BANDPASS_600EO_875LC);
    Register("bandpass_675eo-975xi", RejectionFilters::RF_BANDPASS_675EO_975XI);
  }
};

class InversionOptimizationAlgorithmsTranslator
    : public Translator<InversionOptimizationAlgorithms::eInversionOptimizationAlgorithms,
                        std::wstring> {
 public:
  InversionOptimizationAlgorithmsTranslator() {
    Register(L"Unknown", InversionOptimizationAlgorithms::IOA_UNKNOWN);
    Register(L"Vardell", InversionOptimizationAlgorithms::IOA_VARDELL);
    Register(L"Tikhonov", InversionOptimizationAlgorithms::IOA_TIKHONOV);
  }
};

// Built at load in this order and only read afterwards; nothing in the library translates from a
// static initialiser, so no use can come before construction.
const CorrectionAlgorithmsTranslator cat;
const CorrectionMatrixTypesTranslator cmtt;
const DistributionsTranslator dbt;
const OpticalComponentsTranslator oct;
const RejectionFiltersTranslator rft;
const InversionOptimizationAlgorithmsTranslator ioat;

}  // namespace

std::string CorrectionAlgorithms::ToString(const eCorrectionAlgorithm& value) {
  return cat.TextOf(value);
}

CorrectionAlgorithms::eCorrectionAlgorithm CorrectionAlgorithms::FromString(
    const std::string& text) {
  return cat.ValueOr(text, CA_UNKNOWN);
}

std::string CorrectionMatrixTypes::ToString(const eCorrectionMatrixType& value) {
  return cmtt.TextOf(value);
}

CorrectionMatrixTypes::eCorrectionMatrixType CorrectionMatrixTypes::FromString(
    const std::string& text) {
  std::string key = text;
  if (key == "hyperspectral") {
    key = ToString(CT_REFLECTANCE);
  } else if (key == "radiometric") {
    key = ToString(CT_IRRADIANCE);
  }
  return cmtt.ValueOr(key, CT_UNKNOWN);
}

std::string Distributions::ToString(const eDistribution& value) {
  return dbt.TextOf(value);
}

Distributions::eDistribution Distributions::FromString(const std::string& text) {
  std::string key = text;
  if (key == "Lorentz") {
    key = ToString(DB_LORENTZIAN);
  }
  return dbt.ValueOr(key, DB_UNKNOWN);
}

std::string OpticalComponents::ToString(const eType& value) {
  return oct.TextOf(value);
}

OpticalComponents::eType OpticalComponents::FromString(const std::string& text) {
  return oct.ValueOr(text, OC_UNKNOWN);
}

std::string RejectionFilters::ToString(const eRejectionFilters& value) {
  return rft.TextOf(value);
}

RejectionFilters::eRejectionFilters RejectionFilters::FromString(const std::string& text) {
  return rft.ValueOr(text, RF_CUSTOM);
}

std::wstring InversionOptimizationAlgorithms::ToString(
    const eInversionOptimizationAlgorithms& value) {
  return ioat.TextOf(value);
}

InversionOptimizationAlgorithms::eInversionOptimizationAlgorithms
InversionOptimizationAlgorithms::FromString(const std::wstring& text) {
  return ioat.ValueOr(text, IOA_UNKNOWN);
}

}  // namespace kelto::hyperspectral
