// The correction matrices of a calibration, in file order and looked up by name. Held by
// SystemInfo; DataAccessor and the correction computation take their matrices from it.
// Thread-safety: a record without a lock; it belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include <kelto/common/xml_serializable_interface.h>
#include <kelto/hyperspectral/calibration/correction_matrix.h>
#include <kelto/hyperspectral/export.h>

namespace kelto::hyperspectral {

class KELTO_HYPERSPECTRAL_EXPORT SpectralCorrectionInfo : public common::XMLSerializableInterface {
 public:
  SpectralCorrectionInfo() = default;

  // Every version from 0 upward has the one form; a negative version is refused.
  void ReadXML(ParsingResult& result, _xmlNode* const& node) override;
  void WriteXML(_xmlNode*& node) const override;

  // The checks of each matrix in order, nothing of its own.
  void RunSanityChecks(ParsingResult& result) const;

  // Index of the first matrix with exactly this name (an empty name included), or the number of
  // matrices when there is none.
  static std::size_t GetMatrixIndex(const std::deque<CorrectionMatrix>& matrices,
                                    const std::string& name);
  // The matrix that GetMatrixIndex finds; throws std::out_of_range when there is none, which the
  // caller rules out through GetMatrixIndex.
  const CorrectionMatrix& GetMatrix(const std::string& name) const;

  // Names may repeat; all matrices are kept and written.
  std::deque<CorrectionMatrix> correction_matrices;

 private:
  void _ReadXML_v0(ParsingResult& result, _xmlNode* const& node);
  void _WriteXML_v0(_xmlNode*& node) const;
};

// Same count and each pair equal, in order.
KELTO_HYPERSPECTRAL_EXPORT bool operator==(SpectralCorrectionInfo const& left,
                                           SpectralCorrectionInfo const& right);

}  // namespace kelto::hyperspectral
