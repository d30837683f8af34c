#include "bench/input_messages.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>

#include "kit/simulate/picture_encoder.h"
#include "kit/simulate/room_renderer.h"
#include "kit/simulate/scene.h"
#include "kit/simulate/streams.h"
#include "kit/simulate/time_base.h"

namespace morva::bench {
namespace {

constexpr double kScanSeconds = 4.0;  // 40 scans

/// All messages of a stream, parsed.
template <typename Array>
std::vector<Array> messagesOf(sim::StreamPtr stream) {
  std::vector<Array> messages;
  sim::StreamMessage message;
  while (stream->next(&message) == sim::MessageStream::State::kMessage) {
    messages.emplace_back().ParseFromString(message.payload);
  }
  return messages;
}

/// Adds to every pixel's brightness a value of [-amplitude, amplitude], as an image sensor does.
void addNoise(int amplitude, std::minstd_rand* random, sim::Picture* picture) {
  const auto span = static_cast<unsigned>(2 * amplitude + 1);
  for (std::uint8_t& value : picture->y) {
    const int shift = static_cast<int>((*random)() / 8U % span) - amplitude;
    value = static_cast<std::uint8_t>(std::clamp(value + shift, 16, 235));
  }
}

template <typename Array>
std::string opaque(std::uint32_t number, std::int64_t timeUs, std::string data) {
  Array array;
  auto* const msg = array.add_msgs();
  msg->mutable_header()->set_timestamp(timeUs);
  msg->mutable_header()->set_seq(number);
  msg->set_data(std::move(data));
  return array.SerializeAsString();
}

}  // namespace

ImuMessages::ImuMessages(std::size_t samples, std::int64_t periodUs) : periodUs_(periodUs) {
  sim::Options options;
  options.seconds = static_cast<double>(samples) * static_cast<double>(sim::kImuPeriodUs) * 1e-6;
  const sim::Scene scene = sim::makeScene(options);
  for (const auto& array : messagesOf<pb::ImuMsgArray>(sim::makeImuStream(scene))) {
    samples_.insert(samples_.end(), array.msgs().begin(), array.msgs().end());
  }
}

ImuMessages::Message ImuMessages::next() {
  pb::ImuMsgArray array;
  pb::ImuMsg* const msg = array.add_msgs();
  *msg = samples_.at(next_);
  const std::int64_t timeUs = kFirstUs + static_cast<std::int64_t>(next_++) * periodUs_;
  msg->mutable_header()->set_timestamp(timeUs);
  return {array.SerializeAsString(), timeUs};
}

LidarMessages::LidarMessages() {
  sim::Options options;
  options.seconds = kScanSeconds;
  options.pointsPerFrame = kPointsPerScan;
  const sim::Scene scene = sim::makeScene(options);
  scans_ = messagesOf<pb::LidarPointMsgArray>(sim::makeLidarStream(scene));
}

std::string LidarMessages::payload(std::uint32_t number, std::int64_t timeUs) {
  pb::LidarPointMsgArray& scan = scans_.at(number % scans_.size());
  pb::Header* const header = scan.mutable_msgs(0)->mutable_header();
  header->set_timestamp(timeUs);
  header->set_seq(number);
  return scan.SerializeAsString();
}

std::vector<std::string> cameraPayloads(std::size_t count, PictureNoise noise) {
  constexpr int kWidth = 1920;
  constexpr int kHeight = 1080;
  // Chosen for about 155 KB and 580 KB a picture.
  const int amplitude = noise == PictureNoise::kNatural ? 5 : 20;

  const sim::Scene scene = sim::makeScene({});
  sim::Camera camera = scene.calibration.cameras.front();
  camera.focalPixels *= static_cast<double>(kWidth) / camera.width;
  camera.width = kWidth;
  camera.height = kHeight;
  sim::RoomRenderer renderer(scene.world, camera);
  sim::Picture picture(kWidth, kHeight);
  const std::unique_ptr<sim::PictureEncoder> encoder = sim::makeH264Encoder(kWidth, kHeight);
  std::minstd_rand random(1);

  std::vector<std::string> payloads;
  for (std::size_t i = 0; encoder != nullptr && i < count; ++i) {
    const std::int64_t sinceUs = static_cast<std::int64_t>(i) * sim::kCameraPeriodUs;
    renderer.render(scene.path.poseAt(static_cast<double>(sinceUs) * 1e-6) * camera.imuFromCamera,
                    &picture);
    addNoise(amplitude, &random, &picture);
    pb::ImageMsgArray array;
    pb::ImageMsg* const msg = array.add_msgs();
    msg->mutable_header()->set_timestamp(kFirstUs + sinceUs);
    msg->mutable_header()->set_seq(static_cast<std::uint32_t>(i));
    msg->set_width(kWidth);
    msg->set_height(kHeight);
    msg->set_image_type(2);
    if (!encoder->encode(picture, msg->mutable_data())) return {};
    payloads.push_back(array.SerializeAsString());
  }
  return payloads;
}

std::string noise(std::uint32_t number, std::size_t size) {
  std::mt19937_64 random(number);
  std::string bytes(size, '\0');
  for (std::size_t at = 0; at < size; at += sizeof(std::uint64_t)) {
    const std::uint64_t word = random();
    std::memcpy(&bytes[at], &word, std::min(sizeof word, size - at));
  }
  return bytes;
}

std::string opaquePicture(std::uint32_t number, std::int64_t timeUs, std::size_t size) {
  std::string data = noise(number, size);
  data.replace(0, 5, std::string("\0\0\0\1\x65", 5));
  return opaque<pb::ImageMsgArray>(number, timeUs, std::move(data));
}

std::string opaqueLog(std::uint32_t number, std::int64_t timeUs, std::size_t size) {
  return opaque<pb::LogMsgArray>(number, timeUs, noise(number, size));
}

}  // namespace morva::bench
