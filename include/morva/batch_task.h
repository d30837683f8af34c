#ifndef MORVA_BATCH_TASK_H_
#define MORVA_BATCH_TASK_H_

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace morva {

class BatchRun;

/// Unpacks whole project folders on a background thread, for a host program.
///
/// A project folder holds a bag file named after its recording time ("2024-01-31-235959.kbin"; of
/// several, the first by name is taken). Every topic of that bag is unpacked into the project's
/// output folder, whose "calib/config", "images/camera_0", "images/camera_1", "lidar_points" and
/// "project_data" are emptied first.
///
/// Life cycle:
///
///     idle -- Init() --> initialised -- StartTask() --> running -- the task ends --> idle
///     any state -- StopTask() --> idle
///
/// The host polls GetProgress() and IsTaskFinished(), then looks at GetErrorCode(). Another run
/// needs another Init(). Before it destroys the object, or whenever it wants, the host calls
/// StopTask(), which also closes the log file; the destructor does so too.
///
/// The task writes a log file of its own, "bagtool-YYYYMMDD_HHMMSS.log" (local time), whose last
/// lines may reach the disk only when it is closed. What the exporters report goes to the
/// process-wide log.
///
/// Threads: the const operations may be called from any thread at any time, also while another
/// thread is in StopTask(). So may Init(), StartTask() and StopTask(), which wait for one another,
/// but never from the task itself. The destructor has to be the last call.
class BagTool {
 public:
  /// Values of GetErrorCode(). They reach host programs: never renumber, only append.
  enum ErrorCode : int {
    kSuccess = 0,     ///< the task ended, or none was started yet
    kNoBag = 3,       ///< no bag could be opened, or no output folder made, for any project
    kStopped = 4,     ///< StopTask() came before the end
    kNotStarted = 5,  ///< StartTask() in the wrong state; no thread could be started, or it ran out
                      ///< of memory
  };

  struct ProjectInfo {
    std::string projectPath;  ///< folder that holds the bag file
    std::string
        outputPath;  ///< folder that receives the output; made, with its parents, when missing
  };

  struct PreprocessArgs {
    std::vector<ProjectInfo> projects;  ///< worked through in this order
    std::string logDir;          ///< folder of the log file; made, with its parents, when missing
    bool withConfigFile = true;  ///< false: the topic "/config_file" is left out
    bool withLidar = true;       ///< false: the topic "/lidar" is left out
  };

  /// A topic that could not be unpacked, or not whole.
  struct FailedTopic {
    std::string outputPath;  ///< of its project
    std::string topic;
  };

  BagTool();
  BagTool(const BagTool&) = delete;
  BagTool& operator=(const BagTool&) = delete;
  /// Stops the task and waits for it. A class that derives from this one and replaces
  /// dataExportTask() calls StopTask() in its own destructor, before what its task uses is gone.
  virtual ~BagTool();

  /// Prepares a run: opens a new log file and accepts the projects whose folder exists and holds a
  /// bag file; the others are logged and left out. No project at all is no failure here, but the
  /// task will end with kNoBag.
  /// @return False, the state unchanged, when the log file cannot be made,
  ///         or when a run is prepared or going on
  ///         (which is logged to the new log file).
  [[nodiscard]] virtual bool Init(const PreprocessArgs& args);

  /// Starts the task that Init() prepared and returns once it is running. A refusal (nothing is
  /// prepared, or a task is running) and a thread that cannot be started set the error code to
  /// kNotStarted and are logged.
  void StartTask();

  /// Asks the task to stop, waits for it, closes the log and makes the object idle. The exporters
  /// look for the request after every message, so this takes as long as one message, or for lidar
  /// correction the frames in flight, take. Nothing is begun after it: no topic, no project, no
  /// wiping. May be called in any state, repeatedly.
  void StopTask();

  /// Result of the latest run, one of ErrorCode; kSuccess while it is going on.
  [[nodiscard]] int GetErrorCode() const;
  /// Percent of the bytes of all projects' topics that are done, 0 to 100; 0 when there is nothing
  /// to count. Keeps its value after the run, until the next one starts. Topics that nothing can
  /// unpack are counted and never done.
  [[nodiscard]] int GetProgress() const;
  /// True when the object is idle.
  [[nodiscard]] bool IsTaskFinished() const;
  /// Topics of the latest run whose export failed, in the order in which they were tried. The task
  /// goes on after such a topic and its error code does not show it.
  [[nodiscard]] std::vector<FailedTopic> GetFailedTopics() const;

 protected:
  /// Opens a new log file in `dir`, which is made with its parents when missing. An earlier log
  /// file is written no more; it is closed with the object.
  /// @return False when the folder cannot be made (the earlier log stays in use)
  ///         or the file cannot be opened
  ///         (there is no log then).
  [[nodiscard]] bool initLog(const std::string& dir);

  /// Appends `text`, which brings its own line feed, to the log file. A text of more than 1023
  /// bytes is cut to 1020, "..." and a zero byte. Nothing happens without a log file. Threads: any.
  void logout(const std::string& text);

  /// True once StopTask() was called for the run at hand. Threads: any.
  [[nodiscard]] bool stopRequested() const;

  /// The work of a run, on the worker thread. Sets the error code.
  virtual void dataExportTask();

 private:
  friend class BatchRun;

  enum State : std::int32_t { kIdle = 0, kInitialised = 1, kRunning = 2 };

  struct CloseFile {
    void operator()(std::FILE* file) const;
  };
  using LogFile = std::unique_ptr<std::FILE, CloseFile>;

  void replaceLog(LogFile file);
  void runTask();
  void acceptProjects(const std::vector<ProjectInfo>& candidates);

  std::atomic<std::int32_t> errorCode_ = kSuccess;
  std::atomic<float> progress_ = 0.0F;  ///< percent; not finite when nothing is to be counted
  LogFile log_;
  std::vector<LogFile> retiredLogs_;   ///< of earlier calls of Init(): open, never written again
  std::mutex logMutex_;                ///< guards the log files
  std::vector<ProjectInfo> projects_;  ///< accepted by Init()
  std::atomic<bool> stop_ = false;
  std::mutex controlMutex_;  ///< held by Init(), StartTask() and StopTask()
  std::future<void> worker_;
  std::atomic<std::int32_t> state_ = kIdle;
  bool withConfigFile_ = false;
  bool withLidar_ = false;
  std::vector<FailedTopic> failedTopics_;
  mutable std::mutex failedTopicsMutex_;
};

/// The task for recordings of the device: what BagTool does, but with the recorded calibration
/// applied.
///
/// Into each project's output folder go the camera calibration as recorded and an IMU-to-camera
/// calibration derived from the recorded ones ("calib/config/camera.yaml", "imu_camera0.yaml"), IMU
/// samples corrected with their calibration ("imu.csv"), lidar clouds moved into the IMU frame
/// ("lidar_points") and every other topic as BagTool unpacks it. A recording without calibration is
/// unpacked as it stands. docs/batch.md lists the files.
///
/// "/lidar_to_platform" and "/config_file" are the sources of the correction: they have no file of
/// their own, whatever PreprocessArgs say, and do not count for the progress.
class DevBagTool : public BagTool {
 public:
  DevBagTool();
  ~DevBagTool() override;

  /// As BagTool::Init(), with withConfigFile taken as false and withLidar as true.
  [[nodiscard]] bool Init(const PreprocessArgs& args) override;

 protected:
  void dataExportTask() override;
};

}  // namespace morva

#endif  // MORVA_BATCH_TASK_H_
