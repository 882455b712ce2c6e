// Runs a fuzz target's check over files, without libFuzzer: every input the fuzzers kept (and
// every crash they found) stays a regression test of the ordinary build. Arguments are files or
// folders (each file in a folder is one input). A failing check aborts, as under the fuzzer.
//
//   build/native/bin/xml_roundtrip_fuzz_replay fuzz/corpus/xml_roundtrip
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> inputs;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path arg(argv[i]);
    if (std::filesystem::is_directory(arg)) {
      for (const auto& entry : std::filesystem::directory_iterator(arg))
        if (entry.is_regular_file()) inputs.push_back(entry.path());
    } else {
      inputs.push_back(arg);
    }
  }
  if (inputs.empty()) {
    std::fprintf(stderr, "no inputs\n");
    return 2;
  }
  for (const auto& path : inputs) {
    std::ifstream in(path, std::ios::binary);
    const std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.good() && !in.eof()) {
      std::fprintf(stderr, "cannot read %s\n", path.string().c_str());
      return 2;
    }
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(data.data()), data.size());
  }
  std::printf("%zu inputs replayed\n", inputs.size());
  return 0;
}
