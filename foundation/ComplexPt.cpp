#include "foundation/ComplexPt.h"

#include <cstddef>

namespace _quarn_vi {

int CComplexPt::GetPartContentSize(int part) const {
  if (part < 0 || part >= GetPartSize()) return 0;
  return static_cast<int>(m_parts[static_cast<size_t>(part)].size());
}

CVPoint CComplexPt::GetPartPt(int part, int index) const {
  if (index < 0 || index >= GetPartContentSize(part)) return CVPoint{0, 0};
  return m_parts[static_cast<size_t>(part)][static_cast<size_t>(index)];
}

}  // namespace _quarn_vi
