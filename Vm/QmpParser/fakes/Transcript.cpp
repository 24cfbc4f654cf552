#include "Vm/QmpParser/fakes/Transcript.h"

#include <jansson.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

#include "runtime/base/Release.h"

namespace Vm::fakes {

namespace {

Transcript transcript(const std::filesystem::path& file) {
  Transcript read{file.stem(), {}};
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    const std::unique_ptr<json_t, rt::Release<json_decref>> entry(
        json_loadb(line.data(), line.size(), 0, nullptr));
    const char* direction = nullptr;
    const char* connection = nullptr;
    const char* raw = nullptr;
    size_t length = 0;
    if (json_unpack(entry.get(), "{s:s, s:s, s?s%}", "dir", &direction, "conn", &connection, "raw",
                    &raw, &length) != 0)
      throw std::runtime_error(file.string() + ": not a line of a transcript: " + line);
    // Without bytes it is a note.
    if (std::string(direction) == "<" && raw)
      read.connections[connection].emplace_back(raw, length);
  }
  return read;
}

}  // namespace

std::vector<Transcript> transcripts(const std::string& folder) {
  std::vector<Transcript> all;
  for (const auto& file : std::filesystem::directory_iterator(folder))
    if (file.path().extension() == ".jsonl") all.push_back(transcript(file.path()));
  std::sort(all.begin(), all.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  return all;
}

}  // namespace Vm::fakes
