#ifndef MORVA_KIT_INSPECT_SAMPLE_TABLE_H_
#define MORVA_KIT_INSPECT_SAMPLE_TABLE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "messages/message_kind.h"

namespace morva::inspect {

/// A field of samples.
struct Field {
  std::string_view name;  ///< ends in its unit
  std::string_view unit;  ///< for people and programs: "m/s^2"; empty: none, or not known
};

/// Bytes that are shown as base64.
struct Bytes {
  std::string_view bytes;
};

/// A field's value in one sample; views are valid while the sample is looked at.
using Value = std::variant<std::int64_t, std::uint64_t, float, double, std::string_view, Bytes>;

/// One sample.
struct Row {
  std::optional<std::uint32_t> seq;
  /// When it was taken, us since the Unix epoch; nothing where that is its message's time.
  std::optional<std::int64_t> timeUs;
  std::span<const Value> values;  ///< by field
};

/// What of the payloads of large samples is shown.
struct Detail {
  bool points = false;  ///< lidar: every point, instead of a row for a scan
  bool data = false;    ///< pictures and carried files: their bytes
};

/// The samples of one kind of message as rows of a table, whichever way it is written.
class SampleTable {
 public:
  using OnRow = std::function<bool(const Row& row)>;
  enum class Result : std::uint8_t { kDone, kStopped, kUndecodable };

  SampleTable() = default;
  SampleTable(const SampleTable&) = delete;
  SampleTable& operator=(const SampleTable&) = delete;
  virtual ~SampleTable() = default;

  /// What "kind" of rows these are, for programs: "imu", "point", ...
  [[nodiscard]] virtual std::string_view name() const = 0;
  /// Beside sequence number and time, which every sample has; those of an unknown kind have none.
  [[nodiscard]] virtual std::span<const Field> fields() const = 0;
  /// Decodes a payload. @param onRow  False ends it.
  [[nodiscard]] virtual Result decode(const std::string& payload, const OnRow& onRow) const = 0;
};

/// The table of a kind of messages. One of an unknown kind has one row a message, without sequence
/// number and time: the payload as it is.
[[nodiscard]] std::unique_ptr<SampleTable> makeSampleTable(MessageKind kind, const Detail& detail);

/// The word for a kind, the name of its table without detail.
[[nodiscard]] std::string_view wordFor(MessageKind kind);

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_SAMPLE_TABLE_H_
