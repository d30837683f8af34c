// The listings of a recording: as a whole, by topic, by message and by sample.
#include <cstdint>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "kit/inspect/report_json.h"
#include "kit/inspect/report_text.h"
#include "kit/inspect/row_writer.h"
#include "kit/inspect/sample_listing.h"
#include "kit/inspect/schemas.h"
#include "kit/inspect/summary.h"
#include "target.h"
#include "work_place.h"

namespace morva::fuzz {
namespace {

using inspect::JsonWriter;
using inspect::Recording;
using inspect::Selection;

/// Ends the process where a line is no JSON. @return Lines.
std::uint64_t expectJsonLines(std::string_view text) {
  std::uint64_t lines = 0;
  for (; !text.empty(); ++lines) {
    const std::size_t end = text.find('\n');
    expect(end != std::string_view::npos, "a listing ends within a line");
    expect(nlohmann::json::accept(text.substr(0, end)), "a line of a listing is no JSON");
    text.remove_prefix(end + 1);
  }
  return lines;
}

Selection partOf(std::string_view topics) {
  Selection part;
  part.topics = {std::string(topics)};
  part.from = inspect::TimeLimit::parse("+100ms");
  part.to = inspect::TimeLimit::parse("-1us");
  return part;
}

void listWhole(const Recording& recording, const Selection& selection) {
  const inspect::Summary summary = summarize(recording, selection);
  JsonWriter json;
  writeInfo(recording, selection, summary, &json);
  expect(expectJsonLines(json.text()) == 1, "an account is not one line");
  for (const inspect::TopicSummary& topic : summary.topics) {
    json.clear();
    writeTopic(recording, topic, &json);
    expect(expectJsonLines(json.text()) == 1, "a topic is not one line");
  }
  expect(!infoText(recording, summary).empty(), "an account has no text");
  expect(summary.topics.empty() || !topicsText(summary).empty(), "topics have no text");

  inspect::MessageOrder messages(recording, selection, inspect::SelectBy::kFirstTime);
  std::uint64_t listed = 0;
  for (; const auto message = messages.next(); ++listed) {
    json.clear();
    writeMessage(recording, *message, &json);
    expect(expectJsonLines(json.text()) == 1, "a message is not one line");
    expect(!messageText(*message).empty(), "a message has no text");
  }
  expect(listed == summary.amounts.messages, "other messages are listed than are counted");
}

void listSamples(Recording* recording, const Selection& selection, const inspect::Detail& detail) {
  inspect::SampleListing listing(recording, selection, detail);
  if (!listing.hasTopics()) return;
  const auto print = [](std::string_view text) {
    expectJsonLines(text);
    return true;
  };
  inspect::NdjsonRows lines;
  const std::uint64_t lost = listing.print(&lines, print);

  if (!listing.isOfOneKind()) return;
  inspect::SampleListing again(recording, selection, detail);
  inspect::CsvRows table;
  const auto take = [](std::string_view text) {
    expect(text.empty() || text.back() == '\n', "a table ends within a line");
    return true;
  };
  expect(again.print(&table, take) == lost, "a table has other messages than the lines");
}

}  // namespace

void runList(std::string_view input) {
  WorkPlace& place = WorkPlace::get();
  place.put(RecordingInput::parse(input));
  for (const bool scan : {false, true}) {
    Recording recording;
    if (const auto problem = recording.open(place.bag(), scan)) {
      JsonWriter json;
      writeFailedInfo(recording, *problem, &json);
      writeFailure(inspect::kCatSchema, recording, *problem, &json);
      expect(expectJsonLines(json.text()) == 2, "a failure is not one line");
      continue;
    }
    listWhole(recording, {});
    listWhole(recording, partOf("/*"));
    listSamples(&recording, {}, {.points = true, .data = true});
    listSamples(&recording, partOf("/[cil]*"), {});
  }
  place.expectNothingElse();
}

}  // namespace morva::fuzz
