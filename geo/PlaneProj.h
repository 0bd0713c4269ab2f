#pragma once

namespace geo {

/// View of a plane or of a hit: the transverse coordinate that it measures.
///
/// Unscoped and held in an int, because a hit that no plane has claimed yet carries the value 2,
/// which is neither view.
enum _plane_proj : int {
  kX = 0, ///< measures x
  kY = 1  ///< measures y
};

} // namespace geo
