#ifndef MORVA_PLATFORM_IGNORE_RESULT_H_
#define MORVA_PLATFORM_IGNORE_RESULT_H_

namespace morva {

/// Drops a [[nodiscard]] result on purpose, in a way that can be searched for. Say why beside the
/// call.
template <typename T>
constexpr void ignoreResult(const T& /*result*/) {}

}  // namespace morva

#endif  // MORVA_PLATFORM_IGNORE_RESULT_H_
