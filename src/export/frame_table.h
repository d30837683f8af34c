#ifndef MORVA_EXPORT_FRAME_TABLE_H_
#define MORVA_EXPORT_FRAME_TABLE_H_

#include <cstdint>
#include <string>

#include "export/frame_loop.h"
#include "export/table_row.h"
#include "messages/msg_converter.h"
#include "platform/file.h"
#include "platform/log.h"

namespace morva {

/// What is particular to one table of samples. Texts with "%d" take what a write returned.
template <typename Frame, typename FillRow = void (*)(const Frame& frame, TableRow* row)>
struct FrameTable {
  const char* operation;  ///< the operation that log lines name
  const char* header;     ///< the first line
  const char* errorText;
  const char* headerErrorText = nullptr;  ///< null: a header that is not written is not logged
  MsgConverter::Frames<Frame> (*convert)(const std::string& payload);
  FillRow fillRow;
};

/// Writes the header line and one row per frame, and closes the file.
///
/// @param className  The class that log lines name.
/// @param file       Open for writing; after a failure it may still be open.
/// @return False after an error line (see headerErrorText) when a line is not written whole or
/// bytes
///         are lost at the end; what follows is not written then.
template <typename Frame, typename FillRow>
[[nodiscard]] bool writeTable(const char* className, const FrameTable<Frame, FillRow>& table,
                              const MorvaBag& bag, const MorvaBag::View& view, osmik::File* file,
                              const MessageDone& done = {}) {
  const Log log(className, table.operation);
  const std::int64_t headerWritten = file->write(table.header);
  if (headerWritten < 1) {
    if (table.headerErrorText != nullptr) log.error(table.headerErrorText, headerWritten);
    return false;
  }
  TableRow row;
  const auto writeRow = [&](const Frame& frame) {
    table.fillRow(frame, &row);
    const std::int64_t written = file->write(row.text());
    if (written == static_cast<std::int64_t>(row.text().size())) return true;
    log.error(table.errorText, written);
    return false;
  };
  if (!forEachFrameWhile(log, bag, view, table.convert, writeRow, done)) return false;

  if (file->close()) return true;
  log.error(table.errorText, -1);
  return false;
}

}  // namespace morva

#endif  // MORVA_EXPORT_FRAME_TABLE_H_
