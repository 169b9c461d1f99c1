// CComplexPt: a geometry of ordered parts, each an ordered list of points
// with two signed 32-bit coordinates. The JSON readers fill it from a
// geometry text; the district answer reads its first point.
//
// Thread safety: const methods may be called from several threads; a
// non-const method needs external synchronisation.
#ifndef FOUNDATION_COMPLEXPT_H_
#define FOUNDATION_COMPLEXPT_H_

#include <vector>

namespace _quarn_vi {

struct CVPoint {
  int x;
  int y;
};

class CComplexPt {
 public:
  CComplexPt() = default;
  ~CComplexPt() = default;

  // Number of parts.
  int GetPartSize() const { return static_cast<int>(m_parts.size()); }
  // Number of points of `part`, or 0 when there is no such part.
  int GetPartContentSize(int part) const;
  // Point `index` of `part`; (0, 0) when there is no such point.
  CVPoint GetPartPt(int part, int index) const;

  // Appends an empty part / a point to the last part.
  // REQUIRES for AddPoint: GetPartSize() > 0.
  void AddPart() { m_parts.emplace_back(); }
  void AddPoint(int x, int y) { m_parts.back().push_back(CVPoint{x, y}); }
  void Clear() { m_parts.clear(); }

 private:
  std::vector<std::vector<CVPoint>> m_parts;
};

}  // namespace _quarn_vi

#endif  // FOUNDATION_COMPLEXPT_H_
