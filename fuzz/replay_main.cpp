// Replays fuzz inputs without libFuzzer: every file named on the command
// line, or found directly inside a folder named there, is run once through
// the fuzz target. A crash or sanitizer report fails the run.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    if (fs::is_directory(argv[i])) {
      for (const auto& entry : fs::directory_iterator(argv[i]))
        if (entry.is_regular_file()) inputs.push_back(entry.path());
    } else if (fs::exists(argv[i])) {
      inputs.push_back(argv[i]);
    }
  }
  for (const fs::path& path : inputs) {
    std::ifstream file(path, std::ios::binary);
    std::vector<uint8_t> data((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(data.data(), data.size());
  }
  std::printf("replayed %zu inputs\n", inputs.size());
  return inputs.empty() ? 1 : 0;
}
