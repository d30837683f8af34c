// What the commands that print show of a bag.
#include "morva/bag.h"
#include "target.h"
#include "tool/commands.h"
#include "work_place.h"

namespace morva::fuzz {

void runInfo(std::string_view input) {
  WorkPlace& place = WorkPlace::get();
  place.put(RecordingInput::parse(input));
  MorvaBag bag;
  if (bag.open(place.bag(), BagMode::kRead) != 0) return;
  kbag_info(&bag, true);
  kbag_info(&bag, false);
  kbag_view(&bag, {}, 0, 0, false);
  kbag_view(&bag, {"/imu", "/lidar", "/imu", "/none"}, 1'700'000'000'000'000, 1, true);
  kbag_view(&bag, {"/imu"}, -1, 9'000'000'000'000'000'000, true);
  place.expectNothingElse();
}

}  // namespace morva::fuzz
