// bench_copy FROM TO: a plain copy of a file, 256 KiB at a time.

#include <fcntl.h>
#include <unistd.h>
#include <vector>

#include "bench/peers/file_parts.h"

int main(int count, char** arguments) {
  if (count != 3) peers::fail("usage: bench_copy FROM TO");
  const int from = ::open(arguments[1], O_RDONLY);
  const int to = ::open(arguments[2], O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (from < 0 || to < 0) peers::fail("cannot open");
  std::vector<unsigned char> buffer(peers::kReadBytes);
  while (true) {
    const ssize_t size = ::read(from, buffer.data(), buffer.size());
    if (size < 0) peers::fail("cannot read");
    if (size == 0) break;
    if (::write(to, buffer.data(), static_cast<std::size_t>(size)) != size) {
      peers::fail("cannot write");
    }
  }
  return ::close(to) == 0 ? 0 : 1;
}
