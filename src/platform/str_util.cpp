#include "platform/str_util.h"

#include <cstring>
#include <random>

#include <fmt/args.h>
#include <fmt/printf.h>

namespace osmik {
namespace {

void push(fmt::dynamic_format_arg_store<fmt::printf_context>* store, const FormatArg& arg) {
  switch (arg.kind()) {
    case FormatArg::Kind::kInt:
      return store->push_back(static_cast<int>(arg.asInt()));
    case FormatArg::Kind::kUnsigned:
      return store->push_back(static_cast<unsigned int>(arg.asUnsigned()));
    case FormatArg::Kind::kLong:
      return store->push_back(static_cast<long long>(arg.asInt()));
    case FormatArg::Kind::kUnsignedLong:
      return store->push_back(static_cast<unsigned long long>(arg.asUnsigned()));
    case FormatArg::Kind::kDouble:
      return store->push_back(arg.asDouble());
    case FormatArg::Kind::kText:
      return store->push_back(arg.asText());
    case FormatArg::Kind::kPointer:
      return store->push_back(arg.asPointer());
  }
}

}  // namespace

std::string StrUtil::vformat(const char* format, std::initializer_list<FormatArg> args) {
  fmt::dynamic_format_arg_store<fmt::printf_context> store;
  store.reserve(args.size(), 0);
  for (const FormatArg& arg : args) push(&store, arg);
  try {
    return fmt::vsprintf(std::string_view(format), fmt::basic_format_args(store));
  } catch (const fmt::format_error&) {
    return format;
  }
}

std::string StrUtil::randomData(std::size_t size) {
  thread_local std::mt19937_64 generator = [] {
    std::random_device device;
    std::seed_seq seed{device(), device(), device(), device()};
    return std::mt19937_64(seed);
  }();
  std::string data(size, '\0');
  for (std::size_t at = 0; at < size; at += sizeof(std::uint64_t)) {
    const std::uint64_t word = generator();
    std::memcpy(data.data() + at, &word, std::min(sizeof word, size - at));
  }
  return data;
}

}  // namespace osmik
