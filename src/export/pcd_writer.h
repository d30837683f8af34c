#ifndef MORVA_EXPORT_PCD_WRITER_H_
#define MORVA_EXPORT_PCD_WRITER_H_

#include <cstddef>
#include <string>

#include "messages/frames.h"
#include "platform/log.h"
#include "platform/number_text.h"

namespace morva {

/// The header of an ASCII PCD file of an unorganised cloud of `points` points, "DATA ascii"
/// included.
[[nodiscard]] std::string makePcdHeader(std::size_t points);

/// Room that putPcdRow() needs.
inline constexpr std::size_t kPcdRowBytes =
    4 * (osmik::kFloatTextBytes + 1) + 32 + osmik::kDoubleTextBytes + osmik::kIntegerTextBytes;

/// One point as a line of an ASCII PCD file: position, a normal of zeros, intensity, time, ring, as
/// "%f %f %f %f %f %f %f %.6f %u\n" prints them.
/// @param at  Room for kPcdRowBytes, of which more may be touched than the line takes.
/// @return The first byte behind the line.
[[nodiscard]] char* putPcdRow(const PointIRT& point, char* at);

/// Writes a cloud as an ASCII PCD file, which replaces what has that name and follows no link.
/// @param log  Where failures are logged: a warning when the file cannot be created, an error when
/// the
///             cloud cannot be written whole. No file of that name is left after the error.
/// @return True when the whole file was handed to the system.
[[nodiscard]] bool savePcd(const Log& log, const std::string& path, const PointCloud& cloud);

}  // namespace morva

#endif  // MORVA_EXPORT_PCD_WRITER_H_
