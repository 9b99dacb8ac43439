// Case files of scripts: one a line, what is expected, a tab, the script, and perhaps a tab and the place of the
// finding. In scripts and places "\n", "\t", "\r", "\\" and "\xHH" are bytes, and "\*COUNT{TEXT}" is a text over and
// over. A place is what stands there; "inner " before it: what runs the code that was found; "converted" or "decoded":
// it counts in no text that was sent.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "checks/webshell_finding.h"
#include "common/text.h"
#include "engines/webshell/decoding/decoders.h"
#include "engines/webshell/webshell_scan.h"
#include "tests/engines/text_generator.h"

namespace qiv {

// "*COUNT{TEXT}" at the begin of `rest`: the text as often as that; bytes read, 0 when it is malformed.
inline std::size_t Repetition(std::string_view rest, std::string* script) {
  const std::size_t open = rest.find('{');
  const std::size_t close = rest.find('}', open == std::string_view::npos ? open : open + 2);
  if (close == std::string_view::npos) return 0;
  for (std::uint32_t count = DigitsToNumber(rest.substr(1, open - 1)); count > 0; --count)
    script->append(rest.substr(open + 1, close - open - 1));
  return close + 1;
}

inline std::optional<std::string> Unescape(std::string_view line) {
  std::string script;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] != '\\') {
      script += line[i];
      continue;
    }
    const std::string_view rest = line.substr(++i);
    const std::size_t plain = std::string_view("ntr\\").find(rest.empty() ? ' ' : rest[0]);
    if (plain != std::string_view::npos) {
      script += "\n\t\r\\"[plain];
    } else if (rest.starts_with("x") && DecodeHex(rest.substr(1, 2)).size() == 1) {
      script += DecodeHex(rest.substr(1, 2));
      i += 2;
    } else if (const std::size_t used = rest.starts_with("*") ? Repetition(rest, &script) : 0; used != 0) {
      i += used - 1;
    } else {
      return std::nullopt;
    }
  }
  return script;
}

inline std::string PlaceShown(const WebshellResult& result, std::string_view text) {
  if (result.view == TextView::kConverted) return "converted";
  if (result.view == TextView::kDecoded) return "decoded";
  return (result.view == TextView::kInner ? "inner " : "") + std::string(result.In(text));
}

/// Scans the scripts of the file; shown(result, words) is what must equal the first field. The number of cases.
/// A line that is no case is a failure.
template <typename Shown>
int RunScriptCases(const std::string& path, const Shown& shown) {
  std::ifstream file(path, std::ios::binary);
  const CQivLibs libs;
  int cases = 0;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (line.empty() || line.starts_with("#")) continue;
    const std::vector<std::string_view> fields = Split(line, '\t');
    const std::optional<std::string> script = fields.size() < 2 ? std::nullopt : Unescape(fields[1]);
    const std::optional<std::string> place = fields.size() < 3 ? std::string() : Unescape(fields[2]);
    EXPECT_TRUE(script && !script->empty() && place && fields.size() < 4) << "malformed line " << number;
    if (!script || !place) continue;
    WithExactCopy(*script, [&](std::string_view text) {
      WebshellResult result;
      const bool found = libs.WebshellScan(text, &result);
      const WebshellWords words = WordsOf(result, Language::kEnglish);
      EXPECT_EQ(found ? shown(result, words) : "none", fields[0])
          << "line " << number << ": " << fields[1].substr(0, 200);
      EXPECT_LE(result.place.offset + result.place.length, text.size()) << "line " << number;
      EXPECT_EQ(fields.size() > 2 ? PlaceShown(result, text) : "", *place) << "line " << number;
    });
    ++cases;
  }
  return cases;
}

}  // namespace qiv
