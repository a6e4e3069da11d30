// What the server and a session's worker process say over their two pipes.
// Each message is a JSON header and a byte payload (often empty), framed by
// their lengths. The server sends one request at a time and reads its reply;
// only "cancel" may come while a request runs, and it gets no reply.
//
//   request header                         reply
//   {"op": "open", "steps": [TEXT, ...]}   {"status": 200, "width": W, "height": H, "dropped":
//     payload: the photo file's bytes        [indices of steps that changed nothing], shown...}
//   {"op": "step", "step": TEXT}           {"status": 200, ...} (WorkerSession::step)
//   {"op": "cancel"}                       none
//   {"op": "file", "name": N}              {"status": 200, "type": T}, payload: the file
//   {"op": "view", "kind": K, "max": M}    {"status": 200, "type": T}, payload: the image
//
// "open" replays the steps of a session whose worker died into the new one.
// A failed request is answered {"status": 4xx or 5xx, "error": "words for a person"}.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

struct Message {
  nlohmann::json header;
  std::string payload;
};

// Writes one message whole. False when the other end has gone.
bool writeMessage(int fd, const nlohmann::json& header, std::string_view payload);
bool writeMessage(int fd, const Message& message);

// Reads one message. Empty when the other end closed the pipe or sent a
// frame that does not parse.
std::optional<Message> readMessage(int fd);

// A request the worker refuses: becomes the reply {"status", "error"}.
struct RequestError : std::runtime_error {
  RequestError(int status, const std::string& message) : std::runtime_error(message), status(status) {}
  int status;
};

Message errorReply(int status, const std::string& message);
