#ifndef MORVA_TASK_BATCH_RUN_H_
#define MORVA_TASK_BATCH_RUN_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "export/data_exporter.h"
#include "morva/bag.h"
#include "morva/batch_task.h"
#include "platform/log.h"

namespace morva {

/// One run of a batch task, on its worker thread: what the plain and the device task have in
/// common.
///
/// Holds the open bags of the run and the byte counts behind its progress, and works on the state,
/// log and stop flag of the task object. After a stop nothing new is begun.
class BatchRun {
 public:
  /// One project: its bag, open for reading, and the folder for its output.
  struct Job {
    std::shared_ptr<MorvaBag> bag;
    std::string outputPath;
  };
  /// Decides about one topic of a bag.
  using TopicFilter = std::function<bool(const BagInfo& info, const TopicInfo& topic)>;
  using Export = std::function<bool(DataExporter* exporter)>;

  /// @param tool  Not owned, must outlive the run.
  explicit BatchRun(BagTool* tool);

  /// Opens the bag of every accepted project and makes its output folder; projects where that fails
  /// are logged and left out. The topics that pass `counted` make up the total of the progress.
  /// @return False, with the error code set, when nothing is left to do.
  [[nodiscard]] bool openBags(const TopicFilter& counted);

  /// Runs `work` on every job, in the order of the projects, until the task is stopped.
  void forEachBag(const std::function<void(const Job& job)>& work);

  /// Empties and re-creates the folders of the job's output that hold many files.
  /// @return False, with the topics that pass `wanted` logged and noted as failed, where what they
  ///         write might end up elsewhere.
  [[nodiscard]] bool prepareOutput(const Job& job, const TopicFilter& wanted);

  /// Unpacks every topic of the job's bag that passes `wanted`, in the bag's order.
  void exportTopics(const Job& job, const TopicFilter& wanted);

  /// Runs `work` for one topic, with an exporter that keeps the progress up to date and stops with
  /// the task; logs a failure.
  void exportTopic(const Job& job, const std::string& topic, const Export& work);

  /// Sets the error code of a run that got as far as its end.
  void finish();

  [[nodiscard]] bool stopped() const { return tool_->stop_; }
  /// Writes a line to the log file of the task.
  void logout(const std::string& line) { tool_->logout(line); }

 private:
  void openBag(const BagTool::ProjectInfo& project, const TopicFilter& counted);
  void failTopics(const Job& job, const TopicFilter& wanted);
  void failTopic(const Job& job, const std::string& topic);
  [[nodiscard]] bool reportProgress(std::uint64_t topicBytes);
  void finishTopic();

  BagTool* tool_;
  std::vector<Job> jobs_;
  std::uint64_t totalBytes_ = 0;
  std::uint64_t doneBytes_ = 0;   ///< of the topics that are finished
  std::uint64_t topicBytes_ = 0;  ///< of the topic at hand
  Log trace_{"", "dataExportTask"};
};

}  // namespace morva

#endif  // MORVA_TASK_BATCH_RUN_H_
