#include "bag/device_record.h"

#include <utility>

#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/util/json_util.h>

#include "kbag_msgs.pb.h"

namespace morva {
namespace {

namespace pb = protix::kbag_msgs;

DeviceInfo toDeviceInfo(const pb::DeviceInfo& message) {
  DeviceInfo info;
  info.deviceName = message.device_name();
  info.deviceModel = message.device_model();
  info.serialNumber = message.serial_number();
  info.hardwareVersion = message.hardware_version();
  info.firmwareVersion = message.firmware_version();
  info.softwareVersion = message.software_version();
  info.manufactureDate = message.manufacture_date();
  info.sensors.assign(message.sensors().begin(), message.sensors().end());
  return info;
}

DeviceInfo toDeviceInfo(const pb::DeviceInfoV102& message) {
  DeviceInfo info;
  info.deviceName = message.device_name();
  info.serialNumber = message.serial_number();
  info.firmwareVersion = message.firmware_version();
  info.sensors.assign(message.sensors().begin(), message.sensors().end());
  return info;
}

void printJson(const google::protobuf::Message& message, std::string* text) {
  google::protobuf::util::JsonPrintOptions options;
  options.add_whitespace = true;
  options.always_print_primitive_fields = true;
  options.always_print_enums_as_ints = false;
  options.preserve_proto_field_names = true;
  std::string json;
  if (google::protobuf::util::MessageToJsonString(message, &json, options).ok()) {
    *text = std::move(json);
  }
}

/// Decodes and prints one form of the record. @return False, with nothing changed, where it is not
/// one.
template <typename Message>
bool decode(const std::string& bytes, DeviceInfo* info, std::string* text) {
  Message message;
  if (!message.ParseFromString(bytes)) return false;
  if (text != nullptr) printJson(message, text);
  *info = toDeviceInfo(message);
  return true;
}

}  // namespace

bool decodeDeviceRecord(const std::string& bytes, DeviceInfo* info, std::string* text) {
  if (bytes.empty()) return false;
  // The parser reports text that is not UTF-8 on standard error; here it only means an older
  // record.
  const google::protobuf::LogSilencer silencer;
  return decode<pb::DeviceInfo>(bytes, info, text) || decode<pb::DeviceInfoV102>(bytes, info, text);
}

}  // namespace morva
