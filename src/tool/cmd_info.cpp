#include <cstdint>
#include <string>

#include "platform/date_time.h"
#include "platform/ignore_result.h"
#include "tool/commands.h"
#include "tool/console.h"

namespace morva {
namespace {

constexpr int kSeparatorWidth = 80;
// The table never shows a higher speed.
constexpr double kTopSpeed = 100.000001;  // MB/s
constexpr float kShownTopSpeed = 99.999F;

void printSeparator() { Console::line(Ink::kYellow, "%s", std::string(kSeparatorWidth, '-')); }

// Time between the first and the last message, us. Times come from the file: the difference wraps.
std::int64_t durationUs(const TopicInfo& topic) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(topic.endTime) -
                                   static_cast<std::uint64_t>(topic.startTime));
}

// Bytes per microsecond, which are MB/s, in single precision.
double speedMBps(const TopicInfo& topic) {
  const std::int64_t duration = durationUs(topic);
  if (duration == 0) return kShownTopSpeed;
  const float speed = static_cast<float>(topic.total) / static_cast<float>(duration);
  return speed > kTopSpeed ? kShownTopSpeed : speed;
}

std::int32_t framesPerSecond(const TopicInfo& topic) {
  constexpr std::int64_t kMicrosPerSecond = 1000000;
  const std::int64_t duration = durationUs(topic);
  if (duration == 0) return 0;
  return static_cast<std::int32_t>(topic.messageCount * kMicrosPerSecond / duration);
}

void printTopic(const TopicInfo& topic) {
  Console::line(Ink::kGreen, "%-3d %-10d %-12ld %-17.6f %-17.6f %-6.3fMBps %-4d \"%s\"",
                topic.topicId, topic.messageCount, topic.total,
                osmik::Time(topic.startTime).toSec(), osmik::Time(topic.endTime).toSec(),
                speedMBps(topic), framesPerSecond(topic), topic.name);
}

void printTopics(const BagInfo& info) {
  printSeparator();
  Console::line(Ink::kYellow, "%-3s %-10s %-12s %-17s %-17s %-10s %-4s %s", "id", "msg_nums",
                "msg_size", "start_time", "end_time", "speed", "fps", "topic");
  int printed = 0;
  for (const TopicInfo& topic : info.topics) {
    if (topic.messageCount == 0) continue;
    printTopic(topic);
    ++printed;
  }
  printSeparator();
  Console::line(Ink::kYellow, "[summary] topic nums: %d, chunk nums: %d, device info:", printed,
                info.chunkCount);
}

}  // namespace

void kbag_info(MorvaBag* bag, bool detail) {
  if (detail) {
    const BagInfo info = bag->getInfo();
    if (info.topicCount == 0 || info.chunkCount == 0) {
      Console::line(Ink::kCyan, "[%s,L%d] no topic chunks.", "kbag_info", __LINE__);
      return;
    }
    printTopics(info);
  }
  std::string device;
  ignoreResult(bag->getDeviceInfo(&device));  // its text is all that is printed
  Console::text(device);
  if (detail) printSeparator();
}

}  // namespace morva
