#include "kit/simulate/picture.h"

#include <cmath>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/picture_reader.h"
#include "kit/simulate/options.h"
#include "kit/simulate/picture_encoder.h"
#include "kit/simulate/room_renderer.h"
#include "kit/simulate/scene.h"

using morva::sim::Camera;
using morva::sim::Options;
using morva::sim::Picture;
using morva::sim::Scene;
using morva::test::decodeH264;
using morva::test::decodeJpeg;
using morva::test::nalTypes;
using morva::test::psnr;
using morva::test::stampedNumber;
using testing::ElementsAre;

namespace {

Picture pictureOf(const Scene& scene, const Camera& camera, double timeS) {
  morva::sim::RoomRenderer renderer(scene.world, camera);
  Picture picture(camera.width, camera.height);
  renderer.render(scene.path.poseAt(timeS) * camera.imuFromCamera, &picture);
  return picture;
}

// Types without the encoder's remarks about itself.
std::vector<int> pictureNals(const std::string& payload) {
  std::vector<int> types = nalTypes(payload);
  std::erase(types, 6);
  return types;
}

}  // namespace

TEST(StampNumber, CanBeReadBackFromThePicture) {
  for (const std::uint32_t number : {0U, 1U, 12345U, 0x8001U, 0xFFFFU}) {
    Picture picture(400, 304);
    morva::sim::stampNumber(number, &picture);
    EXPECT_EQ(stampedNumber(picture), number);
  }
}

TEST(StampNumber, StaysInsideASmallPicture) {
  Picture picture(32, 16);
  morva::sim::stampNumber(888888, &picture);
  EXPECT_EQ(picture.y.size(), 512U);
}

TEST(RoomRenderer, DrawsEveryPixelOfTheSurfaceThatItsRayMeets) {
  const Scene scene = morva::sim::makeScene(Options{});
  const Camera& camera = scene.calibration.cameras.front();
  const Picture picture = pictureOf(scene, camera, 2.5);
  const Eigen::Isometry3d worldFromCamera = scene.path.poseAt(2.5) * camera.imuFromCamera;
  int different = 0;
  for (int row = 0; row < camera.height; row += 3) {
    for (int column = 0; column < camera.width; column += 3) {
      const Eigen::Vector3d inCamera((column - (camera.width - 1) / 2.0) / camera.focalPixels,
                                     (row - (camera.height - 1) / 2.0) / camera.focalPixels, 1.0);
      const Eigen::Vector3d ray = worldFromCamera.linear() * inCamera;
      const Eigen::Vector3d origin = worldFromCamera.translation();
      const morva::sim::Hit hit = scene.world.cast(origin, ray);
      const auto& surface = scene.world.surfaces()[static_cast<std::size_t>(hit.surface)];
      const Eigen::Vector3d lamp(0.36, 0.48, 0.80);
      const double expected = 16.0 + 219.0 * surface.reflectivityAt(origin + hit.distance * ray) *
                                         (0.6 + 0.4 * std::abs(surface.normal.dot(lamp)));
      const double luma =
          picture.y[Picture::area(camera.width, row) + static_cast<std::size_t>(column)];
      if (std::abs(luma - expected) > 1.0) ++different;
    }
  }
  // A pixel on the edge of a field may fall to the other side by rounding.
  EXPECT_LE(different, 5);
}

TEST(RoomRenderer, ShowsAnotherPictureFromAnotherPlace) {
  const Scene scene = morva::sim::makeScene(Options{});
  const Camera& camera = scene.calibration.cameras.front();
  EXPECT_EQ(pictureOf(scene, camera, 2.5).y, pictureOf(scene, camera, 2.5).y);
  EXPECT_LT(psnr(pictureOf(scene, camera, 2.5), pictureOf(scene, camera, 3.5)), 25.0);
}

TEST(H264Encoder, EveryPayloadDecodesByItselfToItsOwnPicture) {
  const Scene scene = morva::sim::makeScene(Options{});
  const Camera& camera = scene.calibration.cameras.front();
  const auto encoder = morva::sim::makeH264Encoder(camera.width, camera.height);
  ASSERT_NE(encoder, nullptr);
  for (std::uint32_t number = 0; number < 4; ++number) {
    Picture picture = pictureOf(scene, camera, 0.1 * number);
    morva::sim::stampNumber(number, &picture);
    std::string payload;
    ASSERT_TRUE(encoder->encode(picture, &payload));
    EXPECT_THAT(pictureNals(payload), ElementsAre(7, 8, 5)) << number;
    const auto decoded = decodeH264(payload);
    ASSERT_TRUE(decoded.has_value());
    ASSERT_EQ(decoded->y.size(), picture.y.size());
    EXPECT_EQ(stampedNumber(*decoded), number);
    EXPECT_GT(psnr(picture, *decoded), 32.0);
  }
}

TEST(H264Encoder, SizeThatCannotBeEncodedGivesNoEncoder) {
  EXPECT_EQ(morva::sim::makeH264Encoder(0, 0), nullptr);
}

TEST(JpegEncoder, PayloadDecodesToItsPicture) {
  const Scene scene = morva::sim::makeScene(Options{});
  const Camera& camera = scene.calibration.cameras.back();
  Picture picture = pictureOf(scene, camera, 1.0);
  morva::sim::stampNumber(77, &picture);
  std::string payload;
  ASSERT_TRUE(morva::sim::makeJpegEncoder()->encode(picture, &payload));
  EXPECT_TRUE(payload.starts_with("\xFF\xD8\xFF"));
  EXPECT_TRUE(payload.ends_with("\xFF\xD9"));
  const auto decoded = decodeJpeg(payload);
  ASSERT_TRUE(decoded.has_value());
  ASSERT_EQ(decoded->y.size(), picture.y.size());
  EXPECT_EQ(stampedNumber(*decoded), 77U);
  EXPECT_GT(psnr(picture, *decoded), 32.0);
}
