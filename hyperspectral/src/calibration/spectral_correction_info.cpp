#include <kelto/hyperspectral/calibration/spectral_correction_info.h>

#include <algorithm>
#include <iterator>

#include <kelto/common/read_by_version.h>

namespace kelto::hyperspectral {

using ParsingResult = SpectralCorrectionInfo::ParsingResult;
using Event = ParsingResult::Event;

void SpectralCorrectionInfo::ReadXML(ParsingResult& result, _xmlNode* const& node) {
  const std::string tag = _GetTagName(node);
  result << Event(ParsingResult::Ok, Event::ReadStart, tag);
  common::ReadByVersion(*this, result, node, tag, _GetVersion(node),
                        {&SpectralCorrectionInfo::_ReadXML_v0}, common::NewerVersion::kReadByNewest,
                        common::Unversioned::kMissingVersionError);
}

void SpectralCorrectionInfo::WriteXML(_xmlNode*& node) const {
  _SetTagName(node, "spectral_correction_info");
  _SetVersion(node, 0ul);
  _WriteXML_v0(node);
}

void SpectralCorrectionInfo::_ReadXML_v0(ParsingResult& result, _xmlNode* const& node) {
  correction_matrices.clear();
  _xmlNode* list = nullptr;
  if (!_GetElement(list, node, "correction_matrices", 0)) {
    result << Event(ParsingResult::Error, Event::MissingElement, "correction_matrices");
    return;
  }
  std::deque<_xmlNode*> items;
  _GetElements(items, list, "correction_matrix");
  // A matrix that failed stays in the list with what could be read.
  for (_xmlNode* const item : items) {
    correction_matrices.emplace_back();
    correction_matrices.back().ReadXML(result, item);
  }
}

void SpectralCorrectionInfo::_WriteXML_v0(_xmlNode*& node) const {
  _xmlNode* list = nullptr;
  _PutChild(list, node, "correction_matrices");
  for (const CorrectionMatrix& matrix : correction_matrices) {
    _SetElement(list, "correction_matrix", matrix);
  }
}

void SpectralCorrectionInfo::RunSanityChecks(ParsingResult& result) const {
  for (const CorrectionMatrix& matrix : correction_matrices) {
    matrix.RunSanityChecks(result);
  }
}

std::size_t SpectralCorrectionInfo::GetMatrixIndex(const std::deque<CorrectionMatrix>& matrices,
                                                   const std::string& name) {
  const auto found = std::find_if(matrices.begin(), matrices.end(),
                                  [&name](const CorrectionMatrix& m) { return m.name == name; });
  return static_cast<std::size_t>(std::distance(matrices.begin(), found));
}

const CorrectionMatrix& SpectralCorrectionInfo::GetMatrix(const std::string& name) const {
  return correction_matrices.at(GetMatrixIndex(correction_matrices, name));
}

bool operator==(SpectralCorrectionInfo const& left, SpectralCorrectionInfo const& right) {
  return left.correction_matrices == right.correction_matrices;
}

}  // namespace kelto::hyperspectral
