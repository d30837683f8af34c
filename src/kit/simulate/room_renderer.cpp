#include "kit/simulate/room_renderer.h"

#include <algorithm>
#include <cmath>

namespace morva::sim {

namespace {

using Eigen::Vector3d;

constexpr int kCellPixels = 8;

std::uint8_t lumaOf(const Surface& surface, const Vector3d& point) {
  const Vector3d lamp(0.36, 0.48, 0.80);  // the direction of the light, unit length
  const double light = 0.6 + 0.4 * std::abs(surface.normal.dot(lamp));
  return static_cast<std::uint8_t>(16.0 + 219.0 * surface.reflectivityAt(point) * light);
}

std::uint8_t chromaOf(double difference) {
  return static_cast<std::uint8_t>(128.0 + 100.0 * difference);
}

}  // namespace

struct RoomRenderer::View {
  View(const Camera& camera, const Eigen::Isometry3d& worldFromCamera)
      : origin(worldFromCamera.translation()),
        perColumn(worldFromCamera.linear().col(0) / camera.focalPixels),
        perRow(worldFromCamera.linear().col(1) / camera.focalPixels),
        first(worldFromCamera.linear().col(2) - (camera.width - 1) / 2.0 * perColumn -
              (camera.height - 1) / 2.0 * perRow) {}

  [[nodiscard]] Vector3d rayThrough(int column, int row) const {
    return first + column * perColumn + row * perRow;
  }

  Vector3d origin, perColumn, perRow;
  Vector3d first;  // through the pixel at the top left
};

RoomRenderer::RoomRenderer(const World& world, const Camera& camera)
    : world_(world),
      camera_(camera),
      cellColumns_((camera.width + kCellPixels - 1) / kCellPixels),
      cellRows_((camera.height + kCellPixels - 1) / kCellPixels),
      corners_(Picture::area(cellColumns_ + 1, cellRows_ + 1)) {}

void RoomRenderer::render(const Eigen::Isometry3d& worldFromCamera, Picture* picture) {
  const View view(camera_, worldFromCamera);
  castCorners(view);
  for (int row = 0; row < cellRows_; ++row) {
    for (int column = 0; column < cellColumns_; ++column) drawCell(view, column, row, picture);
  }
}

void RoomRenderer::castCorners(const View& view) {
  auto corner = corners_.begin();
  for (int row = 0; row <= cellRows_; ++row) {
    for (int column = 0; column <= cellColumns_; ++column) {
      const Vector3d ray = view.rayThrough(column * kCellPixels, row * kCellPixels);
      *corner++ = world_.cast(view.origin, ray).surface;
    }
  }
}

// The surface that all four corners of a cell see, or -1.
int RoomRenderer::commonSurface(int cellColumn, int cellRow) const {
  const auto above = corners_.begin() +
                     static_cast<std::ptrdiff_t>(Picture::area(cellColumns_ + 1, cellRow)) +
                     cellColumn;
  const auto below = above + cellColumns_ + 1;
  const int surface = *above;
  return above[1] == surface && below[0] == surface && below[1] == surface ? surface : -1;
}

// Most cells show one surface, whose plane is then all that their rays can meet; only the cells on
// an edge need the search for the first surface pixel by pixel.
void RoomRenderer::drawCell(const View& view, int cellColumn, int cellRow, Picture* picture) const {
  const int common = commonSurface(cellColumn, cellRow);
  const int right = std::min((cellColumn + 1) * kCellPixels, camera_.width);
  const int bottom = std::min((cellRow + 1) * kCellPixels, camera_.height);
  for (int row = cellRow * kCellPixels; row < bottom; ++row) {
    for (int column = cellColumn * kCellPixels; column < right; ++column) {
      const Vector3d ray = view.rayThrough(column, row);
      const int seen = common >= 0 ? common : world_.cast(view.origin, ray).surface;
      const Surface& surface = world_.surfaces()[static_cast<std::size_t>(seen)];
      const Vector3d point = view.origin + surface.distanceAlong(view.origin, ray) * ray;
      picture->setLuma(column, row, lumaOf(surface, point));
      if (column % 2 == 0 && row % 2 == 0) {
        picture->setChroma(column, row, chromaOf(surface.blueness), chromaOf(surface.redness));
      }
    }
  }
}

}  // namespace morva::sim
