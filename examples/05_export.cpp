// Exports topics into files:  05_export REC.kbag OUT_DIR [TOPIC...]
//
// Without topics: all of them. A line is printed for every ten percent; any number of workers may
// be asked for.

#include <cstdio>
#include <string>

#include "morva/bag.h"
#include "morva/export.h"

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s REC.kbag OUT_DIR [TOPIC...]\n", argv[0]);
    return 2;
  }

  morva::MorvaBag bag;
  const int code = bag.open(argv[1], morva::BagMode::kRead);
  if (code != morva::MorvaBag::kOpenOk) {
    std::fprintf(stderr, "cannot open %s: code %d\n", argv[1], code);
    return 1;
  }

  morva::ExportOptions options;
  options.topics.assign(argv + 3, argv + argc);
  options.threads = 2;
  unsigned long long printed = 0;
  options.progress = [&printed](const morva::ExportProgress& progress) {
    const unsigned long long tens = progress.doneBytes * 10 / progress.totalBytes;
    if (tens != printed) std::printf("%llu %%\n", tens * 10);
    printed = tens;
    return true;  // false would stop
  };

  const morva::ExportResult result = morva::exportTopics(&bag, argv[2], options);
  for (const std::string& topic : result.failedTopics) {
    std::printf("not exported whole: %s\n", topic.c_str());
  }
  for (const morva::TopicInfo& topic : bag.getInfo().topics) {
    const std::string file = morva::exportFile(options.layout, topic.name);
    if (!file.empty()) std::printf("%s: %s\n", topic.name.c_str(), file.c_str());
  }
  std::printf("code %d\n", result.code);
  return result.code == morva::kExportOk ? 0 : 1;
}
