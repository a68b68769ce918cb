// Runs a fuzz target over files and folders of inputs, without the fuzzing engine: NAME_replay PATH...
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

// False when the file cannot be read. An input that fails aborts; its name is then the last one said.
bool run_file(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> input((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!file.is_open() || file.bad()) return false;
  std::fprintf(stderr, "%s\n", path.c_str());
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
  return true;
}

} // namespace

int main(int argc, char** argv) {
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    if (fs::is_regular_file(argv[i])) {
      if (!run_file(argv[i])) return 1;
      ++count;
    } else if (fs::is_directory(argv[i])) {
      for (const fs::directory_entry& entry : fs::recursive_directory_iterator(argv[i])) {
        if (!entry.is_regular_file()) continue;
        if (!run_file(entry.path())) return 1;
        ++count;
      }
    }
  }
  std::fprintf(stderr, "%zu inputs\n", count);
  return count > 0 ? 0 : 1; // without inputs nothing was tested
}
