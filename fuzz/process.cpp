#include "process.h"

#include <cstdio>
#include <memory>

#include <google/protobuf/stubs/logging.h>

#include "platform/singleton.h"
#include "platform/tracer.h"
#include "target.h"

namespace morva::fuzz {
namespace {

/// A log without a sink would not even be formatted.
class DropLines final : public osmik::TracerSink {
 public:
  void write(int /*level*/, std::string_view /*line*/) override {}
};

}  // namespace

void prepareProcess() {
  expect(std::freopen("/dev/null", "w", stdout) != nullptr, "standard output cannot be dropped");
  google::protobuf::SetLogHandler(nullptr);
  osmik::Singleton<osmik::Tracer>::getInstance().addSink(std::make_shared<DropLines>());
}

}  // namespace morva::fuzz
