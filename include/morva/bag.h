#ifndef MORVA_BAG_H_
#define MORVA_BAG_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "morva/records.h"

namespace morva {

class BagFile;
class BagReader;

/// A bag file, open for writing (a new file) or for reading (an existing one).
///
/// Closed -> open() -> open -> close() -> closed, as often as wanted; opening again replaces what
/// was open. Failures are return values and one log line; nothing is thrown. Threads: readMessage()
/// may be called from any number of threads at the same time. open(), close(), writeMessage() and
/// flush() must not run at the same time as any other operation on the same handle.
///
/// What a process has handed to the system survives the process. To survive the machine it must be
/// on the storage device: see flush() and lossBound.
class MorvaBag {
 public:
  using BagMode = morva::BagMode;
  using CompressionType = morva::CompressionType;
  using View = morva::View;
  using TopicInfo = morva::TopicInfo;
  using BagInfo = morva::BagInfo;

  /// Results of open(). The reader's and writer's codes come up unchanged. Values reach logs and
  /// callers: never renumber, only append.
  enum OpenCode : int {
    kOpenOk = 0,
    kOpenNoIndex = 1,      ///< read: no usable index; reindex() mends it
    kOpenExists = 2,       ///< write: something is there already
    kOpenMissing = 3,      ///< read: nothing is there
    kOpenFailed = 4,       ///< the file cannot be opened or created
    kOpenChecksum = 6,     ///< read: the header's checksum is wrong
    kOpenMalformed = 7,    ///< read: no bag, or a damaged start; write: the topic list was refused,
                           ///< or, with a lossBound, the new file not brought to the storage device
    kOpenPrivateData = 8,  ///< write: private data above 4056 bytes, or the header was not written
    kOpenNoTopics = 9,     ///< write: `topics` is empty
  };

  /// Bytes that a message header holds at least: u32 compress flag (0: store as it stands), u32
  /// count word, i64 first header time, i64 second header time (us since the Unix epoch), 8 bytes
  /// unused; little-endian. makeMessageHeader() builds one.
  static constexpr std::size_t kMessageHeaderBytes = 32;

  MorvaBag();
  MorvaBag(const MorvaBag&) = delete;
  MorvaBag& operator=(const MorvaBag&) = delete;
  ~MorvaBag();

  /// Opens `path`. A write creates the file, which must not exist, from the three write options
  /// below and stores `privateData` (at most 4056 bytes, a serialized DeviceInfo message or empty)
  /// in its header; a read ignores `privateData`.
  ///
  /// @return 0 or an OpenCode. Codes 2, 3 and 9 leave the handle as it was; a refused topic list
  ///         leaves the new file open, for the caller to close; after any other failure the handle
  ///         is closed.
  [[nodiscard]] int open(const std::string& path, BagMode mode,
                         const std::string& privateData = {});

  /// Opens `path` for getInfo() and getDeviceInfo() alone: as open() for reading, but nothing is
  /// kept of the index's entries, which can be most of what a bag takes in memory. Views are empty.
  [[nodiscard]] int openForInfo(const std::string& path);

  /// Closes what is open: a bag being written gets its index and final header here, and where it
  /// has a lossBound or was ever flushed, all of it is on the storage device afterwards.
  /// @return False, after an error line, when something of a written bag did not reach the file.
  bool close();

  /// Appends one message.
  /// @param topic   One of `topics`.
  /// @param timeUs  Message time, us since the Unix epoch.
  /// @param header  At least kMessageHeaderBytes, see there.
  /// @param data    Payload. An empty one, or a count word of 0, is stored and refused when read.
  /// @return False after an error line: the message is not part of the recording. The bag stays
  ///         open; messages written before are not affected. A flush for the lossBound that fails
  ///         refuses the message like a failed write.
  [[nodiscard]] bool writeMessage(const std::string& topic, std::int64_t timeUs,
                                  const std::string& header, const std::string& data);

  /// Brings every message written so far to the storage device: hands the write buffer to the
  /// system, then waits until the device has the file and, the first time, its name. What was
  /// flushed is found by reindex() whatever happens to the machine later. Cost: as long as the
  /// device takes.
  /// @return False after an error line: of what was written since the last successful flush
  ///         nothing is promised. Once the device itself has failed a flush, all later ones fail,
  ///         since nobody can tell what it has lost; record into a new file then.
  [[nodiscard]] bool flush();

  /// The header that writeMessage() takes.
  [[nodiscard]] static std::string makeMessageHeader(bool compress, std::uint32_t count,
                                                     std::int64_t firstTimeUs,
                                                     std::int64_t secondTimeUs);

  /// Reads one message and verifies its checksum.
  /// @param index  Entry of a view of this bag.
  /// @param data   [out] The payload, one serialized array message; unspecified on failure.
  /// @return False after an error line; the bag stays usable.
  [[nodiscard]] bool readMessage(const View::MsgIndex& index, std::string* data) const;

  /// Messages of one topic whose first header time lies in [startUs, startUs + durationS], in the
  /// order in which they were written. A start or a duration of 0 or less sets no upper bound (but
  /// for the year 2100). Unknown topics log a line; they, a closed bag and one open for writing
  /// give an empty view.
  [[nodiscard]] View getView(const std::string& topic, std::int64_t startUs,
                             std::int64_t durationS) const;
  /// The views of several topics, one after another in the order of the list.
  [[nodiscard]] View getView(const std::vector<std::string>& topics, std::int64_t startUs,
                             std::int64_t durationS) const;

  /// Every message in file order, found by walking the chunks of a bag: needs no index.
  /// @param path   Of the bag. Damage ends the walk with a warning; what was before it is kept.
  /// @param index  [out, may be null] The index rebuilt by the walk, serialized for an index chunk.
  [[nodiscard]] static View getAllView(const std::string& path, std::string* index);

  /// What the bag holds; all zero when none is open for reading. Reads memory only.
  [[nodiscard]] BagInfo getInfo() const;

  /// The device record of the bag's header; empty where there is none.
  /// @param text  [out, may be null] The record as JSON; left as it was where there is none.
  [[nodiscard]] DeviceInfo getDeviceInfo(std::string* text) const;

  /// Rebuilds the index of the bag at `path` into the side file "<path>.index", by walking its
  /// chunks.
  /// @return 0, or after a log line: 1 the walk failed, 3 no bag, 4 the side file cannot be
  ///         created, 5, 6 or 8 it could not be written,
  ///         or the reader's open code.
  [[nodiscard]] static int reindex(const std::string& path);

  /// Reads and verifies every chunk of the bag at `path`, from the first to the end chunk.
  /// @return 0 when all is sound, or after a log line: 3 no bag,
  ///         7 a damaged, unknown or missing chunk,
  ///         or the reader's open code.
  [[nodiscard]] static int checkAll(const std::string& path);

  /// Told the file offset of each message that a check has verified; false ends the check.
  using CheckProgress = std::function<bool(std::uint64_t offset)>;
  static constexpr int kCheckStopped = -1;
  /// The same, for bags that take long.
  /// @return As above, or kCheckStopped, without a line, when `goOn` ended it.
  [[nodiscard]] static int checkAll(const std::string& path, const CheckProgress& goOn);

  /// Version of the bag library.
  [[nodiscard]] static std::string getVersion();

  /// Parent directory and last component of the path of the bag that was opened.
  [[nodiscard]] const std::string& directory() const { return directory_; }
  [[nodiscard]] const std::string& fileName() const { return fileName_; }

  /// Write options, to be filled before a bag is opened for writing.
  std::vector<std::string> topics;  ///< topic names, in the order in which they are numbered
  CompressionType compressionType = CompressionType::kNone;  ///< set by an open for reading
  std::uint32_t writeBufferSize = 0;  ///< bytes gathered before they are handed to the system
  /// What a failing machine may cost; none by default. writeMessage() flushes when it is reached,
  /// so that after each one that returns true fewer than `bytes` of the file, and no message
  /// written `intervalUs` ago or earlier, are missing on the storage device. There is no thread
  /// behind it: before a pause call flush(). After a flush that the device has failed, every
  /// later message is refused.
  LossBound lossBound;

 private:
  [[nodiscard]] int openForWriting(const std::string& path, const std::string& privateData);
  [[nodiscard]] int openForReading(const std::string& path, bool keepEntries);
  void keepName(const std::string& path);
  [[nodiscard]] std::shared_ptr<BagReader> reader() const;

  std::string directory_;
  std::string fileName_;
  std::shared_ptr<BagFile> storage_;
};

}  // namespace morva

#endif  // MORVA_BAG_H_
