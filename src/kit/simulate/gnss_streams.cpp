// The GNSS receiver's solutions, and the three logs of raw receiver data.
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "kit/simulate/gnss_receiver.h"
#include "kit/simulate/nmea.h"
#include "kit/simulate/random.h"
#include "kit/simulate/rtcm.h"
#include "kit/simulate/sampled_stream.h"
#include "kit/simulate/streams.h"
#include "kit/simulate/time_base.h"

namespace morva::sim {

namespace {

namespace pb = protix::kbag_msgs;

constexpr std::uint32_t kServices = 1 | 2 | 4 | 8;  // all four constellations
constexpr std::uint32_t kFrameWgs84 = 1;
constexpr std::int64_t kNtripPeriodUs = 1'000'000;
constexpr std::int64_t kPpkPeriodUs = 500'000;

std::int64_t endOf(const Scene& scene) { return kStartUs + durationUs(scene.options.seconds); }

class GnssStream final : public SampledStream<pb::GnssMsgArray> {
 public:
  explicit GnssStream(const Scene& scene)
      : SampledStream("/gnss_data", {kStartUs, endOf(scene), kGnssPeriodUs, 1},
                      GnssReceiver::kScale),
        receiver_(scene) {}

 private:
  bool fill(std::int64_t timeUs, pb::GnssMsg* sample) override {
    const GnssFix fix = receiver_.fixAt(timeUs);
    sample->set_status(fix.status);
    sample->set_service(kServices);
    sample->set_frame(kFrameWgs84);
    sample->set_satellite_num(fix.satellites);
    sample->set_utc_time(fix.timeUs);
    sample->set_latitude(fix.latitudeDeg);
    sample->set_longitude(fix.longitudeDeg);
    sample->set_altitude(fix.altitude);
    sample->set_undulation(fix.undulation);
    sample->set_pdop(fix.pdop);
    sample->set_hdop(fix.hdop);
    sample->set_vdop(fix.vdop);
    sample->set_lat_sigma(fix.latSigma);
    sample->set_lon_sigma(fix.lonSigma);
    sample->set_hgt_sigma(fix.hgtSigma);
    return true;
  }

  GnssReceiver receiver_;
};

// Bytes as a receiver sends them, a piece of log per period.
class RawLogStream : public SampledStream<pb::LogMsgArray> {
 public:
  RawLogStream(std::string topic, const Scene& scene, std::int64_t periodUs)
      : SampledStream(std::move(topic), {kStartUs, endOf(scene), periodUs, 1}, 0) {}

 protected:
  [[nodiscard]] virtual std::string bytesAt(std::int64_t timeUs) = 0;

 private:
  bool fill(std::int64_t timeUs, pb::LogMsg* sample) final {
    sample->set_data(bytesAt(timeUs));
    return true;
  }
};

class RawGnssLog final : public RawLogStream {
 public:
  explicit RawGnssLog(const Scene& scene)
      : RawLogStream("/raw_gnss_log", scene, kGnssPeriodUs), receiver_(scene) {}

 private:
  std::string bytesAt(std::int64_t timeUs) override {
    return nmeaSentences(receiver_.fixAt(timeUs));
  }

  GnssReceiver receiver_;
};

// Correction data of a base station: framed and checksummed, with meaningless contents.
class RawNtripLog final : public RawLogStream {
 public:
  explicit RawNtripLog(const Scene& scene)
      : RawLogStream("/raw_ntrip_log", scene, kNtripPeriodUs),
        random_(scene.options.seed, "ntrip") {}

 private:
  std::string bytesAt(std::int64_t /*timeUs*/) override {
    std::string bytes;
    for (int i = 0; i < 4; ++i) bytes += rtcmFrame(random_.bytes(60 + random_.below(200)));
    return bytes;
  }

  Random random_;
};

// Raw observations, in no format.
class RawPpkLog final : public RawLogStream {
 public:
  explicit RawPpkLog(const Scene& scene)
      : RawLogStream("/raw_ppk_log", scene, kPpkPeriodUs), random_(scene.options.seed, "ppk") {}

 private:
  std::string bytesAt(std::int64_t /*timeUs*/) override {
    return random_.bytes(300 + random_.below(600));
  }

  Random random_;
};

}  // namespace

StreamPtr makeGnssStream(const Scene& scene) { return std::make_unique<GnssStream>(scene); }

StreamPtr makeRawGnssLog(const Scene& scene) { return std::make_unique<RawGnssLog>(scene); }

StreamPtr makeRawNtripLog(const Scene& scene) { return std::make_unique<RawNtripLog>(scene); }

StreamPtr makeRawPpkLog(const Scene& scene) { return std::make_unique<RawPpkLog>(scene); }

}  // namespace morva::sim
