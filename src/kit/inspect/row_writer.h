#ifndef MORVA_KIT_INSPECT_ROW_WRITER_H_
#define MORVA_KIT_INSPECT_ROW_WRITER_H_

#include <string>

#include "kit/inspect/json_writer.h"
#include "kit/inspect/message_order.h"
#include "kit/inspect/recording.h"
#include "kit/inspect/sample_table.h"

namespace morva::inspect {

/// Makes the lines of a listing of samples.
class RowWriter {
 public:
  RowWriter() = default;
  RowWriter(const RowWriter&) = delete;
  RowWriter& operator=(const RowWriter&) = delete;
  virtual ~RowWriter() = default;

  /// What comes before the first row. Valid until the next call, as all results are.
  [[nodiscard]] virtual const std::string& header(const SampleTable& table) = 0;
  /// @param row  With its time.
  [[nodiscard]] virtual const std::string& row(const ListedMessage& message,
                                               const SampleTable& table, const Row& row) = 0;
  /// In the place of the rows of a message that cannot be shown; may be empty.
  [[nodiscard]] virtual const std::string& problem(const ListedMessage& message,
                                                   const Problem& problem) = 0;
};

/// One JSON object a line, each complete by itself.
class NdjsonRows final : public RowWriter {
 public:
  [[nodiscard]] const std::string& header(const SampleTable& table) override;
  [[nodiscard]] const std::string& row(const ListedMessage& message, const SampleTable& table,
                                       const Row& row) override;
  [[nodiscard]] const std::string& problem(const ListedMessage& message,
                                           const Problem& problem) override;

 private:
  void add(const Value& value);

  JsonWriter json_;
  std::string scratch_;
};

/// Comma-separated values (RFC 4180, but for lines that end in a line feed alone), the names of the
/// fields first. Problems have no line.
class CsvRows final : public RowWriter {
 public:
  [[nodiscard]] const std::string& header(const SampleTable& table) override;
  [[nodiscard]] const std::string& row(const ListedMessage& message, const SampleTable& table,
                                       const Row& row) override;
  [[nodiscard]] const std::string& problem(const ListedMessage& message,
                                           const Problem& problem) override;

 private:
  void add(const Value& value);

  std::string line_;
};

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_ROW_WRITER_H_
