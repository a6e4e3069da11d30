#include "WorkerProtocol.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace {

// A header is a few hundred bytes; a payload at most a full-size photo's
// PNG. Anything longer is a broken frame, not a message.
constexpr uint64_t kMaxHeader = 64ull << 20;
constexpr uint64_t kMaxPayload = 4ull << 30;

bool writeAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool readAll(int fd, char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = ::read(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

bool writeMessage(int fd, const nlohmann::json& header, std::string_view payload) {
  const std::string text = header.dump();
  const uint64_t lengths[2] = {text.size(), payload.size()};
  return writeAll(fd, reinterpret_cast<const char*>(lengths), sizeof lengths) &&
         writeAll(fd, text.data(), text.size()) && writeAll(fd, payload.data(), payload.size());
}

bool writeMessage(int fd, const Message& message) { return writeMessage(fd, message.header, message.payload); }

std::optional<Message> readMessage(int fd) {
  uint64_t lengths[2];
  if (!readAll(fd, reinterpret_cast<char*>(lengths), sizeof lengths)) return std::nullopt;
  if (lengths[0] > kMaxHeader || lengths[1] > kMaxPayload) return std::nullopt;
  std::string header(lengths[0], '\0');
  Message message;
  message.payload.resize(lengths[1]);
  if (!readAll(fd, header.data(), header.size()) ||
      !readAll(fd, message.payload.data(), message.payload.size()))
    return std::nullopt;
  message.header = nlohmann::json::parse(header, nullptr, false);
  if (message.header.is_discarded() || !message.header.is_object()) return std::nullopt;
  return message;
}

Message errorReply(int status, const std::string& message) {
  return {{{"status", status}, {"error", message}}, {}};
}
