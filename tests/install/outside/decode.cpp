// Prints the acceleration of the IMU samples of a bag:  decode REC.kbag
#include <cstdio>
#include <string>

#include "kbag_msgs.pb.h"
#include "morva/bag.h"

int main(int argc, char** argv) {
  morva::MorvaBag bag;
  if (argc != 2 || bag.open(argv[1], morva::BagMode::kRead) != morva::MorvaBag::kOpenOk) return 1;
  std::string payload;
  for (const morva::MsgIndex& index : bag.getView("/imu", 0, 0).indexes) {
    protix::kbag_msgs::ImuMsgArray array;
    if (!bag.readMessage(index, &payload) || !array.ParseFromString(payload)) return 1;
    for (const auto& imu : array.msgs()) {
      std::printf("%lld us: %lld / %lld m/s^2\n", static_cast<long long>(imu.header().timestamp()),
                  static_cast<long long>(imu.accel_z()),
                  static_cast<long long>(imu.header().scale()));
    }
  }
  return 0;
}
