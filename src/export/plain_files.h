#ifndef MORVA_EXPORT_PLAIN_FILES_H_
#define MORVA_EXPORT_PLAIN_FILES_H_

#include <cstdint>
#include <optional>
#include <string>

#include "export/frame_loop.h"
#include "morva/bag.h"
#include "platform/file.h"
#include "platform/log.h"

/// Outputs that are written as they were recorded, which every exporter has.
namespace morva {

/// Creates the file of a topic, as osmik::openNewFile() does, with a buffer from which its many
/// short rows reach the disk in large writes.
/// @param errorText  Error line where that fails; "%s" is the path.
[[nodiscard]] bool openTopicFile(const Log& log, const LogText& errorText, const std::string& path,
                                 osmik::File* file);

/// Writes `data` into a new file, which replaces what has its name and follows no link.
/// @return Bytes written, -1 where bytes were lost; nothing where the file cannot be created.
[[nodiscard]] std::optional<std::int64_t> writeNewFile(const std::string& path,
                                                       const std::string& data);

/// Appends the payloads of raw-data messages to `file` and closes it.
/// @param errorText  Warning for a payload that is not written whole; "%d" is what the write
/// returned.
/// @return False after that warning when bytes are lost at the end.
[[nodiscard]] bool writeRawData(const Log& log, const char* errorText, const MorvaBag& bag,
                                const MorvaBag::View& view, osmik::File* file,
                                const MessageDone& done = {});

/// Writes the files that messages carry into the directory of `placeholder`, which is closed.
/// A file that cannot be created or written costs a warning, and the next one is tried.
/// @return False after a warning when the placeholder cannot be closed.
[[nodiscard]] bool writeCarriedFiles(const Log& log, const MorvaBag& bag,
                                     const MorvaBag::View& view, osmik::File* placeholder,
                                     const MessageDone& done = {});

}  // namespace morva

#endif  // MORVA_EXPORT_PLAIN_FILES_H_
