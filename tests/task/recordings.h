#ifndef MORVA_TESTS_TASK_RECORDINGS_H_
#define MORVA_TESTS_TASK_RECORDINGS_H_

#include <cstdint>
#include <string>
#include <vector>

/// Small recordings for the batch task: a few samples a topic, made by the schema's own classes.
namespace morva::test {

inline constexpr std::int64_t kStartUs = 1'700'000'000'000'000;
inline constexpr const char* kBagName = "2024-01-31-235959.kbin";

struct RecordedMessage {
  std::string topic;
  std::string payload;
  std::int64_t timeUs = kStartUs;
};

/// Two samples 5 ms apart, the first at `timeUs`, at rest but for `accelX` (m/s^2).
RecordedMessage imuMessage(std::int64_t timeUs, double accelX = 0.5);
RecordedMessage magneticMessage(std::int64_t timeUs);
/// Two orientations, at `timeUs` and `spanUs` later: turned by `angleRad` about the motor's z axis.
RecordedMessage motorMessage(std::int64_t timeUs, std::int64_t spanUs, double angleRad = 0.0);
/// One scan of two points, (1, 2, 3) and (-4, 5, 6) metres, 1 ms apart.
RecordedMessage lidarMessage(const std::string& topic, std::int64_t timeUs);
RecordedMessage gnssMessage(std::int64_t timeUs);
RecordedMessage fileMessage(const std::string& topic, const std::string& name,
                            const std::string& content);
RecordedMessage logMessage(const std::string& topic, const std::string& data);
/// One picture, `payload` being its H.264 data.
RecordedMessage imageMessage(const std::string& topic, std::int64_t timeUs,
                             const std::string& payload);

/// H.264 data of a small picture that decodes by itself.
std::string h264Picture();

/// Writes a bag of the given messages; its topics are those of the messages, in order of
/// appearance. Fails the test when a step fails.
void recordBag(const std::string& path, const std::vector<RecordedMessage>& messages);

/// Makes the folder `path` with a bag of the given messages in it.
void recordProject(const std::string& path, const std::vector<RecordedMessage>& messages);

/// Calibration documents.
std::string imuYaml(double biasX);
std::string transformYaml(const std::vector<double>& rowMajor);
std::string identityYaml();
/// A pure translation.
std::string translationYaml(double x, double y, double z);

/// What a device's recording carries: a whole calibration, and a file of the project.
std::vector<RecordedMessage> carriedMessages();
/// A message of every kind of sample, the scan within the motor's times.
std::vector<RecordedMessage> sampleMessages(std::int64_t timeUs);

/// Every regular file under `dir`, relative to it, in ascending order; directories without files
/// end in "/".
std::vector<std::string> treeOf(const std::string& dir);
/// The same with the contents: "name: content".
std::vector<std::string> contentsOf(const std::string& dir);

/// The lines of all log files in `dir`, file by file in the order of their names, with the time
/// replaced by "TIME": "<I>TIME BagTool::Init,init success, project nums: 1."
std::vector<std::string> taskLog(const std::string& dir);

/// The names that the log file of a task may get within the next two minutes.
std::vector<std::string> comingLogNames();

}  // namespace morva::test

#endif  // MORVA_TESTS_TASK_RECORDINGS_H_
