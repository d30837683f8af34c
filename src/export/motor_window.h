#ifndef MORVA_EXPORT_MOTOR_WINDOW_H_
#define MORVA_EXPORT_MOTOR_WINDOW_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <vector>

#include "messages/frames.h"
#include "morva/bag.h"
#include "platform/log.h"

namespace morva {

using MotorRecords = std::vector<std::shared_ptr<MotorMsg>>;

/// The motor records around a span of time, for spans that mostly go forward.
///
/// Reads the messages of a view in their order, as far as the spans ask for, and notes which times
/// each of them holds. Messages near the last span are kept decoded; others are dropped, and read
/// again if a span goes back to them. In a recording that is in order every message is thus read
/// once; where messages, clocks or single times are out of order, their records are found all the
/// same. Memory: the records near the span, and some 64 bytes for each message of the view.
/// Threads: one at a time.
class MotorWindow {
 public:
  /// About as many records are kept, and handed out, at most.
  static constexpr std::size_t kMaxRecords = 200'000;

  /// @param log   Where a message that cannot be decoded is logged.
  /// @param bag   Open for reading; not owned, must outlive the window.
  /// @param view  Messages of the motor topic; not copied, must outlive the window.
  MotorWindow(const Log& log, const MorvaBag& bag, const MorvaBag::View& view);

  /// @param fromS, toS   Seconds since the Unix epoch, fromS <= toS.
  /// @param chunkOffset  Where in the file the frame in question was recorded: what was recorded
  /// before
  ///                     it is looked at, whatever its time.
  /// @return The records of the span and the nearest ones before and after it, where there are any,
  /// in
  ///         ascending order of time.
  [[nodiscard]] MotorRecords around(double fromS, double toS, std::uint64_t chunkOffset);

 private:
  struct Entry {
    double firstS = 0.0;    ///< time of the message's earliest record
    std::size_t index = 0;  ///< of the message in the view
  };
  /// The messages that hold records, by the time of their latest one.
  using Timeline = std::multimap<double, Entry>;

  void readAhead(double toS, std::uint64_t chunkOffset);
  [[nodiscard]] bool isPast(double timeS) const;
  [[nodiscard]] MotorRecords load(std::size_t index) const;
  void keep(std::size_t index, MotorRecords records);
  [[nodiscard]] std::vector<std::size_t> messagesAround(double fromS, double toS) const;
  [[nodiscard]] MotorRecords gather(const std::vector<std::size_t>& messages);
  void dropFarFrom(double fromS, double toS);

  const Log log_;
  const MorvaBag& bag_;
  const MorvaBag::View& view_;
  std::size_t next_ = 0;  ///< the first message that was never read
  Timeline timeline_;
  /// Earliest times of the messages read last: one that is wrong must not end the reading.
  std::array<double, 4> recentS_;
  std::size_t recentAt_ = 0;
  std::map<std::size_t, MotorRecords> kept_;  ///< decoded messages, by their index in the view
  std::size_t keptRecords_ = 0;
};

}  // namespace morva

#endif  // MORVA_EXPORT_MOTOR_WINDOW_H_
