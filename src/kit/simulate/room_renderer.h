#ifndef MORVA_KIT_SIMULATE_ROOM_RENDERER_H_
#define MORVA_KIT_SIMULATE_ROOM_RENDERER_H_

#include <vector>

#include <Eigen/Geometry>

#include "kit/simulate/calibration.h"
#include "kit/simulate/picture.h"
#include "kit/simulate/world.h"

namespace morva::sim {

/// Draws what a camera sees of a world. Keeps working memory: one object a camera.
class RoomRenderer {
 public:
  /// Both outlive the renderer.
  RoomRenderer(const World& world, const Camera& camera);

  /// @param picture  [out] Of the camera's size.
  void render(const Eigen::Isometry3d& worldFromCamera, Picture* picture);

 private:
  struct View;  // a camera's place, with the derivatives of its rays

  void castCorners(const View& view);
  [[nodiscard]] int commonSurface(int cellColumn, int cellRow) const;
  void drawCell(const View& view, int cellColumn, int cellRow, Picture* picture) const;

  const World& world_;
  const Camera& camera_;
  int cellColumns_;
  int cellRows_;
  std::vector<int> corners_;  ///< surface seen at every corner of the grid of cells, row by row
};

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_ROOM_RENDERER_H_
