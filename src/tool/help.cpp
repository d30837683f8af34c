#include "tool/commands.h"
#include "tool/console.h"

namespace morva {

void help(const char* program) {
  Console::line(Ink::kYellow, "%s usage:", program);
  Console::line(
      Ink::kYellow, "%s",
      "kbag [-h|--help|-v|--version]\n"
      "kbag info <kbag_file>\n"
      "kbag pinfo <kbag_file>\n"
      "kbag view <kbag_file> [--topic <topic_name...> --since <startstamp_us> <duration_s>]\n"
      "kbag unpack <kbag_file> [--topic <topics...>] [--dir <output_directory>]\n"
      "kbag export <kbag_file> [--topic <topics...>] [--dir <output_directory>]\n"
      "kbag reindex <kbag_file>\n"
      "kbag check <kbag_file>");
}

}  // namespace morva
