// main() of a fuzz target outside libFuzzer: runs every corpus file, then mutations of them from a fixed seed, so that
// a run is the same everywhere. Each input stands alone in a heap block of its exact size: with the address sanitizer
// one byte too far is seen.
//
//   fuzz_NAME CORPUS_FOLDER [MUTATIONS]
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::size_t kMaxInput = 64 * 1024;

void RunOne(const std::string& input) {
  const auto block = std::make_unique<std::uint8_t[]>(input.size());
  std::memcpy(block.get(), input.data(), input.size());
  LLVMFuzzerTestOneInput(block.get(), input.size());
}

std::vector<std::string> ReadCorpus(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> paths;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    if (entry.is_regular_file()) paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());  // the order of a folder differs between machines
  std::vector<std::string> corpus;
  for (const auto& path : paths) {
    std::ifstream file(path, std::ios::binary);
    corpus.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return corpus;
}

/// Pieces that parsers of this system treat specially.
constexpr std::array<const char*, 24> kPieces = {
    "<",  ">",  "'",  "\"", "%",    "%00",  "%u0041", "&#",       "\\",       "|",   "{*}", "{#}",
    "--", "/*", "*/", "==", "\r\n", "\xFF", "\x81",   "\xE4\xB8", "[[[[[[[[", "{\"", "0x",  "select"};

class CMutator {
 public:
  explicit CMutator(const std::vector<std::string>& corpus) : corpus_(corpus) {}

  std::string Next() {
    std::string text = corpus_[Below(corpus_.size())];
    for (std::size_t steps = 1 + Below(4); steps > 0; --steps) Change(text);
    if (text.size() > kMaxInput) text.resize(kMaxInput);
    return text;
  }

 private:
  std::size_t Below(std::size_t limit) { return static_cast<std::size_t>(random_() % limit); }
  std::size_t Place(const std::string& text) { return Below(text.size() + 1); }

  void Change(std::string& text) {
    const std::size_t at = Place(text);
    switch (Below(7)) {
      case 0:  // one bit
        if (at < text.size()) text[at] = static_cast<char>(text[at] ^ (1 << Below(8)));
        break;
      case 1:  // another byte
        if (at < text.size()) text[at] = static_cast<char>(Below(256));
        break;
      case 2:  // a piece with a meaning
        text.insert(at, kPieces[Below(kPieces.size())]);
        break;
      case 3:  // the end is missing
        text.resize(at);
        break;
      case 4:  // a hole
        text.erase(at, Below(16));
        break;
      case 5: {  // a stretch repeated
        const std::string stretch = text.substr(at, Below(32));
        for (std::size_t n = 1 + Below(8); n > 0; --n) text.insert(at, stretch);
        break;
      }
      default: {  // the head of one file, the tail of another
        const std::string& other = corpus_[Below(corpus_.size())];
        text = text.substr(0, at) + other.substr(Place(other));
        break;
      }
    }
  }

  const std::vector<std::string>& corpus_;
  std::mt19937_64 random_{20240229};
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s CORPUS_FOLDER [MUTATIONS]\n", argv[0]);
    return 2;
  }
  const std::vector<std::string> corpus = ReadCorpus(argv[1]);
  if (corpus.empty()) {
    std::fprintf(stderr, "no corpus file in %s\n", argv[1]);
    return 1;
  }
  RunOne("");
  for (const std::string& input : corpus) RunOne(input);
  const long mutations = argc > 2 ? std::atol(argv[2]) : 0;
  CMutator mutator(corpus);
  for (long i = 0; i < mutations; ++i) RunOne(mutator.Next());
  std::printf("%zu corpus files, %ld mutations\n", corpus.size(), mutations);
  return 0;
}
