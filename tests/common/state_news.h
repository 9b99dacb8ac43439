// Reads what a state recorder wrote, for tests.
#pragma once

#include <string>
#include <vector>

#include "common/json.h"
#include "common/state_recorder.h"
#include "port/module_path.h"
#include "tests/port/temporary_directory.h"

namespace qiv {

class CStateNews {
 public:
  /// The lines since the last call, as "kind|state|file|item|reason|detail".
  std::vector<std::string> Take() {
    const std::string content = Content(directory_.Path("debug/_log.log"));
    std::vector<std::string> news;
    for (std::size_t end; (end = content.find('\n', read_)) != content.npos; read_ = end + 1) {
      const auto line = ParseJson(std::string_view(content).substr(read_, end - read_));
      if (line == nullptr) return {"not JSON"};
      std::string text;
      for (const char* name : {"kind", "state", "file", "item", "reason", "detail"}) {
        text += (text.empty() ? "" : "|") + line->AsObject()->GetText(name);
      }
      news.push_back(std::move(text));
    }
    return news;
  }
  CEventLog* Log() { return &log_; }

 private:
  CTemporaryDirectory directory_;
  CEventLog log_{directory_.Path("debug") + kPathSeparator};
  std::size_t read_ = 0;
};

}  // namespace qiv
