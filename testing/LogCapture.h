// Captures what the library sends to the Android log, line by line.
#pragma once

#include <android/log.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

struct LogLine {
  int priority;
  std::string tag;
  std::string text;
  bool operator==(const LogLine& o) const {
    return priority == o.priority && tag == o.tag && text == o.text;
  }
};

// Installs itself as the process logger for its lifetime.
class LogCapture {
 public:
  LogCapture() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    instance() = this;
    __android_log_set_logger(&LogCapture::receive);
  }
  ~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    instance() = nullptr;
  }
  std::vector<LogLine> lines() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
  }
  bool contains(const LogLine& line) const {
    auto all = lines();
    return std::find(all.begin(), all.end(), line) != all.end();
  }
  size_t count(const std::string& tag) const {
    auto all = lines();
    return std::count_if(all.begin(), all.end(), [&](const LogLine& l) { return l.tag == tag; });
  }
  void clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
  }

 private:
  static LogCapture*& instance() {
    static LogCapture* current = nullptr;
    return current;
  }
  static void receive(const __android_logger_data* data, const char* message) {
    LogCapture* self = instance();
    if (!self) return;
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->lines_.push_back({data->priority, data->tag ? data->tag : "", message});
  }
  mutable std::mutex mutex_;
  std::vector<LogLine> lines_;
};
