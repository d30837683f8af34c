#include <memory>
#include <utility>

#include "kit/simulate/picture.h"
#include "kit/simulate/picture_encoder.h"
#include "kit/simulate/room_renderer.h"
#include "kit/simulate/sampled_stream.h"
#include "kit/simulate/streams.h"
#include "kit/simulate/time_base.h"

namespace morva::sim {

namespace {

namespace pb = protix::kbag_msgs;

constexpr std::uint32_t kImageTypeJpeg = 1;
constexpr std::uint32_t kImageTypeH264 = 2;
constexpr std::int64_t kStaggerUs = 7'000;  // between cameras: no two expose at the same time
constexpr std::int64_t kLatencyUs = 35'000;

class CameraStream final : public SampledStream<pb::ImageMsgArray> {
 public:
  CameraStream(const Scene& scene, std::size_t number, std::unique_ptr<PictureEncoder> encoder)
      : SampledStream(scene.calibration.cameras[number].topic(), samplingOf(scene, number), 0,
                      false),
        scene_(scene),
        camera_(scene.calibration.cameras[number]),
        encoder_(std::move(encoder)),
        renderer_(scene.world, camera_),
        picture_(camera_.width, camera_.height) {}

 private:
  static Sampling samplingOf(const Scene& scene, std::size_t number) {
    const std::int64_t firstUs = kStartUs + static_cast<std::int64_t>(number) * kStaggerUs;
    return {firstUs, kStartUs + durationUs(scene.options.seconds) - 1, kCameraPeriodUs, 1};
  }

  bool fill(std::int64_t timeUs, pb::ImageMsg* sample) override {
    const Eigen::Isometry3d worldFromImu = scene_.path.poseAt(sinceStartS(timeUs));
    renderer_.render(worldFromImu * camera_.imuFromCamera, &picture_);
    stampNumber(sample->header().seq(), &picture_);
    sample->set_width(static_cast<std::uint32_t>(camera_.width));
    sample->set_height(static_cast<std::uint32_t>(camera_.height));
    sample->set_image_type(camera_.codec == "jpeg" ? kImageTypeJpeg : kImageTypeH264);
    return encoder_->encode(picture_, sample->mutable_data());
  }
  [[nodiscard]] std::int64_t latencyUs() const override { return kLatencyUs; }

  const Scene& scene_;
  const Camera& camera_;
  std::unique_ptr<PictureEncoder> encoder_;
  RoomRenderer renderer_;
  Picture picture_;
};

}  // namespace

StreamPtr makeCameraStream(const Scene& scene, std::size_t number) {
  const Camera& camera = scene.calibration.cameras[number];
  std::unique_ptr<PictureEncoder> encoder =
      camera.codec == "jpeg" ? makeJpegEncoder() : makeH264Encoder(camera.width, camera.height);
  if (encoder == nullptr) return nullptr;
  return std::make_unique<CameraStream>(scene, number, std::move(encoder));
}

}  // namespace morva::sim
