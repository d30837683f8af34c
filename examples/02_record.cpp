// Records five seconds of made-up data:  02_record OUT.kbag
//
// A host program fills the write options, opens, writes one serialized array message after another
// and closes. Only the close gives the bag its index, so its result counts like that of every
// write.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

#include "kbag_msgs.pb.h"
#include "morva/bag.h"

namespace {

namespace pb = protix::kbag_msgs;

constexpr std::int64_t kStartUs = 1700000000000000;  // us since the Unix epoch
constexpr std::int64_t kImuStepUs = 5000;            // 200 Hz
constexpr int kMessages = 5;
constexpr int kSamplesPerMessage = 200;
constexpr std::int64_t kScale = 100000;  // a sample stores its value times this, as an integer

std::int64_t toInteger(double value) { return std::llround(value * static_cast<double>(kScale)); }

/// 200 samples of a device that sways about its z axis.
std::string imuMessage(std::uint32_t firstSeq) {
  pb::ImuMsgArray array;
  for (std::uint32_t seq = firstSeq; seq < firstSeq + kSamplesPerMessage; ++seq) {
    pb::ImuMsg* const msg = array.add_msgs();
    msg->mutable_header()->set_seq(seq);
    msg->mutable_header()->set_scale(kScale);
    msg->mutable_header()->set_timestamp(kStartUs + kImuStepUs * seq);
    msg->set_accel_z(toInteger(9.80665));
    msg->set_gyro_z(toInteger(0.1 * std::sin(0.01 * seq)));
  }
  return array.SerializeAsString();
}

std::string gnssLogMessage(std::int64_t timeUs) {
  pb::LogMsgArray array;
  pb::LogMsg* const msg = array.add_msgs();
  msg->mutable_header()->set_timestamp(timeUs);
  msg->set_data("$GNGGA,221320.00,5231.2000,N,01324.3000,E,4,12,0.8,45.1,M,39.6,M,1.0,0000*6F\r\n");
  return array.SerializeAsString();
}

bool recordAll(morva::MorvaBag& bag) {
  for (std::uint32_t i = 0; i < kMessages; ++i) {
    const std::uint32_t firstSeq = i * kSamplesPerMessage;
    const std::int64_t firstUs = kStartUs + kImuStepUs * firstSeq;
    const std::int64_t lastUs = firstUs + kImuStepUs * (kSamplesPerMessage - 1);

    // Repetitive samples are worth compressing; a line of text is stored as it stands.
    const std::string imu =
        morva::MorvaBag::makeMessageHeader(true, kSamplesPerMessage, firstUs, lastUs);
    if (!bag.writeMessage("/imu", lastUs, imu, imuMessage(firstSeq))) return false;
    const std::string log = morva::MorvaBag::makeMessageHeader(false, 1, lastUs, lastUs);
    if (!bag.writeMessage("/raw_gnss_log", lastUs, log, gnssLogMessage(lastUs))) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUT.kbag\n", argv[0]);
    return 2;
  }

  pb::DeviceInfo device;
  device.set_device_name("example recorder");
  device.add_sensors("imu");

  morva::MorvaBag bag;
  bag.topics = {"/imu", "/raw_gnss_log"};
  bag.compressionType = morva::CompressionType::kLz4;
  bag.writeBufferSize = 1U << 20U;
  const int code = bag.open(argv[1], morva::BagMode::kWrite, device.SerializeAsString());
  if (code != morva::MorvaBag::kOpenOk) {
    std::fprintf(stderr, "cannot create %s: code %d\n", argv[1], code);
    return 1;
  }

  const bool isWritten = recordAll(bag);
  const bool isClosed = bag.close();
  if (!isWritten || !isClosed) {
    std::fprintf(stderr, "%s is not complete\n", argv[1]);
    return 1;
  }
  return 0;
}
