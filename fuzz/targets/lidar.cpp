// The decoder of lidar payloads against protobuf.
#include <memory>
#include <string>
#include <vector>

#include <kbag_msgs.pb.h>

#include "messages/lidar_decoder.h"
#include "messages/msg_converter.h"
#include "messages/msg_converter_pri.h"
#include "support/same_clouds.h"
#include "target.h"

namespace morva::fuzz {
namespace {

using Frames = std::vector<std::shared_ptr<PointCloudFrame>>;
using test::isSame;

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
