#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kit/command.h"
#include "kit/console.h"
#include "kit/simulate/simulate.h"
#include "platform/interrupt.h"
#include "platform/str_util.h"

namespace morva::kit {

namespace {

using osmik::StrUtil;

struct Arguments {
  sim::Options options;
  std::string compression = "lz4";
  double flushSeconds = 0.0;
  bool uncalibrated = false;
};

const std::map<std::string, CompressionType>& compressions() {
  static const std::map<std::string, CompressionType> kCompressions = {
      {"none", CompressionType::kNone},
      {"lz4", CompressionType::kLz4},
      {"zstd", CompressionType::kZstd}};
  return kCompressions;
}

// CLI::Range lets not-a-number pass.
CLI::Validator number(double low, double high) {
  const std::string range = StrUtil::format("%g to %g", low, high);
  return {[low, high, range](std::string& text) {
            double value = 0.0;
            const bool fits =
                CLI::detail::lexical_cast(text, value) && value >= low && value <= high;
            return fits ? std::string() : text + " is not a number from " + range;
          },
          range};
}

void print(const std::string& text) { std::fputs(text.c_str(), stdout); }

void printSummary(const sim::Options& options, const std::vector<sim::TopicSummary>& topics) {
  print(StrUtil::format("%s: %g s\n", options.bagPath, options.seconds));
  print(heading(StrUtil::format("%-28s %9s %9s %12s", "topic", "messages", "samples", "bytes")) +
        "\n");
  for (const sim::TopicSummary& topic : topics) {
    print(StrUtil::format("%-28s %9llu %9llu %12llu\n", topic.topic, topic.messages, topic.samples,
                          topic.bytes));
  }
}

// Shows the progress, and clears away when interrupted.
bool simulateVisibly(const sim::Options& options, std::vector<sim::TopicSummary>* topics) {
  const osmik::Interrupt interrupt;
  ProgressLine line("simulating " + options.bagPath);
  const auto progress = [&line](double part) {
    line.show(part);
    return !osmik::Interrupt::requested();
  };
  return sim::simulate(options, progress, topics);
}

ExitCode run(const Arguments& arguments) {
  sim::Options options = arguments.options;
  options.calibrated = !arguments.uncalibrated;
  options.compression = compressions().at(arguments.compression);  // one of them: checked
  options.lossBound.intervalUs = std::llround(arguments.flushSeconds * 1e6);
  std::vector<sim::TopicSummary> topics;
  if (!simulateVisibly(options, &topics)) {
    std::fprintf(stderr, "kbagkit: %s%s was not made\n",
                 osmik::Interrupt::requested() ? "interrupted: " : "", options.bagPath.c_str());
    return kFailed;
  }
  printSummary(options, topics);
  return kDone;
}

void addOptions(CLI::App* command, Arguments* arguments) {
  sim::Options& options = arguments->options;
  command->add_option("OUT.kbag", options.bagPath, "bag file to make; must not exist")->required();
  command->add_option("--seconds", options.seconds, "length of the recording")
      ->check(number(0.1, 86400.0))
      ->capture_default_str();
  command->add_option("--seed", options.seed, "the same seed gives the same messages")
      ->capture_default_str();
  command->add_option("--points", options.pointsPerFrame, "lidar points per frame, 10 frames/s")
      ->check(CLI::Range(0U, 1'000'000U))
      ->capture_default_str();
  command
      ->add_option("--cameras", options.cameras, "H.264 cameras; 0 leaves out the JPEG camera too")
      ->check(CLI::Range(0U, 7U))
      ->capture_default_str();
  command->add_option("--compression", arguments->compression, "codec of the bag's chunks")
      ->check(CLI::IsMember({"none", "lz4", "zstd"}))
      ->capture_default_str();
  command->add_option("--flush-bytes", options.lossBound.bytes,
                      "bring the bag to the storage device every so many bytes; 0: never");
  command
      ->add_option("--flush-seconds", arguments->flushSeconds,
                   "the same for messages written this long ago; 0: never")
      ->check(number(0.0, 86400.0));
  command->add_option("--noise", options.rangeNoiseM, "standard deviation of lidar ranges, m")
      ->check(number(0.0, 1.0))
      ->capture_default_str();
  command
      ->add_option("--elevation", options.elevationErrorRad,
                   "elevation error of the raw points that the calibration undoes, rad")
      ->check(number(-0.2, 0.2))
      ->capture_default_str();
  command->add_flag("--still", options.still, "the scanner stands still");
  command->add_flag("--uncalibrated", arguments->uncalibrated,
                    "the calibration documents say that they are not calibrated");
  command->add_option("--truth", options.truthPath,
                      "JSON file to make: room, path, calibration, counts; must not exist");
}

}  // namespace

void addSimulateCommand(CLI::App* program, int* exitCode) {
  CLI::App* command = program->add_subcommand(
      "simulate", "Make a recording of a scanner in a room, whose truth is known");
  const auto arguments = std::make_shared<Arguments>();
  addOptions(command, arguments.get());
  command->callback([arguments, exitCode] {
    if (arguments->options.truthPath == arguments->options.bagPath) {
      throw CLI::ValidationError("--truth", "names the bag itself");
    }
    *exitCode = run(*arguments);
  });
}

}  // namespace morva::kit
