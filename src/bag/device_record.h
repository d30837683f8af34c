#ifndef MORVA_BAG_DEVICE_RECORD_H_
#define MORVA_BAG_DEVICE_RECORD_H_

#include <string>

#include "morva/records.h"

namespace morva {

/// Decodes the device record that a bag's header carries as its private data, in either of its
/// forms.
/// @param bytes  The private data; empty: no record.
/// @param info   [out, not null] Left as it was where there is none.
/// @param text   [out, may be null] The record as JSON; the same.
/// @return False where `bytes` are no such record.
[[nodiscard]] bool decodeDeviceRecord(const std::string& bytes, DeviceInfo* info,
                                      std::string* text);

}  // namespace morva

#endif  // MORVA_BAG_DEVICE_RECORD_H_
