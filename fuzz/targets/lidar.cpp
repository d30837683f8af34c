// The decoder of lidar payloads against protobuf.
#include <bit>
#include <memory>
#include <string>
#include <vector>

#include <kbag_msgs.pb.h>

#include "messages/lidar_decoder.h"
#include "messages/msg_converter.h"
#include "messages/msg_converter_pri.h"
#include "target.h"

namespace morva::fuzz {
namespace {

using Frames = std::vector<std::shared_ptr<PointCloudFrame>>;

bool isSame(float a, float b) {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}
bool isSame(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}
bool isSame(const PointIRT& a, const PointIRT& b) {
  return isSame(a.x, b.x) && isSame(a.y, b.y) && isSame(a.z, b.z) &&
         isSame(a.intensity, b.intensity) && isSame(a.timestamp, b.timestamp) && a.ring == b.ring;
}

bool isSame(const PointCloudFrame& a, const PointCloudFrame& b) {
  const PointCloud& cloudA = *a.cloud->cloud;
  const PointCloud& cloudB = *b.cloud->cloud;
  return a.seq == b.seq && a.collectTimestamp == b.collectTimestamp &&
         a.cloud->seq == b.cloud->seq && isSame(a.cloud->time, b.cloud->time) &&
         cloudA.width == cloudB.width && cloudA.height == cloudB.height &&
         std::equal(cloudA.points.begin(), cloudA.points.end(), cloudB.points.begin(),
                    cloudB.points.end(),
                    [](const PointIRT& p, const PointIRT& q) { return isSame(p, q); });
}

bool isSame(const Frames& a, const Frames& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const auto& p, const auto& q) { return isSame(*p, *q); });
}

}  // namespace

void runLidar(std::string_view input) {
  protix::kbag_msgs::LidarPointMsgArray array;
  const bool isParsed = array.ParseFromArray(input.data(), static_cast<int>(input.size()));
  Frames expected;
  if (isParsed) {
    for (const auto& message : array.msgs()) {
      expected.push_back(MsgConverterPri::fromPBMsg(message));
    }
  }
  // Memory of its own size, so that a look behind its end is seen.
  const std::vector<char> bytes(input.begin(), input.end());
  if (const auto frames = decodeLidarPayload({bytes.data(), bytes.size()})) {
    expect(isParsed, "the decoder takes what the parser refuses");
    expect(isSame(*frames, expected), "decoder and parser give different clouds");
  }
  expect(isSame(MsgConverter::fromPointCloudMsgArray(std::string(input)), expected),
         "the converter gives other clouds than the parser");
}

}  // namespace morva::fuzz
