// bench_cloud_text BAG DIRECTORY: the scans of a bag of "/lidar" alone as text files, the plain
// way.

#include "bench/peers/bag_walk.h"
#include "bench/peers/cloud.h"

int main(int count, char** arguments) {
  if (count != 3) peers::fail("usage: bench_cloud_text BAG DIRECTORY");
  peers::Payloads payloads(arguments[1]);
  while (payloads.next()) {
    peers::writeCloud(arguments[2], peers::parseCloud(payloads.data(), payloads.size()));
  }
  return 0;
}
