#ifndef MORVA_MESSAGES_LIDAR_DECODER_H_
#define MORVA_MESSAGES_LIDAR_DECODER_H_

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "messages/frames.h"

namespace morva {

/// Converts a serialized LidarPointMsgArray straight into point clouds, without message objects in
/// between: points are most of what a recording holds.
///
/// Knows one form alone, in which every recorder writes: each field once, in ascending order, by
/// the schema's own type and number. Whatever else it meets (unknown, repeated or misplaced fields,
/// other wire types, numbers of more than eight bytes, lengths that do not fit) it leaves to
/// protobuf, whose verdict and result are the rule.
/// @return The frames that MsgConverter::fromPointCloudMsgArray() gives, or nothing where the
///         payload is not of that form.
/// Threads: any. Cost: two passes, the first over the lengths; one allocation a cloud.
[[nodiscard]] std::optional<std::vector<std::shared_ptr<PointCloudFrame>>> decodeLidarPayload(
    std::string_view payload);

}  // namespace morva

#endif  // MORVA_MESSAGES_LIDAR_DECODER_H_
