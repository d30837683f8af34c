#include <string>

#include <gtest/gtest.h>

#include "kit/simulate/nmea.h"
#include "kit/simulate/rtcm.h"

using morva::sim::GnssFix;
using morva::sim::nmeaSentence;
using morva::sim::nmeaSentences;

TEST(NmeaSentence, CarriesTheChecksumOfAPublishedExample) {
  EXPECT_EQ(nmeaSentence("GPGGA,092750.000,5321.6802,N,00630.3372,W,1,8,1.03,61.7,M,55.2,M,,"),
            "$GPGGA,092750.000,5321.6802,N,00630.3372,W,1,8,1.03,61.7,M,55.2,M,,*76\r\n");
}

TEST(NmeaSentences, PrintAFixInEveryField) {
  GnssFix fix;
  fix.timeUs = 1'700'000'000'200'000;  // 2023-11-14 22:13:20.2 UTC
  fix.status = 3;
  fix.satellites = 7;
  fix.latitudeDeg = 48.5;
  fix.longitudeDeg = -11.25;
  fix.altitude = 563'250;
  fix.undulation = 45'750;
  fix.hdop = 600;
  fix.latSigma = 12;
  fix.lonSigma = 13;
  fix.hgtSigma = 1'022;
  fix.speedMS = 1.0;
  fix.courseDeg = 90.0;
  const std::string position = "4830.0000000,N,01115.0000000,W,";
  EXPECT_EQ(nmeaSentences(fix),
            nmeaSentence("GNGGA,221320.20," + position + "4,07,0.600,517.500,M,45.750,M,,") +
                nmeaSentence("GNRMC,221320.20,A," + position + "1.944,90.00,141123,,,") +
                nmeaSentence("GNGST,221320.20,,,,,0.012,0.013,1.022"));
}

TEST(NmeaSentences, RoundMinutesIntoTheNextDegree) {
  GnssFix fix;
  fix.latitudeDeg = 47.99999999999;
  fix.longitudeDeg = 0.0;
  EXPECT_NE(nmeaSentences(fix).find(",4800.0000000,N,00000.0000000,E,"), std::string::npos);
}

TEST(NmeaSentences, SayWhichQualityAFixHas) {
  const auto qualityOf = [](int status) {
    GnssFix fix;
    fix.status = status;
    const std::string text = nmeaSentences(fix);
    return std::string{text[text.find(",E,") + 3], text[text.find("RMC,") + 14]};
  };
  EXPECT_EQ(qualityOf(-1), "0V");
  EXPECT_EQ(qualityOf(0), "0V");
  EXPECT_EQ(qualityOf(1), "1A");
  EXPECT_EQ(qualityOf(2), "2A");
  EXPECT_EQ(qualityOf(3), "4A");
}

TEST(NmeaSentences, PrintNegativeAltitudes) {
  GnssFix fix;
  fix.altitude = -1'500;
  fix.undulation = 45'000;
  EXPECT_NE(nmeaSentences(fix).find(",-46.500,M,45.000,M,"), std::string::npos);
}

TEST(RtcmFrame, IsTheFrameOfAPublishedExample) {
  const std::string content =
      "\x3E\xD7\xD3\x02\x02\x98\x0E\xDE\xEF\x34\xB4\xBD\x62\xAC\x09\x41\x98\x6F\x33";
  ASSERT_EQ(content.size(), 19U);
  EXPECT_EQ(morva::sim::rtcmFrame(content),
            std::string("\xD3\x00\x13", 3) + content + "\x36\x0B\x98");
}

TEST(RtcmFrame, PutsTheLengthIntoTenBits) {
  const std::string frame = morva::sim::rtcmFrame(std::string(700, 'x'));
  EXPECT_EQ(frame.size(), 706U);
  EXPECT_EQ(frame.substr(0, 3), "\xD3\x02\xBC");
}
