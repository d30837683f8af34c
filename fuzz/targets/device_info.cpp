// The device record in the header of a bag that is sound in all else.
#include <string>

#include <nlohmann/json.hpp>

#include "morva/bag.h"
#include "storage/bag_layout.h"
#include "support/bag_builder.h"
#include "target.h"
#include "work_place.h"

namespace morva::fuzz {

void runDeviceInfo(std::string_view input) {
  static const std::string kRest = [] {
    test::BagBuilder builder;
    test::BuiltMessage message;
    message.stored = "x";
    return builder.topic(0, "/imu").message(message).build();
  }();
  std::string bag = kRest;
  const std::string_view data = input.substr(0, layout::kMaxPrivateBytes);
  bag.replace(layout::kPrivateDataOffset, data.size(), data);
  // Of an input that is longer than a header can hold, the size tells of all of it.
  test::patch<std::uint32_t>(&bag, layout::kPrivateSizeOffset,
                             static_cast<std::uint32_t>(input.size()));
  test::patch<std::uint16_t>(&bag, layout::kVersionOffset, input.size() % 3 == 0 ? 1 : 2);
  test::fixHeaderCrc(&bag);

  WorkPlace& place = WorkPlace::get();
  place.removeSide();
  place.putBag(place.bag(), bag);
  MorvaBag handle;
  expect(handle.open(place.bag(), BagMode::kRead) == 0, "a device record keeps a bag from opening");
  std::string text;
  const DeviceInfo info = handle.getDeviceInfo(&text);
  expect(text.empty() || nlohmann::json::accept(text), "a device record is printed as no JSON");
  const DeviceInfo same = handle.getDeviceInfo(nullptr);
  expect(info.deviceName == same.deviceName && info.sensors == same.sensors,
         "a device record is another when it is not printed");
}

}  // namespace morva::fuzz
